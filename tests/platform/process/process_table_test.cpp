#include "platform/process/process_table.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>

#include "tests/support/descriptor_count.h"
#include "tests/support/system_calls.h"

namespace {

// A child of the test, which waits to be killed.
class Child {
 public:
  explicit Child(const char* commandName) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    m_nPid = fork();
    if (m_nPid == 0) {
      prctl(PR_SET_NAME, commandName);
      close(ready[0]);
      close(ready[1]);
      for (;;) {
        pause();
      }
    }
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 0);  // the end of the pipe: the name is set
    close(ready[0]);
  }
  ~Child() {
    kill(m_nPid, SIGKILL);
    waitpid(m_nPid, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Ends it, and leaves it to be waited for.
  void BecomeZombie() const {
    kill(m_nPid, SIGKILL);
    siginfo_t information = {};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(m_nPid), &information, WEXITED | WNOWAIT), 0);
  }

  int32_t Pid() const { return m_nPid; }

 private:
  pid_t m_nPid = 0;
};

// A pid that no process has.
int32_t FreePid() {
  const Child child("gone");
  return child.Pid();
}

}  // namespace

TEST(ProcessTableTest, ReadsTheCommandNameOfAProcess) {
  const Child child("collector");
  std::string name = "before";
  EXPECT_TRUE(GetProcessName(name, child.Pid()));
  EXPECT_EQ(name, "collector");
}

TEST(ProcessTableTest, ReadsTheExecutableOfAProcess) {
  std::string executable;
  EXPECT_TRUE(GetProcessExecutable(executable, getpid()));
  EXPECT_EQ(executable, std::filesystem::read_symlink("/proc/self/exe"));
}

TEST(ProcessTableTest, RefusesAnExecutableWhosePathMayBeCut) {
  const auto full = calls::readlink.Answer([](const char*, char* buffer, size_t size) {
    memset(buffer, 'x', size);
    return static_cast<ssize_t>(size);
  });
  std::string executable = "before";
  EXPECT_FALSE(GetProcessExecutable(executable, getpid()));
  EXPECT_EQ(executable, "");
}

TEST(ProcessTableTest, ReadsNameAndExecutableAtOnce) {
  const Child child("both");
  std::string name;
  std::string executable;
  EXPECT_TRUE(GetProcessNameAndExecutable(child.Pid(), name, executable));
  EXPECT_EQ(name, "both");
  EXPECT_EQ(executable, std::filesystem::read_symlink("/proc/self/exe"));
}

TEST(ProcessTableTest, KeepsTheNameOfAProcessWithoutExecutable) {
  const Child child("zombie");
  child.BecomeZombie();
  std::string name;
  std::string executable = "before";
  EXPECT_FALSE(GetProcessNameAndExecutable(child.Pid(), name, executable));
  EXPECT_EQ(name, "zombie");
  EXPECT_EQ(executable, "");
}

TEST(ProcessTableTest, EmptiesEveryOutputForAProcessThatHasEnded) {
  const int32_t pid = FreePid();
  std::string name = "before";
  std::string executable = "before";
  EXPECT_FALSE(GetProcessNameAndExecutable(pid, name, executable));
  EXPECT_EQ(name, "");
  EXPECT_EQ(executable, "");
  name = executable = "before";
  EXPECT_FALSE(GetProcessName(name, pid));
  EXPECT_EQ(name, "");
  EXPECT_FALSE(GetProcessExecutable(executable, pid));
  EXPECT_EQ(executable, "");
  name = "before";
  EXPECT_FALSE(ReadProcFile(pid, "comm", name));
  EXPECT_EQ(name, "");
  EXPECT_FALSE(ReadProcStatusField(pid, executable = "before", "Name:"));
  EXPECT_EQ(executable, "");
  uint64_t number = 7;
  EXPECT_FALSE(ReadProcStatusField(pid, number, "VmSize:"));
  EXPECT_EQ(number, 0U);
}

TEST(ProcessTableTest, FindsAProcessByItsCommandName) {
  const Child child("Talvor");
  int32_t pid = 0;
  EXPECT_TRUE(FindProcessByName(pid, "Talvor"));
  EXPECT_EQ(pid, child.Pid());
}

TEST(ProcessTableTest, ComparesCommandNamesExactly) {
  const Child child("Talvor");
  for (const char* name : {"talvor", "Talvo", "Talvor2", "Talvor\n", "alvor", ""}) {
    int32_t pid = 0;
    EXPECT_FALSE(FindProcessByName(pid, name)) << name;
    EXPECT_EQ(pid, -1) << name;
  }
}

TEST(ProcessTableTest, FindsANameOf15CharactersAndNoneOf16) {
  const Child child("a234567890123456");
  int32_t pid = 0;
  EXPECT_FALSE(FindProcessByName(pid, "a234567890123456"));
  EXPECT_EQ(pid, -1);
  EXPECT_TRUE(FindProcessByName(pid, "a23456789012345"));
  EXPECT_EQ(pid, child.Pid());
}

TEST(ProcessTableTest, DoesNotFindAProcessThatHasEnded) {
  { const Child child("gone"); }
  int32_t pid = 0;
  EXPECT_FALSE(FindProcessByName(pid, "gone"));
  EXPECT_EQ(pid, -1);
}

TEST(ProcessTableTest, ReadsAStatusFieldAsTextWithItsWhiteSpace) {
  const Child child("status");
  std::string text;
  EXPECT_TRUE(ReadProcStatusField(child.Pid(), text, "Name:"));
  EXPECT_EQ(text, "\tstatus");
  EXPECT_TRUE(ReadProcStatusField(child.Pid(), text, "PPid:"));
  EXPECT_EQ(text, "\t" + std::to_string(getpid()));
}

TEST(ProcessTableTest, ReadsAStatusFieldAsNumber) {
  const Child child("status");
  uint64_t number = 0;
  EXPECT_TRUE(ReadProcStatusField(child.Pid(), number, "PPid:"));
  EXPECT_EQ(number, static_cast<uint64_t>(getpid()));
}

TEST(ProcessTableTest, ReadsTheMemoryOfAProcess) {
  uint64_t size = 0;
  uint64_t peak = 0;
  uint64_t swap = 7;
  uint64_t librarySize = 0;
  EXPECT_TRUE(GetProcessMemory(getpid(), size, peak, swap, librarySize));
  EXPECT_GT(size, 1000U);
  EXPECT_GE(peak, size);
  EXPECT_GT(librarySize, 1000U);
}

TEST(ProcessTableTest, FindsNoMemoryOfAProcessThatHasEnded) {
  const Child child("zombie");
  child.BecomeZombie();
  uint64_t size = 7;
  uint64_t peak = 7;
  uint64_t swap = 7;
  uint64_t librarySize = 7;
  EXPECT_FALSE(GetProcessMemory(child.Pid(), size, peak, swap, librarySize));
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(peak, 0U);
  EXPECT_EQ(swap, 0U);
  EXPECT_EQ(librarySize, 0U);
}

TEST(ProcessTableTest, LeavesNoDescriptorOpen) {
  const ptrdiff_t before = CountDescriptors();
  int32_t pid = 0;
  EXPECT_FALSE(FindProcessByName(pid, "nobody"));
  const Child child("somebody");
  EXPECT_TRUE(FindProcessByName(pid, "somebody"));
  std::string text;
  EXPECT_TRUE(ReadProcStatusField(pid, text, "Name:"));
  EXPECT_FALSE(ReadProcStatusField(pid, text, "None:"));
  EXPECT_EQ(CountDescriptors(), before);
}
