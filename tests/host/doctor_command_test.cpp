#include "host/commands.h"

#include <gmock/gmock.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "platform/registry/registry_file.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"
#include "tests/support/installed_registry.h"
#include "tests/support/read_only_mount.h"
#include "tests/support/trace_session.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class DoctorCommandTest : public HostProgramTest {
 protected:
  ~DoctorCommandTest() override { std::filesystem::remove_all("/etc/orvane"); }

  static HostResult Doctor(const std::vector<std::string>& arguments = {}) {
    return Host("doctor", arguments);
  }

  // One line is wrong, no archive can be created.
  static void ExpectWrong(const std::string& line) {
    const HostResult result = Doctor();
    EXPECT_EQ(result.exitCode, 69);
    EXPECT_THAT(
        result.output,
        AllOf(HasSubstr("WRONG  " + line),
              EndsWith("No archive could be created now; begin with the first WRONG line.\n")));
  }

  // A registry with these values in the Setup key.
  static void WriteSetup(const std::string& values) {
    std::filesystem::create_directories(REGISTRY_DIRECTORY);
    std::ofstream(REGISTRY_FILE) << InstalledRegistry(values);
  }
};

}  // namespace

TEST_F(DoctorCommandTest, EverythingIsRight) {
  InstallCollector("");
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const std::string directory = m_oFiles.Path() + "/";
  EXPECT_THAT(
      result.output,
      testing::MatchesRegex(
          std::string("ok     module          ") + EM_TALVOR_LIBRARY +
          " can be loaded and is EM_TALVOR.\n"
          "ok     registry        /etc/qamrel/registry can be read.\n"
          "ok     pointer         It names the key SOFTWARE.Talvor.\n"
          "ok     Setup key       The key SOFTWARE.Talvor.Setup is there.\n"
          "ok     FileRoot        It names " +
          directory +
          ".\n"
          "ok     DataRoot        It names " +
          directory +
          ".\n"
          "ok     program         " +
          directory +
          "Talvor can be executed.\n"
          "ok     data directory  " +
          directory +
          " can be written to.\n"
          "ok     free space      [0-9]+ MB are left.\n"
          "ok     other collector None is running.\n"
          "ok     guard           Off; \"em_host guard on\" keeps a collector that goes wrong from "
          "harming this server.\n"
          "ok     scheduling      No agent is seen that has loaded the module; a collector gets the "
          "scheduling class of its agent.\n"
          "ok     trace           Off; \"em_host trace set 2\" switches it on.\n"
          "An archive could be created now.\n"));
  EXPECT_EQ(result.errors, "");
}

TEST_F(DoctorCommandTest, NothingIsThere) {
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 69);
  EXPECT_EQ(
      result.output,
      std::string("ok     module          ") + EM_TALVOR_LIBRARY +
          " can be loaded and is EM_TALVOR.\n"
          "WRONG  registry        There is no registry /etc/qamrel/registry: install the agent and "
          "Talvor, or see the whole path with \"em_host demo\".\n"
          "?      pointer         needs the registry\n"
          "?      Setup key       needs the pointer\n"
          "?      FileRoot        needs the Setup key\n"
          "?      DataRoot        needs the Setup key\n"
          "?      program         needs FileRoot\n"
          "?      data directory  needs DataRoot\n"
          "?      free space      needs DataRoot\n"
          "ok     other collector None is running.\n"
          "?      guard           needs the Setup key\n"
          "ok     trace           Off; \"em_host trace set 2\" switches it on.\n"
          "No archive could be created now; begin with the first WRONG line.\n");
}

TEST_F(DoctorCommandTest, TheBackupOfTheRegistryIsRead) {
  InstallCollector("");
  std::filesystem::rename(REGISTRY_FILE, REGISTRY_BACKUP_FILE);
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, HasSubstr("registry        /etc/qamrel/registry.old can be read.\n"));
}

TEST_F(DoctorCommandTest, ADamagedRegistryIsNamed) {
  InstallCollector("");
  std::filesystem::rename(REGISTRY_FILE, REGISTRY_BACKUP_FILE);
  std::ofstream(REGISTRY_FILE) << "no registry";
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 78);
  EXPECT_THAT(
      result.output,
      AllOf(HasSubstr("warn   registry        /etc/qamrel/registry.old stands in for "
                      "/etc/qamrel/registry, which holds no registry: repair that one.\n"),
            EndsWith("An archive could be created now, but see to the lines that warn.\n")));
  std::filesystem::remove(REGISTRY_BACKUP_FILE);
  ExpectWrong(
      "registry        The file /etc/qamrel/registry holds no registry: repair it, or install the "
      "agent and Talvor again.\n");
}

TEST_F(DoctorCommandTest, ARegistryThatIsTooLongForTheAgentIsNoRegistry) {
  InstallCollector("");
  std::filesystem::copy_file(REGISTRY_FILE, REGISTRY_BACKUP_FILE);
  std::filesystem::resize_file(REGISTRY_FILE, LONGEST_REGISTRY_FILE + 1);
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 78);
  EXPECT_THAT(result.output, HasSubstr("/etc/qamrel/registry.old stands in for "));
}

