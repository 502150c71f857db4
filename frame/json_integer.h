#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <optional>

// A JSON number as an integer of 64 bits.
struct JsonInteger {
  uint64_t bits = 0;  // two's complement when negative
  bool isNegative = false;
};

// The integer in `value`; a fraction is truncated. Nothing for what is no number or does not fit 64
// bits, signed or unsigned.
std::optional<JsonInteger> ToJsonInteger(const rapidjson::Value& value);
