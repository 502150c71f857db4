#include "platform/registry_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>

#include "platform/registry.h"
#include "platform/registry_tree.h"
#include "tests/support/registry_directory.h"
#include "tests/support/registry_model.h"
#include "tests/support/trace_session.h"

namespace fs = std::filesystem;

namespace {

using testing::Contains;
using testing::StartsWith;

constexpr char CANNOT_OPEN[] = "CRegistry: ERROR: Cannot open \"%s\" for writing\n";
constexpr char CANNOT_SAVE[] = "CRegistry: ERROR: Cannot save \"%s\": %s\n";
constexpr char SAVED[] = "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]";

constexpr char FIVE_ROOTS[] =
    "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n";

// The file of a tree that holds nothing but a number.
std::string TextOf(int number) {
  return std::string(FIVE_ROOTS) + "[HKEY_LOCAL_MACHINE]\nnumber=d=" + std::to_string(number) +
         "\n\n[HKEY_USERS]\n\n\n";
}

// The object that ends here saves.
void StoreNumber(int number) {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.SetValue("number", number), REGISTRY_OK);
}

mode_t ModeOf(const char* path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path, &status), 0);
  return status.st_mode;
}

ino_t InodeOf(const char* path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path, &status), 0);
  return status.st_ino;
}

class RegistryFileTest : public testing::Test {
 protected:
  RegistryFileTest() { ResetRegistryDirectory(); }

  // The next save goes wrong, says so, leaves no temporary file of its own and the tree dirty.
  static void ExpectFailingSave(const std::string& line) {
    const TraceSession session(1);
    StoreNumber(2);
    EXPECT_THAT(session.Texts(), Contains(StartsWith(line)).Times(1));
    EXPECT_EQ(session.Count(SAVED), 0);
  }

  // The tree of the save that went wrong is saved by the end of the next object.
  static void ExpectSaveByNextObject() {
    { const CRegistry registry; }
    EXPECT_EQ(ReadFile(CURRENT), TextOf(2));
    EXPECT_FALSE(Exists(TEMPORARY));
  }
};

TEST_F(RegistryFileTest, FirstSaveLeavesTheCurrentFileOnly) {
  StoreNumber(1);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(1));
  EXPECT_FALSE(Exists(BACKUP));
  EXPECT_FALSE(Exists(TEMPORARY));
  EXPECT_FALSE(Exists(DEFAULT));
}

TEST_F(RegistryFileTest, SecondSaveKeepsTheTreeFromBeforeItAsBackup) {
  StoreNumber(1);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(2));
  EXPECT_EQ(ReadFile(BACKUP), TextOf(1));
  StoreNumber(3);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(3));
  EXPECT_EQ(ReadFile(BACKUP), TextOf(2));
  EXPECT_FALSE(Exists(TEMPORARY));
}

TEST_F(RegistryFileTest, EmptyCurrentFileDoesNotReplaceTheBackup) {
  WriteFile(CURRENT, "");
  WriteFile(BACKUP, TextOf(1));
  StoreNumber(2);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(2));
  EXPECT_EQ(ReadFile(BACKUP), TextOf(1));
}

TEST_F(RegistryFileTest, MissingCurrentFileLeavesTheBackup) {
  WriteFile(BACKUP, TextOf(1));
  StoreNumber(2);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(2));
  EXPECT_EQ(ReadFile(BACKUP), TextOf(1));
}

TEST_F(RegistryFileTest, DefaultFileIsNeverWritten) {
  WriteFile(DEFAULT, TextOf(1));
  const ino_t inode = InodeOf(DEFAULT);
  StoreNumber(2);
  StoreNumber(3);
  EXPECT_EQ(ReadFile(DEFAULT), TextOf(1));
  EXPECT_EQ(InodeOf(DEFAULT), inode);
}

TEST_F(RegistryFileTest, UnchangedTreeIsNotSaved) {
  { const CRegistry registry; }
  EXPECT_FALSE(Exists(CURRENT));
  StoreNumber(1);
  const ino_t inode = InodeOf(CURRENT);
  {
    CRegistry registry("", HKEY_LOCAL_MACHINE);
    EXPECT_NE(registry.GetValue("number"), nullptr);
  }
  EXPECT_EQ(InodeOf(CURRENT), inode);
  EXPECT_FALSE(Exists(BACKUP));
}

TEST_F(RegistryFileTest, TreeIsSavedOnceForEachChange) {
  StoreNumber(1);
  const TraceSession session(5);
  { const CRegistry registry; }
  EXPECT_EQ(session.Count(SAVED), 0);
}

TEST_F(RegistryFileTest, CurrentFileIsReadableByAllAndWritableByRootWhateverTheUmask) {
  umask(0077);
  StoreNumber(1);
  EXPECT_EQ(ModeOf(CURRENT), S_IFREG | 0644U);
  umask(0);
  StoreNumber(2);
  EXPECT_EQ(ModeOf(CURRENT), S_IFREG | 0644U);
}

