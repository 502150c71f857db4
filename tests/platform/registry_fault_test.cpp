#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "platform/registry_file.h"
#include "platform/registry_tree.h"
#include "tests/support/registry_directory.h"
#include "tests/support/registry_model.h"
#include "tests/support/trace_session.h"

namespace {

// Decides what becomes of the system calls of a save. Null: nothing is watched.
class FaultPlan;
FaultPlan* g_pPlan = nullptr;

// As file systems do that cannot exchange files.
bool g_bRefuseExchange = false;

enum class Outcome {
  DONE,            // the call is made
  FAILED,          // it fails and does nothing
  DONE_AND_FAILED  // it is made, and fails nevertheless, as on network file systems
};

class FaultPlan {
 public:
  using Decide = std::function<Outcome(size_t index, const std::string& name)>;

  FaultPlan(int error, Decide decide) : m_decide(std::move(decide)), m_nError(error) {
    g_pPlan = this;
  }
  ~FaultPlan() { g_pPlan = nullptr; }
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  // Each write takes one byte only.
  void WriteByteByByte() { m_bByteByByte = true; }

  // The calls so far, by name.
  const std::vector<std::string>& GetCalls() const { return m_calls; }

  template <typename Call>
  auto Run(const char* name, const Call& call) -> decltype(call()) {
    const Outcome outcome = m_decide(m_calls.size(), name);
    m_calls.emplace_back(name);
    if (outcome == Outcome::DONE) {
      return call();
    }
    if (outcome == Outcome::DONE_AND_FAILED) {
      call();
    }
    errno = m_nError;
    return -1;
  }

  size_t GetLength(size_t length) const {
    return m_bByteByByte ? std::min<size_t>(length, 1) : length;
  }

 private:
  const Decide m_decide;
  const int m_nError;
  bool m_bByteByByte = false;
  std::vector<std::string> m_calls;
};

template <typename Call>
auto Watched(const char* name, const Call& call) -> decltype(call()) {
  return g_pPlan != nullptr ? g_pPlan->Run(name, call) : call();
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_open(const char* path, int flags, ...);
int __real_close(int descriptor);
ssize_t __real_write(int descriptor, const void* bytes, size_t length);
int __real_fchmod(int descriptor, mode_t mode);
int __real_fsync(int descriptor);
int __real_stat(const char* path, struct stat* status);
int __real_fstat(int descriptor, struct stat* status);
int __real_rename(const char* from, const char* to);
int __real_renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                     unsigned int flags);
int __real_unlink(const char* path);

int __wrap_open(const char* path, int flags, mode_t mode) {
  return Watched("open", [&] { return __real_open(path, flags, mode); });
}

// A failed close closes all the same.
int __wrap_close(int descriptor) {
  const int result = __real_close(descriptor);
  return Watched("close", [&] { return result; });
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t length) {
  return Watched("write", [&] {
    return __real_write(descriptor, bytes,
                        g_pPlan != nullptr ? g_pPlan->GetLength(length) : length);
  });
}

int __wrap_fchmod(int descriptor, mode_t mode) {
  return Watched("fchmod", [&] { return __real_fchmod(descriptor, mode); });
}

int __wrap_fsync(int descriptor) {
  return Watched("fsync", [&] { return __real_fsync(descriptor); });
}

int __wrap_stat(const char* path, struct stat* status) {
  return Watched("stat", [&] { return __real_stat(path, status); });
}

int __wrap_fstat(int descriptor, struct stat* status) {
  return Watched("fstat", [&] { return __real_fstat(descriptor, status); });
}

int __wrap_rename(const char* from, const char* to) {
  return Watched("rename", [&] { return __real_rename(from, to); });
}

int __wrap_renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                     unsigned int flags) {
  if (g_bRefuseExchange) {
    errno = EINVAL;
    return -1;
  }
  return Watched("renameat2",
                 [&] { return __real_renameat2(fromDirectory, from, toDirectory, to, flags); });
}

