// LaunchProcess() and its forms.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "base/descriptor.h"
#include "platform/process/process_control.h"
#include "tests/platform/process/scratch_working_directory.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

constexpr int INHERITABLE = 50;  // a descriptor that a test may open

class LaunchProcessTest : public ScratchWorkingDirectory {
 protected:
  ~LaunchProcessTest() override { close(INHERITABLE); }

  // Launches and waits. Stores pid and exit code in the members.
  bool Launch(const std::string& commandLine, const char* workingDirectory = nullptr) {
    return LaunchProcess(commandLine.c_str(), m_nPid, m_nExitCode, workingDirectory, false, false,
                         false);
  }

  // As Launch(), without the wait.
  bool LaunchDetached(const std::string& commandLine, const char* workingDirectory = nullptr) {
    return LaunchProcess(commandLine.c_str(), m_nPid, m_nExitCode, workingDirectory, false, true,
                         false);
  }

  std::string Script(const std::string& commands) const {
    return m_oScratch.WriteScript("script", commands);
  }

  // A script that ends with exit status 4 as soon as Release() is called.
  std::string BlockingScript() const {
    std::filesystem::remove(m_oScratch.Path("gate"));
    EXPECT_EQ(mkfifo(m_oScratch.Path("gate").c_str(), 0600), 0);
    return Script("read -r line <$D/gate\nexit 4");
  }
  void Release() const { m_oScratch.Write("gate", "go\n"); }

  const ScopedAnswer m_oWaits = calls::waitpid.Watch();
  std::atomic<int32_t> m_nPid = 77;
  int32_t m_nExitCode = 77;
};

}  // namespace

TEST_F(LaunchProcessTest, IsTrueForExitStatus0) {
  EXPECT_TRUE(Launch("true"));
  EXPECT_EQ(m_nExitCode, 0);
  EXPECT_GT(m_nPid, 1);
}

TEST_F(LaunchProcessTest, IsFalseForAnyOtherExitStatus) {
  for (const int status : {1, 2, 128, 255}) {
    EXPECT_FALSE(Launch(Script("exit " + std::to_string(status))));
    EXPECT_EQ(m_nExitCode, status);
  }
}

TEST_F(LaunchProcessTest, PassesTheWordsOfTheCommandLine) {
  EXPECT_TRUE(Launch(Script(R"(printf '[%s]' "$@" >$D/out)") + "  a \"b c\"\t'd'"));
  EXPECT_EQ(m_oScratch.Read("out"), "[a][\"b][c\"]['d']");
}

TEST_F(LaunchProcessTest, GivesExitCode255ForAnEmptyCommandLine) {
  for (const char* commandLine : {"", " \t", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(LaunchProcess(commandLine, m_nPid, m_nExitCode, nullptr, false, false, false));
    EXPECT_EQ(m_nExitCode, 255);
    EXPECT_GT(m_nPid, 1);
  }
}

TEST_F(LaunchProcessTest, GivesNoExitCodeForAChildThatIsKilledMeanwhile) {
  const std::string script = BlockingScript();
  m_nPid = 0;
  std::thread killer([this] {
    EXPECT_TRUE(WaitUntil([this] { return m_nPid != 0; }));
    EXPECT_TRUE(KillProcess(m_nPid, true));
  });
  EXPECT_FALSE(Launch(script));
  EXPECT_EQ(m_nExitCode, -1);
  killer.join();
}

TEST_F(LaunchProcessTest, AChildWhoseExecutionIsHeldBackCanBeKilled) {
  const std::string script = Script("exit 0");
  const CDescriptor scanner(fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY));
  if (fanotify_mark(scanner.Get(), FAN_MARK_ADD, FAN_OPEN_EXEC_PERM, AT_FDCWD, script.c_str()) !=
      0) {
    GTEST_SKIP() << "executions cannot be held back here: " << strerror(errno);
  }
  std::thread launcher([&] {
    EXPECT_FALSE(Launch(script));
    EXPECT_EQ(m_nExitCode, -1);
  });
  fanotify_event_metadata event = {};
  EXPECT_EQ(read(scanner.Get(), &event, sizeof event), ssize_t{sizeof event});
  const CDescriptor program(event.fd);
  EXPECT_TRUE(WaitUntil([&] { return m_nPid == event.pid; })) << "until the execution goes on";
  EXPECT_TRUE(KillProcess(event.pid, true));
  launcher.join();
}

