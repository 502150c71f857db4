// The job that creates the archive, as the host sees it: its final answer, its lines, the collector
// and the archive.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/archive_module/call_faults.h"
#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;
using Lines = std::vector<LevelLine>;

constexpr char NOT_CREATED[] =
    "\n\nEM_TALVOR (Create)  : ## FATAL ERROR! Talvor archive process finished successfully, but archive not created!\n";

class ArchiveCreationTest : public ModuleHost {
 protected:
  // Expects a creation to end with that status and to write those lines between the first one and
  // the trace of the answer.
  void ExpectCreation(
      uint32_t status, const std::vector<Lines>& parts,
      const std::function<void()>& prepare = [] {}) {
    Lines lines = {{3, "\n"},
                   {2, "\nEM_TALVOR (Create)  : Task serializer job - create Talvor archive..."}};
    for (const Lines& part : parts) {
      lines.insert(lines.end(), part.begin(), part.end());
    }
    lines.push_back(
        {2, "\nEM_TALVOR (RET)     : OC 0x3401-0x0000 OID 0x0000 MID 0x00010002 Stat 0x0" +
                std::to_string(status)});
    ExpectLines(LinesOfTheWorker(), lines, [&](TraceSession& /*session*/) {
      ASSERT_EQ(StartAfresh(), 1U);
      prepare();
      EXPECT_EQ(Run(CREATE), status);
    });
  }

  // The lines of a creation, in their order.

  Lines Begin() const {
    return {{3, "\nEM_TALVOR (Create)  : Archive creation request, timeout=0 sec."},
            {2, "\nEM_TALVOR (Create)  : Start Talvor archive creation..."},
            {3, "\nEM_TALVOR (Create)  :   archive path: \"" + m_strArchive + "\""},
            {3, "\nEM_TALVOR (Create)  : Checking whether another Talvor is already running..."},
            {4, "\n"}};
  }

  static Lines NoOther() {
    return {{4, "\n"},
            {3, "\nEM_TALVOR (Create)  : No other Talvor process is running; can run Talvor..."}};
  }

  static Lines NoPrevious() {
    return {{4, "\nEM_TALVOR           :   Talvor archive file not existing"}};
  }

  Lines Launch() const {
    return {{3, "\nEM_TALVOR (Create)  : Create Talvor process; command line: " + m_strDirectory +
                    "Talvor"}};
  }

  Lines Finished() const {
    return {{3, "\nEM_TALVOR (Create)  : Talvor process exit"},
            {2, "\nEM_TALVOR (Create)  : -> Talvor archive creation finished"},
            {2, "\nEM_TALVOR (Create)  :     file path: \"" + m_strArchive + "\""},
            {2, "\nEM_TALVOR (Create)  :     duration:  <seconds> seconds"}};
  }

  static Lines Size(int kilobytes) {
    return {{2, "\nEM_TALVOR (Create)  :     file size: " + std::to_string(kilobytes) + " kBytes"},
            {2, "\n"}};
  }
};

}  // namespace

TEST_F(ArchiveCreationTest, RunsTheCollectorAndAnswersWithStatus0) {
  InstallCollector("head -c 5000 /dev/zero > \"$archive\"");
  ExpectCreation(0, {Begin(), NoOther(), NoPrevious(), Launch(), Finished(), Size(4)},
                 [this] { std::filesystem::remove(m_strArchive); });
}

TEST_F(ArchiveCreationTest, RemovesThePreviousArchiveFirst) {
  InstallCollector("test -e \"$archive\" || echo data > \"$archive\"");
  ExpectCreation(0,
                 {Begin(),
                  NoOther(),
                  {{3, "\nEM_TALVOR           :   delete previous Talvor archive " + m_strArchive},
                   {4, "\nEM_TALVOR           :   previous Talvor archive deleted"}},
                  Launch(),
                  Finished(),
                  Size(0)},
                 [this] { std::ofstream(m_strArchive) << std::string(5000, 'x'); });
}

