#include "tools/qamreg/text_rules.h"

#include <string>

#include "platform/registry/registry_path.h"
#include "tools/qamreg/failure.h"

namespace {

[[noreturn]] void Refuse(const std::string& reason) {
  throw CFailure(EXIT_FAILED, "The registry file cannot hold that: " + reason);
}

void CheckLength(size_t length) {
  if (length > REGISTRY_LINE_LENGTH) {
    Refuse("its line would have " + std::to_string(length) + " characters, and " +
           std::to_string(REGISTRY_LINE_LENGTH) + " are the limit. Shorten the name or the data.");
  }
}

bool HasLineEnd(std::string_view text) { return text.find('\n') != std::string_view::npos; }

// The value's line in the file, without line end.
std::string LineOf(std::string_view name, const ValueData& value) {
  std::string line(name);
  switch (value.type) {
    case REG_BINARY:
      return line.append("=b=").append(value.bytes.size() * 3, ' ');  // two digits and a blank each
    case REG_DWORD:
      return line.append("=d=").append(FormatValue(value));
    case REG_EXPAND_SZ:
      return line.append("=es=").append(value.bytes);
    default:
      return line.append("=s=").append(value.bytes);
  }
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
