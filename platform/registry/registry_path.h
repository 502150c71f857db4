#pragma once

#include <string>
#include <string_view>

// Walks the components of a registry path. "\" and "/" separate alike, everywhere; separators at
// either end and doubled ones are accepted.
class CRegistryPath {
 public:
  // The path must outlive the object.
  explicit CRegistryPath(std::string_view path) : m_strRest(path) {}

  // The next component, or an empty string at the end.
  std::string_view Next();

 private:
  std::string_view m_strRest;
};

// The position of the first separator, or npos.
size_t FindRegistrySeparator(std::string_view path);

// The name with the letters a to z in upper case, whatever the locale: a Turkish one would not find
// "I" for "i". Throws std::bad_alloc.
std::string ToUpperRegistryName(std::string_view name);
