// Queries on a proc file system that the test made.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/process/process_table.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/failing_new.h"
#include "tests/support/system_calls.h"

namespace {

// Covers the machine's, in a mount namespace of its own.
class MadeProcTest : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNS) != 0) {
      GTEST_SKIP() << "no mount namespace: " << strerror(errno);
    }
    ASSERT_EQ(mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << strerror(errno);
    ASSERT_EQ(mount("made", "/proc", "tmpfs", 0, nullptr), 0) << strerror(errno);
    m_bMounted = true;
  }

  void TearDown() override {
    if (m_bMounted) {
      umount2("/proc", MNT_DETACH);
    }
  }

  static void Make(const std::string& path, const std::string& content) {
    const std::filesystem::path file = "/proc/" + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
  }

  static std::string First(const std::string& content) {
    Make("1/file", content);
    std::string line = "before";
    return ReadProcFile(1, "file", line) ? "true:" + line : "false:" + line;
  }

  static std::string Number(const std::string& status, std::string_view key) {
    Make("1/status", status);
    uint64_t number = 7;
    const bool result = ReadProcStatusField(1, number, key);
    return (result ? "true:" : "false:") + std::to_string(number);
  }

  static std::string Memory(const std::string& status) {
    Make("1/status", status);
    uint64_t size = 7;
    uint64_t peak = 7;
    uint64_t swap = 7;
    uint64_t librarySize = 7;
    const bool result = GetProcessMemory(1, size, peak, swap, librarySize);
    return (result ? "true:" : "false:") + std::to_string(size) + "," + std::to_string(peak) + "," +
           std::to_string(swap) + "," + std::to_string(librarySize);
  }

 private:
  bool m_bMounted = false;
};

}  // namespace

TEST_F(MadeProcTest, ReadsTheFirstLineAndNothingElse) {
  EXPECT_EQ(First("one\ntwo\n"), "true:one");
  EXPECT_EQ(First("one"), "true:one");
  EXPECT_EQ(First("\ntwo"), "true:");
}

TEST_F(MadeProcTest, KeepsWhiteSpaceInFrontOfTheLineEnd) {
  EXPECT_EQ(First(" one \t\r\n"), "true: one \t\r");
}

TEST_F(MadeProcTest, AnswersFalseForAnEmptyFile) { EXPECT_EQ(First(""), "false:"); }

TEST_F(MadeProcTest, AnswersFalseForAFileThatCannotBeRead) {
  std::filesystem::create_directories("/proc/1/comm");
  std::string line = "before";
  EXPECT_FALSE(ReadProcFile(1, "comm", line));
  EXPECT_EQ(line, "");
}

TEST_F(MadeProcTest, ReportsTheFirstOfTwoProcessesInDirectoryOrder) {
  for (const char* pid : {"20", "3", "100", "4"}) {
    Make(std::string(pid) + "/comm", "twin\n");
  }
  std::string first;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    first = entry.path().filename();
    break;
  }
  int32_t pid = 0;
  EXPECT_TRUE(FindProcessByName(pid, "twin"));
  EXPECT_EQ(std::to_string(pid), first);
}

TEST_F(MadeProcTest, SkipsEntriesThatAreNoProcesses) {
  for (const char* entry : {"0", "self", "sys", "-4", "4294967297", "99999999999999999999"}) {
    Make(std::string(entry) + "/comm", "name\n");
  }
  Make("1/comm", "init\n");
  int32_t pid = 7;
  EXPECT_FALSE(FindProcessByName(pid, "name"));
  EXPECT_EQ(pid, -1);
}

TEST_F(MadeProcTest, FindsTheLowestAndTheHighestPid) {
  Make("1/comm", "first\n");
  Make("2147483647/comm", "last\n");
  int32_t pid = 0;
  EXPECT_TRUE(FindProcessByName(pid, "first"));
  EXPECT_EQ(pid, 1);
  EXPECT_TRUE(FindProcessByName(pid, "last"));
  EXPECT_EQ(pid, 2147483647);
}

TEST_F(MadeProcTest, DoesNotTakeANumberBeyondForAPid) {
  // What the number would be in 32 bits.
  Make("-2147483648/comm", "beyond\n");
  Make("2147483648/comm", "beyond\n");
  int32_t pid = 0;
  EXPECT_FALSE(FindProcessByName(pid, "beyond"));
  EXPECT_EQ(pid, -1);
}

TEST_F(MadeProcTest, KeepsTheExecutableOfAProcessWithoutName) {
  std::filesystem::create_directories("/proc/1");
  std::filesystem::create_symlink("/usr/bin/program", "/proc/1/exe");
  std::string name = "before";
  std::string executable;
  EXPECT_FALSE(GetProcessNameAndExecutable(1, name, executable));
  EXPECT_EQ(name, "");
  EXPECT_EQ(executable, "/usr/bin/program");
}

