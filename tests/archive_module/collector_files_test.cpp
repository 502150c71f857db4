#include "archive_module/collector_files.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "archive_module/names.h"
#include "platform/registry/registry.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/failing_new.h"
#include "tests/support/installed_registry.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;

constexpr char FALLBACK[] =
    "\nEM_TALVOR (DataDir) :   no Talvor data root directory available, take file root...";

class CollectorFilesTest : public RegistryFilesTest {
 protected:
  // Writes the pointer and, below the key SOFTWARE\Talvor of HKEY_LOCAL_MACHINE, the setup key.
  static void Install(const std::string& pointer, const std::string& setup) {
    WriteFile(REGISTRY_FILE, InstalledRegistry(setup, pointer));
  }

  static constexpr char POINTER[] = "Talvor=s=SOFTWARE\\Talvor\n";

  static std::string BinDir() {
    std::string directory;
    return GetBinDir(directory) ? directory : "(none)";
  }

  static std::string DataDir() {
    std::string directory;
    return GetDataDir(directory) ? directory : "(none)";
  }

  // Without the lines of the registry.
  static void ExpectNoDataDir(const std::vector<LevelLine>& lines) {
    ExpectLines(LinesWith("\nEM_TALVOR"), lines,
                [](TraceSession& /*session*/) { EXPECT_EQ(DataDir(), "(none)"); });
  }
};

TEST_F(CollectorFilesTest, DirectoriesGetASlash) {
  Install(POINTER, "FileRoot=s=/opt/talvor\nDataRoot=s=/var/tmp\n");
  EXPECT_EQ(BinDir(), "/opt/talvor/");
  EXPECT_EQ(DataDir(), "/var/tmp/");
}

TEST_F(CollectorFilesTest, TrailingSlashStays) {
  Install(POINTER, "FileRoot=s=/opt/talvor/\nDataRoot=s=/var/tmp/\n");
  EXPECT_EQ(BinDir(), "/opt/talvor/");
  EXPECT_EQ(DataDir(), "/var/tmp/");
}

TEST_F(CollectorFilesTest, EmptyFileRootIsTheRootDirectory) {
  Install(POINTER, "FileRoot=s=\n");
  EXPECT_EQ(BinDir(), "/");
}

TEST_F(CollectorFilesTest, EmptyDataRootStaysEmpty) {
  Install(POINTER, "FileRoot=s=/opt/talvor\nDataRoot=s=\n");
  EXPECT_EQ(DataDir(), "");
}

TEST_F(CollectorFilesTest, DirectoriesAreExpanded) {
  setenv("TALVOR_TEST", "/expanded", 1);
  Install("Talvor=es=SOFTWARE\\Talvor\n",
          "FileRoot=es=%TALVOR_TEST%/bin\nDataRoot=es=%TALVOR_TEST%/data\n");
  EXPECT_EQ(BinDir(), "/expanded/bin/");
  EXPECT_EQ(DataDir(), "/expanded/data/");
}

TEST_F(CollectorFilesTest, BinDirFailsWithoutThePointer) {
  Install("Other=s=SOFTWARE\\Talvor\n", "FileRoot=s=/opt/talvor\n");
  EXPECT_EQ(BinDir(), "(none)");
}

TEST_F(CollectorFilesTest, BinDirFailsWithoutTheFileRoot) {
  Install(POINTER, "FileRoot=d=1\n");
  EXPECT_EQ(BinDir(), "(none)");
}

// The start of a module never writes these lines: it fails earlier without the file root.
TEST_F(CollectorFilesTest, DataDirFailsWithoutThePointerAndAsksTwice) {
  ExpectNoDataDir(
      {{2,
        "\nEM_TALVOR (DataDir) : ## Talvor pointer key not existing - no Corvista component installed."},
       {4, FALLBACK},
       {2,
        "\nEM_TALVOR (BinDir)  : ## Talvor pointer key not existing - no Corvista component installed."}});
}

TEST_F(CollectorFilesTest, DataDirFailsWithoutTheSetupKeyAndAsksTwice) {
  Install("Talvor=s=SOFTWARE\\Other\n", "");
  ExpectNoDataDir(
      {{3, "\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"SOFTWARE\\Other\""},
       {4, "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"SOFTWARE\\Other\\Setup\"..."},
       {1,
        "\nEM_TALVOR (DataDir) : ## ERROR 0xFFFFFFFF! Could not open registry key \"SOFTWARE\\Other\\Setup\"!"},
       {4, FALLBACK},
       {3, "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"SOFTWARE\\Other\""},
       {4, "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"SOFTWARE\\Other\\Setup\"..."},
       {1,
        "\nEM_TALVOR (BinDir)  : ## ERROR 0xFFFFFFFF! Could not open registry key \"SOFTWARE\\Other\\Setup\"!"}});
}

// The tree is loaded only once, so each pointer is stored in it.
void StorePointer(const char* pointer) {
  CRegistry registry;
  registry.CreateKey(HKEY_LOCAL_MACHINE, REGISTRY_POINTER_KEY);
  registry.SetValue(COLLECTOR_NAME, pointer);
}

void StoreFileRoot(const char* keyPath, const char* directory) {
  CRegistry registry("", nullptr);
  registry.CreateKey(nullptr, keyPath);
  registry.SetValue(FILE_ROOT_VALUE, directory);
}

