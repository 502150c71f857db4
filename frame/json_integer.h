#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <optional>

// The number in `value` as an integer of 64 bits, two's complement when negative; a fraction is
// truncated. Nothing for what is no number or does not fit 64 bits, signed or unsigned.
std::optional<uint64_t> ToJsonInteger(const rapidjson::Value& value);
