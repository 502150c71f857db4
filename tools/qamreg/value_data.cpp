#include "tools/qamreg/value_data.h"

#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "platform/registry/registry_path.h"
#include "tools/qamreg/failure.h"

namespace {

struct NamedType {
  uint32_t type;
  const char* name;
};

constexpr std::array<NamedType, 4> TYPES = {{{REG_SZ, "REG_SZ"},
                                             {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
                                             {REG_BINARY, "REG_BINARY"},
                                             {REG_DWORD, "REG_DWORD"}}};

constexpr char HEXADECIMAL[] = "0123456789abcdef";

uint32_t ParseType(const std::string& typeName) {
  const std::string upper = ToUpperRegistryName(typeName);
  for (const NamedType& candidate : TYPES) {
    if (upper == candidate.name) {
      return candidate.type;
    }
  }
  throw CFailure(
      EXIT_FAILED,
      "\"" + typeName +
          "\" is no type of a value. The types are REG_SZ, REG_EXPAND_SZ, REG_BINARY and "
          "REG_DWORD.");
}

std::string ParseBytes(const std::string& text) {
  std::string bytes;
  for (size_t position = text.find_first_not_of(' '); position != std::string::npos;
       position = text.find_first_not_of(' ', position)) {
    if (!AppendByte(std::string_view(text).substr(position, 2), bytes)) {
      throw CFailure(EXIT_FAILED, "\"" + text +
                                      "\" is no binary data. They are pairs of hexadecimal digits, "
                                      "such as \"01ff\" or \"01 ff\".");
    }
    position += 2;
  }
  return bytes;
}

// A number above the largest signed one is taken as its bits: 0xffffffff is -1.
int32_t ParseInteger(const std::string& text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.data() + (isHexadecimal ? 2 : 0);
  const char* end = text.data() + text.size();
  int64_t number = 0;
  const auto [rest, error] = std::from_chars(begin, end, number, isHexadecimal ? 16 : 10);
  const bool isSigned = isHexadecimal && begin != end && *begin == '-';
  if (error != std::errc() || rest != end || isSigned || number < INT32_MIN ||
      number > UINT32_MAX) {
    throw CFailure(EXIT_FAILED, "\"" + text +
                                    "\" is no integer of 32 bits. Write it in decimal, or in "
                                    "hexadecimal after 0x.");
  }
  return static_cast<int32_t>(number);
}

std::string FormatBytes(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto bits = static_cast<uint8_t>(byte);
    text += HEXADECIMAL[bits >> 4];
    text += HEXADECIMAL[bits & 0xF];
  }
  return text;
}

}  // namespace

bool AppendByte(std::string_view pair, std::string& bytes) {
  uint8_t byte = 0;
  const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
  if (error != std::errc() || end != pair.data() + 2) {
    return false;
  }
  bytes.push_back(static_cast<char>(byte));
  return true;
}

ValueData MakeInteger(int32_t value) {
  return {REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof(value))};
}

ValueData ParseValue(const std::string& typeName, const std::string& text) {
  const uint32_t type = ParseType(typeName);
  switch (type) {
    case REG_BINARY:
      return {type, ParseBytes(text)};
    case REG_DWORD:
      return MakeInteger(ParseInteger(text));
    default:
      return {type, text};
  }
}

std::string TypeName(uint32_t type) {
  for (const NamedType& candidate : TYPES) {
    if (type == candidate.type) {
      return candidate.name;
    }
  }
  return std::to_string(type);
}

std::string FormatValue(const ValueData& value) {
  if (value.type == REG_BINARY) {
    return FormatBytes(value.bytes);
  }
  if (value.type == REG_DWORD) {
    int32_t number = 0;
    std::memcpy(&number, value.bytes.data(), sizeof(number));
    return std::to_string(number);
  }
  return value.bytes;
}

std::optional<ValueData> ReadValue(CRegistry& registry, const std::string& name) {
  registry.SetExpand(false);
  const auto* bytes = static_cast<const char*>(registry.GetValue(name.c_str()));
  if (bytes == nullptr) {
    return std::nullopt;
  }
  const uint32_t type = registry.GetValueType();
  const bool isText = type == REG_SZ || type == REG_EXPAND_SZ;
  return ValueData{type, std::string(bytes, registry.GetValueLength() - (isText ? 1 : 0))};
}
