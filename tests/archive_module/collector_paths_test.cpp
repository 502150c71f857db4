#include "archive_module/collector_paths.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "archive_module/names.h"
#include "platform/registry/registry.h"
#include "tests/support/failing_new.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr char BIN_NO_POINTER[] =
    "\nEM_TALVOR (BinDir)  : ## Talvor pointer key not existing - no Corvista component installed.";
constexpr char BIN_FOUND[] = "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"%s\"";
constexpr char BIN_OPEN[] = "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"%s\"...";
constexpr char BIN_OPEN_ERROR[] =
    "\nEM_TALVOR (BinDir)  : ## ERROR 0x%08X! Could not open registry key \"%s\"!";
constexpr char BIN_QUERY[] = "\nEM_TALVOR (BinDir)  :   query Talvor file root value: \"%s\"...";
constexpr char BIN_QUERY_ERROR[] =
    "\nEM_TALVOR (BinDir)  : ## ERROR 0x%08X! Could not query registry value \"%s\" in Talvor setup "
    "key!";
constexpr char BIN_RESULT[] = "\nEM_TALVOR (BinDir)  : Talvor base dir:   \"%s\"";

constexpr char DATA_NO_POINTER[] =
    "\nEM_TALVOR (DataDir) : ## Talvor pointer key not existing - no Corvista component installed.";
constexpr char DATA_FOUND[] = "\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"%s\"";
constexpr char DATA_OPEN[] = "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"%s\"...";
constexpr char DATA_OPEN_ERROR[] =
    "\nEM_TALVOR (DataDir) : ## ERROR 0x%08X! Could not open registry key \"%s\"!";
constexpr char DATA_QUERY[] = "\nEM_TALVOR (DataDir) :   query Talvor file root value: \"%s\"...";
constexpr char DATA_QUERY_ERROR[] =
    "\nEM_TALVOR (DataDir) : ## ERROR 0x%08X! Could not query registry value \"%s\" in Talvor setup "
    "key!";
constexpr char DATA_RESULT[] = "\nEM_TALVOR (DataDir) : Talvor data dir:   \"%s\"";
constexpr char DATA_FALLBACK[] =
    "\nEM_TALVOR (DataDir) :   no Talvor data root directory available, take file root...";

class CollectorPathsTest : public RegistryFilesTest {
 protected:
  // Lays the pointer and, below the key SOFTWARE\Talvor of HKEY_LOCAL_MACHINE, the setup key.
  static void Install(const std::string& pointer, const std::string& setup) {
    WriteTree("[SOFTWARE]\n[Talvor]\n[Setup]\n" + setup +
              "\n\n\n"
              "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
              "[5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13]\n" +
              pointer + "\n\n\n\n\n");
  }

  static constexpr char POINTER[] = "Talvor=s=SOFTWARE\\Talvor\n";

  // The module's own lines, without those of the registry.
  static std::vector<std::string> ModuleLines(const TraceSession& session) {
    std::vector<std::string> lines;
    for (const std::string& text : session.Texts()) {
      if (text.starts_with("\nEM_TALVOR")) {
        lines.push_back(text);
      }
    }
    return lines;
  }

  static std::string BinDir() {
    std::string directory;
    return GetBinDir(directory) ? directory : "(none)";
  }

  static std::string DataDir() {
    std::string directory;
    return GetDataDir(directory) ? directory : "(none)";
  }
};

TEST_F(CollectorPathsTest, BinDirIsTheFileRootWithASlash) {
  Install(POINTER, "FileRoot=s=/opt/talvor\nDataRoot=s=/data\n");
  const TraceSession session(4);
  EXPECT_EQ(BinDir(), "/opt/talvor/");
  EXPECT_THAT(
      ModuleLines(session),
      ElementsAre("\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"SOFTWARE\\Talvor\"",
                  "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"SOFTWARE\\Talvor\\Setup\"...",
                  "\nEM_TALVOR (BinDir)  :   query Talvor file root value: \"FileRoot\"...",
                  "\nEM_TALVOR (BinDir)  : Talvor base dir:   \"/opt/talvor/\""));
}

