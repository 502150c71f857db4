#pragma once

#include <string_view>

#include "tools/qamreg/key_path.h"
#include "tools/qamreg/value_data.h"

// What the text files of the registry cannot hold would be damaged when they are read again. These
// throw CFailure with the reason for it.

// The longest line without its line end, in bytes.
constexpr size_t MAX_LINE_LENGTH = 1022;

void CheckKeyPath(const CKeyPath& path);
void CheckValue(std::string_view name, const ValueData& value);