TEST_F(ArchiveCreationTest, GoesOnWithAnArchiveThatCannotBeRemoved) {
  InstallCollector("exit 2");
  std::filesystem::create_directory(m_strArchive);
  ExpectCreation(
      6,
      {Begin(),
       NoOther(),
       {{3, "\nEM_TALVOR           :   delete previous Talvor archive " + m_strArchive},
        {1,
         "\nEM_TALVOR           : ## ERROR! Old Talvor archive file cannot be deleted (0x00000015)!"}},
       Launch()});
}

TEST_F(ArchiveCreationTest, ACollectorThatLeavesThePreviousArchiveAsItWasGivesStatus6) {
  InstallCollector("test -e \"$D/written\" && echo new > \"$archive\"; true");
  std::ofstream(m_strArchive) << "old";
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("unlink", 0);
  EXPECT_EQ(Run(CREATE), 6U);
  EXPECT_EQ(session.Count(NOT_CREATED), 1);
  std::ofstream(m_strDirectory + "written") << "x";
  EXPECT_EQ(Run(CREATE), 0U);
  EXPECT_TRUE(faults.Stop());
}

TEST_F(ArchiveCreationTest, AnArchiveWrittenAgainIsNewAlsoWithItsOldModificationTime) {
  InstallCollector(
      "touch -r \"$archive\" \"$D/time\"; echo new > \"$archive\"; touch -r \"$D/time\" \"$archive\"");
  std::ofstream(m_strArchive) << "old";
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("unlink", 0);
  EXPECT_EQ(Run(CREATE), 0U);
  EXPECT_TRUE(faults.Stop());
}

TEST_F(ArchiveCreationTest, TheTimeOfAnArchiveMayLieCenturiesAhead) {
  InstallCollector("touch -d 2400-01-01 \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 0U);
}

TEST_F(ArchiveCreationTest, AnArchiveIsARegularFile) {
  for (const char* script : {"mkdir \"$archive\"", "rmdir \"$archive\"; mkfifo \"$archive\""}) {
    InstallCollector(script);
    ASSERT_EQ(StartAfresh(), 1U);
    m_oSwitch.Forget();
    EXPECT_EQ(Run(CREATE), 6U) << script;
    EXPECT_EQ(Run(TRANSFER), 3U) << script;
  }
}

TEST_F(ArchiveCreationTest, ShowsASizeOfTwoTebibytesAndMoreAsTheLargestNumber) {
  InstallCollector("truncate -s \"$(cat \"$D/size\")\" \"$archive\"");
  const TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 1U);
  constexpr int64_t TWO_TEBIBYTES = INT64_C(1) << 41;
  for (const int64_t size : {TWO_TEBIBYTES - 1, TWO_TEBIBYTES, 2 * TWO_TEBIBYTES}) {
    std::ofstream(m_strDirectory + "size") << size;
    EXPECT_EQ(Run(CREATE), 0U);
  }
  std::vector<std::string> sizes = session.Texts();
  std::erase_if(
      sizes, [](const std::string& text) { return text.find("file size") == std::string::npos; });
  EXPECT_THAT(
      sizes,
      testing::AllOf(SizeIs(3),
                     testing::Each("\nEM_TALVOR (Create)  :     file size: 2147483647 kBytes")));
}

TEST_F(ArchiveCreationTest, DoesNotCreateWhileTheSwitchShutsDown) {
  InstallCollector(GOOD_COLLECTOR);
  ExpectCreation(
      6,
      {{{2,
         "\n\nEM_TALVOR (Create)  : ## NOTE: SWITCH shutdown in progress - do not create archive"}}},
      [this] { m_pModule->ModuleNotification(0x20000, 0, 0); });
  EXPECT_FALSE(std::filesystem::exists(m_strArchive));
}

