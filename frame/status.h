#pragma once

#include <cstdint>

// Values of "ST", the status of a command.
constexpr uint32_t STATUS_DONE = 0;
constexpr uint32_t STATUS_UNHANDLED = 1;       // a module's default answer
constexpr uint32_t STATUS_NOT_AVAILABLE = 3;   // no collector, or no archive file
constexpr uint32_t STATUS_FOREIGN_RUNS = 5;    // a collector that is not ours is running
constexpr uint32_t STATUS_FAILED = 6;          // the job failed, or the switch is shutting down
constexpr uint32_t STATUS_EXCEPTION = 13;      // while the request was handled
constexpr uint32_t STATUS_OTHER_CABINET = 20;  // not for the server cabinet
constexpr uint32_t STATUS_PENDING = 22;        // queued; the final status follows
