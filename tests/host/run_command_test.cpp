// "em_host run" on the built module.

#include "host/commands.h"

#include <gmock/gmock.h>
#include <rapidjson/document.h>
#include <signal.h>

#include <filesystem>
#include <sstream>

#include "frame/opcode.h"
#include "platform/process/process_control.h"
#include "platform/process/process_table.h"
#include "tests/host/host_program.h"
#include "tests/support/trace_session.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class RunCommandTest : public HostProgramTest {
 protected:
  // A run that is cut short leaves its collector behind.
  ~RunCommandTest() override {
    int32_t pid = 0;
    if (FindProcessByName(pid, "Talvor")) {
      KillProcess(pid, true);
    }
    EXPECT_TRUE(WaitUntil([] { return !CollectorRuns(); }));
  }

  static bool CollectorRuns() {
    int32_t pid = 0;
    return FindProcessByName(pid, "Talvor");
  }

  void InstallWorkingCollector() { InstallCollector("echo data >\"$D/Talvor_Data.zip\""); }

  static HostResult Run(const std::vector<std::string>& arguments) {
    return Host("run", arguments);
  }

  std::string WriteRecord(const std::string& text) {
    return "@" + m_oFiles.Write("record.json", text);
  }
};

// The lines as JSON documents; a line that is none gives a parse error.
std::vector<rapidjson::Document> JsonLines(const std::string& output) {
  std::vector<rapidjson::Document> documents;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    documents.emplace_back().Parse(line.c_str());
  }
  return documents;
}

}  // namespace