// The backup that may be read is not what the agent reads.
TEST_F(DoctorCommandTest, RegistryMayNotBeRead) {
  InstallCollector("");
  std::filesystem::copy_file(REGISTRY_FILE, REGISTRY_BACKUP_FILE);
  std::filesystem::permissions(REGISTRY_FILE, std::filesystem::perms::none);
  // Without these, the permissions of files bind the administrator too.
  Program program({"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search", EM_HOST,
                   "doctor", "--module", EM_TALVOR_LIBRARY});
  EXPECT_EQ(program.Wait(), 69);
  EXPECT_THAT(program.Output(),
              HasSubstr("WRONG  registry        The registry /etc/qamrel/registry may not be read: "
                        "run em_host as root.\n"));
}

TEST_F(DoctorCommandTest, TheSampleCollectorOfTheDemoIsNoneThatTheRegistryShouldKnow) {
  InstallCollector("");
  std::ofstream(REGISTRY_FILE) << "[HKEY_LOCAL_MACHINE]\n\n";
  const std::string tree = std::filesystem::path(EM_HOST).parent_path().parent_path();
  Program program(
      {"/usr/bin/env", "PATH=" + tree + "/lib/em-talvor:/usr/bin:/bin", EM_HOST, "doctor"});
  EXPECT_EQ(program.Wait(), 69);
  EXPECT_THAT(program.Output(), HasSubstr("WRONG  pointer         Talvor is not installed: "));
}

// The files are there, the registry does not know them.
TEST_F(DoctorCommandTest, ACollectorThatOnlyTheRegistryDoesNotKnowIsNamedWithItsCure) {
  InstallCollector("");
  std::ofstream(REGISTRY_FILE) << "[HKEY_LOCAL_MACHINE]\n\n";
  Program program(
      {"/usr/bin/env", "PATH=" + m_oFiles.Path() + ":/usr/bin:/bin", EM_HOST, "doctor"});
  EXPECT_EQ(program.Wait(), 69);
  EXPECT_THAT(
      program.Output(),
      HasSubstr("WRONG  pointer         " + m_oFiles.Path() +
                "/Talvor is there, only the registry does not know it: make the entries with "
                "\"qamreg pointer Talvor HKLM/SOFTWARE/Talvor\" and \"qamreg add "
                "HKLM/SOFTWARE/Talvor/Setup -v FileRoot -d " +
                m_oFiles.Path() + "\", and see operations.md in "));
}

TEST_F(DoctorCommandTest, APointerToNowhereIsTheCause) {
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  std::ofstream(REGISTRY_FILE) << InstalledRegistry("", "Talvor=s=SOFTWARE\\Talver\n");
  ExpectWrong(
      "pointer         It names the key SOFTWARE\\Talver, which the registry does not have: "
      "correct it with \"qamreg pointer Talvor KEY\", or install Talvor again.\n");
}

TEST_F(DoctorCommandTest, RegistryEntriesAreMissing) {
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  std::ofstream(REGISTRY_FILE) << "[HKEY_LOCAL_MACHINE]\n\n";
  ExpectWrong("pointer         Talvor is not installed: the registry has no value \"Talvor\"");
  WriteSetup("");
  ExpectWrong(
      "FileRoot        Talvor is not installed completely: the registry key "
      "SOFTWARE\\Talvor\\Setup has no text \"FileRoot\"");
  WriteSetup("FileRoot=s=/\nDataRoot=s=\n");
  ExpectWrong("DataRoot        It is empty");
}

TEST_F(DoctorCommandTest, SetupKeyIsMissing) {
  WriteSetup("");
  std::ofstream(REGISTRY_FILE)
      << "[HKEY_LOCAL_MACHINE]\n[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
         "[5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13]\nTalvor=s=SOFTWARE\\Talvor\n\n\n\n\n\n"
         "[SOFTWARE]\n[Talvor]\n\n\n\n";
  ExpectWrong(
      "Setup key       Talvor is not installed completely: the registry has no key "
      "SOFTWARE\\Talvor\\Setup. Install Talvor again.\n");
}

TEST_F(DoctorCommandTest, FileRootStandsInForDataRoot) {
  InstallCollector("");
  WriteSetup("FileRoot=s=" + m_oFiles.Path() + "\n");
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output,
              HasSubstr("ok     DataRoot        It is not there; FileRoot stands in"));
}

TEST_F(DoctorCommandTest, ProgramIsMissingOrNone) {
  WriteRegistry(m_oFiles.Path(), m_oFiles.Path());
  ExpectWrong("program         Talvor is registered, but there is no program " + m_oFiles.Path() +
              "/Talvor: ");
  m_oFiles.Write("Talvor", "text");
  ExpectWrong("program         " + m_oFiles.Path() + "/Talvor cannot be executed: ");
}

