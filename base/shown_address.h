#pragma once

#include <cstdint>

// The part of an address that trace lines show: its lower half.
inline uint32_t ShownAddress(const void* address) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}
