#include "platform/process/process_control.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/platform/process/scratch_working_directory.h"
#include "tests/support/system_calls.h"

namespace {

class ProcessControlTest : public ScratchWorkingDirectory {
 protected:
  bool Start(const char* commandLine) {
    return StartProcess(commandLine, m_nPid, nullptr, false, false);
  }

  bool StartScript(const std::string& commands) {
    return Start(m_oScratch.WriteScript("script", commands).c_str());
  }

  std::atomic<int32_t> m_nPid = 77;
  int32_t m_nExitCode = 77;
};

using WaitProcessTest = ProcessControlTest;
using WaitForProcessEndTest = ProcessControlTest;
using KillProcessTest = ProcessControlTest;

}  // namespace

TEST_F(WaitProcessTest, TellsHowTheChildEnded) {
  ASSERT_TRUE(Start("true"));
  m_nExitCode = 77;
  EXPECT_TRUE(WaitProcess(m_nPid, m_nExitCode, 2000));
  EXPECT_EQ(m_nExitCode, 0);
  ASSERT_TRUE(StartScript("exit 200"));
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 2000));
  EXPECT_EQ(m_nExitCode, 200);
  ASSERT_TRUE(StartScript("kill -TERM $$"));
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 2000));
  EXPECT_EQ(m_nExitCode, -1);
}

TEST_F(WaitProcessTest, WaitsWithoutLimitWhateverTheTimeOut) {
  ASSERT_TRUE(Start("sleep 2.3"));
  const auto waits = calls::waitpid.Watch();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(WaitProcess(m_nPid, m_nExitCode, 2000));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2200));
  EXPECT_EQ(waits.GetCount(), 1);
}

TEST_F(WaitProcessTest, IsFalseForAProcessThatIsNoChild) {
  EXPECT_FALSE(WaitProcess(getppid(), m_nExitCode, 2000));
  EXPECT_EQ(m_nExitCode, -1);
}

TEST_F(WaitProcessTest, RefusesPidsThatNameMoreThanOneProcess) {
  const auto waits = calls::waitpid.Answer([](pid_t, int*, int) { return -1; });
  for (const int32_t pid : {0, -1, -2, INT32_MIN}) {
    m_nExitCode = 77;
    EXPECT_FALSE(WaitProcess(pid, m_nExitCode, 2000));
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(m_nExitCode, -1);
  }
  EXPECT_EQ(waits.GetCount(), 0);
}

TEST_F(WaitProcessTest, IsFalseWhenTheWaitGivesAnotherPid) {
  const auto answer = calls::waitpid.Answer([](pid_t, int* status, int) {
    *status = 0;
    return 6;
  });
  EXPECT_FALSE(WaitProcess(5, m_nExitCode, 2000));
  EXPECT_EQ(m_nExitCode, -1);
}

TEST_F(WaitProcessTest, RepeatsAWaitThatASignalInterruptsAndNoOtherFailure) {
  const auto waits = calls::waitpid.Answer([calls = 0](pid_t, int*, int) mutable {
    errno = ++calls <= 2 ? EINTR : EINVAL;
    return -1;
  });
  EXPECT_FALSE(WaitProcess(5, m_nExitCode, 2000));
  EXPECT_EQ(waits.GetCount(), 3);
}

TEST_F(WaitProcessTest, GivesTheExitCodeToOneOfTwoThreads) {
  ASSERT_TRUE(StartScript("exit 4"));
  int32_t otherExitCode = 77;
  std::thread other([&] { EXPECT_FALSE(WaitProcess(m_nPid, otherExitCode, 2000)); });
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 2000));
  other.join();
  EXPECT_EQ(m_nExitCode + otherExitCode, 4 - 1);
}

TEST_F(WaitForProcessEndTest, SeesAChildThatHasEndedAndLeavesItToTheWait) {
  ASSERT_TRUE(StartScript("exit 4"));
  EXPECT_TRUE(WaitForProcessEnd(m_nPid, 10'000));
  EXPECT_TRUE(WaitForProcessEnd(m_nPid, 0));
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 2000));
  EXPECT_EQ(m_nExitCode, 4);
}

