#include "platform/registry/registry_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry/registry_node.h"
#include "platform/registry/registry_parser.h"

namespace {

constexpr char HEXADECIMAL[] = "0123456789abcdef";
constexpr size_t BYTE_WIDTH = 3;  // two digits and a blank

void WriteBytes(std::string_view bytes, std::string& text) {
  for (const char byte : bytes) {
    const auto bits = static_cast<uint8_t>(byte);
    text += HEXADECIMAL[bits >> 4];
    text += HEXADECIMAL[bits & 0xF];
    text += ' ';
  }
}

void WriteInteger(int32_t value, std::string& text) {
  std::array<char, 12> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  text.append(digits.data(), end);
}

std::string_view MarkerOf(uint32_t type) {
  switch (type) {
    case REG_SZ:
      return "=s=";
    case REG_EXPAND_SZ:
      return "=es=";
    case REG_DWORD:
      return "=d=";
    default:
      return "=b=";
  }
}

// Writes what of the data fits into `room` bytes.
void WriteData(const CRegistryEntry& entry, size_t room, std::string& text) {
  switch (entry.GetType()) {
    case REG_DWORD:
      WriteInteger(entry.GetInteger(), text);
      break;
    case REG_BINARY:
      WriteBytes(entry.GetData().substr(0, room / BYTE_WIDTH), text);
      break;
    default: {
      const std::string_view data = entry.GetData().substr(0, room);
      text += data.substr(0, data.find('\n'));
      break;
    }
  }
}

bool IsReadAsOneLine(std::string_view line) {
  return line.size() <= REGISTRY_LINE_LENGTH && line.find('\n') == std::string_view::npos;
}

bool IsReadAsKey(std::string_view line) {
  return line.starts_with('[') && line.find(']') != std::string_view::npos;
}

void WriteValue(const CRegistryEntry& entry, std::string& text) {
  const std::string_view name = entry.GetName();
  const std::string_view marker = MarkerOf(entry.GetType());
  const size_t length = name.size() + marker.size();
  if (length > REGISTRY_LINE_LENGTH || !IsReadAsOneLine(name)) {
    return;
  }
  const size_t start = text.size();
  text.append(name).append(marker);
  WriteData(entry, REGISTRY_LINE_LENGTH - length, text);
  const std::string_view line = std::string_view(text).substr(start);
  if (line.size() > REGISTRY_LINE_LENGTH || IsReadAsKey(line)) {
    text.resize(start);
    return;
  }
  text += '\n';
}

std::string HeaderOf(std::string_view name) {
  std::string header = "[";
  return header.append(name).append("]");
}

struct Subkey {
  std::string header;  // its line
  std::shared_ptr<CRegistryNode> key;
};

// Writes the values of the node and returns its subkeys, the last one first.
std::vector<Subkey> WriteValues(CRegistryNode& node, std::string& text) {
  std::vector<Subkey> subkeys;
  node.ForEach([&](const CRegistryEntry& entry) {
    if (!entry.IsKey()) {
      WriteValue(entry, text);
    } else if (std::string header = HeaderOf(entry.GetName());
               entry.GetKey() != nullptr && IsReadAsOneLine(header)) {
      subkeys.push_back({std::move(header), entry.GetKey()});
    }
  });
  return {std::make_move_iterator(subkeys.rbegin()), std::make_move_iterator(subkeys.rend())};
}

}  // namespace

std::string WriteRegistryText(CRegistryNode& node, size_t expectedSize) {
  std::string text;
  text.reserve(expectedSize);
  std::vector<std::vector<Subkey>>
      levels;  // what is left to write, from the outermost to the innermost
  levels.push_back(WriteValues(node, text));
  while (!levels.empty()) {
    if (levels.back().empty()) {
      levels.pop_back();
      text += '\n';
      continue;
    }
    const Subkey subkey = std::move(levels.back().back());
    levels.back().pop_back();
    text += subkey.header;
    text += '\n';
    levels.push_back(WriteValues(*subkey.key, text));
  }
  return text;
}
