#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_tree.h"
#include "tests/platform/registry/saved_text.h"
#include "tests/support/fault_plan.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

constexpr char OLD_TREE[] = "[HKEY_LOCAL_MACHINE]\nnumber=d=1\n\n\n";
constexpr char OLDER_TREE[] = "[HKEY_LOCAL_MACHINE]\nnumber=d=0\n\n\n";

// What a test begins with.
struct Start {
  const char* name;
  const char* current;  // null: none
  const char* backup;
  int exchangeError = 0;  // EINVAL, EPERM: the file system has no exchange; ENOSYS: the kernel
};

void PrintTo(const Start& start, std::ostream* stream) { *stream << start.name; }

constexpr Start STARTS[] = {{"Nothing", nullptr, nullptr},
                            {"Current", OLD_TREE, nullptr},
                            {"CurrentAndBackup", OLD_TREE, OLDER_TREE},
                            {"CurrentWithoutExchange", OLD_TREE, nullptr, ENOSYS},
                            {"CurrentAndBackupWithoutExchange", OLD_TREE, OLDER_TREE, EINVAL},
                            {"CurrentWithForbiddenExchange", OLD_TREE, nullptr, EPERM},
                            {"BadCurrentAndBackup", "bad", OLD_TREE},
                            {"EmptyCurrentAndBackup", "", OLD_TREE},
                            {"Backup", nullptr, OLD_TREE}};

void MakeStart(const Start& start) {
  ResetRegistry();
  if (start.current != nullptr) {
    WriteFile(REGISTRY_FILE, start.current);
  }
  if (start.backup != nullptr) {
    WriteFile(REGISTRY_BACKUP_FILE, start.backup);
  }
  LoadTree();
}

// Changes the tree. Its end saves.
class NumberChange {
 public:
  NumberChange() { m_oRegistry.SetValue("number", 2); }

 private:
  CRegistry m_oRegistry{"", HKEY_LOCAL_MACHINE};
};

std::vector<std::string> CallsOfASave(const Start& start) {
  MakeStart(start);
  const NumberChange change;
  FaultPlan plan(0, [](size_t, const std::string&) { return Outcome::DONE; });
  CRegistryTree::Get().SaveTree();
  return plan.GetCalls();
}

class RegistryFaultTest : public RegistryFilesTest,
                          public testing::WithParamInterface<std::tuple<Start, int>> {
 protected:
  RegistryFaultTest() {
    const std::vector<std::string> calls = CallsOfASave(m_oStart);
    m_oCalls = calls;
    m_oAfter = LoadTree();
    MakeStart(m_oStart);
    m_oBefore = ReadTree();
  }

  // Whether the save can do without the call at that index: the directory and the lock file are
  // closed at the end.
  bool IsHarmless(size_t index) const {
    return index + 2 >= m_oCalls.size() && m_oCalls[index] == "close";
  }

  const Start m_oStart = std::get<0>(GetParam());
  const int m_nError = std::get<1>(GetParam());
  const ExchangeRefusal m_oRefusal{m_oStart.exchangeError};
  std::vector<std::string> m_oCalls;  // of a save in which nothing fails
  RegistryModel m_oBefore;
  RegistryModel m_oAfter;
};

std::string NameOfFault(const testing::TestParamInfo<std::tuple<Start, int>>& info) {
  const int error = std::get<1>(info.param);
  return std::string(std::get<0>(info.param).name) + strerrorname_np(error);
}

INSTANTIATE_TEST_SUITE_P(Registry, RegistryFaultTest,
                         testing::Combine(testing::ValuesIn(STARTS),
                                          testing::Values(ENOSPC, EIO, EACCES)),
                         NameOfFault);

TEST_P(RegistryFaultTest, SaveInWhichAnySystemCallFailsLosesNothing) {
  for (size_t failing = 0; failing < m_oCalls.size(); ++failing) {
    SCOPED_TRACE(m_oCalls[failing] + " at " + std::to_string(failing));
    MakeStart(m_oStart);
    {
      const NumberChange change;
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
      EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
      CRegistryTree::Get().SaveTree();
      EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
    }
    EXPECT_EQ(LoadTree(), m_oAfter) << "what failed was not tried again";
  }
}

TEST_P(RegistryFaultTest, ProcessThatEndsAfterAFailedSaveLeavesTheOldOrTheNewTree) {
  for (const Outcome outcome : {Outcome::FAILED, Outcome::DONE_AND_FAILED}) {
    for (size_t failing = 0; failing < m_oCalls.size(); ++failing) {
      SCOPED_TRACE(m_oCalls[failing] + " at " + std::to_string(failing));
      MakeStart(m_oStart);
      const NumberChange change;
      {
        FaultPlan plan(m_nError, [&](size_t index, const std::string&) {
          return index == failing ? outcome : Outcome::DONE;
        });
        CRegistryTree::Get().SaveTree();
      }
      EXPECT_THAT(LoadTree(), testing::AnyOf(m_oBefore, m_oAfter));
    }
  }
}

