#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <optional>
#include <string>

// The value as JSON text with an indent of four spaces for each level; a number that JSON cannot
// express becomes null. Nothing when the value has more than `deepest` levels, a scalar being one.
//
// Takes no more stack for a deep value than for a flat one. Ends the process when memory is
// exhausted.
std::optional<std::string> BuildJsonText(const rapidjson::Value& value, size_t deepest) noexcept;
