#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/registry/registry.h"

// The data of a value: strings without terminator, an integer as 4 bytes.
struct ValueData {
  uint32_t type = REG_SZ;
  std::string bytes;
};

ValueData MakeInteger(int32_t value);

// The value that a user's words describe: `typeName` is REG_SZ, REG_EXPAND_SZ, REG_BINARY or
// REG_DWORD in upper or lower case; binary data are pairs of hexadecimal digits, with or without
// blanks between them; an integer is decimal, or hexadecimal with the prefix 0x. Throws CFailure
// for anything else.
ValueData ParseValue(const std::string& typeName, const std::string& text);

// Appends the byte that two hexadecimal digits represent. False when `pair` is anything else.
bool AppendByte(std::string_view pair, std::string& bytes);

// The other way round.
std::string TypeName(uint32_t type);
std::string FormatValue(const ValueData& value);

// A value of the current key, environment references as they stand; none when there is no such
// value.
std::optional<ValueData> ReadValue(CRegistry& registry, const std::string& name);