TEST_P(RegistryFaultTest, SaveInWhichAllIsFailingFromAnyCallOnLeavesTheOldOrTheNewTree) {
  for (size_t failing = 0; failing < m_oCalls.size(); ++failing) {
    SCOPED_TRACE(m_oCalls[failing] + " at " + std::to_string(failing));
    MakeStart(m_oStart);
    const NumberChange change;
    {
      FaultPlan plan(m_nError, [failing](size_t index, const std::string&) {
        return index >= failing ? Outcome::FAILED : Outcome::DONE;
      });
      CRegistryTree::Get().SaveTree();
    }
    EXPECT_THAT(LoadTree(), testing::AnyOf(m_oBefore, m_oAfter));
  }
}

TEST_P(RegistryFaultTest, FailureBeforeTheFlushOfTheDirectoryLeavesTheCurrentFile) {
  const auto flush = std::find(m_oCalls.rbegin(), m_oCalls.rend(), "fsync");
  ASSERT_NE(flush, m_oCalls.rend());
  const auto end = static_cast<size_t>(m_oCalls.rend() - flush) - 1;
  for (size_t failing = 0; failing < end; ++failing) {
    SCOPED_TRACE(m_oCalls[failing] + " at " + std::to_string(failing));
    MakeStart(m_oStart);
    FaultPlan plan(m_nError, [failing](size_t index, const std::string&) {
      return index == failing ? Outcome::FAILED : Outcome::DONE;
    });
    EXPECT_EQ(SaveRegistryText("new"), RegistrySave::FAILED);
    EXPECT_EQ(ReadFile(REGISTRY_FILE),
              m_oStart.current != nullptr ? m_oStart.current : "(missing)");
  }
}

TEST(RegistryFaultTraceTest, LineNamesTheFileAndTheReason) {
  const auto traced = [](const char* name, int error) {
    MakeStart(STARTS[1]);
    const TraceSession session(1);
    FaultPlan plan(error, [name](size_t, const std::string& call) {
      return call == name ? Outcome::FAILED : Outcome::DONE;
    });
    EXPECT_EQ(SaveRegistryText("new"), RegistrySave::FAILED);
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
  MakeStart(STARTS[1]);
  const TraceSession session(1);
  size_t flushes = 0;
  FaultPlan plan(EIO, [&flushes](size_t, const std::string& call) {
    return call == "fsync" && ++flushes == 2 ? Outcome::FAILED : Outcome::DONE;
  });
  EXPECT_EQ(SaveRegistryText("new"), RegistrySave::NOT_FLUSHED);
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistry: ERROR: Cannot save \"/etc/qamrel\": Input/output error\n"));
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "new");
}

TEST(RegistryFlushTest, SaveAfterAFailedFlushRepeatsNothingElseAndKeepsTheBackup) {
  MakeStart(STARTS[2]);
  const NumberChange change;
  size_t flushes = 0;
  FaultPlan plan(EIO, [&flushes](size_t, const std::string& call) {
    return call == "fsync" && (++flushes == 2 || flushes == 3) ? Outcome::FAILED : Outcome::DONE;
  });
  EXPECT_FALSE(CRegistryTree::Get().SaveTree());
  const std::string saved = ReadFile(REGISTRY_FILE);
  EXPECT_FALSE(CRegistryTree::Get().SaveTree());
  EXPECT_TRUE(CRegistryTree::Get().SaveTree());
  EXPECT_EQ(ReadFile(REGISTRY_FILE), saved);
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), OLD_TREE);
  EXPECT_EQ(flushes, 4U);
  const size_t end = plan.GetCalls().size();
  EXPECT_TRUE(CRegistryTree::Get().SaveTree());
  EXPECT_EQ(plan.GetCalls().size(), end);
}

TEST(RegistryFlushTest, SaveAfterAFailedFlushWaitsForADirectoryThatCanBeOpened) {
  MakeStart(STARTS[2]);
  const NumberChange change;
  size_t flushes = 0;
  bool isRefused = false;
  const FaultPlan plan(EMFILE, [&](size_t, const std::string& call) {
    const bool fails = call == "fsync" ? ++flushes == 2 : call == "open" && isRefused;
    return fails ? Outcome::FAILED : Outcome::DONE;
  });
  EXPECT_FALSE(CRegistryTree::Get().SaveTree());
  isRefused = true;
  EXPECT_FALSE(CRegistryTree::Get().SaveTree());
  EXPECT_EQ(flushes, 2U);
  isRefused = false;
  EXPECT_TRUE(CRegistryTree::Get().SaveTree());
  EXPECT_EQ(flushes, 3U);
}

