#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>

// Throws one of what a host may throw, by the number; some are no std::exception.
[[noreturn]] inline void ThrowAnything(uint32_t number) {
  switch (number % 3) {
    case 0:
      throw std::runtime_error("the host");
    case 1:
      throw std::bad_alloc();
    default:
      throw number;
  }
}