TEST_F(LaunchProcessTest, LaunchesWithAWorkingDirectoryComeBackWhereTheProcessWas) {
  const std::string script = Script("[ \"$PWD\" = $1 ]");
  const auto launch = [&](const std::string& directory) {
    for (int round = 0; round < 50; ++round) {
      EXPECT_TRUE(RunProcess((script + " " + directory).c_str(), directory.c_str(), false, false));
    }
  };
  std::thread other([&] { launch("/usr"); });
  launch("/");
  other.join();
  EXPECT_EQ(Current(), m_oScratch.Path());
}

TEST_F(LaunchProcessTest, ALaunchWithoutAWorkingDirectoryWaitsForNoOther) {
  const std::string script = BlockingScript();
  std::thread other([&] { EXPECT_FALSE(RunProcess(script.c_str(), "/", false, false)); });
  EXPECT_TRUE(WaitUntil([] { return Current() == "/"; }));
  EXPECT_TRUE(Launch("true"));
  Release();
  other.join();
}

TEST_F(LaunchProcessTest, DoesNotWaitForADetachedChild) {
  EXPECT_TRUE(LaunchDetached(BlockingScript()));
  EXPECT_EQ(m_nExitCode, -1);
  EXPECT_EQ(m_oWaits.GetCount(), 0);
  Release();
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 0));
  EXPECT_EQ(m_nExitCode, 4);
}

TEST_F(LaunchProcessTest, IsTrueForADetachedChildThatCannotExecute) {
  EXPECT_TRUE(LaunchDetached("/missing/program"));
  EXPECT_EQ(m_nExitCode, -1);
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 0));
  EXPECT_EQ(m_nExitCode, 255);
}

TEST_F(LaunchProcessTest, StartsTheChildInTheWorkingDirectory) {
  std::filesystem::create_directories(m_oScratch.Path("there"));
  std::string during;
  const auto waits = calls::waitpid.Answer([&](pid_t pid, int* status, int options) {
    during = Current();
    return calls::waitpid.Real(pid, status, options);
  });
  EXPECT_TRUE(Launch(Script("pwd >$D/out"), "there"));
  EXPECT_EQ(m_oScratch.Read("out"), m_oScratch.Path("there") + "\n");
  EXPECT_EQ(during, m_oScratch.Path("there")) << "until the launch is over";
  EXPECT_EQ(Current(), m_oScratch.Path());
}

TEST_F(LaunchProcessTest, KeepsTheDirectoryWithoutAWorkingDirectory) {
  for (const char* directory : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_TRUE(Launch(Script("pwd >$D/out"), directory));
    EXPECT_EQ(m_oScratch.Read("out"), m_oScratch.Path() + "\n");
  }
}

TEST_F(LaunchProcessTest, LaunchesNothingWhenTheWorkingDirectoryCannotBeEntered) {
  EXPECT_FALSE(Launch("true", "missing"));
  EXPECT_EQ(m_nPid, -1);
  EXPECT_EQ(m_nExitCode, -1);
  EXPECT_EQ(Current(), m_oScratch.Path());
}

TEST_F(LaunchProcessTest, IsFalseWhenTheProcessCannotReturnToItsDirectory) {
  const auto failing = calls::fchdir.Fail(EACCES);
  EXPECT_FALSE(Launch("true", "/"));
  EXPECT_EQ(m_nExitCode, 0);
  EXPECT_EQ(Current(), "/");
  EXPECT_FALSE(LaunchDetached("true", "/"));
  EXPECT_GT(m_nPid, 1);
  WaitProcess(m_nPid, m_nExitCode, 0);
}

