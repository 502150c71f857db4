// LaunchProcess() where the system refuses a child that shares the memory of its parent, and where
// it refuses any child.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>

#include "platform/process/process_control.h"
#include "tests/support/system_calls.h"

namespace {

class LaunchForkTest : public testing::Test {
 protected:
  bool Launch(const char* commandLine, const char* workingDirectory = nullptr,
              bool detach = false) {
    return LaunchProcess(commandLine, m_nPid, m_nExitCode, workingDirectory, false, detach, false);
  }

  const ScopedAnswer m_oRefused = calls::RefuseVfork(ENOSYS);
  std::atomic<int32_t> m_nPid = 77;
  int32_t m_nExitCode = 77;
};

}  // namespace

TEST_F(LaunchForkTest, GivesTheSameResults) {
  const auto forks = calls::fork.Watch();
  EXPECT_TRUE(Launch("true"));
  EXPECT_EQ(m_nExitCode, 0);
  EXPECT_FALSE(Launch("false"));
  EXPECT_EQ(m_nExitCode, 1);
  EXPECT_FALSE(Launch("/missing/program"));
  EXPECT_EQ(m_nExitCode, 255);
  EXPECT_FALSE(Launch(""));
  EXPECT_EQ(m_nExitCode, 255);
  EXPECT_GT(m_nPid, 1);
  EXPECT_EQ(forks.GetCount(), 4);
}

TEST_F(LaunchForkTest, ReportsAFailedFork) {
  const std::filesystem::path current = std::filesystem::current_path();
  const auto forks = calls::fork.Fail(EAGAIN);
  const auto waits = calls::waitpid.Watch();
  for (const bool detach : {false, true}) {
    m_nPid = m_nExitCode = 77;
    EXPECT_FALSE(Launch("true", "/", detach));
    EXPECT_EQ(m_nPid, -1);
    EXPECT_EQ(m_nExitCode, -1);
    EXPECT_EQ(std::filesystem::current_path(), current);
  }
  EXPECT_EQ(forks.GetCount(), 2);
  EXPECT_EQ(waits.GetCount(), 0);
}
