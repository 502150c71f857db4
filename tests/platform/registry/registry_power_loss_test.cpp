// What a save leaves when the machine loses power.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <set>
#include <string>

#include "platform/registry/registry.h"
#include "tests/platform/registry/crashed_files.h"
#include "tests/support/disk_recorder.h"
#include "tests/support/fault_plan.h"
#include "tests/support/forgotten_flush.h"
#include "tests/support/registry_model.h"
#include "tests/support/stepped_child.h"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::Not;

std::string TextIn(const LossyDisk::Files& files, const char* path) {
  const auto position = files.find(path);
  return position != files.end() ? position->second : "(missing)";
}

class RegistryPowerLossTest : public RegistryFilesTest,
                              public testing::WithParamInterface<CrashedFiles> {
 protected:
  RegistryPowerLossTest() { MakeCrashed(GetParam()); }

  // A process that changes the tree and saves it.
  static void Save() {
    CRegistry registry;
    StoreBoth(registry);
    SteppedChild::Begin();
  }

  // Another one, which changes something else.
  static void SaveMore() {
    CRegistry registry;
    registry.CreateKey(HKEY_USERS, "More");
    SteppedChild::Begin();
  }

  // The trees that processes load from what may be left.
  std::set<RegistryModel> LoadEach(const DiskRecorder& disk,
                                   const DiskRecorder::Survivors& survivors) {
    std::set<RegistryModel> trees;
    for (const LossyDisk::Files& files : survivors) {
      const auto [position, isNew] = m_oLoaded.try_emplace(files);
      if (isNew) {
        disk.Restore(files);
        position->second = LoadTree();
      }
      trees.insert(position->second);
    }
    return trees;
  }

  const ExchangeRefusal m_oRefusal{GetParam().exchangeError};
  std::map<LossyDisk::Files, RegistryModel> m_oLoaded;  // what is loaded from these files
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistryPowerLossTest, testing::ValuesIn(CRASHED_FILES),
                         NameOf<CrashedFiles>);

TEST_P(RegistryPowerLossTest, AnyMomentOfASaveLeavesTheOldOrTheNewTreeAndAnOldBackup) {
  const RegistryModel before = LoadTree();
  const std::string current = ReadFile(REGISTRY_FILE);
  const std::string backup = ReadFile(REGISTRY_BACKUP_FILE);
  DiskRecorder disk(REGISTRY_DIRECTORY);
  const DiskRecorder::Survivors survivors = disk.Run(Save);
  std::cout << survivors.size() << " states\n";
  const RegistryModel after = LoadTree();
  EXPECT_THAT(LoadEach(disk, survivors), testing::UnorderedElementsAre(before, after));
  for (const LossyDisk::Files& files : survivors) {
    EXPECT_THAT(TextIn(files, REGISTRY_BACKUP_FILE), AnyOf(current, backup));
  }
}

TEST_P(RegistryPowerLossTest, EndOfASaveLeavesTheNewTree) {
  DiskRecorder disk(REGISTRY_DIRECTORY);
  disk.Run(Save);
  const RegistryModel after = LoadTree();
  EXPECT_THAT(LoadEach(disk, disk.GetSurvivors()), testing::ElementsAre(after));
}

class RegistryKilledSaveTest : public RegistryPowerLossTest {};
INSTANTIATE_TEST_SUITE_P(Registry, RegistryKilledSaveTest,
                         testing::Values(CRASHED_FILES[2], CRASHED_FILES[5], CRASHED_FILES[8]),
                         NameOf<CrashedFiles>);

// A save that was killed has flushed nothing, or not all.
TEST_P(RegistryKilledSaveTest, AnyMomentOfTheSaveAfterAKilledOneLeavesATreeOfOneOfThem) {
  const RegistryModel before = LoadTree();
  DiskRecorder::Survivors last;
  bool isKilled = true;
  for (int limit = 0; isKilled; ++limit) {
    SCOPED_TRACE("killed at step " + std::to_string(limit));
    MakeCrashed(GetParam());
    DiskRecorder disk(REGISTRY_DIRECTORY);
    disk.Run(Save, limit);
    isKilled = disk.GetCallCount() == limit;
    const DiskRecorder::Survivors left = disk.GetSurvivors();
    if (left == last) {
      continue;  // the step before has changed no file
    }
    last = left;
    const RegistryModel between = LoadTree();
    const DiskRecorder::Survivors survivors = disk.Run(SaveMore);
    const RegistryModel after = LoadTree();
    EXPECT_THAT(LoadEach(disk, survivors), Each(AnyOf(before, between, after)));
    EXPECT_THAT(LoadEach(disk, disk.GetSurvivors()), testing::ElementsAre(after));
  }
}

// --- Faults that the tests above are to find ---

class RegistryForgottenFlushTest : public RegistryPowerLossTest {};
INSTANTIATE_TEST_SUITE_P(Registry, RegistryForgottenFlushTest,
                         testing::Values(CRASHED_FILES[2], CRASHED_FILES[4]), NameOf<CrashedFiles>);

TEST_P(RegistryForgottenFlushTest, SaveThatForgotToFlushItsFileIsFound) {
  const auto fault = ForgetFlush(Forgotten::FILES);
  const RegistryModel before = LoadTree();
  DiskRecorder disk(REGISTRY_DIRECTORY);
  const DiskRecorder::Survivors survivors = disk.Run(Save);
  const RegistryModel after = LoadTree();
  EXPECT_THAT(LoadEach(disk, survivors), Contains(Not(AnyOf(before, after))));
}

TEST_P(RegistryForgottenFlushTest, SaveThatForgotToFlushTheDirectoryIsFound) {
  const auto fault = ForgetFlush(Forgotten::DIRECTORIES);
  const RegistryModel before = LoadTree();
  DiskRecorder disk(REGISTRY_DIRECTORY);
  disk.Run(Save);
  EXPECT_THAT(LoadEach(disk, disk.GetSurvivors()), Contains(before));
}

}  // namespace