TEST_F(ArchiveCreationTest, DoesNotCreateWhileAForeignCollectorRuns) {
  InstallCollector(GOOD_COLLECTOR);
  std::filesystem::create_directory(m_strDirectory + "other");
  std::ofstream(m_strDirectory + "other/Talvor") << "#!/bin/sh\nread line\n";
  std::filesystem::permissions(m_strDirectory + "other/Talvor", std::filesystem::perms::all);
  FILE* foreign = popen(("exec '" + m_strDirectory + "other/Talvor'").c_str(), "w");
  ASSERT_NE(foreign, nullptr);
  ASSERT_TRUE(WaitUntil([] { return system("grep -qsx Talvor /proc/[0-9]*/comm") == 0; }));
  ExpectCreation(
      5,
      {Begin(),
       {{1,
         "\n\nEM_TALVOR (Create)  : ## ERROR! Foreign Talvor process already running - cannot start another Talvor instance!"}}});
  EXPECT_FALSE(std::filesystem::exists(m_strArchive));
  pclose(foreign);
  EXPECT_EQ(Run(CREATE), 0U);
}

TEST_F(ArchiveCreationTest, ACollectorThatFailsGivesStatus6WithoutALineOfItsOwn) {
  InstallCollector("echo data > \"$archive\"; exit 2");
  ExpectCreation(6, {Begin(), NoOther(), NoPrevious(), Launch()},
                 [this] { std::filesystem::remove(m_strArchive); });
}

TEST_F(ArchiveCreationTest, ACollectorThatASignalEndsGivesStatus6WithoutALineOfItsOwn) {
  InstallCollector("kill -TERM $$");
  ExpectCreation(6, {Begin(), NoOther(), NoPrevious(), Launch()});
}

TEST_F(ArchiveCreationTest, ACollectorThatCannotBeStartedGivesStatus6WithoutALineOfItsOwn) {
  InstallCollector(GOOD_COLLECTOR);
  std::filesystem::permissions(m_strDirectory + "Talvor", std::filesystem::perms::owner_read);
  ExpectCreation(6, {Begin(), NoOther(), NoPrevious(), Launch()});
}

TEST_F(ArchiveCreationTest, WithoutAProcessForTheCollectorTheStatusIs6AndNothingIsKilled) {
  InstallCollector(GOOD_COLLECTOR);
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("fork", 0);
  faults.Fail("vfork", 0);
  EXPECT_EQ(Run(CREATE), 6U);
  EXPECT_TRUE(faults.Stop());
  EXPECT_FALSE(std::filesystem::exists(m_strArchive));
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(session.Count(
                "\nEM_TALVOR (Stop)    : Talvor process not running, can stop module immediately"),
            1);
}

TEST_F(ArchiveCreationTest, ACollectorThatLeavesNoArchiveGivesStatus6) {
  InstallCollector("exit 0");
  ExpectCreation(
      6, {Begin(), NoOther(), NoPrevious(), Launch(), Finished(), {{1, NOT_CREATED}, {2, "\n"}}});
}

TEST_F(ArchiveCreationTest, TheFinalAnswerIsTheRequestWithItsStatusMarkedAsCompleted) {
  InstallCollector(GOOD_COLLECTOR);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(R"({"OC":13313,"MI":"0x00010002","TO":"30","DA":"x","ST":9})"), 0U);
  EXPECT_THAT(
      m_oSwitch.Answers(),
      ElementsAre(
          R"({"SIP":{"V":1,"CMD":[{"OC":13313,"MI":"0x00010002","TO":"30","DA":"x","ST":0}],"C":true}})"));
}

TEST_F(ArchiveCreationTest, TheMarkReplacesAnOlderOne) {
  InstallCollector(GOOD_COLLECTOR);
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request;
  request.m_oDocument.Parse(R"({"SIP":{"C":7,"CMD":[{"OC":1},{"OC":13313}]}})");
  request.m_nCmdIndex = 1;
  EXPECT_EQ(m_pModule->ModuleRequest(request), 1U);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 0U);
  EXPECT_THAT(m_oSwitch.Answers(),
              ElementsAre(R"({"SIP":{"C":true,"CMD":[{"OC":1},{"OC":13313,"ST":0}]}})"));
}

