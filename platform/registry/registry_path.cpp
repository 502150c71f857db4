#include "platform/registry/registry_path.h"

#include <algorithm>
#include <cstring>

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

void CRegistryPath::Assign(std::string_view path) {
  m_strText = path;
  m_nNext = 0;
  for (size_t position = m_strText.find('\\'); position != std::string::npos;
       position = m_strText.find('\\', position + 1)) {
    m_strText[position] = '/';
  }
}

std::string_view CRegistryPath::Next() {
  const char* begin = m_strText.c_str() + m_nNext;
  while (*begin == '/') {
    ++begin;
  }
  const char* const end = strchrnul(begin, '/');
  m_nNext = static_cast<size_t>(end - m_strText.c_str());
  return {begin, end};
}