TEST_F(MadeProcTest, SkipsAProcessThatVanishesDuringTheWalk) {
  // Whatever the order is, some of the vanished ones come first.
  for (int pid = 1; pid <= 9; ++pid) {
    std::filesystem::create_directories("/proc/" + std::to_string(pid));
  }
  Make("5/comm", "there\n");
  int32_t pid = 0;
  EXPECT_TRUE(FindProcessByName(pid, "there"));
  EXPECT_EQ(pid, 5);
}

TEST_F(MadeProcTest, DoesNotTakeTheNameOfAnEarlierProcessForAVanishedOne) {
  for (int pid = 1; pid <= 9; ++pid) {
    std::filesystem::create_directories("/proc/" + std::to_string(pid));
  }
  Make("5/comm", "other\n");
  int32_t pid = 0;
  EXPECT_FALSE(FindProcessByName(pid, ""));
  EXPECT_EQ(pid, -1);
}

TEST_F(MadeProcTest, DoesNotFindALongNameOfAKernelThread) {
  Make("1/comm", "a234567890123456\n");
  int32_t pid = 7;
  EXPECT_FALSE(FindProcessByName(pid, "a234567890123456"));
  EXPECT_EQ(pid, -1);
}

TEST_F(MadeProcTest, FindsNothingWhenTheDirectoryCannotBeOpened) {
  Make("1/comm", "name\n");
  const DescriptorLimit none(0);
  int32_t pid = 7;
  EXPECT_FALSE(FindProcessByName(pid, "name"));
  EXPECT_EQ(pid, -1);
}

TEST_F(MadeProcTest, SearchesWithOneOpenAndNoAllocationForEachProcess) {
  for (int number = 0; number < 2000; ++number) {
    Make(std::to_string(1'000'000 + number) + "/comm", "fifteen letters\n");
  }
  const auto opens = calls::openat.Watch();
  const FailingNew few(20);
  int32_t pid = 0;
  EXPECT_FALSE(FindProcessByName(pid, "somebody"));
  EXPECT_EQ(opens.GetCount(), 2000);
  EXPECT_FALSE(few.HasFailed());
}

TEST_F(MadeProcTest, TakesTheFirstLineThatBeginsWithTheKey) {
  const std::string status = "Name:\ta VmSize: 1\n VmSize: 2\nVmSize:\t 3 kB\nVmSize:\t4 kB\n";
  EXPECT_EQ(Number(status, "VmSize:"), "true:3");
  std::string text;
  EXPECT_TRUE(ReadProcStatusField(1, text, "VmSize:"));
  EXPECT_EQ(text, "\t 3 kB");
}

TEST_F(MadeProcTest, ReadsNumbersUpToTheirWidth) {
  EXPECT_EQ(Number("A:1kB\n", "A:"), "true:1");
  EXPECT_EQ(Number("A: \t\v\f\r12", "A:"), "true:12");
  EXPECT_EQ(Number("A:\t18446744073709551615 kB\n", "A:"), "true:18446744073709551615");
}

TEST_F(MadeProcTest, AnswersFalseForAFieldWithoutANumber) {
  EXPECT_EQ(Number("A:\n1\n", "A:"), "false:0");
  EXPECT_EQ(Number("A:\t \n1\n", "A:"), "false:0");
  EXPECT_EQ(Number("A:\tkB\nA: 1\n", "A:"), "false:0");
  EXPECT_EQ(Number("A:\t18446744073709551616\n", "A:"), "false:0");
  EXPECT_EQ(Number("B:\t1\n", "A:"), "false:0");
}

TEST_F(MadeProcTest, ReadsAFieldBehindTheFirstBlockOfTheFile) {
  EXPECT_EQ(Number(std::string(10'000, 'x') + "\nA:\t5\n", "A:"), "true:5");
}

TEST_F(MadeProcTest, TellsTheFourFiguresApart) {
  EXPECT_EQ(Memory("VmPeak:\t 20 kB\nVmSize:\t 10 kB\nVmLib:\t 40 kB\nVmSwap:\t 30 kB\n"),
            "true:10,20,30,40");
  EXPECT_EQ(Memory("VmPeak:\t 20 kB\nVmSize:\t 10 kB\n"), "true:10,20,0,0");
}

TEST_F(MadeProcTest, AnswersFalseWithoutPeakOrSize) {
  EXPECT_EQ(Memory("VmSize:\t 10 kB\nVmSwap:\t 30 kB\nVmLib:\t 40 kB\n"), "false:0,0,0,0");
  EXPECT_EQ(Memory("VmPeak:\t 20 kB\nVmSwap:\t 30 kB\nVmLib:\t 40 kB\n"), "false:0,0,0,0");
  EXPECT_EQ(Memory("VmPeak:\t 0 kB\nVmSize:\t 10 kB\n"), "false:0,0,0,0");
  EXPECT_EQ(Memory("Name:\tkthreadd\n"), "false:0,0,0,0");
}
