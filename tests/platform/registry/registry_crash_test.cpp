#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/registry/registry.h"
#include "tests/platform/registry/crashed_files.h"
#include "tests/support/fault_plan.h"
#include "tests/support/registry_model.h"
#include "tests/support/stepped_child.h"

namespace {

class RegistryCrashTest : public RegistryFilesTest,
                          public testing::WithParamInterface<CrashedFiles> {
 protected:
  // A process that has changed the tree and is about to save it.
  static void SaveStepwise() {
    CRegistry registry;
    StoreBoth(registry);
    SteppedChild::Begin();
  }

  static RegistryModel TreeBefore() {
    MakeCrashed(GetParam());
    return LoadTree();
  }

  static RegistryModel TreeAfter() {
    MakeCrashed(GetParam());
    LoadTree();
    CRegistry registry;
    StoreBoth(registry);
    return ReadTree();
  }

  const ExchangeRefusal m_oRefusal{GetParam().exchangeError};
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistryCrashTest, testing::ValuesIn(CRASHED_FILES),
                         NameOf<CrashedFiles>);

TEST_P(RegistryCrashTest, KillAtAnySystemCallOfASaveLeavesTheOldOrTheNewTree) {
  const RegistryModel before = TreeBefore();
  const RegistryModel after = TreeAfter();
  ASSERT_NE(before, after);

  bool isAfter = false;
  int count = 0;
  for (bool isRunning = true; isRunning; ++count) {
    TreeBefore();
    SteppedChild child(SaveStepwise);
    for (int step = 0; step <= count && isRunning; ++step) {
      isRunning = child.Step();
    }
    child.Kill();
    const RegistryModel tree = LoadTree();
    ASSERT_TRUE(tree == after || (tree == before && !isAfter))
        << "killed at step " << count << ", before system call " << child.GetSystemCall();
    isAfter = tree == after;
  }
  EXPECT_TRUE(isAfter);
  EXPECT_GT(count, 10);
}

TEST_P(RegistryCrashTest, NextSaveAfterAnyCrashWorks) {
  const RegistryModel after = TreeAfter();
  bool isRunning = true;
  for (int count = 0; isRunning; ++count) {
    TreeBefore();
    {
      SteppedChild child(SaveStepwise);
      for (int step = 0; step <= count && isRunning; ++step) {
        isRunning = child.Step();
      }
    }
    LoadTree();
    {
      CRegistry registry;
      StoreBoth(registry);
    }
    ASSERT_EQ(LoadTree(), after) << "killed at step " << count;
    ASSERT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  }
}

}  // namespace
