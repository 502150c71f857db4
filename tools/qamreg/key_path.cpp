#include "tools/qamreg/key_path.h"

#include <array>

#include "platform/registry/registry.h"
#include "platform/registry/registry_path.h"
#include "tools/qamreg/failure.h"

namespace {

// By handle, as ROOT_KEY_NAMES.
constexpr std::array<const char*, ROOT_KEY_NAMES.size()> ABBREVIATIONS = {"HKLM", "HKCU", "HKU",
                                                                          "HKCR", "HKCC"};

std::string RootName(std::string_view text) {
  const std::string name = ToUpperRegistryName(text);
  for (size_t root = 0; root < ROOT_KEY_NAMES.size(); ++root) {
    if (name == ROOT_KEY_NAMES[root] || name == ABBREVIATIONS[root]) {
      return ROOT_KEY_NAMES[root];
    }
  }
  throw CFailure(EXIT_FAILED,
                 "The path of a key begins with HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_USERS, "
                 "HKEY_CLASSES_ROOT or HKEY_CURRENT_CONFIG (short: HKLM, HKCU, HKU, HKCR, HKCC), "
                 "not with \"" +
                     std::string(text) + "\".");
}

}  // namespace

CKeyPath::CKeyPath(std::string_view text) {
  CRegistryPath components(text);
  m_strText = RootName(components.Next());
  for (std::string_view name = components.Next(); !name.empty(); name = components.Next()) {
    m_strText += '\\';
    m_strText += name;
  }
}
