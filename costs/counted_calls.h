#pragma once

#include <cstdint>

// The calls of all threads since the process began.
struct CountedCalls {
  uint64_t allocations = 0;
  uint64_t bytes = 0;  // that were asked for
  uint64_t locks = 0;  // of POSIX mutexes
};

// Only there when the library that counts is preloaded.
extern "C" [[gnu::weak]] void ReadCountedCalls(CountedCalls* calls);
