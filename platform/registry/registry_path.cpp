#include "platform/registry/registry_path.h"

#include <algorithm>

namespace {

bool IsSeparator(char character) { return character == '\\' || character == '/'; }

char ToUpper(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

}  // namespace

std::string ToUpperRegistryName(std::string_view name) {
  std::string upper(name);
  std::transform(upper.begin(), upper.end(), upper.begin(), ToUpper);
  return upper;
}

size_t FindRegistrySeparator(std::string_view path) {
  const auto* const separator = std::find_if(path.begin(), path.end(), IsSeparator);
  return separator != path.end() ? static_cast<size_t>(separator - path.begin())
                                 : std::string_view::npos;
}

std::string_view CRegistryPath::Next() {
  while (!m_strRest.empty() && IsSeparator(m_strRest.front())) {
    m_strRest.remove_prefix(1);
  }
  const std::string_view component = m_strRest.substr(0, FindRegistrySeparator(m_strRest));
  m_strRest.remove_prefix(component.size());
  return component;
}
