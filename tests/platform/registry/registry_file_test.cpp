#include "platform/registry/registry_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <ostream>

#include "platform/registry/registry.h"
#include "platform/registry/registry_tree.h"
#include "tests/platform/registry/saved_text.h"
#include "tests/support/descriptor_count.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"
#include "tests/support/trace_session.h"

namespace fs = std::filesystem;

namespace {

using testing::Contains;
using testing::StartsWith;

constexpr char CANNOT_OPEN[] = "CRegistry: ERROR: Cannot open \"%s\" for writing\n";
constexpr char CANNOT_SAVE[] = "CRegistry: ERROR: Cannot save \"%s\": %s\n";
constexpr char SAVED[] = "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]";

// The file of a tree that holds nothing but a number.
std::string TextOf(int number) { return TreeText("number=d=" + std::to_string(number) + "\n"); }

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

class RegistryFileTest : public RegistryFilesTest {
 protected:
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
    EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(2));
    EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  }
};

TEST_F(RegistryFileTest, FirstSaveLeavesTheCurrentFileOnly) {
  StoreNumber(1);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(1));
  EXPECT_FALSE(Exists(REGISTRY_BACKUP_FILE));
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  EXPECT_FALSE(Exists(REGISTRY_DEFAULT_FILE));
}

TEST_F(RegistryFileTest, SecondSaveKeepsTheTreeFromBeforeItAsBackup) {
  StoreNumber(1);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(2));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(1));
  StoreNumber(3);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(3));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(2));
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
}

TEST_F(RegistryFileTest, EmptyCurrentFileDoesNotReplaceTheBackup) {
  WriteFile(REGISTRY_FILE, "");
  WriteFile(REGISTRY_BACKUP_FILE, TextOf(1));
  StoreNumber(2);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(2));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(1));
}

TEST_F(RegistryFileTest, MissingCurrentFileLeavesTheBackup) {
  WriteFile(REGISTRY_BACKUP_FILE, TextOf(1));
  StoreNumber(2);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(2));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(1));
}

TEST_F(RegistryFileTest, DefaultFileIsNeverWritten) {
  WriteFile(REGISTRY_DEFAULT_FILE, TextOf(1));
  const ino_t inode = InodeOf(REGISTRY_DEFAULT_FILE);
  StoreNumber(2);
  StoreNumber(3);
  EXPECT_EQ(ReadFile(REGISTRY_DEFAULT_FILE), TextOf(1));
  EXPECT_EQ(InodeOf(REGISTRY_DEFAULT_FILE), inode);
}

TEST_F(RegistryFileTest, CurrentFileIsReadableByAllAndWritableByRootWhateverTheUmask) {
  const mode_t before = umask(0077);
  StoreNumber(1);
  EXPECT_EQ(ModeOf(REGISTRY_FILE), S_IFREG | 0644U);
  umask(0);
  StoreNumber(2);
  EXPECT_EQ(ModeOf(REGISTRY_FILE), S_IFREG | 0644U);
  umask(before);
}

