#pragma once

#include <cstdio>
#include <cstdlib>

// Aborts the program, which a fuzzer keeps as a finding and a replay reports as a failure, unless
// the condition holds.
#define FUZZ_CHECK(condition)                                                             \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)
