#include "platform/registry/registry_path.h"

#include <algorithm>

namespace {

constexpr std::string_view SEPARATORS = "\\/";

char ToUpper(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

}  // namespace

std::string ToUpperRegistryName(std::string_view name) {
  std::string upper(name);
  std::transform(upper.begin(), upper.end(), upper.begin(), ToUpper);
  return upper;
}

size_t FindRegistrySeparator(std::string_view path) { return path.find_first_of(SEPARATORS); }

std::string_view CRegistryPath::Next() {
  m_strRest.remove_prefix(std::min(m_strRest.find_first_not_of(SEPARATORS), m_strRest.size()));
  const std::string_view component = m_strRest.substr(0, FindRegistrySeparator(m_strRest));
  m_strRest.remove_prefix(component.size());
  return component;
}