int __wrap_unlink(const char* path) {
  return Watched("unlink", [&] { return __real_unlink(path); });
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

constexpr char OLD[] = "[HKEY_LOCAL_MACHINE]\nnumber=d=1\n\n\n";
constexpr char OLDER[] = "[HKEY_LOCAL_MACHINE]\nnumber=d=0\n\n\n";

// What a test begins with.
struct Start {
  const char* name;
  const char* current;  // null: none
  const char* backup;
  bool refusesExchange = false;
};

void PrintTo(const Start& start, std::ostream* stream) { *stream << start.name; }

constexpr Start STARTS[] = {{"Nothing", nullptr, nullptr},
                            {"Current", OLD, nullptr},
                            {"CurrentAndBackup", OLD, OLDER},
                            {"CurrentWithoutExchange", OLD, nullptr, true},
                            {"CurrentAndBackupWithoutExchange", OLD, OLDER, true},
                            {"BadCurrentAndBackup", "bad", OLD},
                            {"EmptyCurrentAndBackup", "", OLD},
                            {"Backup", nullptr, OLD}};

void Make(const Start& start) {
  g_bRefuseExchange = start.refusesExchange;
  ResetRegistryDirectory();
  if (start.current != nullptr) {
    WriteFile(CURRENT, start.current);
  }
  if (start.backup != nullptr) {
    WriteFile(BACKUP, start.backup);
  }
  LoadTree();
}

// Changes the tree. Its end saves.
class Change {
 public:
  Change() { m_oRegistry.SetValue("number", 2); }

 private:
  CRegistry m_oRegistry{"", HKEY_LOCAL_MACHINE};
};

std::vector<std::string> CallsOfASave(const Start& start) {
  Make(start);
  const Change change;
  FaultPlan plan(0, [](size_t, const std::string&) { return Outcome::DONE; });
  CRegistryTree::Get().SaveTree();
  return plan.GetCalls();
}

class RegistryFaultTest : public testing::TestWithParam<std::tuple<Start, int>> {
 protected:
  RegistryFaultTest() {
    ResetRegistryDirectory();
    std::tie(m_start, m_nError) = GetParam();
    const std::vector<std::string> calls = CallsOfASave(m_start);
    m_calls = calls;
    m_after = LoadTree();
    Make(m_start);
    m_before = ReadTree();
  }

  // Whether the save can do without the call at that index: the directory is closed at the end.
  bool IsHarmless(size_t index) const {
    return index + 1 == m_calls.size() && m_calls[index] == "close";
  }

  Start m_start = {};
  int m_nError = 0;
  std::vector<std::string> m_calls;  // of a save in which nothing fails
  RegistryModel m_before;
  RegistryModel m_after;
};

std::string NameOf(const testing::TestParamInfo<std::tuple<Start, int>>& info) {
  const int error = std::get<1>(info.param);
  return std::string(std::get<0>(info.param).name) + strerrorname_np(error);
}

INSTANTIATE_TEST_SUITE_P(Registry, RegistryFaultTest,
                         testing::Combine(testing::ValuesIn(STARTS),
                                          testing::Values(ENOSPC, EIO, EACCES)),
                         NameOf);

TEST_P(RegistryFaultTest, SaveInWhichAnySystemCallFailsLosesNothing) {
  for (size_t failing = 0; failing < m_calls.size(); ++failing) {
    SCOPED_TRACE(m_calls[failing] + " at " + std::to_string(failing));
    Make(m_start);
    {
      const Change change;
      const TraceSession session(1);
      {
        FaultPlan plan(m_nError, [failing](size_t index, const std::string&) {
          return index == failing ? Outcome::FAILED : Outcome::DONE;
        });
        CRegistryTree::Get().SaveTree();
      }
      EXPECT_EQ(session.Lines().size(), IsHarmless(failing) ? 0U : 1U);
      if (!IsHarmless(failing)) {
        EXPECT_THAT(session.Texts(), Contains(StartsWith("CRegistry: ERROR: Cannot ")));
      }
      EXPECT_FALSE(Exists(TEMPORARY));
      CRegistryTree::Get().SaveTree();
      EXPECT_FALSE(Exists(TEMPORARY));
    }
    EXPECT_EQ(LoadTree(), m_after) << "what failed was not tried again";
  }
}

TEST_P(RegistryFaultTest, ProcessThatEndsAfterAFailedSaveLeavesTheOldOrTheNewTree) {
  for (const Outcome outcome : {Outcome::FAILED, Outcome::DONE_AND_FAILED}) {
    for (size_t failing = 0; failing < m_calls.size(); ++failing) {
      SCOPED_TRACE(m_calls[failing] + " at " + std::to_string(failing));
      Make(m_start);
      const Change change;
      {
        FaultPlan plan(m_nError, [&](size_t index, const std::string&) {
          return index == failing ? outcome : Outcome::DONE;
        });
        CRegistryTree::Get().SaveTree();
      }
      EXPECT_THAT(LoadTree(), testing::AnyOf(m_before, m_after));
    }
  }
}

TEST_P(RegistryFaultTest, SaveInWhichAllIsFailingFromAnyCallOnLeavesTheOldOrTheNewTree) {
  for (size_t failing = 0; failing < m_calls.size(); ++failing) {
    SCOPED_TRACE(m_calls[failing] + " at " + std::to_string(failing));
    Make(m_start);
    const Change change;
    {
      FaultPlan plan(m_nError, [failing](size_t index, const std::string&) {
        return index >= failing ? Outcome::FAILED : Outcome::DONE;
      });
      CRegistryTree::Get().SaveTree();
    }
    EXPECT_THAT(LoadTree(), testing::AnyOf(m_before, m_after));
  }
}

TEST_P(RegistryFaultTest, FailureBeforeTheFlushOfTheDirectoryLeavesTheCurrentFile) {
  const auto flush = std::find(m_calls.rbegin(), m_calls.rend(), "fsync");
  ASSERT_NE(flush, m_calls.rend());
  const auto end = static_cast<size_t>(m_calls.rend() - flush) - 1;
  for (size_t failing = 0; failing < end; ++failing) {
    SCOPED_TRACE(m_calls[failing] + " at " + std::to_string(failing));
    Make(m_start);
    FaultPlan plan(m_nError, [failing](size_t index, const std::string&) {
      return index == failing ? Outcome::FAILED : Outcome::DONE;
    });
    EXPECT_FALSE(SaveRegistryFile("new"));
    EXPECT_EQ(ReadFile(CURRENT), m_start.current != nullptr ? m_start.current : "<missing>");
  }
}

TEST(RegistryFaultTraceTest, LineNamesTheFileAndTheReason) {
  const auto traced = [](const char* name, int error) {
    Make(STARTS[1]);
    const TraceSession session(1);
    FaultPlan plan(error, [name](size_t, const std::string& call) {
      return call == name ? Outcome::FAILED : Outcome::DONE;
    });
    EXPECT_FALSE(SaveRegistryFile("new"));
    return session.Texts();
  };
  EXPECT_THAT(
      traced("write", ENOSPC),
      ElementsAre("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry.new\": No space left "
                  "on device\n"));
  EXPECT_THAT(
      traced("stat", EIO),
      ElementsAre("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": Input/output error\n"));
  EXPECT_THAT(
      traced("rename", EACCES),
      ElementsAre("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": Permission denied\n"));
}

TEST(RegistryFaultTraceTest, DirectoryThatCannotBeFlushedIsNamed) {
  Make(STARTS[1]);
  const TraceSession session(1);
  size_t flushes = 0;
  FaultPlan plan(EIO, [&flushes](size_t, const std::string& call) {
    return call == "fsync" && ++flushes == 2 ? Outcome::FAILED : Outcome::DONE;
  });
  EXPECT_FALSE(SaveRegistryFile("new"));
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistry: ERROR: Cannot save \"/etc/qamrel\": Input/output error\n"));
  EXPECT_EQ(ReadFile(CURRENT), "new");
}

class RegistryWriteTest : public testing::Test {
 protected:
  RegistryWriteTest() { Make(STARTS[1]); }
};

TEST_F(RegistryWriteTest, PartialWritesAreContinued) {
  FaultPlan plan(0, [](size_t, const std::string&) { return Outcome::DONE; });
  plan.WriteByteByByte();
  EXPECT_TRUE(SaveRegistryFile("new text"));
  EXPECT_EQ(ReadFile(CURRENT), "new text");
  EXPECT_THAT(plan.GetCalls(), Contains("write").Times(8));
}

TEST_F(RegistryWriteTest, InterruptedWritesAreRepeated) {
  size_t writes = 0;
  FaultPlan plan(EINTR, [&writes](size_t, const std::string& call) {
    return call == "write" && ++writes % 3 != 0 ? Outcome::FAILED : Outcome::DONE;
  });
  plan.WriteByteByByte();
  EXPECT_TRUE(SaveRegistryFile("new text"));
  EXPECT_EQ(ReadFile(CURRENT), "new text");
  EXPECT_EQ(writes, 24U);
}

TEST_F(RegistryWriteTest, FailureAfterAPartialWriteLeavesTheOldFile) {
  size_t writes = 0;
  FaultPlan plan(ENOSPC, [&writes](size_t, const std::string& call) {
    return call == "write" && ++writes == 4 ? Outcome::FAILED : Outcome::DONE;
  });
  plan.WriteByteByByte();
  EXPECT_FALSE(SaveRegistryFile("new text"));
  EXPECT_EQ(ReadFile(CURRENT), OLD);
  EXPECT_FALSE(Exists(BACKUP));
  EXPECT_FALSE(Exists(TEMPORARY));
}

// A flush that comes after the rename would let a crash of the machine leave an empty file.
TEST_F(RegistryWriteTest, TextIsFlushedBeforeItIsMovedAndTheDirectoryAfterwards) {
  const std::vector<std::string> calls = CallsOfASave(STARTS[1]);
  const auto isMove = [](const std::string& call) { return call.starts_with("rename"); };
  const auto firstMove = std::find_if(calls.begin(), calls.end(), isMove);
  const auto lastMove = std::find_if(calls.rbegin(), calls.rend(), isMove).base();
  EXPECT_EQ(std::count(calls.begin(), firstMove, "fsync"), 1);
  EXPECT_EQ(std::count(firstMove, lastMove, "fsync"), 0);
  EXPECT_EQ(std::count(lastMove, calls.end(), "fsync"), 1);
}

}  // namespace
