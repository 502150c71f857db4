// LaunchProcess() where the system refuses a child that shares the memory of its parent, and where
// it refuses any child.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "platform/process_control.h"

namespace {

int g_nForks = 0;
int g_nWaits = 0;
bool g_bForkFails = false;
std::function<void()> g_fnBeforeFork;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names.
extern "C" {

pid_t __wrap_vfork() {
  errno = ENOSYS;
  return -1;
}

pid_t __real_fork();
pid_t __wrap_fork() {
  ++g_nForks;
  if (g_fnBeforeFork) {
    g_fnBeforeFork();
  }
  if (g_bForkFails) {
    errno = EAGAIN;
    return -1;
  }
  return __real_fork();
}

pid_t __real_waitpid(pid_t pid, int* status, int options);
pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
  ++g_nWaits;
  return __real_waitpid(pid, status, options);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

class LaunchForkTest : public testing::Test {
 protected:
  bool Launch(const char* commandLine, const char* workingDirectory = nullptr,
              bool detach = false) {
    return LaunchProcess(commandLine, m_nPid, m_nExitCode, workingDirectory, false, detach, false);
  }

  std::atomic<int32_t> m_nPid = 77;
  int32_t m_nExitCode = 77;
};

}  // namespace

TEST_F(LaunchForkTest, GivesTheSameResults) {
  EXPECT_TRUE(Launch("true"));
  EXPECT_EQ(m_nExitCode, 0);
  EXPECT_FALSE(Launch("false"));
  EXPECT_EQ(m_nExitCode, 1);
  EXPECT_FALSE(Launch("/missing/program"));
  EXPECT_EQ(m_nExitCode, 255);
  EXPECT_FALSE(Launch(""));
  EXPECT_EQ(m_nExitCode, 255);
  EXPECT_GT(m_nPid, 1);
  EXPECT_EQ(g_nForks, 4);
}

TEST_F(LaunchForkTest, SetsTheExitCodeBeforeTheForkAndLeavesThePid) {
  int32_t exitCode = 0;
  int32_t pid = 0;
  g_fnBeforeFork = [&] {
    exitCode = m_nExitCode;
    pid = m_nPid;
  };
  EXPECT_TRUE(Launch("true"));
  EXPECT_EQ(exitCode, -1);
  EXPECT_EQ(pid, 77);
}

TEST_F(LaunchForkTest, ReportsAFailedFork) {
  const std::filesystem::path current = std::filesystem::current_path();
  g_bForkFails = true;
  for (const bool detach : {false, true}) {
    m_nPid = m_nExitCode = 77;
    EXPECT_FALSE(Launch("true", "/", detach));
    EXPECT_EQ(m_nPid, -1);
    EXPECT_EQ(m_nExitCode, -1);
    EXPECT_EQ(std::filesystem::current_path(), current);
  }
  EXPECT_EQ(g_nForks, 2);
  EXPECT_EQ(g_nWaits, 0);
}

TEST_F(LaunchForkTest, ForksNothingWhenTheWorkingDirectoryCannotBeEntered) {
  EXPECT_FALSE(Launch("true", "missing"));
  EXPECT_EQ(m_nPid, -1);
  EXPECT_EQ(g_nForks, 0);
}