TEST_F(CollectorPathsTest, DataDirIsTheDataRootWithASlash) {
  Install(POINTER, "FileRoot=s=/opt/talvor\nDataRoot=s=/var/tmp\n");
  const TraceSession session(4);
  EXPECT_EQ(DataDir(), "/var/tmp/");
  EXPECT_THAT(
      ModuleLines(session),
      ElementsAre("\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"SOFTWARE\\Talvor\"",
                  "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"SOFTWARE\\Talvor\\Setup\"...",
                  "\nEM_TALVOR (DataDir) :   query Talvor file root value: \"DataRoot\"...",
                  "\nEM_TALVOR (DataDir) : Talvor data dir:   \"/var/tmp/\""));
}

TEST_F(CollectorPathsTest, TrailingSlashStays) {
  Install(POINTER, "FileRoot=s=/opt/talvor/\nDataRoot=s=/var/tmp/\n");
  EXPECT_EQ(BinDir(), "/opt/talvor/");
  EXPECT_EQ(DataDir(), "/var/tmp/");
}

TEST_F(CollectorPathsTest, EmptyFileRootIsTheRootDirectory) {
  Install(POINTER, "FileRoot=s=\n");
  EXPECT_EQ(BinDir(), "/");
}

TEST_F(CollectorPathsTest, EmptyDataRootStaysEmpty) {
  Install(POINTER, "FileRoot=s=/opt/talvor\nDataRoot=s=\n");
  EXPECT_EQ(DataDir(), "");
}

TEST_F(CollectorPathsTest, DirectoriesAreExpanded) {
  setenv("TALVOR_TEST", "/expanded", 1);
  Install("Talvor=es=SOFTWARE\\Talvor\n",
          "FileRoot=es=%TALVOR_TEST%/bin\nDataRoot=es=%TALVOR_TEST%/data\n");
  EXPECT_EQ(BinDir(), "/expanded/bin/");
  EXPECT_EQ(DataDir(), "/expanded/data/");
}

TEST_F(CollectorPathsTest, BinDirFailsWithoutThePointer) {
  Install("Other=s=SOFTWARE\\Talvor\n", "FileRoot=s=/opt/talvor\n");
  const TraceSession session(4);
  EXPECT_EQ(BinDir(), "(none)");
  EXPECT_THAT(ModuleLines(session), ElementsAre(BIN_NO_POINTER));
}

TEST_F(CollectorPathsTest, DataDirFailsWithoutThePointerAndAsksTwice) {
  const TraceSession session(4);
  EXPECT_EQ(DataDir(), "(none)");
  EXPECT_THAT(ModuleLines(session), ElementsAre(DATA_NO_POINTER, DATA_FALLBACK, BIN_NO_POINTER));
}

TEST_F(CollectorPathsTest, BinDirFailsWithoutTheSetupKey) {
  Install("Talvor=s=SOFTWARE\\Other\n", "");
  const TraceSession session(4);
  EXPECT_EQ(BinDir(), "(none)");
  EXPECT_THAT(ModuleLines(session), testing::SizeIs(3));
  EXPECT_EQ(ModuleLines(session).back(),
            "\nEM_TALVOR (BinDir)  : ## ERROR 0xFFFFFFFF! Could not open registry key "
            "\"SOFTWARE\\Other\\Setup\"!");
}

TEST_F(CollectorPathsTest, BinDirFailsWithoutTheFileRoot) {
  Install(POINTER, "FileRoot=d=1\n");
  const TraceSession session(4);
  EXPECT_EQ(BinDir(), "(none)");
  EXPECT_EQ(ModuleLines(session).back(),
            "\nEM_TALVOR (BinDir)  : ## ERROR 0x0000003D! Could not query registry value "
            "\"FileRoot\" in Talvor setup key!");
}

TEST_F(CollectorPathsTest, DataDirFallsBackWithoutTheDataRoot) {
  Install(POINTER, "FileRoot=s=/opt/talvor\n");
  const TraceSession session(4);
  EXPECT_EQ(DataDir(), "/opt/talvor/");
  const std::vector<std::string> lines = ModuleLines(session);
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines[3],
            "\nEM_TALVOR (DataDir) : ## ERROR 0x0000003D! Could not query registry value "
            "\"DataRoot\" in Talvor setup key!");
  EXPECT_EQ(lines[4], DATA_FALLBACK);
  EXPECT_EQ(lines[8], "\nEM_TALVOR (BinDir)  : Talvor base dir:   \"/opt/talvor/\"");
}