TEST_F(WaitForProcessEndTest, GivesUpOnAChildThatRunsOn) {
  ASSERT_TRUE(Start("sleep 60"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(WaitForProcessEnd(m_nPid, 50));
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time, std::chrono::milliseconds(50));
  EXPECT_LT(time, std::chrono::seconds(10));
  EXPECT_TRUE(KillProcess(m_nPid, true));
  EXPECT_TRUE(WaitForProcessEnd(m_nPid, 10'000));
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 2000));
}

TEST_F(WaitForProcessEndTest, DoesNotWaitForWhatIsNoChild) {
  const auto begin = std::chrono::steady_clock::now();
  for (const int32_t pid : {getppid(), 0, -1, INT32_MIN}) {
    EXPECT_FALSE(WaitForProcessEnd(pid, 60'000));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(KillProcessTest, SendsSigkillWithAndWithoutForce) {
  for (const bool force : {false, true}) {
    ASSERT_TRUE(Start("sleep 60"));
    EXPECT_TRUE(KillProcess(m_nPid, force));
    int status = 0;
    EXPECT_EQ(waitpid(m_nPid, &status, 0), m_nPid);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
  }
}

TEST_F(KillProcessTest, IsFalseForAProcessThatIsGone) {
  ASSERT_TRUE(RunProcess("true", m_nPid, m_nExitCode, nullptr, false, false));
  EXPECT_FALSE(KillProcess(m_nPid, true));
}

TEST_F(KillProcessTest, RefusesPidsThatNameMoreThanOneProcess) {
  const auto kills = calls::kill.Answer([](pid_t, int) { return 0; });
  for (const int32_t pid : {0, -1, -2, INT32_MIN}) {
    EXPECT_FALSE(KillProcess(pid, true));
    EXPECT_EQ(errno, ESRCH);
  }
  EXPECT_EQ(kills.GetCount(), 0);
}

TEST_F(ProcessControlTest, StoresTheCurrentDirectory) {
  std::string path = "before";
  EXPECT_TRUE(GetCurrentDirectory(path));
  EXPECT_EQ(path, m_oScratch.Path());
}

TEST_F(ProcessControlTest, KeepsTheStringWhenThereIsNoCurrentDirectory) {
  std::string path = "before";
  {
    const auto empty = calls::getcwd.Answer([](char* buffer, size_t) {
      *buffer = '\0';
      return buffer;
    });
    EXPECT_FALSE(GetCurrentDirectory(path));
  }
  std::filesystem::create_directories(m_oScratch.Path("removed"));
  ASSERT_TRUE(SetCurrentDirectory("removed"));
  std::filesystem::remove(m_oScratch.Path("removed"));
  EXPECT_FALSE(GetCurrentDirectory(path));
  EXPECT_EQ(path, "before");
}

TEST_F(ProcessControlTest, StoresACurrentDirectoryOfUpTo4095Characters) {
  const std::string name(200, 'x');
  std::string path;
  std::string expected = Current();
  while (expected.size() + 1 + name.size() <= 4095) {
    std::filesystem::create_directory(name);
    ASSERT_TRUE(SetCurrentDirectory(name));
    expected += "/" + name;
    ASSERT_TRUE(GetCurrentDirectory(path));
    EXPECT_EQ(path, expected);
  }
  const std::string last(4095 - expected.size() - 1, 'y');
  std::filesystem::create_directory(last);
  std::filesystem::create_directory(last + "y");
  ASSERT_TRUE(SetCurrentDirectory(last));
  EXPECT_TRUE(GetCurrentDirectory(path));
  EXPECT_EQ(path, expected + "/" + last);
  ASSERT_TRUE(SetCurrentDirectory("../" + last + "y"));
  EXPECT_FALSE(GetCurrentDirectory(path));
  EXPECT_EQ(path, expected + "/" + last);
}

TEST_F(ProcessControlTest, ChangesTheCurrentDirectory) {
  std::filesystem::create_directories(m_oScratch.Path("there"));
  EXPECT_TRUE(SetCurrentDirectory("there"));
  EXPECT_EQ(Current(), m_oScratch.Path("there"));
  EXPECT_FALSE(SetCurrentDirectory("missing"));
  EXPECT_FALSE(SetCurrentDirectory(""));
  EXPECT_EQ(Current(), m_oScratch.Path("there"));
}
