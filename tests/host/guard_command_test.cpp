// What the commands of the guard say and refuse. tests/guard shows what they bring about.

#include "host/commands.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/registry/registry_file.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"
#include "tests/support/installed_registry.h"
#include "tests/support/read_only_mount.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char RESTART_HINT[] = "Restart the agent: one that runs has read the registry already.\n";

class GuardCommandTest : public HostProgramTest {
 protected:
  ~GuardCommandTest() override { std::filesystem::remove_all("/etc/em-talvor"); }

  // `prefix` is put before the command line.
  static HostResult Guard(const std::string& action, std::vector<std::string> prefix = {}) {
    prefix.insert(prefix.end(), {EM_HOST, "guard", action});
    Program program(prefix);
    const int exitCode = program.Wait();
    return {exitCode, program.Output(), program.Errors()};
  }

  static std::string BuiltGuardDirectory() {
    return std::filesystem::path(EM_HOST).parent_path().parent_path() / "lib/em-talvor/guard";
  }

  // Lines of the registry's text.
  static void WriteSetupKey(const std::string& values, const std::string& pointer) {
    std::filesystem::create_directories(REGISTRY_DIRECTORY);
    std::ofstream(REGISTRY_FILE) << InstalledRegistry(values, "Talvor=s=" + pointer + "\n");
  }
  static void WriteSetupKey(const std::string& values) {
    WriteSetupKey(values, "HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor");
  }

  // As after "guard on".
  void WriteGuarded() const {
    WriteSetupKey("DataRoot=s=" + m_oFiles.Path() + "\nFileRoot=s=" + BuiltGuardDirectory() +
                  "\nGuardedFileRoot=s=" + m_oFiles.Path() + "\n");
  }

  static void Configure(const std::string& settings) {
    std::filesystem::create_directories("/etc/em-talvor");
    std::ofstream("/etc/em-talvor/guard.conf") << settings;
  }

  static std::string RegistryText() {
    std::ifstream file(REGISTRY_FILE);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static void ExpectRefusal(const HostResult& result, int exitCode, const std::string& sentence) {
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "em_host: " + sentence + "\n");
  }
};

}  // namespace

TEST_F(GuardCommandTest, AChangeTellsToRestartTheAgent) {
  InstallCollector("");
  EXPECT_EQ(Guard("on").output,
            "The guard is on, before the collector in " + m_oFiles.Path() + ".\n" + RESTART_HINT);
  EXPECT_EQ(Guard("on").output,
            "The guard is on already, before the collector in " + m_oFiles.Path() + ".\n");
}