TEST_F(CollectorPathsTest, DataDirFallsBackWithoutTheSetupKey) {
  Install("Talvor=s=SOFTWARE\\Other\n", "");
  const TraceSession session(4);
  EXPECT_EQ(DataDir(), "(none)");
  const std::vector<std::string> lines = ModuleLines(session);
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[2],
            "\nEM_TALVOR (DataDir) : ## ERROR 0xFFFFFFFF! Could not open registry key "
            "\"SOFTWARE\\Other\\Setup\"!");
  EXPECT_EQ(lines[3], DATA_FALLBACK);
}

TEST_F(CollectorPathsTest, LinesOfSuccessHaveTheirLevels) {
  Install(POINTER, "FileRoot=s=/opt/talvor\nDataRoot=s=/data\n");
  EXPECT_EQ(LevelOf(BIN_FOUND, BinDir), 3U);
  EXPECT_EQ(LevelOf(BIN_OPEN, BinDir), 4U);
  EXPECT_EQ(LevelOf(BIN_QUERY, BinDir), 4U);
  EXPECT_EQ(LevelOf(BIN_RESULT, BinDir), 3U);
  EXPECT_EQ(LevelOf(DATA_FOUND, DataDir), 3U);
  EXPECT_EQ(LevelOf(DATA_OPEN, DataDir), 4U);
  EXPECT_EQ(LevelOf(DATA_QUERY, DataDir), 4U);
  EXPECT_EQ(LevelOf(DATA_RESULT, DataDir), 3U);
}

TEST_F(CollectorPathsTest, LinesOfAMissingPointerHaveTheirLevels) {
  EXPECT_EQ(LevelOf(BIN_NO_POINTER, BinDir), 2U);
  EXPECT_EQ(LevelOf(DATA_NO_POINTER, DataDir), 2U);
  EXPECT_EQ(LevelOf(DATA_FALLBACK, DataDir), 4U);
}

TEST_F(CollectorPathsTest, LinesOfAMissingSetupKeyHaveTheirLevels) {
  Install("Talvor=s=SOFTWARE\\Other\n", "");
  EXPECT_EQ(LevelOf(BIN_OPEN_ERROR, BinDir), 1U);
  EXPECT_EQ(LevelOf(DATA_OPEN_ERROR, DataDir), 1U);
}

TEST_F(CollectorPathsTest, LinesOfMissingValuesHaveTheirLevels) {
  Install(POINTER, "");
  EXPECT_EQ(LevelOf(BIN_QUERY_ERROR, BinDir), 1U);
  EXPECT_EQ(LevelOf(DATA_QUERY_ERROR, DataDir), 1U);
}

// The tree is loaded once, so each pointer is stored anew.
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

TEST_F(CollectorPathsTest, PointerLiesBelowTheMachineRoot) {
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

TEST_F(CollectorPathsTest, PointerThatBeginsWithARootKeyIsOpenedFromTheTop) {
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

TEST_F(CollectorPathsTest, LinesShowThePathAsBuilt) {
  StoreFileRoot("HKEY_USERS\\Talvor\\Setup", "/users");
  StorePointer("hkey_users/Talvor");
  const TraceSession session(4);
  EXPECT_EQ(BinDir(), "/users/");
  EXPECT_THAT(ModuleLines(session), Contains("\nEM_TALVOR (BinDir)  :   open Talvor setup key: "
                                             "\"hkey_users/Talvor\\Setup\"..."));
}

TEST_F(CollectorPathsTest, LookupsDoNotMakeTheTreeDirty) {
  Install(POINTER, "FileRoot=s=/opt/talvor\n");
  EXPECT_FALSE(Saves([] {
    BinDir();
    DataDir();
  }));
}

TEST_F(CollectorPathsTest, LookupsFailWhenMemoryIsExhausted) {
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

}  // namespace
