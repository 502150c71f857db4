#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>
#include <string>

#include "platform/registry/registry.h"
#include "tests/support/registry_files.h"

// Where tests begin that end a save in its midst.

inline std::string CrashText(const std::string& text) {
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

inline void PrintTo(const CrashedFiles& files, std::ostream* stream) { *stream << files.name; }

inline constexpr char NOT_A_REGISTRY[] = "nothing that can be read\n";

inline void MakeCrashed(const CrashedFiles& files) {
  ResetRegistry();
  const auto write = [](const char* path, const char* text) {
    if (text != nullptr) {
      WriteFile(path, text == NOT_A_REGISTRY || *text == '\0' ? text : CrashText(text));
    }
  };
  write(REGISTRY_FILE, files.current);
  write(REGISTRY_BACKUP_FILE, files.backup);
  write(REGISTRY_TEMPORARY_FILE, files.temporary);
  write(REGISTRY_DEFAULT_FILE, files.standard);
}

// Changes two keys at once, so that half a change would show.
inline void StoreBoth(CRegistry& registry) {
  EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "Key"), REGISTRY_OK);
  EXPECT_EQ(registry.SetValue("text", "new"), REGISTRY_OK);
  EXPECT_EQ(registry.CreateKey(HKEY_USERS, "Other\\Below"), REGISTRY_OK);
  EXPECT_EQ(registry.SetValue("number", 7), REGISTRY_OK);
}

inline constexpr CrashedFiles CRASHED_FILES[] = {
    {"Nothing", nullptr, nullptr, nullptr, nullptr},
    {"Current", "old", nullptr, nullptr, nullptr},
    {"CurrentAndBackup", "old", "older", nullptr, nullptr},
    {"AllFour", "old", "older", "half", "default"},
    {"CurrentWithoutExchange", "old", nullptr, nullptr, nullptr, ENOSYS},
    {"AllFourWithoutExchange", "old", "older", "half", "default", EINVAL},
    {"BackupAndTemporaryOfACrash", nullptr, "old", "half", nullptr},
    {"EmptyCurrentAndBackup", "", "old", nullptr, nullptr},
    {"BadCurrentAndBackup", NOT_A_REGISTRY, "old", nullptr, nullptr},
    {"BadCurrentAndDefault", NOT_A_REGISTRY, nullptr, nullptr, "old"},
    {"BadBackupAndDefault", nullptr, NOT_A_REGISTRY, nullptr, "old"},
    {"Default", nullptr, nullptr, nullptr, "old"}};
