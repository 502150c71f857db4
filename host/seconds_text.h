#pragma once

#include <cstdint>
#include <string>

// "1 second", "2 seconds".
inline std::string SecondsText(uint32_t seconds) {
  return std::to_string(seconds) + (seconds == 1 ? " second" : " seconds");
}