TEST_F(ArchiveCreationTest, ShowsTheLow16BitsOfTheTimeoutAndDoesNotKeepIt) {
  InstallCollector("sleep 1.5; echo data > \"$archive\"");
  const TraceSession session(3);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(R"({"OC":13313,"TO":"0x10001"})"), 0U);
  EXPECT_THAT(
      session.Texts(),
      testing::Contains("\nEM_TALVOR (Create)  : Archive creation request, timeout=1 sec."));
}

TEST_F(ArchiveCreationTest, ShowsTheWholeSecondsThatTheCollectorTook) {
  InstallCollector("sleep 2; echo data > \"$archive\"");
  const TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 0U);
  int seconds = 0;
  for (const TraceLine& line : session.Lines()) {
    if (line.format == "\nEM_TALVOR (Create)  :     duration:  %d seconds") {
      seconds = std::stoi(line.text.substr(line.text.rfind(':') + 1));
    }
  }
  EXPECT_GE(seconds, 2);
  EXPECT_LT(seconds, 20);
}

TEST_F(ArchiveCreationTest, StartsACollectorWhosePathContainsBlanksWithoutArguments) {
  m_strDirectory += "two words/";
  std::filesystem::create_directories(m_strDirectory);
  m_strArchive = m_strDirectory + "Talvor_Data.zip";
  InstallCollector("test $# = 0 && echo data > \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 0U);
}

TEST_F(ArchiveCreationTest, ACollectorGetsNoDescriptorOfTheHost) {
  InstallCollector("ls /proc/self/fd > \"$archive\"");
  const std::ifstream hosts("/dev/null");
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 0U);
  std::ifstream list(m_strArchive);
  // Standard input, output and error, and what lists them.
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(list), {}), "0\n1\n2\n3\n");
}

TEST_F(ArchiveCreationTest, AQueuedCreationRunsAfterTheFirst) {
  InstallCollector("sleep 0.5; echo data >> \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(CREATE);
  Send(CREATE);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 0U);
  EXPECT_EQ(m_oSwitch.StatusOf(1), 0U);
  EXPECT_EQ(std::filesystem::file_size(m_strArchive), 5U);
}

TEST_F(ArchiveCreationTest, TheLastTaskMayStillBeAnsweredWhenTheHostThrows) {
  InstallCollector(GOOD_COLLECTOR);
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  m_oSwitch.onAnswer = [](SipJson& /*answer*/) { throw std::runtime_error("hand-back"); };
  Send(CREATE);
  EXPECT_TRUE(session.WaitFor("\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##"));
  m_oSwitch.onAnswer = nullptr;
  EXPECT_EQ(Run(CREATE), 0U);
}

// ModuleRequest() queues no other opcode, so this job is handed to the operation directly.
TEST_F(ArchiveCreationTest, AnUnknownTaskIsAnErrorAndNotAnswered) {
  InstallCollector(GOOD_COLLECTOR);
  ExpectLines(
      LinesOfThisThread(),
      {{1,
        "\nEM_TALVOR           : ## ERROR! Unhandled OpCode 0x3400 to be executed in task - fix this!"}},
      [this](TraceSession& session) {
        ASSERT_EQ(StartAfresh(), 1U);
        session.Clear();
        constexpr size_t ON_TASK_EXECUTION = 24;
        using Operation = void (*)(CIExtensionModule*, SipJson&, int32_t);
        const auto* operations = *reinterpret_cast<const Operation* const*>(m_pModule);
        SipJson request = MakeRequest(QUERY);
        operations[ON_TASK_EXECUTION](m_pModule, request, 0);
        EXPECT_EQ(StatusOf(request), 999U);
      });
  EXPECT_TRUE(m_oSwitch.Answers().empty());
}
