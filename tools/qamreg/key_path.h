#pragma once

#include <string>
#include <string_view>

// The full path of a key, such as HKEY_LOCAL_MACHINE\SOFTWARE\Talvor. A user may write the name of
// the root key in upper or lower case or abbreviate it (HKLM, HKCU, HKU, HKCR, HKCC), and may use
// "\" or
// "/" as the separator.
class CKeyPath {
 public:
  // Throws CFailure when the path does not begin with a root key.
  explicit CKeyPath(std::string_view text);

  // Separated by "\".
  const std::string& Text() const { return m_strText; }

  bool IsRoot() const { return m_strText.find('\\') == std::string::npos; }
  // The last component, and what precedes it. Not for a root key.
  std::string Name() const { return m_strText.substr(m_strText.rfind('\\') + 1); }
  std::string ParentText() const { return m_strText.substr(0, m_strText.rfind('\\')); }

 private:
  std::string m_strText;
};