TEST_F(GuardCommandTest, StatusMarksWhatIsLeftOutUnsetOrWrong) {
  WriteGuarded();
  Configure("COLLECTOR=/none\nRUN_TIME=0\n");
  const HostResult result =
      Guard("status", {"/usr/bin/setpriv", "--bounding-set=-sys_admin", "--inh-caps=-sys_admin"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(
      result.output,
      AllOf(
          HasSubstr("\non     settings  those of /etc/em-talvor/guard.conf\n"),
          HasSubstr("\nWRONG  program   There is no collector \"/none/Talvor\" that can be run\n"),
          HasSubstr("\nOFF    children  "), HasSubstr("\nunset  run time  RUN_TIME is 0\n")));
}

TEST_F(GuardCommandTest, TheLastCollectorInTheSettingsCounts) {
  WriteGuarded();
  Configure("COLLECTOR=/opt/first\nCOLLECTOR=/opt/second\n");
  EXPECT_THAT(Guard("status").output,
              StartsWith("The guard is on, before the collector in /opt/second.\n"));
}

TEST_F(GuardCommandTest, TheSameCollectorInTheSettingsIsNotWorthALine) {
  WriteGuarded();
  Configure("COLLECTOR=" + m_oFiles.Path() + "/\n");
  EXPECT_EQ(Guard("off").output, "The guard is off; the module starts the collector in " +
                                     m_oFiles.Path() + " itself.\n" + RESTART_HINT);
}

// As where /usr/lib is reached by another name.
TEST_F(GuardCommandTest, ALinkToTheGuardIsTheGuard) {
  std::filesystem::create_symlink(BuiltGuardDirectory(), m_oFiles.Path("link"));
  WriteSetupKey("FileRoot=s=" + m_oFiles.Path("link") + "\nGuardedFileRoot=s=/opt/talvor\n");
  EXPECT_EQ(Guard("on").output, "The guard is on already, before the collector in /opt/talvor.\n");
}

TEST_F(GuardCommandTest, OffGivesAnExpandableStringBackAsOne) {
  InstallCollector("");
  WriteSetupKey("FileRoot=es=" + m_oFiles.Path() + "\n");
  EXPECT_EQ(Guard("on").exitCode, 0);
  EXPECT_EQ(Guard("off").exitCode, 0);
  EXPECT_THAT(RegistryText(), HasSubstr("\nFileRoot=es=" + m_oFiles.Path() + "\n"));
}

TEST_F(GuardCommandTest, ACollectorThatCannotBeExecutedIsNone) {
  InstallCollector("");
  std::filesystem::permissions(m_oFiles.Path("Talvor"), std::filesystem::perms::owner_read);
  ExpectRefusal(Guard("on"), 69,
                "There is no collector " + m_oFiles.Path() +
                    "/Talvor that could be guarded: \"em_host doctor\" says more.");
}

TEST_F(GuardCommandTest, FileRootMustNameADirectory) {
  const std::string sentence =
      "FileRoot in the registry key HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor\\Setup names no directory: "
      "set it to the collector's directory with \"qamreg add "
      "'HKEY_LOCAL_MACHINE\\SOFTWARE\\Talvor\\Setup' -v FileRoot -d DIRECTORY\".";
  for (const std::string value : {"", "FileRoot=s=\n", "FileRoot=d=5\n"}) {
    WriteSetupKey(value);
    ExpectRefusal(Guard("on"), 69, sentence);
  }
}

// qamreg takes only whole paths.
TEST_F(GuardCommandTest, AKeyIsNamedWithItsRootWhenThePointerLacksThat) {
  WriteSetupKey("", "SOFTWARE\\Talvor");
  EXPECT_THAT(Guard("on").errors,
              HasSubstr("qamreg add 'HKLM\\SOFTWARE\\Talvor\\Setup' -v FileRoot -d DIRECTORY"));
}

TEST_F(GuardCommandTest, TheGuardIsNotPutBeforeItself) {
  WriteSetupKey("FileRoot=s=" + BuiltGuardDirectory() + "\n");
  const HostResult result = Guard("on");
  EXPECT_EQ(result.exitCode, 69);
  EXPECT_THAT(result.errors,
              AllOf(StartsWith("em_host: FileRoot names the guard, and where the collector is was "
                               "not kept: set it to "),
                    HasSubstr(" Then put the guard before it.\n")));
}

TEST_F(GuardCommandTest, ARegistryThatCannotBeWrittenIsTold) {
  InstallCollector("");
  const std::string before = RegistryText();
  const ReadOnlyMount readOnly(REGISTRY_DIRECTORY);
  if (!readOnly.IsMounted()) {
    GTEST_SKIP() << "this machine lets nobody mount";
  }
  const HostResult result = Guard("on");
  EXPECT_EQ(result.exitCode, 73);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, StartsWith("em_host: The registry cannot be changed: "));
  EXPECT_EQ(RegistryText(), before);
}

TEST_F(GuardCommandTest, ARegistryThatCannotBeSavedIsTold) {
  InstallCollector("");
  std::filesystem::create_directories(std::string(REGISTRY_TEMPORARY_FILE) + "/full");
  const HostResult result = Guard("on");
  EXPECT_EQ(result.exitCode, 73);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, StartsWith("em_host: The registry could not be saved. "));
}