TEST_F(RegistryFileTest, TemporaryFileOfACrashIsOverwritten) {
  WriteFile(TEMPORARY, std::string(100'000, 'x'));
  fs::permissions(TEMPORARY, fs::perms::all);
  StoreNumber(1);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(1));
  EXPECT_EQ(ModeOf(CURRENT), S_IFREG | 0644U);
  EXPECT_FALSE(Exists(TEMPORARY));
}

TEST_F(RegistryFileTest, SaveIsTracedWithBothPaths) {
  const TraceSession session(2);
  StoreNumber(1);
  EXPECT_THAT(session.Texts(),
              Contains("\nCRegistry::SaveTree MPRegistryTemp[/etc/qamrel/registry.new] \t "
                       "MPRegistry[/etc/qamrel/registry]")
                  .Times(1));
}

TEST_F(RegistryFileTest, LevelsOfTheTraceLines) {
  EXPECT_EQ(LevelOf(SAVED, [] { StoreNumber(1); }), 2U);
  fs::remove(BACKUP);
  fs::create_directory(BACKUP);
  EXPECT_EQ(LevelOf(CANNOT_SAVE, [] { StoreNumber(2); }), 1U);
  fs::create_directory(TEMPORARY);
  EXPECT_EQ(LevelOf(CANNOT_OPEN, [] { StoreNumber(3); }), 1U);
}

TEST_F(RegistryFileTest, SaveWithoutTheDirectoryFailsAndDoesNotMakeIt) {
  fs::remove_all(DIRECTORY);
  ExpectFailingSave("CRegistry: ERROR: Cannot open \"/etc/qamrel/registry.new\" for writing\n");
  EXPECT_FALSE(Exists(DIRECTORY));
  ResetRegistryDirectory();
  ExpectSaveByNextObject();
}

TEST_F(RegistryFileTest, SaveLeavesNoDescriptorOpen) {
  const auto count = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  StoreNumber(1);
  const auto before = count();
  StoreNumber(2);
  fs::create_directory(TEMPORARY);
  StoreNumber(3);
  EXPECT_EQ(count(), before);
}

// What may lie in the place of a file of the registry and is no file.
struct Obstacle {
  const char* name;
  void (*make)(const char* path);
};

void PrintTo(const Obstacle& obstacle, std::ostream* stream) { *stream << obstacle.name; }

constexpr char LINK_TARGET[] = "/etc/qamrel/target";

void MakePipe(const char* path) { EXPECT_EQ(mkfifo(path, 0600), 0); }
void MakeDirectory(const char* path) { fs::create_directory(path); }
void MakeFullDirectory(const char* path) {
  fs::create_directory(path);
  WriteFile(std::string(path) + "/file", "x");
}
void MakeDanglingLink(const char* path) { fs::create_symlink(LINK_TARGET, path); }
void MakeLiveLink(const char* path) {
  WriteFile(LINK_TARGET, TextOf(1));
  fs::create_symlink(LINK_TARGET, path);
}

constexpr Obstacle PIPE = {"Pipe", MakePipe};
constexpr Obstacle EMPTY_DIRECTORY = {"Directory", MakeDirectory};
constexpr Obstacle FULL_DIRECTORY = {"FullDirectory", MakeFullDirectory};
constexpr Obstacle DANGLING_LINK = {"DanglingLink", MakeDanglingLink};
constexpr Obstacle LIVE_LINK = {"LiveLink", MakeLiveLink};

std::string NameOf(const testing::TestParamInfo<Obstacle>& info) { return info.param.name; }

class RegistryFileObstacleTest : public RegistryFileTest,
                                 public testing::WithParamInterface<Obstacle> {
 protected:
  // What the link points to is as it was.
  static void ExpectUntouchedTarget() {
    if (Exists(LINK_TARGET)) {
      EXPECT_EQ(ReadFile(LINK_TARGET), TextOf(1));
    }
  }
};

class TemporaryFileObstacleTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, TemporaryFileObstacleTest,
                         testing::Values(PIPE, EMPTY_DIRECTORY, FULL_DIRECTORY, DANGLING_LINK,
                                         LIVE_LINK),
                         NameOf);

TEST_P(TemporaryFileObstacleTest, SaveFailsAndTouchesNothing) {
  StoreNumber(1);
  GetParam().make(TEMPORARY);
  const mode_t mode = ModeOf(TEMPORARY);
  ExpectFailingSave("CRegistry: ERROR: Cannot open \"/etc/qamrel/registry.new\" for writing\n");
  EXPECT_EQ(ReadFile(CURRENT), TextOf(1));
  EXPECT_FALSE(Exists(BACKUP));
  EXPECT_EQ(ModeOf(TEMPORARY), mode);
  EXPECT_EQ(Exists(LINK_TARGET), std::string(GetParam().name) == "LiveLink");
  ExpectUntouchedTarget();
  fs::remove_all(TEMPORARY);
  ExpectSaveByNextObject();
}

