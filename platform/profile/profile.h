#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// One profile file, read and written by section and key. The object keeps the file's name only:
// each operation opens and reads the file anew, as platform/profile/profile_string.h says.
//
// A name or value that contains a NUL ends there.
//
// Thread safety: every operation may be called from any thread. Those that return strings or lists
// throw std::bad_alloc.
class CProfile {
 public:
  explicit CProfile(std::string fileName) : m_strFileName(std::move(fileName)) {}

  const std::string& GetFileName() const { return m_strFileName; }

  // The value of a key, or the default when there is no such key or the file cannot be read.
  std::string ReadString(const std::string& section, const std::string& key,
                         const std::string& defaultValue = {}) const;

  // The number that the value of a key begins with, or the default when there is none. Prefix 0x:
  // hexadecimal, prefix 0: octal, else decimal. Only the first 31 characters are looked at; the
  // number is cut to 32 bits, so that what WriteUnsigned() wrote is the result as uint32_t.
  int32_t ReadInteger(const std::string& section, const std::string& key,
                      int32_t defaultValue = 0) const;

  // The names of the sections, in the order of the file; empty when it cannot be read. The first
  // form has each name followed by a NUL.
  std::string ReadSectionList() const;
  std::vector<std::string> ReadSections() const;

  // The names of the keys of a section, in the same two forms.
  std::string ReadKeyList(const std::string& section) const;
  std::vector<std::string> ReadKeys(const std::string& section) const;

  // Store the value of a key, numbers in decimal. False when the file could not be changed; it is
  // then as it was.
  bool WriteString(const std::string& section, const std::string& key,
                   const std::string& value) const;
  bool WriteInteger(const std::string& section, const std::string& key, int32_t value) const;
  bool WriteUnsigned(const std::string& section, const std::string& key, uint32_t value) const;

  // False when there was none, or the file could not be changed and is as it was.
  bool DeleteKey(const std::string& section, const std::string& key) const;
  bool DeleteSection(const std::string& section) const;

 private:
  std::string ReadList(const char* section) const;

  const std::string m_strFileName;
};
