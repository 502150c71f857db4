#pragma once

#include <cstdint>

// The soak's trace sink, which it exports as "Debug": formats every line, notes those that tell
// what became of a task, and throws where it is asked to.

// What the calling thread's lines have told, and whether one of them was answered with an
// exception.
struct SinkNotes {
  bool hasRefused = false;  // the serializer did not take a task
  bool hasQueued = false;   // it took one
  bool hasThrown = false;
};

// The notes of the calling thread since its last call.
SinkNotes TakeSinkNotes();

// The jobs of the process that ended with an exception so far.
uint64_t CountFailedJobs();

// From now on the sink throws at one of so many lines (0: at none), drawn for each thread from
// `seed`.
void SetSinkThrows(uint32_t lines, uint32_t seed);
