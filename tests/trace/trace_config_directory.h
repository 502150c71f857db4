#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/descriptor.h"
#include "trace/debug_client.h"

// Holds a file as a profile writer does while it changes it.
class HeldConfigFile {
 public:
  explicit HeldConfigFile(const std::string& path)
      : m_oFile(open(path.c_str(), O_RDONLY | O_CLOEXEC, 0)) {
    EXPECT_EQ(flock(m_oFile.Get(), LOCK_EX | LOCK_NB), 0);
  }

 private:
  const CDescriptor m_oFile;
};

// A trace client that nobody has loaded and the trace configuration directory, which is absent at
// first and removed in the end. The environment sets nothing.
class TraceConfigDirectory : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(std::filesystem::exists(ROOT)) << "is that an installation?";
    m_bOurs = true;
    unsetenv("CV_LOG_DEBUG_LEVEL");
    unsetenv("CV_LOG_DYNAMIC_UPDATE");
  }

  void TearDown() override {
    if (m_bOurs) {
      m_oClient.Release();
      std::filesystem::remove_all(ROOT);
    }
    unsetenv("CV_LOG_DEBUG_LEVEL");
    unsetenv("CV_LOG_DYNAMIC_UPDATE");
  }

  static std::string Path(const std::string& name) { return DIRECTORY + name; }

  // Writes a file of the directory, last modified at that second and nanosecond.
  static void Write(const std::string& name, const std::string& text, time_t modified = 1000,
                    int64_t nanosecond = 0) {
    std::filesystem::create_directories(Path(""));
    std::ofstream(Path(name), std::ios::binary) << text;
    const timespec time = {modified, nanosecond};
    const timespec times[2] = {time, time};
    ASSERT_EQ(utimensat(AT_FDCWD, Path(name).c_str(), times, 0), 0);
  }

  CDebugClient m_oClient;

 private:
  static constexpr char ROOT[] = "/etc/orvane";
  inline static const std::string DIRECTORY = "/etc/orvane/CorvistaSuite/TraceConfig/";

  bool m_bOurs = false;
};
