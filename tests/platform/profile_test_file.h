#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/profile_string.h"

// A file in a fresh temporary directory, which goes with the object. A case that hangs is killed.
class ProfileTestFile {
 public:
  // The file does not exist yet.
  ProfileTestFile() {
    alarm(60);
    std::string directory = std::filesystem::temp_directory_path() / "profile.XXXXXX";
    m_directory = mkdtemp(directory.data());
    m_name = m_directory + "/file.ini";
  }

  explicit ProfileTestFile(const std::string& text) : ProfileTestFile() { SetText(text); }

  ~ProfileTestFile() { std::filesystem::remove_all(m_directory); }
  ProfileTestFile(const ProfileTestFile&) = delete;
  ProfileTestFile& operator=(const ProfileTestFile&) = delete;

  const char* Name() const { return m_name.c_str(); }

  std::string NameOf(const std::string& name) const { return m_directory + "/" + name; }

  bool Exists() const { return std::filesystem::exists(m_name); }

  void SetText(const std::string& text) const {
    std::ofstream(m_name, std::ios::binary | std::ios::trunc) << text;
  }

  std::string Text() const {
    std::ifstream file(m_name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::string m_directory;
  std::string m_name;
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