TEST_F(CollectorFilesTest, PointerLiesBelowTheMachineRoot) {
  StoreFileRoot("HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor\\Setup", "/machine");
  StoreFileRoot("HKEY_LOCAL_MACHINE\\Setup", "/top");
  StoreFileRoot("HKEY_LOCAL_MACHINE\\HKEY_LOCAL_MACHINES\\Setup", "/similar");
  const struct {
    const char* pointer;
    const char* directory;
  } cases[] = {
      {"SOFTWARE\\Talvor", "/machine/"},    {"SOFTWARE/Talvor", "/machine/"},
      {"SOFTWARE\\Talvor\\", "/machine/"},  {"\\SOFTWARE\\\\Talvor/", "/machine/"},
      {"software\\talvor", "(none)"},       {"", "/top/"},
      {"HKEY_LOCAL_MACHINES", "/similar/"}, {"HKEY_LOCAL_MACHIN\\SOFTWARE\\Talvor", "(none)"},
  };
  for (const auto& test : cases) {
    StorePointer(test.pointer);
    EXPECT_EQ(BinDir(), test.directory) << test.pointer;
    EXPECT_EQ(DataDir(), test.directory) << test.pointer;
  }
}

TEST_F(CollectorFilesTest, PointerThatBeginsWithARootKeyIsOpenedFromTheTop) {
  StoreFileRoot("HKEY_LOCAL_MACHINE\\Talvor\\Setup", "/machine");
  StoreFileRoot("HKEY_CURRENT_USER\\Talvor\\Setup", "/user");
  StoreFileRoot("HKEY_USERS\\Talvor\\Setup", "/users");
  StoreFileRoot("HKEY_CLASSES_ROOT\\Talvor\\Setup", "/classes");
  StoreFileRoot("HKEY_CURRENT_CONFIG\\Setup", "/config");
  const struct {
    const char* pointer;
    const char* directory;
  } cases[] = {
      {"HKEY_LOCAL_MACHINE\\Talvor", "/machine/"}, {"hkey_local_machine/Talvor", "/machine/"},
      {"HKEY_CURRENT_USER\\Talvor", "/user/"},     {"HKey_Users\\Talvor\\", "/users/"},
      {"HKEY_CLASSES_ROOT/Talvor", "/classes/"},   {"HKEY_CURRENT_CONFIG", "/config/"},
      {"\\hkey_users\\Talvor", "/users/"},         {"HKEY_USERS\\talvor", "(none)"},
  };
  for (const auto& test : cases) {
    StorePointer(test.pointer);
    EXPECT_EQ(BinDir(), test.directory) << test.pointer;
    EXPECT_EQ(DataDir(), test.directory) << test.pointer;
  }
}

TEST_F(CollectorFilesTest, LinesShowThePathAsBuilt) {
  StoreFileRoot("HKEY_USERS\\Talvor\\Setup", "/users");
  StorePointer("hkey_users/Talvor");
  const TraceSession session(4);
  EXPECT_EQ(BinDir(), "/users/");
  EXPECT_THAT(session.Texts(), Contains("\nEM_TALVOR (BinDir)  :   open Talvor setup key: "
                                        "\"hkey_users/Talvor\\Setup\"..."));
}

TEST_F(CollectorFilesTest, LookupsDoNotMakeTheTreeDirty) {
  Install(POINTER, "FileRoot=s=/opt/talvor\n");
  EXPECT_FALSE(Saves([] {
    BinDir();
    DataDir();
  }));
}

TEST_F(CollectorFilesTest, LookupsFailWhenMemoryIsExhausted) {
  constexpr char DIRECTORY[] = "/a directory with a name that is too long to be kept inside/";
  Install("Talvor=s=hkey_local_machine\\SOFTWARE\\Talvor\n",
          std::string("FileRoot=s=") + DIRECTORY + "\nDataRoot=s=" + DIRECTORY + "\n");
  for (bool (*lookup)(std::string&) : {GetBinDir, GetDataDir}) {
    int successes = 0;
    bool isFound = false;
    while (!isFound) {
      std::string directory;
      FailingNew failing(successes);
      isFound = lookup(directory);
      failing.Stop();
      EXPECT_TRUE(!isFound || directory == DIRECTORY);
      ++successes;
    }
    EXPECT_GT(successes, 5);
  }
}

TEST(ArchiveStateTest, AChangeOfAnythingInItIsSeen) {
  const ArchiveState state = {1, 2, {3, 4}, {5, 6}};
  EXPECT_EQ(state, (ArchiveState{1, 2, {3, 4}, {5, 6}}));
  for (const ArchiveState& changed :
       {ArchiveState{9, 2, {3, 4}, {5, 6}}, ArchiveState{1, 9, {3, 4}, {5, 6}},
        ArchiveState{1, 2, {9, 4}, {5, 6}}, ArchiveState{1, 2, {3, 9}, {5, 6}},
        ArchiveState{1, 2, {3, 4}, {9, 6}}, ArchiveState{1, 2, {3, 4}, {5, 9}}}) {
    EXPECT_FALSE(changed == state);
  }
}

TEST(KilobytesOfTest, AFileThatIsGoneHasNone) { EXPECT_EQ(KilobytesOf("/no/such/archive"), 0); }

}  // namespace
