#pragma once

#include <cstdint>

// Answers the calls of a schedule's threads to the system: threads, locks, conditions, sleeps and
// the monotonic clock are the scheduler's. Calls of other threads reach the system.
namespace ModelledCalls {

// For the life of the process.
void Install();

// A join with a limit lasts at least that long, in nanoseconds, as on a machine that is busy: a
// wait of seconds in slices of milliseconds would have more runs than can be tried. Until the end
// of the run.
void StretchJoins(int64_t time);

}  // namespace ModelledCalls
