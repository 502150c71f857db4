#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "platform/profile/profile_string.h"
#include "tests/support/scratch_directory.h"

// A file in a fresh temporary directory, which goes with the object.
class ProfileTestFile {
 public:
  // The file does not exist yet.
  ProfileTestFile() : m_strName(m_oScratch.Path("file.ini")) {}

  explicit ProfileTestFile(const std::string& text) : ProfileTestFile() { SetText(text); }

  const char* Name() const { return m_strName.c_str(); }

  std::string NameOf(const std::string& name) const { return m_oScratch.Path(name); }

  bool Exists() const { return std::filesystem::exists(m_strName); }

  void SetText(const std::string& text) const { m_oScratch.Write("file.ini", text); }

  std::string Text() const { return m_oScratch.Read("file.ini"); }

 private:
  const ScratchDirectory m_oScratch;
  const std::string m_strName;
};

// The result of a read, and what it left in the buffer: as many characters as it says and all bytes
// of the buffer. Bytes beyond the buffer are checked; '#' is a byte that was not written.
struct ProfileAnswer {
  uint32_t count = 0;
  std::string text;
  std::string buffer;
};

inline ProfileAnswer ReadProfile(const char* fileName, const char* section, const char* key,
                                 const char* defaultValue, uint32_t size = 64) {
  const std::string guard = "########";
  std::string buffer(size, '#');
  buffer += guard;
  const uint32_t count =
      GetPrivateProfileString(section, key, defaultValue, buffer.data(), size, fileName);
  EXPECT_EQ(buffer.substr(size), guard);
  buffer.resize(size);
  return {count, buffer.substr(0, count), buffer};
}
