#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

// How many descriptors the process has open, including the one that is used to count them.
inline ptrdiff_t CountDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}
