// What em_host says when it cannot go on, and its exit codes.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "host/host_request.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"

namespace {

using testing::HasSubstr;

class HostErrorsTest : public HostProgramTest {
 protected:
  static HostResult Plain(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), EM_HOST);
    Program program(arguments);
    const int exitCode = program.Wait();
    return {exitCode, program.Output(), program.Errors()};
  }

  // Nothing but the sentence is printed.
  static void ExpectError(const HostResult& result, int exitCode, const std::string& sentence) {
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "em_host: " + sentence + "\n");
  }

  // The reason why the collector is not available.
  static void ExpectUnavailable(const std::string& sentence) {
    const HostResult result = Host("run", {"query"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "query: Talvor is not available, done (status 0)\n");
    EXPECT_EQ(result.errors, "em_host: " + sentence + "\n");
  }
};

}  // namespace

TEST_F(HostErrorsTest, ModuleIsMissing) {
  ExpectError(Plain({"run", "--module", "/none/em_talvor", "query"}), 72,
              "The module /none/em_talvor cannot be found (No such file or directory): install the "
              "package em-talvor, or name the file with --module FILE.");
}

TEST_F(HostErrorsTest, ModuleIsNoLibrary) {
  const std::string file = m_oFiles.Write("text", "text");
  const HostResult result = Plain({"info", "--module", file});
  EXPECT_EQ(result.exitCode, 70);
  EXPECT_THAT(result.errors, HasSubstr("em_host: The module cannot be loaded: " + file));
}

TEST_F(HostErrorsTest, LibraryIsNoModule) {
  ExpectError(Plain({"info", "--module", NO_MODULE}), 70,
              std::string(NO_MODULE) +
                  " is no extension module, it does not export EM_Create: name another file with "
                  "--module FILE.");
}

TEST_F(HostErrorsTest, RequestIsUnknown) {
  ExpectError(Host("run", {"query", "destroy"}), 64,
              "\"destroy\" is no request: give " + RequestWords() +
                  ", transfer=NAME, or @FILE with a JSON record.");
}

TEST_F(HostErrorsTest, CommandLineIsWrong) {
  EXPECT_EQ(Plain({}).exitCode, 64);
  EXPECT_EQ(Plain({"fly"}).exitCode, 64);
  EXPECT_EQ(Plain({"run"}).exitCode, 64);
  EXPECT_EQ(Host("run", {"--trace", "6", "query"}).exitCode, 64);
  EXPECT_EQ(Host("run", {"--timeout", "0", "query"}).exitCode, 64);
  EXPECT_EQ(Host("setup", {"burn"}).exitCode, 64);
}

TEST_F(HostErrorsTest, AMistakeOnTheCommandLineNamesTheHelpThatTells) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
      {{}, "a command is missing: see \"em_host --help\"."},
      {{"fly", "--high"}, "\"fly\" is no command: see \"em_host --help\"."},
      {{"--high"}, "\"--high\" is no option: see \"em_host --help\"."},
      {{"run"}, "REQUEST is required: see \"em_host run --help\"."},
      {{"run", "--trace"}, "--trace needs a value: see \"em_host run --help\"."},
      {{"setup", "backup", "--fast"}, "\"--fast\" is no option: see \"em_host setup --help\"."},
      {{"doctor", "now"}, "\"now\" is one word too many: see \"em_host doctor --help\"."},
      {{"trace"}, "a command is missing: see \"em_host trace --help\"."},
      {{"trace", "on"}, "\"on\" is no command: see \"em_host trace --help\"."},
      {{"trace", "set"}, "LEVEL is required: see \"em_host trace set --help\"."}};
  for (const auto& [arguments, sentence] : mistakes) {
    ExpectError(Plain(arguments), 64, sentence);
  }
  // The library has its own words for the range, which change.
  EXPECT_THAT(Plain({"run", "--trace", "6", "query"}).errors,
              testing::MatchesRegex("em_host: --trace: Value 6 not in range .*0.*5.*: "
                                    "see \"em_host run --help\".\n"));
}

TEST_F(HostErrorsTest, HelpAndVersionAreNoErrors) {
  EXPECT_EQ(Plain({"--help"}).exitCode, 0);
  EXPECT_EQ(Plain({"run", "--help"}).exitCode, 0);
  EXPECT_THAT(Plain({"--version"}).output, testing::MatchesRegex("em_host [0-9.]+\n"));
  for (const std::string command : {"run", "info", "setup", "trace", "doctor", "demo"}) {
    EXPECT_THAT(Plain({command, "--help"}).output,
                testing::Not(testing::ContainsRegex("TEXT|UINT|REQUIRED")))
        << command;
  }
}

