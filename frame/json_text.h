#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <string>

// Serializes `value` as JSON, indented by four spaces per level; a number that JSON cannot express
// becomes null. The output is cut after `longest` bytes, wherever that is; what would follow is
// never generated.
//
// A deeply nested value takes no more stack than a flat one. Ends the process when memory is
// exhausted.
std::string BuildJsonText(const rapidjson::Value& value, size_t longest) noexcept;
