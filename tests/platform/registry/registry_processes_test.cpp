// Savers of several processes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/descriptor.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_text.h"
#include "platform/registry/registry_tree.h"
#include "tests/platform/registry/saved_text.h"
#include "tests/support/registry_files.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

constexpr int SAVES = 60;

// Texts of unlike lengths: where one is written over the other, something is left of the longer.
const std::string STORED = "old=d=1\n";
const std::string FIRST = "first=s=" + std::string(1000, 'x') + "\n";
const std::string SECOND = "second=d=2\n";

using RegistryProcessesTest = RegistryFilesTest;

// Processes that come here go on together.
class Gate {
 public:
  void Pass(int count) {
    ++*m_pWaiting;
    while (*m_pWaiting < count) {
    }
  }

 private:
  std::atomic<int>* m_pWaiting =
      new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0);
};

// A process that changes the tree and flushes it when another one does. Exits with 0 when that
// worked.
template <typename Store>
pid_t StartSaver(Gate& gate, const Store& store) {
  const pid_t child = fork();
  if (child == 0) {
    CRegistry registry("", HKEY_LOCAL_MACHINE);
    store(registry);
    gate.Pass(2);
    _exit(registry.Flush() == REGISTRY_OK ? 0 : 1);
  }
  return child;
}

void ExpectSuccess(pid_t child) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(RegistryProcessesTest, TwoThatSaveAtOnceLeaveTheTreeOfOneOfThem) {
  for (int round = 0; round < SAVES; ++round) {
    std::filesystem::remove(REGISTRY_BACKUP_FILE);
    WriteTree(STORED);
    Gate gate;
    const pid_t first = StartSaver(gate, [](CRegistry& registry) {
      registry.SetValue("first", std::string(1000, 'x').c_str());
    });
    const pid_t second =
        StartSaver(gate, [](CRegistry& registry) { registry.SetValue("second", 2); });
    ExpectSuccess(first);
    ExpectSuccess(second);
    // Whoever came second kept what the other one had saved.
    const std::string ofFirst = TreeText(FIRST + STORED);
    const std::string ofSecond = TreeText(STORED + SECOND);
    const std::string current = ReadFile(REGISTRY_FILE);
    ASSERT_TRUE(current == ofFirst || current == ofSecond) << current;
    ASSERT_EQ(ReadFile(REGISTRY_BACKUP_FILE), current == ofFirst ? ofSecond : ofFirst);
  }
}

// Holds the lock as another process does: a second description of the file is a second holder.
class OtherSaver {
 public:
  OtherSaver() { EXPECT_EQ(flock(m_oFile.Get(), LOCK_EX | LOCK_NB), 0); }
  void End() { m_oFile.Close(); }

 private:
  CDescriptor m_oFile{open(REGISTRY_LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
};

bool IsLocked() {
  const CDescriptor file(open(REGISTRY_LOCK_FILE, O_RDWR | O_CLOEXEC));
  return file.IsOpen() && flock(file.Get(), LOCK_EX | LOCK_NB) != 0;
}

TEST_F(RegistryProcessesTest, SaverWaitsTwoSecondsForAnotherOneAndFails) {
  WriteTree(STORED);
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  registry.SetValue("second", 2);
  OtherSaver other;
  const TraceSession session(1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(registry.Flush(), REGISTRY_FAILED);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::seconds(2));
  EXPECT_LT(waited, std::chrono::seconds(8));
  EXPECT_EQ(session.Texts(),
            std::vector<std::string>{"CRegistry: ERROR: Cannot save \"/etc/qamrel/registry.lock\": "
                                     "Resource temporarily unavailable\n"});
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(STORED));
  other.End();
  EXPECT_EQ(registry.Flush(), REGISTRY_OK);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(STORED + SECOND));
}

TEST_F(RegistryProcessesTest, SaveLeavesALockFileThatOnlyItsOwnerOpensAndNoLock) {
  const mode_t before = umask(0);
  CRegistry("", HKEY_LOCAL_MACHINE).SetValue("second", 2);
  umask(before);
  EXPECT_EQ(std::filesystem::status(REGISTRY_LOCK_FILE).permissions(),
            std::filesystem::perms(0600));
  EXPECT_FALSE(IsLocked());
}

TEST_F(RegistryProcessesTest, SaveWithoutALockFileFailsAndNamesIt) {
  std::filesystem::create_directory(REGISTRY_LOCK_FILE);
  const TraceSession session(1);
  EXPECT_EQ(SaveRegistryText("text"), RegistrySave::FAILED);
  EXPECT_EQ(session.Texts(),
            std::vector<std::string>{
                "CRegistry: ERROR: Cannot save \"/etc/qamrel/registry.lock\": Is a directory\n"});
}

TEST_F(RegistryProcessesTest, SaveFollowsNoLinkInPlaceOfTheLockFile) {
  const std::string target = std::string(REGISTRY_LOCK_FILE) + ".target";
  std::filesystem::create_symlink(target, REGISTRY_LOCK_FILE);
  EXPECT_EQ(SaveRegistryText("text"), RegistrySave::FAILED);
  EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(RegistryProcessesTest, SaveNeedsNoLockWhereTheFileSystemHasNone) {
  for (const int error : {ENOLCK, EOPNOTSUPP}) {
    const auto refusal = calls::flock.Fail(error);
    EXPECT_EQ(SaveRegistryText(strerror(error)), RegistrySave::DONE);
    EXPECT_EQ(ReadFile(REGISTRY_FILE), strerror(error));
    EXPECT_GT(refusal.GetCount(), 0);
  }
}

TEST_F(RegistryProcessesTest, HolderGetsTheLockAgainUntilItsLastObjectEnds) {
  std::optional<CRegistryLock> edit(RegistryUse::SAVE);
  std::thread([] {
    CRegistry("", HKEY_LOCAL_MACHINE).SetValue("second", 2);
    EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(SECOND));
  }).join();
  EXPECT_TRUE(IsLocked());
  edit.reset();
  EXPECT_FALSE(IsLocked());
}

TEST_F(RegistryProcessesTest, LoadWaitsForNobodyAndMakesNoFile) {
  WriteTree(STORED);
  CRegistryTree::Get().SetupTree(true);
  EXPECT_FALSE(std::filesystem::exists(REGISTRY_LOCK_FILE));
  const OtherSaver other;
  const auto start = std::chrono::steady_clock::now();
  CRegistryTree::Get().SetupTree(true);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

// As between the two steps of a save where files cannot be exchanged.
TEST_F(RegistryProcessesTest, LoadWithoutACurrentFileWaitsForTheSaver) {
  WriteFile(REGISTRY_BACKUP_FILE, TreeText(STORED));
  OtherSaver other;
  const TraceSession session(2);
  std::thread loader([] { CRegistryTree::Get().SetupTree(false); });
  EXPECT_TRUE(session.WaitFor("CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n"));
  WriteTree(SECOND);
  other.End();
  loader.join();
  EXPECT_EQ(session.Lines().size(), 1U);
  EXPECT_EQ(WriteRegistryText(*CRegistryTree::Get().GetTop()), TreeText(SECOND));
}

}  // namespace
