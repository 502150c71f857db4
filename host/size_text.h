#pragma once

#include <cstdint>
#include <string>

constexpr int64_t MEBIBYTE = 1'048'576;

// In MiB with one decimal, rounded down: "12.3 MiB".
inline std::string MebibytesText(int64_t bytes) {
  const int64_t tenths = bytes * 10 / MEBIBYTE;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MiB";
}