TEST_F(LaunchProcessTest, HasAFormThatRunsAndReturnsTheResultOnly) {
  EXPECT_TRUE(RunProcess("true", nullptr, false, false));
  EXPECT_FALSE(RunProcess("false", nullptr, false, false));
  EXPECT_TRUE(RunProcess(Script("[ \"$PWD\" = / ]").c_str(), "/", true, false));
  ASSERT_EQ(dup2(STDIN_FILENO, INHERITABLE), INHERITABLE);
  EXPECT_FALSE(RunProcess(Script("[ -e /proc/self/fd/50 ]").c_str(), nullptr, false, false));
  EXPECT_TRUE(RunProcess(Script("[ -e /proc/self/fd/50 ]").c_str(), nullptr, false, true));
  EXPECT_EQ(m_oWaits.GetCount(), 5);
}

TEST_F(LaunchProcessTest, HasAFormThatRunsAndReturnsPidAndExitCode) {
  ASSERT_EQ(dup2(STDIN_FILENO, INHERITABLE), INHERITABLE);
  const std::string script =
      Script("[ \"$PWD\" = / ] && [ -e /proc/self/fd/50 ] && echo $$ >$D/out");
  EXPECT_TRUE(RunProcess(script.c_str(), m_nPid, m_nExitCode, "/", false, true));
  EXPECT_EQ(m_nExitCode, 0);
  EXPECT_EQ(m_oScratch.Read("out"), std::to_string(m_nPid) + "\n");
  EXPECT_FALSE(RunProcess(script.c_str(), m_nPid, m_nExitCode, "/", false, false));
  EXPECT_EQ(m_nExitCode, 1);
}

TEST_F(LaunchProcessTest, HasAFormThatStartsDetached) {
  const std::string script = BlockingScript();
  EXPECT_TRUE(StartProcess(script.c_str(), nullptr, false, false));
  EXPECT_EQ(m_oWaits.GetCount(), 0);
  Release();
  int status = 0;
  EXPECT_GT(waitpid(-1, &status, 0), 1);
  EXPECT_EQ(WEXITSTATUS(status), 4);
}

TEST_F(LaunchProcessTest, HasAFormThatStartsDetachedAndReturnsThePid) {
  ASSERT_EQ(dup2(STDIN_FILENO, INHERITABLE), INHERITABLE);
  const std::string script = Script("[ \"$PWD\" = / ] && [ -e /proc/self/fd/50 ]");
  EXPECT_TRUE(StartProcess(script.c_str(), m_nPid, "/", false, true));
  EXPECT_EQ(m_oWaits.GetCount(), 0);
  EXPECT_TRUE(WaitProcess(m_nPid, m_nExitCode, 0));
  EXPECT_TRUE(StartProcess(script.c_str(), m_nPid, "/", false, false));
  EXPECT_FALSE(WaitProcess(m_nPid, m_nExitCode, 0));
  EXPECT_EQ(m_nExitCode, 1);
}

TEST_F(LaunchProcessTest, HasAFormThatTakesTheProgramAsOneWord) {
  const std::string program =
      m_oScratch.WriteScript("a b\tc", "[ \"$PWD\" = / ] && echo \"$0 $#\" >$D/out");
  EXPECT_TRUE(RunProgram(program.c_str(), m_nPid, m_nExitCode, "/", false, false));
  EXPECT_EQ(m_nExitCode, 0);
  EXPECT_GT(m_nPid, 1);
  EXPECT_EQ(m_oScratch.Read("out"), program + " 0\n");
  EXPECT_FALSE(RunProgram("true x", m_nPid, m_nExitCode, nullptr, false, false));
  EXPECT_EQ(m_nExitCode, 255);
  ASSERT_EQ(dup2(STDIN_FILENO, INHERITABLE), INHERITABLE);
  const std::string script = Script("[ -e /proc/self/fd/50 ]");
  EXPECT_FALSE(RunProgram(script.c_str(), m_nPid, m_nExitCode, nullptr, false, false));
  EXPECT_TRUE(RunProgram(script.c_str(), m_nPid, m_nExitCode, nullptr, false, true));
}

TEST_F(LaunchProcessTest, OneWordMayBeNullOrEmpty) {
  for (const char* program : {"", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(RunProgram(program, m_nPid, m_nExitCode, nullptr, false, false));
    EXPECT_EQ(m_nExitCode, 255);
  }
}