TEST_F(HostErrorsTest, RecordCannotBeRead) {
  ExpectError(Host("run", {"@/none"}), 66,
              "The record /none cannot be read (No such file or directory): name a file that holds "
              "one, as @FILE.");
}

TEST_F(HostErrorsTest, RecordIsADirectory) {
  ExpectError(Host("run", {"@/"}), 66,
              "The record / cannot be read (Is a directory): name a file that holds one, as "
              "@FILE.");
}

TEST_F(HostErrorsTest, RecordIsNestedTooDeeply) {
  const std::string file = m_oFiles.Write("record", std::string(1'000'000, '['));
  const HostResult result = Host("run", {"@" + file});
  EXPECT_EQ(result.exitCode, 65);
  EXPECT_THAT(result.errors, HasSubstr("holds no request (its JSON is nested too deeply): "));
}

TEST_F(HostErrorsTest, RecordIsNoJson) {
  const std::string file = m_oFiles.Write("record", "{\"SIP\":");
  ExpectError(Host("run", {"@" + file}), 65,
              file +
                  " holds no request (Invalid value. at byte 7): write a record such as "
                  "{\"SIP\":{\"CMD\":[{\"OC\":13312}]}}.");
}

TEST_F(HostErrorsTest, RecordHoldsNoCommands) {
  for (const char* text : {"7", "{}", R"({"SIP":{"CMD":[]}})", R"({"SIP":{"CMD":[7]}})"}) {
    const std::string file = m_oFiles.Write("record", text);
    ExpectError(Host("run", {"@" + file}), 65,
                file +
                    " holds no request (no objects in the array \"CMD\" of the object \"SIP\"): "
                    "write a record such as {\"SIP\":{\"CMD\":[{\"OC\":13312}]}}.");
  }
}

TEST_F(HostErrorsTest, TransferHasNowhereToGo) {
  ExpectError(Host("run", {"query", "transfer"}), 64,
              "A transfer needs a directory that stands for the BMC: name one with --bmc DIR.");
  ExpectError(Host("run", {"--bmc", "/none", "transfer"}), 73,
              "There is no directory /none to stand for the BMC: make it, or name another with "
              "--bmc DIR.");
}

TEST_F(HostErrorsTest, TheBmcsDirectoryCannotBeReached) {
  std::filesystem::create_symlink("loop", m_oFiles.Path("loop"));
  ExpectError(Host("run", {"--bmc", m_oFiles.Path("loop"), "transfer"}), 73,
              "There is no directory " + m_oFiles.Path("loop") +
                  " to stand for the BMC (Too many levels of symbolic links): make it, or name "
                  "another with --bmc DIR.");
}

TEST_F(HostErrorsTest, TheCurrentDirectoryIsGone) {
  Program program({"/bin/sh", "-c",
                   "mkdir " + m_oFiles.Path("gone") + " && cd " + m_oFiles.Path("gone") +
                       " && rmdir ../gone && exec " + EM_HOST + " info --module em_talvor.so"});
  EXPECT_EQ(program.Wait(), 71);
  EXPECT_EQ(program.Errors(),
            "em_host: The current directory, from which em_talvor.so is found, cannot be told (No "
            "such file or directory): change to one that is there.\n");
}

TEST_F(HostErrorsTest, MemoryIsMissing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer takes more addresses than any limit";
#endif
  const std::string file = m_oFiles.Write("record", "");
  std::filesystem::resize_file(file, 1 << 30);
  std::vector<std::string> command = Command("run", {"@" + file});
  command.insert(command.begin(), {"/usr/bin/prlimit", "--as=300000000"});
  Program program(command);
  EXPECT_EQ(program.Wait(), 71);
  EXPECT_EQ(program.Errors(),
            "em_host: There is not enough memory: end other programs, or raise the limit (ulimit "
            "-v).\n");
}

TEST_F(HostErrorsTest, CopyCannotBeWritten) {
  InstallCollector("");
  m_oFiles.Write("Talvor_Data.zip", "data");
  std::filesystem::create_directory(m_strBmc + "/copy");
  const HostResult result = Host("run", {"--bmc", m_strBmc, "transfer=copy"});
  EXPECT_EQ(result.exitCode, 6);
  EXPECT_EQ(result.errors, "em_host: " + m_strArchive + " cannot be copied to " + m_strBmc +
                               "/copy (Is a directory): check the directory given with --bmc and "
                               "the space left there.\n"
                               "em_host: See what is in the way with \"em_host doctor\", and what "
                               "happened with --trace 3.\n");
}

