#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>

#include "platform/registry/registry.h"
#include "tests/support/fault_plan.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"
#include "tests/support/stepped_child.h"

namespace {

std::string TextOf(const std::string& text) {
  return "[HKEY_LOCAL_MACHINE]\n[Key]\ntext=s=" + text + "\n\n\n\n";
}

// What a test begins with: the texts of the files, null where there is none.
struct CrashedFiles {
  const char* name;
  const char* current;
  const char* backup;
  const char* temporary;
  const char* standard;
  int exchangeError = 0;
};

void PrintTo(const CrashedFiles& files, std::ostream* stream) { *stream << files.name; }

constexpr char NOT_A_REGISTRY[] = "nothing that can be read\n";

void MakeCrashed(const CrashedFiles& files) {
  ResetRegistry();
  const auto write = [](const char* path, const char* text) {
    if (text != nullptr) {
      WriteFile(path, text == NOT_A_REGISTRY || *text == '\0' ? text : TextOf(text));
    }
  };
  write(REGISTRY_FILE, files.current);
  write(REGISTRY_BACKUP_FILE, files.backup);
  write(REGISTRY_TEMPORARY_FILE, files.temporary);
  write(REGISTRY_DEFAULT_FILE, files.standard);
}

// Changes two keys at once, so that half a change would show.
void StoreBoth(CRegistry& registry) {
  EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "Key"), REGISTRY_OK);
  EXPECT_EQ(registry.SetValue("text", "new"), REGISTRY_OK);
  EXPECT_EQ(registry.CreateKey(HKEY_USERS, "Other\\Below"), REGISTRY_OK);
  EXPECT_EQ(registry.SetValue("number", 7), REGISTRY_OK);
}

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

INSTANTIATE_TEST_SUITE_P(
    Registry, RegistryCrashTest,
    testing::Values(
        CrashedFiles{"Nothing", nullptr, nullptr, nullptr, nullptr},
        CrashedFiles{"Current", "old", nullptr, nullptr, nullptr},
        CrashedFiles{"CurrentAndBackup", "old", "older", nullptr, nullptr},
        CrashedFiles{"AllFour", "old", "older", "half", "default"},
        CrashedFiles{"CurrentWithoutExchange", "old", nullptr, nullptr, nullptr, ENOSYS},
        CrashedFiles{"AllFourWithoutExchange", "old", "older", "half", "default", EINVAL},
        CrashedFiles{"BackupAndTemporaryOfACrash", nullptr, "old", "half", nullptr},
        CrashedFiles{"EmptyCurrentAndBackup", "", "old", nullptr, nullptr},
        CrashedFiles{"BadCurrentAndBackup", NOT_A_REGISTRY, "old", nullptr, nullptr},
        CrashedFiles{"BadCurrentAndDefault", NOT_A_REGISTRY, nullptr, nullptr, "old"},
        CrashedFiles{"BadBackupAndDefault", nullptr, NOT_A_REGISTRY, nullptr, "old"},
        CrashedFiles{"Default", nullptr, nullptr, nullptr, "old"}),
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