TEST_F(RegistryFileTest, SaveDoesNotWriteIntoATemporaryPipeThatSomebodyReads) {
  MakePipe(TEMPORARY);
  const int reader = open(TEMPORARY, O_RDONLY | O_NONBLOCK);
  ExpectFailingSave("CRegistry: ERROR: Cannot open \"/etc/qamrel/registry.new\" for writing\n");
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
  EXPECT_EQ(ModeOf(TEMPORARY), S_IFIFO | 0600U);
  fs::remove(TEMPORARY);
  ExpectSaveByNextObject();
}

class CurrentFileObstacleTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, CurrentFileObstacleTest,
                         testing::Values(PIPE, DANGLING_LINK, LIVE_LINK), NameOf);

TEST_P(CurrentFileObstacleTest, SaveReplacesIt) {
  GetParam().make(CURRENT);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(2));
  EXPECT_EQ(ModeOf(CURRENT), S_IFREG | 0644U);
  EXPECT_FALSE(Exists(TEMPORARY));
  ExpectUntouchedTarget();
}

TEST_F(RegistryFileTest, BackupKeepsTheTextThatALinkLedTo) {
  MakeLiveLink(CURRENT);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(BACKUP), TextOf(1));
}

class CurrentDirectoryTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, CurrentDirectoryTest,
                         testing::Values(EMPTY_DIRECTORY, FULL_DIRECTORY), NameOf);

TEST_P(CurrentDirectoryTest, SaveFailsAndTouchesNothing) {
  WriteFile(BACKUP, TextOf(1));
  GetParam().make(CURRENT);
  ExpectFailingSave("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": ");
  EXPECT_TRUE(fs::is_directory(CURRENT));
  EXPECT_EQ(ReadFile(BACKUP), TextOf(1));
  EXPECT_FALSE(Exists(TEMPORARY));
  fs::remove_all(CURRENT);
  ExpectSaveByNextObject();
}

TEST_P(CurrentDirectoryTest, DirectoryNeverBecomesTheBackup) {
  GetParam().make(CURRENT);
  ExpectFailingSave("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": ");
  EXPECT_TRUE(fs::is_directory(CURRENT));
  EXPECT_FALSE(Exists(BACKUP));
}

class BackupObstacleTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, BackupObstacleTest,
                         testing::Values(PIPE, DANGLING_LINK, LIVE_LINK), NameOf);

TEST_P(BackupObstacleTest, SaveReplacesIt) {
  StoreNumber(1);
  GetParam().make(BACKUP);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(CURRENT), TextOf(2));
  EXPECT_EQ(ReadFile(BACKUP), TextOf(1));
  EXPECT_EQ(ModeOf(BACKUP), S_IFREG | 0644U);
  ExpectUntouchedTarget();
}

TEST_F(RegistryFileTest, DirectoryInThePlaceOfTheBackupKeepsTheTreeFromBeingSaved) {
  StoreNumber(1);
  fs::create_directory(BACKUP);
  ExpectFailingSave("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": Is a directory\n");
  EXPECT_EQ(ReadFile(CURRENT), TextOf(1));
  EXPECT_FALSE(Exists(TEMPORARY));
  fs::remove(BACKUP);
  ExpectSaveByNextObject();
}

TEST_F(RegistryFileTest, SavingATextTellsWhetherItWorked) {
  EXPECT_EQ(SaveRegistryFile("one"), RegistrySave::DONE);
  EXPECT_EQ(ReadFile(CURRENT), "one");
  fs::create_directory(BACKUP);
  EXPECT_EQ(SaveRegistryFile("two"), RegistrySave::FAILED);
  fs::create_directory(TEMPORARY);
  EXPECT_EQ(SaveRegistryFile("two"), RegistrySave::FAILED);
  EXPECT_EQ(ReadFile(CURRENT), "one");
}

TEST_F(RegistryFileTest, TextOfMoreThan64MebibytesIsNotSaved) {
  EXPECT_EQ(SaveRegistryFile("one"), RegistrySave::DONE);
  const TraceSession session(1);
  std::string text(LONGEST_REGISTRY_FILE + 1, 'x');
  EXPECT_EQ(SaveRegistryFile(text), RegistrySave::FAILED);
  EXPECT_THAT(session.Texts(),
              testing::ElementsAre(
                  "CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": File too large\n"));
  EXPECT_EQ(ReadFile(CURRENT), "one");
  text.pop_back();
  EXPECT_EQ(SaveRegistryFile(text), RegistrySave::DONE);
}

TEST_F(RegistryFileTest, EmptyTextCanBeSaved) {
  EXPECT_EQ(SaveRegistryFile(""), RegistrySave::DONE);
  EXPECT_EQ(ReadFile(CURRENT), "");
}

}  // namespace