TEST_F(RegistryFileTest, TemporaryFileOfACrashIsOverwritten) {
  WriteFile(REGISTRY_TEMPORARY_FILE, std::string(100'000, 'x'));
  fs::permissions(REGISTRY_TEMPORARY_FILE, fs::perms::all);
  StoreNumber(1);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(1));
  EXPECT_EQ(ModeOf(REGISTRY_FILE), S_IFREG | 0644U);
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
}

TEST_F(RegistryFileTest, LevelsOfTheTraceLines) {
  EXPECT_EQ(LevelOf(SAVED, [] { StoreNumber(1); }), 2U);
  fs::remove(REGISTRY_BACKUP_FILE);
  fs::create_directory(REGISTRY_BACKUP_FILE);
  EXPECT_EQ(LevelOf(CANNOT_SAVE, [] { StoreNumber(2); }), 1U);
  fs::create_directory(REGISTRY_TEMPORARY_FILE);
  EXPECT_EQ(LevelOf(CANNOT_OPEN, [] { StoreNumber(3); }), 1U);
}

TEST_F(RegistryFileTest, SaveWithoutTheDirectoryFailsAndDoesNotMakeIt) {
  fs::remove_all(REGISTRY_DIRECTORY);
  ExpectFailingSave("CRegistry: ERROR: Cannot open \"/etc/qamrel/registry.new\" for writing\n");
  EXPECT_FALSE(Exists(REGISTRY_DIRECTORY));
  fs::create_directory(REGISTRY_DIRECTORY);
  ExpectSaveByNextObject();
}

TEST_F(RegistryFileTest, SaveLeavesNoDescriptorOpen) {
  StoreNumber(1);
  const auto before = CountDescriptors();
  StoreNumber(2);
  fs::create_directory(REGISTRY_TEMPORARY_FILE);
  StoreNumber(3);
  EXPECT_EQ(CountDescriptors(), before);
}

// What may lie in the place of a file of the registry and is no file.
struct Obstacle {
  const char* name;
  void (*make)(const char* path);
};

void PrintTo(const Obstacle& obstacle, std::ostream* stream) { *stream << obstacle.name; }

void MakeFullDirectory(const char* path) {
  fs::create_directory(path);
  WriteFile(std::string(path) + "/file", "x");
}
void MakeLiveLink(const char* path) {
  WriteFile(LINK_TARGET, TextOf(1));
  fs::create_symlink(LINK_TARGET, path);
}

constexpr Obstacle PIPE = {"Pipe", MakePipe};
constexpr Obstacle EMPTY_DIRECTORY = {"Directory", MakeDirectory};
constexpr Obstacle FULL_DIRECTORY = {"FullDirectory", MakeFullDirectory};
constexpr Obstacle DANGLING_LINK = {"DanglingLink", MakeDanglingLink};
constexpr Obstacle LIVE_LINK = {"LiveLink", MakeLiveLink};

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
                         NameOf<Obstacle>);

TEST_P(TemporaryFileObstacleTest, SaveFailsAndTouchesNothing) {
  StoreNumber(1);
  GetParam().make(REGISTRY_TEMPORARY_FILE);
  const mode_t mode = ModeOf(REGISTRY_TEMPORARY_FILE);
  ExpectFailingSave("CRegistry: ERROR: Cannot open \"/etc/qamrel/registry.new\" for writing\n");
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(1));
  EXPECT_FALSE(Exists(REGISTRY_BACKUP_FILE));
  EXPECT_EQ(ModeOf(REGISTRY_TEMPORARY_FILE), mode);
  EXPECT_EQ(Exists(LINK_TARGET), std::string(GetParam().name) == "LiveLink");
  ExpectUntouchedTarget();
  fs::remove_all(REGISTRY_TEMPORARY_FILE);
  ExpectSaveByNextObject();
}

TEST_F(RegistryFileTest, SaveDoesNotWriteIntoATemporaryPipeThatSomebodyReads) {
  MakePipe(REGISTRY_TEMPORARY_FILE);
  const int reader = open(REGISTRY_TEMPORARY_FILE, O_RDONLY | O_NONBLOCK);
  ExpectFailingSave("CRegistry: ERROR: Cannot open \"/etc/qamrel/registry.new\" for writing\n");
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
  EXPECT_EQ(ModeOf(REGISTRY_TEMPORARY_FILE), S_IFIFO | 0600U);
  fs::remove(REGISTRY_TEMPORARY_FILE);
  ExpectSaveByNextObject();
}

class CurrentFileObstacleTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, CurrentFileObstacleTest,
                         testing::Values(PIPE, DANGLING_LINK, LIVE_LINK), NameOf<Obstacle>);

TEST_P(CurrentFileObstacleTest, SaveReplacesIt) {
  GetParam().make(REGISTRY_FILE);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(2));
  EXPECT_EQ(ModeOf(REGISTRY_FILE), S_IFREG | 0644U);
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  ExpectUntouchedTarget();
}

TEST_F(RegistryFileTest, BackupKeepsTheTextThatALinkLedTo) {
  MakeLiveLink(REGISTRY_FILE);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(1));
}

class CurrentDirectoryTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, CurrentDirectoryTest,
                         testing::Values(EMPTY_DIRECTORY, FULL_DIRECTORY), NameOf<Obstacle>);

TEST_P(CurrentDirectoryTest, SaveFailsAndTouchesNothing) {
  WriteFile(REGISTRY_BACKUP_FILE, TextOf(1));
  GetParam().make(REGISTRY_FILE);
  ExpectFailingSave("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": ");
  EXPECT_TRUE(fs::is_directory(REGISTRY_FILE));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(1));
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  fs::remove_all(REGISTRY_FILE);
  ExpectSaveByNextObject();
}

TEST_P(CurrentDirectoryTest, DirectoryNeverBecomesTheBackup) {
  GetParam().make(REGISTRY_FILE);
  ExpectFailingSave("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": ");
  EXPECT_TRUE(fs::is_directory(REGISTRY_FILE));
  EXPECT_FALSE(Exists(REGISTRY_BACKUP_FILE));
}

class BackupObstacleTest : public RegistryFileObstacleTest {};
INSTANTIATE_TEST_SUITE_P(RegistryFile, BackupObstacleTest,
                         testing::Values(PIPE, DANGLING_LINK, LIVE_LINK), NameOf<Obstacle>);

TEST_P(BackupObstacleTest, SaveReplacesIt) {
  StoreNumber(1);
  GetParam().make(REGISTRY_BACKUP_FILE);
  StoreNumber(2);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(2));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TextOf(1));
  EXPECT_EQ(ModeOf(REGISTRY_BACKUP_FILE), S_IFREG | 0644U);
  ExpectUntouchedTarget();
}

TEST_F(RegistryFileTest, DirectoryInThePlaceOfTheBackupKeepsTheTreeFromBeingSaved) {
  StoreNumber(1);
  fs::create_directory(REGISTRY_BACKUP_FILE);
  ExpectFailingSave("CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": Is a directory\n");
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TextOf(1));
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  fs::remove(REGISTRY_BACKUP_FILE);
  ExpectSaveByNextObject();
}

TEST_F(RegistryFileTest, SavingATextTellsWhetherItWorked) {
  EXPECT_EQ(SaveRegistryText("one"), RegistrySave::DONE);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "one");
  fs::create_directory(REGISTRY_BACKUP_FILE);
  EXPECT_EQ(SaveRegistryText("two"), RegistrySave::FAILED);
  fs::create_directory(REGISTRY_TEMPORARY_FILE);
  EXPECT_EQ(SaveRegistryText("two"), RegistrySave::FAILED);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "one");
}

TEST_F(RegistryFileTest, TextOfMoreThan64MebibytesIsNotSaved) {
  EXPECT_EQ(SaveRegistryText("one"), RegistrySave::DONE);
  const TraceSession session(1);
  std::string text(LONGEST_REGISTRY_FILE + 1, 'x');
  EXPECT_EQ(SaveRegistryText(text), RegistrySave::FAILED);
  EXPECT_THAT(session.Texts(),
              testing::ElementsAre(
                  "CRegistry: ERROR: Cannot save \"/etc/qamrel/registry\": File too large\n"));
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "one");
  text.pop_back();
  EXPECT_EQ(SaveRegistryText(text), RegistrySave::DONE);
}

TEST_F(RegistryFileTest, ContentThatThrowsLeavesTheFilesAndTheNextSaveFree) {
  EXPECT_EQ(SaveRegistryText("one"), RegistrySave::DONE);
  const auto throwing = [](const RegistryTextSink& sink) {
    sink("half");
    throw std::bad_alloc();
  };
  EXPECT_THROW(SaveRegistryFile(throwing), std::bad_alloc);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "one");
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
  EXPECT_EQ(SaveRegistryText("two"), RegistrySave::DONE);
}

TEST_F(RegistryFileTest, EmptyTextCanBeSaved) {
  EXPECT_EQ(SaveRegistryText(""), RegistrySave::DONE);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "");
}

}  // namespace
