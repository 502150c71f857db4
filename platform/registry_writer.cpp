#include "platform/registry_writer.h"

#include <array>
#include <charconv>
#include <memory>
#include <utility>
#include <vector>

#include "platform/registry_node.h"

namespace {

constexpr char HEXADECIMAL[] = "0123456789abcdef";

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

void WriteValue(const CRegistryEntry& entry, std::string& text) {
  text += entry.GetName();
  switch (entry.GetType()) {
    case REG_SZ:
      text += "=s=";
      text += entry.GetData();
      break;
    case REG_EXPAND_SZ:
      text += "=es=";
      text += entry.GetData();
      break;
    case REG_DWORD:
      text += "=d=";
      WriteInteger(entry.GetInteger(), text);
      break;
    default:
      text += "=b=";
      WriteBytes(entry.GetData(), text);
      break;
  }
  text += '\n';
}

struct Subkey {
  std::string name;
  std::shared_ptr<CRegistryNode> key;
};

// Writes the values of the node and returns its subkeys, the last one first.
std::vector<Subkey> WriteValues(CRegistryNode& node, std::string& text) {
  std::vector<Subkey> subkeys;
  node.ForEach([&](const CRegistryEntry& entry) {
    if (!entry.IsKey()) {
      WriteValue(entry, text);
    } else if (entry.GetKey() != nullptr) {
      subkeys.push_back({std::string(entry.GetName()), entry.GetKey()});
    }
  });
  return {std::make_move_iterator(subkeys.rbegin()), std::make_move_iterator(subkeys.rend())};
}

}  // namespace

std::string WriteRegistryText(CRegistryNode& node) {
  std::string text;
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
    text += '[';
    text += subkey.name;
    text += "]\n";
    levels.push_back(WriteValues(*subkey.key, text));
  }
  return text;
}