TEST(RegistryFlushTest, ChangeAfterAFailedFlushIsSaved) {
  MakeStart(STARTS[2]);
  const NumberChange change;
  size_t flushes = 0;
  FaultPlan plan(EIO, [&flushes](size_t, const std::string& call) {
    return call == "fsync" && ++flushes == 2 ? Outcome::FAILED : Outcome::DONE;
  });
  EXPECT_FALSE(CRegistryTree::Get().SaveTree());
  CRegistry("", HKEY_LOCAL_MACHINE).SetValue("number", 3);
  EXPECT_THAT(ReadFile(REGISTRY_FILE), testing::HasSubstr("number=d=3"));
}

class RegistryWriteTest : public RegistryFilesTest {
 protected:
  RegistryWriteTest() { MakeStart(STARTS[1]); }
};

TEST_F(RegistryWriteTest, PartialWritesAreContinued) {
  FaultPlan plan(0, [](size_t, const std::string&) { return Outcome::DONE; });
  plan.WriteByteByByte();
  EXPECT_EQ(SaveRegistryText("new text"), RegistrySave::DONE);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "new text");
  EXPECT_THAT(plan.GetCalls(), Contains("write").Times(8));
}

TEST_F(RegistryWriteTest, InterruptedWritesAreRepeated) {
  size_t writes = 0;
  FaultPlan plan(EINTR, [&writes](size_t, const std::string& call) {
    return call == "write" && ++writes % 3 != 0 ? Outcome::FAILED : Outcome::DONE;
  });
  plan.WriteByteByByte();
  EXPECT_EQ(SaveRegistryText("new text"), RegistrySave::DONE);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "new text");
  EXPECT_EQ(writes, 24U);
}

TEST_F(RegistryWriteTest, FailureAfterAPartialWriteLeavesTheOldFile) {
  size_t writes = 0;
  FaultPlan plan(ENOSPC, [&writes](size_t, const std::string& call) {
    return call == "write" && ++writes == 4 ? Outcome::FAILED : Outcome::DONE;
  });
  plan.WriteByteByByte();
  EXPECT_EQ(SaveRegistryText("new text"), RegistrySave::FAILED);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), OLD_TREE);
  EXPECT_FALSE(Exists(REGISTRY_BACKUP_FILE));
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
}

TEST_F(RegistryWriteTest, FailureOfAPieceLeavesTheOldFileAndEndsTheWriting) {
  const TraceSession session(1);
  size_t writes = 0;
  FaultPlan plan(ENOSPC, [&writes](size_t, const std::string& call) {
    return call == "write" && ++writes == 2 ? Outcome::FAILED : Outcome::DONE;
  });
  EXPECT_EQ(SaveRegistryFile([](const RegistryTextSink& sink) {
              for (const char* piece : {"one", "two", "three"}) {
                sink(piece);
              }
            }),
            RegistrySave::FAILED);
  EXPECT_EQ(writes, 2U);
  EXPECT_THAT(
      session.Texts(),
      ElementsAre("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry.new\": No space left "
                  "on device\n"));
  EXPECT_EQ(ReadFile(REGISTRY_FILE), OLD_TREE);
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
}

TEST_F(RegistryWriteTest, NothingIsWrittenBeyondTheLongestFile) {
  FaultPlan plan(0, [](size_t, const std::string&) { return Outcome::DONE; });
  EXPECT_EQ(SaveRegistryFile([](const RegistryTextSink& sink) {
              const std::string piece(LONGEST_REGISTRY_FILE / 4, 'x');
              for (int count = 0; count < 6; ++count) {
                sink(piece);
              }
            }),
            RegistrySave::FAILED);
  EXPECT_THAT(plan.GetCalls(), Contains("write").Times(4));
  EXPECT_EQ(ReadFile(REGISTRY_FILE), OLD_TREE);
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
}

int CountInheritedDescriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 100; ++descriptor) {
    count += fcntl(descriptor, F_GETFD) == 0 ? 1 : 0;  // open, and without FD_CLOEXEC
  }
  return count;
}

TEST_F(RegistryWriteTest, ProgramsThatAreStartedMeanwhileInheritNoDescriptor) {
  const int before = CountInheritedDescriptors();
  FaultPlan plan(0, [before](size_t, const std::string&) {
    EXPECT_EQ(CountInheritedDescriptors(), before);
    return Outcome::DONE;
  });
  EXPECT_EQ(SaveRegistryText("new text"), RegistrySave::DONE);
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