TEST_F(RunCommandTest, QueryTellsThatTheCollectorIsAvailable) {
  InstallWorkingCollector();
  const HostResult result = Run({"query"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "query: Talvor is available, done (status 0)\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(RunCommandTest, TheWholeRoadInOneRun) {
  InstallWorkingCollector();
  const HostResult result = Run({"--bmc", m_strBmc, "query", "create", "transfer=a/copy.zip"});
  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_EQ(result.output,
            "query: Talvor is available, done (status 0)\n"
            "create: queued, the final answer follows (status 22)\n"
            "create: done (status 0)\n"
            "transfer: queued, the final answer follows (status 22)\n"
            "transfer: done (status 0)\n");
  EXPECT_EQ(m_oFiles.Read("bmc/copy.zip"), "data\n");
}

TEST_F(RunCommandTest, TheEndTellsWhereArchiveAndCopyLie) {
  InstallWorkingCollector();
  EXPECT_EQ(
      Run({"--bmc", m_strBmc, "create", "transfer=a/copy.zip"}).errors,
      "em_host: The archive is " + m_strArchive +
          ", 5 bytes.\n"
          "em_host: The copy is named \"copy.zip\" instead of \"a/copy.zip\": it is one file in "
          "the directory given with --bmc.\n"
          "em_host: The copy is " +
          m_strBmc + "/copy.zip, 5 bytes.\n");
}

// script gives the run a terminal.
TEST_F(RunCommandTest, ATerminalShowsProgress) {
  InstallCollector("echo data >\"$D/Talvor_Data.zip\"; sleep 2.5");
  std::string line;
  for (const std::string& word : Command("run", {"create"})) {
    line += word + " ";
  }
  Program program({"/usr/bin/script", "-qec", line, "/dev/null"});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Output(), ContainsRegex("create: 1 s, [0-9,]+ bytes in " + m_oFiles.Path() +
                                              "/\x1b.K\rcreate: 2 s, "));
  EXPECT_THAT(Run({"create"}).errors, Not(HasSubstr("create: ")));
}

struct FailedCreation {
  const char* commands;
  const char* cause;  // regular expression
};

// What em_host finds out itself, without a trace.
class FailedCreationTest : public RunCommandTest,
                           public testing::WithParamInterface<FailedCreation> {};

TEST_P(FailedCreationTest, IsExplained) {
  InstallCollector(GetParam().commands);
  const HostResult result = Run({"--trace", "0", "create"});
  EXPECT_EQ(result.exitCode, 6);
  EXPECT_THAT(result.errors,
              ContainsRegex(std::string("^em_host: ") + GetParam().cause +
                            " Run it by hand, as the agent does, and look at what it says: " +
                            m_oFiles.Path("Talvor") + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, FailedCreationTest,
    testing::Values(FailedCreation{"exit 2", "Talvor ended with exit code 2\\."},
                    FailedCreation{"exit 255", "Talvor ended with exit code 255\\."},
                    FailedCreation{"kill -KILL $$",
                                   "Talvor was killed by signal 9 \\(Killed\\)\\."},
                    FailedCreation{"exit 0",
                                   "Talvor ended with exit code 0 but left no new archive "
                                   "[^ ]*/Talvor_Data.zip\\."}));

TEST_F(RunCommandTest, ACollectorThatTheSystemDoesNotExecuteIsExplained) {
  InstallCollector("");
  m_oFiles.Write("Talvor", "#!/none/interpreter\n");
  EXPECT_THAT(Run({"create"}).errors,
              StartsWith("em_host: The system does not execute " + m_oFiles.Path("Talvor") +
                         " (No such file or directory). Run it by hand, "));
}

TEST_F(RunCommandTest, TheListOfRequestsIsForScripts) {
  const HostResult result = Run({"--list"});
  EXPECT_EQ(result.exitCode, 0);
  std::string words;
  for (const RequestName& request : REQUEST_NAMES) {
    words += std::string(request.word) + "\n";
  }
  EXPECT_EQ(result.output, words);
  EXPECT_THAT(words, StartsWith("query\ncreate\ntransfer\n"));
}

TEST_F(RunCommandTest, ATransferWithoutANameKeepsTheArchivesName) {
  InstallWorkingCollector();
  EXPECT_EQ(Run({"--bmc", m_strBmc, "create", "transfer"}).exitCode, 0);
  EXPECT_EQ(m_oFiles.Read("bmc/Talvor_Data.zip"), "data\n");
}

TEST_F(RunCommandTest, ALinkInTheBmcsDirectoryIsReplacedAndNotFollowed) {
  InstallWorkingCollector();
  m_oFiles.Write("outside", "precious");
  std::filesystem::create_symlink(m_oFiles.Path("outside"), m_strBmc + "/copy");
  EXPECT_EQ(Run({"--bmc", m_strBmc, "create", "transfer=copy"}).exitCode, 0);
  EXPECT_EQ(m_oFiles.Read("outside"), "precious");
  EXPECT_EQ(m_oFiles.Read("bmc/copy"), "data\n");
  EXPECT_FALSE(std::filesystem::is_symlink(m_strBmc + "/copy"));
}

TEST_F(RunCommandTest, TheExitCodeIsTheWorstFinalStatus) {
  InstallCollector("exit 2");
  const HostResult result = Run({"create", "query"});
  EXPECT_EQ(result.exitCode, 6);
  EXPECT_THAT(result.output,
              HasSubstr("create: failed, or the switch is shutting down (status 6)"));
  EXPECT_THAT(result.output, EndsWith("query: Talvor is available, done (status 0)\n"));
}

TEST_F(RunCommandTest, AMissingArchiveIsStatus3) {
  InstallWorkingCollector();
  const HostResult result = Run({"--bmc", m_strBmc, "transfer"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_TRUE(std::filesystem::is_empty(m_strBmc));
}

TEST_F(RunCommandTest, JsonGivesOneObjectForEachAnswer) {
  InstallWorkingCollector();
  const HostResult result = Run({"--json", "--timeout", "30", "query", "create"});
  EXPECT_EQ(result.exitCode, 0);
  const std::vector<rapidjson::Document> answers = JsonLines(result.output);
  ASSERT_EQ(answers.size(), 3U);
  for (const rapidjson::Document& answer : answers) {
    ASSERT_TRUE(answer.IsObject()) << result.output;
  }
  EXPECT_STREQ(answers[0]["request"].GetString(), "query");
  EXPECT_TRUE(answers[0]["final"].GetBool());
  EXPECT_EQ(answers[0]["record"]["SIP"]["CMD"][0]["DA"].GetUint(), 1U);
  EXPECT_FALSE(answers[1]["final"].GetBool());
  EXPECT_EQ(answers[1]["status"].GetUint(), 22U);
  EXPECT_TRUE(answers[2]["final"].GetBool());
  EXPECT_EQ(answers[2]["status"].GetUint(), 0U);
  EXPECT_STREQ(answers[2]["text"].GetString(), "done");
  EXPECT_EQ(answers[2]["record"]["SIP"]["CMD"][0]["TO"].GetUint(), 30U);
}

TEST_F(RunCommandTest, ARecordFromAFileIsAskedAsItIs) {
  InstallWorkingCollector();
  const HostResult result =
      Run({"--json", WriteRecord(R"({"SIP":{"X":7,"CMD":[{"OC":"0x3400","MI":77,"Y":[]}]}})")});
  EXPECT_EQ(result.exitCode, 0) << result.errors;
  const std::vector<rapidjson::Document> answers = JsonLines(result.output);
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0]["request"].GetString(), "@" + m_oFiles.Path("record.json"));
  const rapidjson::Value& sip = answers[0]["record"]["SIP"];
  EXPECT_EQ(sip["X"].GetUint(), 7U);
  EXPECT_EQ(sip["CMD"][0]["MI"].GetUint(), 77U);
  EXPECT_TRUE(sip["CMD"][0].HasMember("Y"));
  EXPECT_EQ(sip["CMD"][0]["ST"].GetUint(), 0U);
}

TEST_F(RunCommandTest, EachCommandOfARecordIsARequest) {
  InstallWorkingCollector();
  const HostResult result =
      Run({WriteRecord(R"({"SIP":{"CMD":[{"OC":13312},{"OC":13313},{"OC":13317}]}})")});
  EXPECT_EQ(result.exitCode, 1);
  const std::string name = "@" + m_oFiles.Path("record.json");
  EXPECT_EQ(result.output, name + "[0]: Talvor is available, done (status 0)\n" + name +
                               "[1]: queued, the final answer follows (status 22)\n" + name +
                               "[1]: done (status 0)\n" + name +
                               "[2]: the module does not handle this request (status 1)\n");
}

TEST_F(RunCommandTest, ARequestForAnotherCabinetIsStatus20) {
  InstallWorkingCollector();
  const std::string record = WriteRecord(R"({"SIP":{"CMD":[{"OC":13312,"CA":4}]}})");
  EXPECT_EQ(Run({"--cabinet", "4", "query", record}).exitCode, 0);
  const HostResult result = Run({"--cabinet", "5", "query", record});
  EXPECT_EQ(result.exitCode, 20);
  EXPECT_THAT(result.output, EndsWith("not for this server cabinet (status 20)\n"));
}

TEST_F(RunCommandTest, TraceLinesGoToStandardErrorOnly) {
  InstallWorkingCollector();
  const HostResult result = Run({"--trace", "3", "--cabinet", "3", "query"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "query: Talvor is available, done (status 0)\n");
  EXPECT_THAT(result.errors,
              AllOf(HasSubstr("\nEM_TALVOR (Start)   : Start of module completed\n"),
                    HasSubstr("\nEM_TALVOR (REQ)     : OC 0x3400-0x0000 OID 0x0000 CABID 0003 "),
                    Not(HasSubstr("\n\n"))));
  EXPECT_THAT(Run({"--trace", "0", "query"}).errors, IsEmpty());
}

TEST_F(RunCommandTest, TheAgentTypeReachesTheModule) {
  InstallWorkingCollector();
  EXPECT_THAT(Run({"--trace", "4", "--agent-type", "5", "query"}).errors,
              HasSubstr("\"Corvista Agentless Service\""));
  EXPECT_THAT(Run({"--trace", "4", "query"}).errors, HasSubstr("\"Corvista Server Control\""));
}

TEST_F(RunCommandTest, AFinalAnswerThatDoesNotComeInTimeEndsTheRun) {
  InstallCollector("sleep 1000 & wait");
  const HostResult result = Run({"--timeout", "1", "create", "query"});
  EXPECT_EQ(result.exitCode, 75);
  EXPECT_THAT(result.errors,
              HasSubstr("em_host: No final answer to \"create\" within 1 second: allow more with "
                        "--timeout, or look at the trace with --trace 3.\n"));
  EXPECT_EQ(result.output,
            "create: queued, the final answer follows (status 22)\n"
            "create: failed, or the switch is shutting down (status 6)\n");
  EXPECT_FALSE(CollectorRuns());
}

TEST_F(RunCommandTest, WithoutACollectorTheRequestsAreAskedNevertheless) {
  const HostResult result = Run({"query", "create"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.output,
            "query: Talvor is not available, done (status 0)\n"
            "create: Talvor is not available, or there is no archive (status 3)\n");
  EXPECT_THAT(result.errors, StartsWith("em_host: There is no registry /etc/qamrel/registry: "));
}

// A signal while the collector runs.
class RunCommandSignalTest : public RunCommandTest, public testing::WithParamInterface<int> {};

TEST_P(RunCommandSignalTest, EndsTheCollectorAndTheRunInOrder) {
  InstallCollector("echo >\"$D/runs\"; sleep 1000 & wait");
  Program host(Command("run", {"--trace", "1", "create", "query"}));
  ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(m_oFiles.Path("runs")); }));
  host.Signal(GetParam());
  EXPECT_EQ(host.Wait(), 6);
  EXPECT_EQ(host.Output(),
            "create: queued, the final answer follows (status 22)\n"
            "create: failed, or the switch is shutting down (status 6)\n");
  EXPECT_THAT(
      host.Errors(),
      AllOf(HasSubstr("*** SCN_SWITCH_SHUTDOWN ***"), HasSubstr("em_host: Stopping"),
            HasSubstr("em_host: The creation was cut short by the stop of the module, which "
                      "killed Talvor.\n"),
            HasSubstr(".. Module destroyed successfully!")));
  EXPECT_FALSE(CollectorRuns());
}

INSTANTIATE_TEST_SUITE_P(Each, RunCommandSignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(RunCommandTest, ASignalWithoutAFailedRequestGivesItsOwnExitCode) {
  // It comes when the collector has all but ended: the module lets it.
  InstallCollector("echo data >\"$D/Talvor_Data.zip\"; kill -INT $PPID");
  const HostResult result = Run({"create", "query"});
  EXPECT_EQ(result.exitCode, 128 + SIGINT);
  EXPECT_THAT(result.output, Not(HasSubstr("query")));
}

TEST_F(RunCommandTest, ASecondSignalEndsTheRunAtOnce) {
  InstallCollector("echo >\"$D/runs\"; trap '' TERM; sleep 1000 & wait");
  Program host(Command("run", {"create"}));
  ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(m_oFiles.Path("runs")); }));
  host.Signal(SIGINT);
  ASSERT_TRUE(WaitUntil([&] { return host.Errors().find("Stopping") != std::string::npos; }));
  host.Signal(SIGINT);
  EXPECT_EQ(host.Wait(), 128 + SIGINT);
}
