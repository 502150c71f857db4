// The commands that only read.

#include <iostream>
#include <vector>

#include "platform/registry/registry.h"
#include "tools/qamreg/commands.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/key_path.h"
#include "tools/qamreg/registry_edit.h"
#include "tools/qamreg/value_data.h"

namespace {

constexpr char INDENT[] = "    ";

// Prints keys one after the other, with an empty line between two.
class Printer {
 public:
  Printer(CRegistry& registry, const std::optional<std::string>& valueName, std::ostream& output)
      : m_oRegistry(registry), m_oValueName(valueName), m_oOutput(output) {}

  // Prints an existing key, without what is below it, and returns the paths of its subkeys.
  std::vector<std::string> PrintKey(const std::string& path) {
    std::vector<std::string> names;
    std::vector<std::string> subkeys;
    m_oRegistry.Open(path.c_str(), nullptr);
    m_oRegistry.EnumKeys(subkeys);
    for (std::string& name : subkeys) {
      name.insert(0, path + '\\');
    }
    m_oRegistry.EnumValues(names);
    std::string lines;
    for (const std::string& name : names) {
      if (!m_oValueName || name == *m_oValueName) {
        lines += LineOf(name);
      }
    }
    if (!m_oValueName || !lines.empty()) {
      m_oOutput << (m_bAny ? "\n" : "") << path << '\n' << lines;
      m_bAny = true;
    }
    return subkeys;
  }

  bool HasPrinted() const { return m_bAny; }

 private:
  std::string LineOf(const std::string& name) {
    const ValueData value = ReadValue(m_oRegistry, name).value();
    return INDENT + (name.empty() ? "(Default)" : name) + INDENT + TypeName(value.type) + INDENT +
           FormatValue(value) + '\n';
  }

  CRegistry& m_oRegistry;
  const std::optional<std::string>& m_oValueName;
  std::ostream& m_oOutput;
  bool m_bAny = false;
};

// Subtrees may be deep, so there is no recursion: the keys left to print are in a list, the next
// one at its end.
void PrintTree(Printer& printer, const std::string& root) {
  std::vector<std::string> left = {root};
  while (!left.empty()) {
    const std::string path = std::move(left.back());
    left.pop_back();
    const std::vector<std::string> subkeys = printer.PrintKey(path);
    left.insert(left.end(), subkeys.rbegin(), subkeys.rend());
  }
}

}  // namespace

void QueryKey(const std::string& key, const std::optional<std::string>& valueName, bool recursive,
              std::ostream& output) {
  const CKeyPath path(key);
  CheckRegistryFile();
  CRegistry registry;
  OpenExisting(registry, path);
  Printer printer(registry, valueName, output);
  if (recursive) {
    PrintTree(printer, path.Text());
  } else {
    const std::vector<std::string> subkeys = printer.PrintKey(path.Text());
    for (const std::string& subkey : subkeys) {
      output << (valueName ? "" : subkey + '\n');
    }
  }
  if (!printer.HasPrinted()) {
    ThrowNoValue(*valueName, path, recursive);
  }
}

void ShowPointer(const std::string& name, std::ostream& output) {
  CheckRegistryFile();
  std::string key;
  if (!ReadRegistryPointer(key, name.c_str())) {
    throw CFailure(EXIT_NOT_THERE, "There is no pointer \"" + name +
                                       "\": set it with \"qamreg pointer '" + name + "' KEY\".");
  }
  output << key << '\n';
}
