#pragma once

#include <cstdint>

class Scheduler;

// What the product's sources call when they are compiled for a schedule; see switching_atomics.h.
namespace schedules {

// The calling thread is about to touch `object`, which others share.
void TouchShared(const void* object);

// True on a thread of a run that is told.
bool IsTold();

// Tells a trace line. What it reads is no part of the schedule, which is the same with and without
// lines.
class TraceScope {
 public:
  TraceScope();
  ~TraceScope();
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

  [[gnu::format(printf, 3, 4)]] void Tell(uint32_t level, const char* format, ...);

 private:
  Scheduler* const m_pScheduler;
};

}  // namespace schedules
