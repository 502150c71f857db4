#include "tools/qamreg/text_rules.h"

#include <string>
#include <vector>

#include "platform/registry_node.h"
#include "platform/registry_path.h"
#include "platform/registry_writer.h"
#include "tools/qamreg/failure.h"

namespace {

[[noreturn]] void Refuse(const std::string& reason) {
  throw CFailure(EXIT_FAILED, "The registry file cannot hold that: " + reason);
}

void CheckLength(size_t length) {
  if (length > MAX_LINE_LENGTH) {
    Refuse("its line would have " + std::to_string(length) + " characters, and " +
           std::to_string(MAX_LINE_LENGTH) + " are the limit. Shorten the name or the data.");
  }
}

bool HasLineEnd(std::string_view text) { return text.find('\n') != std::string_view::npos; }

CRegistryEntry MakeEntry(std::string_view name, const ValueData& value) {
  switch (value.type) {
    case REG_BINARY:
      return CRegistryEntry::MakeBinary(name, value.bytes);
    case REG_DWORD:
      return CRegistryEntry::MakeInteger(name, std::stoi(FormatValue(value)));
    default:
      return CRegistryEntry::MakeText(name, value.type, value.bytes);
  }
}

// The value's line in the file, without line end.
std::string LineOf(std::string_view name, const ValueData& value) {
  CRegistryNode node;
  std::vector<CRegistryEntry> replaced;
  node.Store(MakeEntry(name, value), replaced);
  const std::string text = WriteRegistryText(node);
  return text.substr(0, text.size() - 2);  // the line's end and the empty line that ends the node
}

}  // namespace

void CheckKeyPath(const CKeyPath& path) {
  CRegistryPath components(path.Text());
  for (std::string_view name = components.Next(); !name.empty(); name = components.Next()) {
    if (HasLineEnd(name)) {
      Refuse("the name of a key has a line end. Choose a name without it.");
    }
    if (name.find(']') != std::string_view::npos) {
      Refuse("the name of the key \"" + std::string(name) +
             "\" has a \"]\". Choose a name without it.");
    }
    CheckLength(name.size() + 2);
  }
}

void CheckValue(std::string_view name, const ValueData& value) {
  const bool isText = value.type == REG_SZ || value.type == REG_EXPAND_SZ;
  if (HasLineEnd(name)) {
    Refuse("the name of the value has a line end. Choose a name without it.");
  }
  if (name.find('=') != std::string_view::npos) {
    Refuse("the name of the value, \"" + std::string(name) +
           "\", has a \"=\". Choose a name without it.");
  }
  if (isText && HasLineEnd(value.bytes)) {
    Refuse("the text has a line end. Give one line.");
  }
  if (isText && value.bytes.find('\0') != std::string::npos) {
    Refuse("the text has a zero byte. Leave it out.");
  }
  const std::string line = LineOf(name, value);
  if (line.starts_with('[') && line.find(']') != std::string::npos) {
    Refuse(
        "a line that begins with \"[\" and has a \"]\" is the line of a key. Choose a name that "
        "does not begin with \"[\".");
  }
  CheckLength(line.size());
}
