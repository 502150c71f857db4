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
  while (m_nNext < m_strPath.size() && IsSeparator(m_strPath[m_nNext])) {
    ++m_nNext;
  }
  // Each kind of separator is searched for once, whatever lies between.
  if (m_nSlash <= m_nNext) {
    m_nSlash = m_strPath.find('/', m_nNext);
  }
  if (m_nBackslash <= m_nNext) {
    m_nBackslash = m_strPath.find('\\', m_nNext);
  }
  const size_t begin = m_nNext;
  m_nNext = std::min({m_nSlash, m_nBackslash, m_strPath.size()});
  return m_strPath.substr(begin, m_nNext - begin);
}