TEST_F(DoctorCommandTest, ADataDirectoryThatACreationMakesMayBeMissing) {
  InstallCollector("");
  WriteRegistry(m_oFiles.Path(), m_oFiles.Path("new/data"));
  const HostResult result = Doctor();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output,
              HasSubstr("ok     data directory  " + m_oFiles.Path("new/data/") +
                        " is not there yet; Talvor can make it in " + m_oFiles.Path() + "/.\n"));
}

TEST_F(DoctorCommandTest, DataDirectoryIsRelativeOrNone) {
  InstallCollector("");
  WriteRegistry("bin", m_oFiles.Path());
  ExpectWrong(
      "FileRoot        It names \"bin\", and Talvor would be looked for below wherever the");
  WriteRegistry(m_oFiles.Path(), "data");
  ExpectWrong(
      "DataRoot        It names \"data\", and the archive would go below wherever the agent");
  WriteRegistry(m_oFiles.Path(), m_oFiles.Path("Talvor/data"));
  ExpectWrong("data directory  " + m_oFiles.Path("Talvor/") +
              " cannot be reached (Not a directory): ");
}

TEST_F(DoctorCommandTest, TheModuleIsMissingOrNone) {
  InstallCollector("");
  const auto module = [](const std::string& file) {
    Program program({EM_HOST, "doctor", "--module", file});
    EXPECT_EQ(program.Wait(), 69);
    return program.Output();
  };
  EXPECT_THAT(module("/none"),
              HasSubstr("WRONG  module          The module /none cannot be found "));
  EXPECT_THAT(module(m_oFiles.Path()), HasSubstr("WRONG  module          The module "));
  EXPECT_THAT(module(m_oFiles.Write("text", "text")),
              HasSubstr("WRONG  module          The module cannot be loaded: "));
  EXPECT_THAT(module(NO_MODULE),
              HasSubstr(std::string("WRONG  module          ") + NO_MODULE +
                        " is no extension module, it does not export EM_Create"));
  EXPECT_THAT(module(STUBBORN_MODULE),
              HasSubstr(std::string("WRONG  module          ") + STUBBORN_MODULE +
                        " is the module EM_STUBBORN, not EM_TALVOR: "));
}

TEST_F(DoctorCommandTest, JsonTellsTheSame) {
  InstallCollector("");
  std::filesystem::rename(REGISTRY_FILE, REGISTRY_BACKUP_FILE);
  std::ofstream(REGISTRY_FILE) << "no registry";
  std::filesystem::remove(m_oFiles.Path("Talvor"));
  const HostResult result = Doctor({"--json"});
  EXPECT_EQ(result.exitCode, 69);
  rapidjson::Document diagnosis;
  diagnosis.Parse(result.output.c_str());
  ASSERT_TRUE(diagnosis.IsObject()) << result.output;
  EXPECT_EQ(diagnosis["exitCode"].GetInt(), 69);
  EXPECT_STREQ(diagnosis["text"].GetString(),
               "No archive could be created now; begin with the first WRONG line.");
  std::map<std::string, std::string> verdicts;
  for (const rapidjson::Value& finding : diagnosis["findings"].GetArray()) {
    verdicts[finding["subject"].GetString()] = finding["verdict"].GetString();
    EXPECT_GT(finding["text"].GetStringLength(), 0U);
  }
  EXPECT_EQ(verdicts["module"], "right");
  EXPECT_EQ(verdicts["registry"], "warning");
  EXPECT_EQ(verdicts["program"], "wrong");
}

// Root may write wherever the file system lets it.
TEST_F(DoctorCommandTest, DataDirectoryCannotBeWritten) {
  InstallCollector("");
  WriteRegistry(m_oFiles.Path(), m_strBmc);
  const ReadOnlyMount readOnly(m_strBmc);
  if (!readOnly.IsMounted()) {
    GTEST_SKIP() << "this machine lets nobody mount";
  }
  ExpectWrong("data directory  " + m_strBmc + "/ cannot be written to (Read-only file system): ");
}

TEST_F(DoctorCommandTest, NoSpaceIsLeft) {
  if (access("/proc", W_OK) != 0) {
    GTEST_SKIP() << "only root finds a directory without space that it may write, which is /proc";
  }
  InstallCollector("");
  WriteRegistry(m_oFiles.Path(), "/proc");
  ExpectWrong("free space      Only 0 MB are left in /proc/: ");
}

TEST_F(DoctorCommandTest, AnotherCollectorRuns) {
  InstallCollector("echo >\"$D/runs\"; sleep 1000 & wait");
  const Program other({m_oFiles.Path("Talvor")});
  ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(m_oFiles.Path("runs")); }));
  ExpectWrong("other collector A process named Talvor is running, number ");
}

TEST_F(DoctorCommandTest, TheTraceLevelIsShown) {
  std::filesystem::create_directories("/etc/orvane/CorvistaSuite/TraceConfig");
  std::ofstream("/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini")
      << "[EM_TALVOR]\nFileDebugLevel=3\n";
  EXPECT_THAT(Doctor().output,
              HasSubstr("ok     trace           Level 3 in "
                        "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini.\n"));
}