TEST_F(HostErrorsTest, OutputIsLost) {
  Program program({"/bin/sh", "-c",
                   std::string(EM_HOST) + " info --module " + EM_TALVOR_LIBRARY + " >/dev/full"});
  EXPECT_EQ(program.Wait(), 74);
  EXPECT_EQ(program.Errors(),
            "em_host: The output cannot be written (No space left on device): check where standard "
            "output goes.\n");
}

TEST_F(HostErrorsTest, OutputIsClosed) {
  InstallCollector("");
  Program program({"/bin/sh", "-c",
                   std::string(EM_HOST) + " run --module " + EM_TALVOR_LIBRARY + " query >&-"});
  EXPECT_EQ(program.Wait(), 74);
  EXPECT_EQ(program.Errors(),
            "em_host: The output cannot be written (Bad file descriptor): check where standard "
            "output goes.\n");
}

// No file that em_host opens gets the trace in place of the one that is closed.
TEST_F(HostErrorsTest, ClosedStandardFilesHarmNothing) {
  InstallCollector("echo data >\"$D/Talvor_Data.zip\"");
  Program program({"/bin/sh", "-c",
                   std::string(EM_HOST) + " run --module " + EM_TALVOR_LIBRARY +
                       " --trace 5 --bmc " + m_strBmc + " create transfer=copy <&- 2>&-"});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Output(), HasSubstr("transfer: done (status 0)\n"));
  EXPECT_EQ(m_oFiles.Read("bmc/copy"), "data\n");
}

TEST_F(HostErrorsTest, RegistryIsMissing) {
  ExpectUnavailable(
      "There is no registry /etc/qamrel/registry: install the agent and Talvor, or see the whole "
      "path with \"em_host demo\".");
}

TEST_F(HostErrorsTest, RegistryCannotBeRead) {
  std::filesystem::create_directories("/etc/qamrel");
  std::filesystem::create_symlink("registry", "/etc/qamrel/registry");
  ExpectUnavailable(
      "The registry /etc/qamrel/registry cannot be read (Too many levels of symbolic links): repair "
      "its directory /etc/qamrel.");
}

TEST_F(HostErrorsTest, CollectorIsNotRegistered) {
  std::filesystem::create_directories("/etc/qamrel");
  std::ofstream("/etc/qamrel/registry") << "[HKEY_LOCAL_MACHINE]\n\n";
  ExpectUnavailable(
      "Talvor is not installed: the registry has no value \"Talvor\" in the key "
      "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\UUID\\"
      "5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13. Install Talvor.");
}

TEST_F(HostErrorsTest, CollectorIsNotThere) {
  WriteRegistry("/none", "/none");
  ExpectUnavailable(
      "Talvor is registered, but there is no program /none/Talvor: install Talvor again, or correct "
      "\"FileRoot\" in the registry key SOFTWARE\\Talvor\\Setup.");
}

TEST_F(HostErrorsTest, AFailedRequestTellsWhatToDo) {
  InstallCollector("exit 2");
  const std::string record =
      "@" + m_oFiles.Write("record", R"({"SIP":{"CMD":[{"OC":13312,"CA":7}]}})");
  const std::string other = "@" + m_oFiles.Write("other", R"({"SIP":{"CMD":[{"OC":1}]}})");
  EXPECT_THAT(
      Host("run", {"create"}).errors,
      HasSubstr("em_host: See what is in the way with \"em_host doctor\", and what happened "
                "with --trace 3.\n"));
  EXPECT_EQ(Host("run", {"--bmc", m_strBmc, "transfer"}).errors,
            "em_host: There is no archive to transfer: ask create first.\n");
  EXPECT_EQ(Host("run", {record}).errors,
            "em_host: A request names another cabinet in \"CA\": give the server's number with "
            "--cabinet.\n");
  EXPECT_EQ(Host("run", {other}).errors,
            "em_host: A request is none of this module's: correct its \"OC\".\n");
}

TEST_F(HostErrorsTest, AModuleThatDoesNotGoIsReported) {
  Program program({EM_HOST, "run", "--module", STUBBORN_MODULE, "query"});
  EXPECT_EQ(program.Wait(), 70);
  EXPECT_THAT(program.Output(), HasSubstr("done (status 0)\n"));
  EXPECT_EQ(
      program.Errors(),
      "em_host: The module could not be deleted (EM_Delete returned 0): look at its trace with "
      "--trace 3.\n"
      "em_host: The module is still in the process after it was unloaded: look for threads "
      "that it leaves behind, and for the linker option \"-z nodelete\".\n");
}
