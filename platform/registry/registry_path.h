#pragma once

#include <string>
#include <string_view>

// Walks the components of a registry path. "\" and "/" separate alike, everywhere; separators at
// either end and doubled ones are accepted.
class CRegistryPath {
 public:
  // The path must outlive the object.
  explicit CRegistryPath(std::string_view path) : m_strPath(path) {}

  // The next component, or an empty string at the end.
  std::string_view Next();

 private:
  std::string_view m_strPath;
  size_t m_nNext = 0;       // the position of the next component, or of a separator before it
  size_t m_nSlash = 0;      // that of the first "/" from there on, unless it lies before it
  size_t m_nBackslash = 0;  // the same of "\"
};

// The position of the first separator, or npos.
size_t FindRegistrySeparator(std::string_view path);

// The name with the letters a to z in upper case, whatever the locale: a Turkish one would not find
// "I" for "i". Throws std::bad_alloc.
std::string ToUpperRegistryName(std::string_view name);
