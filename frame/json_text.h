#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <string>

// The value as JSON text with an indent of four spaces for each level; a number that JSON cannot
// express becomes null. The text ends after `longest` bytes, wherever that is, and what stands
// after them costs nothing.
//
// Takes no more stack for a deep value than for a flat one. Ends the process when memory is
// exhausted.
std::string BuildJsonText(const rapidjson::Value& value, size_t longest) noexcept;
