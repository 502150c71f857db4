#pragma once

#include <string>
#include <string_view>

// A registry path and a walk over its components. "\" and "/" separate alike, everywhere;
// separators at either end and doubled ones are accepted.
class CRegistryPath {
 public:
  CRegistryPath() = default;
  explicit CRegistryPath(std::string_view path) { Assign(path); }

  // Takes another path, which holds no NUL, and begins a walk over it. Throws std::bad_alloc.
  void Assign(std::string_view path);

  // The next component, or an empty string at the end. Valid until another path is assigned.
  std::string_view Next();

  // The path with every separator as "/".
  const std::string& GetText() const { return m_strText; }

 private:
  std::string m_strText;
  size_t m_nNext = 0;  // the position of the next component, or of a separator before it
};

// The position of the first separator, or npos.
size_t FindRegistrySeparator(std::string_view path);

// The name with the letters a to z in upper case, whatever the locale: a Turkish one would not find
// "I" for "i". Throws std::bad_alloc.
std::string ToUpperRegistryName(std::string_view name);
