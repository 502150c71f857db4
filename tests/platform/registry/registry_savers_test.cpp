// Two processes that save at once, in every order of their system calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "tests/support/fault_plan.h"
#include "tests/support/interleaving.h"
#include "tests/support/registry_files.h"
#include "tests/support/stepped_child.h"
#include "tests/support/system_calls.h"

namespace {

using testing::AnyOf;
using testing::Each;

// Texts of unlike lengths: where one is written over the other, something is left of the longer.
const std::string SAVED_BEFORE = "old=d=1\n";
const std::string SAVED_FIRST = "first=s=" + std::string(100, 'x') + "\n";
const std::string SAVED_SECOND = "second=d=2\n";

int SaveFirst(CRegistry& registry) {
  return registry.SetValue("first", std::string(100, 'x').c_str()) + registry.Flush();
}

int SaveSecond(CRegistry& registry) { return registry.SetValue("second", 2) + registry.Flush(); }

// An agent that loaded the registry long ago, and one that loads it now.
int SaveFirstLater() {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  SteppedChild::Begin();
  return SaveFirst(registry);
}

int SaveSecondLater() {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  SteppedChild::Begin();
  return SaveSecond(registry);
}

int LoadAndSaveFirst() {
  SteppedChild::Begin();
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  return SaveFirst(registry);
}

int LoadAndSaveSecond() {
  SteppedChild::Begin();
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  return SaveSecond(registry);
}

void PrepareSavers() {
  ResetRegistry();
  WriteFile(REGISTRY_FILE, TreeText(SAVED_BEFORE));
}

// The registry and its backup.
using SavedTexts = std::pair<std::string, std::string>;

SavedTexts ReadTexts() { return {ReadFile(REGISTRY_FILE), ReadFile(REGISTRY_BACKUP_FILE)}; }

const std::string OF_FIRST = TreeText(SAVED_FIRST + SAVED_BEFORE);
const std::string OF_SECOND = TreeText(SAVED_BEFORE + SAVED_SECOND);
const std::string OF_BOTH = TreeText(SAVED_FIRST + SAVED_BEFORE + SAVED_SECOND);

class RegistrySaversTest : public RegistryFilesTest, public testing::WithParamInterface<int> {
 protected:
  const ExchangeRefusal m_oRefusal{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistrySaversTest, testing::Values(0, EINVAL),
                         [](const testing::TestParamInfo<int>& error) {
                           return error.param == 0 ? "WithExchange" : "WithoutExchange";
                         });

TEST_P(RegistrySaversTest, BothSucceedAndTheSecondKeepsWhatTheFirstSavedAsBackup) {
  const Interleavings savers({SaveFirstLater, SaveSecondLater});
  const auto check = [](const InterleavedRun& run) {
    EXPECT_THAT(run.exitCodes, Each(0)) << run.schedule;
    EXPECT_THAT(ReadTexts(),
                AnyOf(SavedTexts(OF_FIRST, OF_SECOND), SavedTexts(OF_SECOND, OF_FIRST)))
        << run.schedule;
    EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE)) << run.schedule;
  };
  EXPECT_GT(savers.Try(GetSwitches(), PrepareSavers, check), 10);
}

TEST_P(RegistrySaversTest, SecondSavesWhatTheFirstHadSavedBeforeItLoaded) {
  const Interleavings savers({LoadAndSaveFirst, LoadAndSaveSecond});
  const auto check = [](const InterleavedRun& run) {
    EXPECT_THAT(run.exitCodes, Each(0)) << run.schedule;
    EXPECT_THAT(ReadTexts(), AnyOf(SavedTexts(OF_FIRST, OF_SECOND), SavedTexts(OF_SECOND, OF_FIRST),
                                   SavedTexts(OF_BOTH, OF_FIRST), SavedTexts(OF_BOTH, OF_SECOND)))
        << run.schedule;
  };
  EXPECT_GT(savers.Try(GetSwitches(), PrepareSavers, check), 10);
}

// A fault that the tests above are to find.
TEST_P(RegistrySaversTest, SaversThatTakeNoLockAreFound) {
  const auto fault = calls::flock.Answer([](int, int) { return 0; });
  int wrong = 0;
  Interleavings({SaveFirstLater, SaveSecondLater})
      .Try(1, PrepareSavers, [&wrong](const InterleavedRun& run) {
        const bool isRight = run.exitCodes == std::vector<int>{0, 0} &&
                             (ReadTexts() == SavedTexts(OF_FIRST, OF_SECOND) ||
                              ReadTexts() == SavedTexts(OF_SECOND, OF_FIRST));
        wrong += isRight ? 0 : 1;
      });
  EXPECT_GT(wrong, 0);
}

}  // namespace
