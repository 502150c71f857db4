// The end of the module: what becomes of the worker, of a running collector and of queued jobs when
// the host stops the module.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>

#include "tests/archive_module/call_faults.h"
#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/trace_session.h"

namespace {

using testing::SizeIs;
using Clock = std::chrono::steady_clock;

constexpr char NOT_RUNNING[] =
    "\nEM_TALVOR (Stop)    : Talvor process not running, can stop module immediately";
constexpr char TERMINATE[] =
    "\nEM_TALVOR (Stop)    : -> Talvor archive creation in progress - terminate process (#<pid>) and wait for exit...";
constexpr char NOT_IN_TIME[] =
    "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated in time or WaitForExit() failed!\n";

constexpr std::chrono::milliseconds LAST_WAIT(5000);

// Creates a child with that id that has ended with exit code 0 and was not reaped. False, and errno
// set, when the system does not assign the id.
bool LeaveEndedChild(int32_t pid) {
  clone_args arguments = {};
  arguments.exit_signal = SIGCHLD;
  arguments.set_tid = reinterpret_cast<uintptr_t>(&pid);
  arguments.set_tid_size = 1;
  const int64_t child = syscall(SYS_clone3, &arguments, sizeof(arguments));
  if (child == 0) {
    syscall(SYS_exit_group, 0);
  }
  siginfo_t info = {};
  return child == pid && waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) == 0;
}

// Wherever a process may choose ids, id 1 is taken.
bool MayChooseIds() { return !LeaveEndedChild(1) && errno == EEXIST; }

class ModuleStopTest : public ModuleHost {
 protected:
  // Stops and expects that it takes that long.
  void ExpectStopAfter(std::chrono::milliseconds time) {
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(m_pModule->Stop(), 1U);
    const auto taken = Clock::now() - begin;
    EXPECT_GE(taken, time);
    EXPECT_LT(taken, time + LOAD_DELAY);
  }
};

}  // namespace

TEST_F(ModuleStopTest, WithoutAJobTheWorkerEndsAndNothingIsTerminated) {
  InstallCollector("");
  ExpectLines(LinesOfThisThread(),
              {{1, "\n\n" + SeparatorLine()},
               {1, "\n### Stopping module EM_TALVOR ###\n"},
               {4, "\nCTaskSerializer     : TerminateSerialization!"},
               {4, "\nCTaskSerializer     : Disable all Tasks"},
               {4, "\nCTaskSerializer     : All pending tasks removed from queues!"},
               {5, "\nCTaskSerializer     :   terminated"},
               {4, NOT_RUNNING},
               {1, "\n\n### Stop of module EM_TALVOR completed successfully ###"},
               {1, "\n" + SeparatorLine() + "\n"}},
              [this](TraceSession& session) {
                const size_t threads = CountThreads();
                ASSERT_EQ(StartAfresh(), 1U);
                session.Clear();
                EXPECT_EQ(m_pModule->Stop(), 1U);
                EXPECT_TRUE(HasOnlyThreads(threads));
              });
}

TEST_F(ModuleStopTest, AModuleThatDidNotStartIsStopped) {
  ExpectLines(LinesOfThisThread(),
              {{1, "\n\n" + SeparatorLine()},
               {1, "\n### Stopping module EM_TALVOR ###\n"},
               {4, "\nCTaskSerializer     : TerminateSerialization!"},
               {5, "\nCTaskSerializer     :   terminated"},
               {4, NOT_RUNNING},
               {1, "\n\n### Stop of module EM_TALVOR completed successfully ###"},
               {1, "\n" + SeparatorLine() + "\n"}},
              [this](TraceSession& session) {
                ASSERT_EQ(StartAfresh(), 0U);
                session.Clear();
                EXPECT_EQ(m_pModule->Stop(), 1U);
              });
}

TEST_F(ModuleStopTest, NothingIsTerminatedAfterASuccessfulRun) {
  InstallCollector(GOOD_COLLECTOR);
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 0U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(session.Count(NOT_RUNNING), 1);
}

TEST_F(ModuleStopTest, KillsACollectorThatOutlivesTheGrace) {
  InstallCollector(LONG_RUN);
  const TraceSession session(1);
  StartWithRunningCollector();
  ExpectStopAfter(STOP_GRACE);
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(1));
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
  EXPECT_FALSE(HasChildren());
  std::string pid;
  std::ifstream(m_strDirectory + "runs") >> pid;
  EXPECT_THAT(
      session.Texts(),
      testing::Contains(
          "\nEM_TALVOR (Stop)    : -> Talvor archive creation in progress - terminate process (#" +
          pid + ") and wait for exit..."));
}

TEST_F(ModuleStopTest, TheKillIsTracedOnceAndItsWaitFails) {
  InstallCollector(LONG_RUN);
  ExpectLines(LinesWith("(Stop)"), {{1, TERMINATE}, {1, NOT_IN_TIME}},
              [this](TraceSession& /*session*/) {
                StartWithRunningCollector();
                EXPECT_EQ(m_pModule->Stop(), 1U);
              });
}

TEST_F(ModuleStopTest, TheJobOfAKilledCollectorWritesNoLineOfItsOwn) {
  InstallCollector(LONG_RUN);
  const TraceSession session(5);
  StartWithRunningCollector();
  m_pModule->Stop();
  std::vector<std::string> lines;
  for (const TraceLine& line : session.Lines()) {
    if (LinesOfTheWorker()(line) && (LinesWith("(Create)")(line) || LinesWith("(RET)")(line))) {
      lines.push_back(line.text);
    }
  }
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines.end()[-2], "\nEM_TALVOR (Create)  : Create Talvor process; command line: " +
                                 m_strDirectory + "Talvor");
  EXPECT_EQ(lines.back(),
            "\nEM_TALVOR (RET)     : OC 0x3401-0x0000 OID 0x0000 MID 0x00010002 Stat 0x06");
}

TEST_F(ModuleStopTest, ACollectorMayEndWithinTheGrace) {
  InstallCollector(SHORT_RUN);
  const TraceSession session(4);
  StartWithRunningCollector();
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(1));
  EXPECT_EQ(m_oSwitch.StatusOf(0), 0U);
  EXPECT_EQ(session.Count(NOT_RUNNING), 1);
  EXPECT_FALSE(HasChildren());
}

// Nor does the id of a failed run, which Stop() kills afterwards, cut it short.
TEST_F(ModuleStopTest, ATransferThatWaitsInTheSwitchIsWaitedFor) {
  InstallCollector("exit 2");
  const TraceSession session(1);
  std::promise<void> begun;
  int killsMeanwhile = -1;
  m_oSwitch.onHtiRequest = [&](SipJson& request) {
    begun.set_value();
    std::this_thread::sleep_for(STOP_GRACE + std::chrono::milliseconds(500));
    killsMeanwhile = session.Count(TERMINATE_FORMAT);
    request.SetCmdUInt("ST", 0);
  };
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 6U);
  std::ofstream(m_strArchive) << "data";
  Send(TRANSFER);
  begun.get_future().wait();
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(2));
  EXPECT_EQ(m_oSwitch.StatusOf(1), 0U);
  EXPECT_EQ(killsMeanwhile, 0);
  EXPECT_EQ(session.Count(TERMINATE_FORMAT), 1);
}

TEST_F(ModuleStopTest, ACollectorThatBeginsAfterTheGraceIsKilledToo) {
  InstallCollector(LONG_RUN);
  TraceSession session(3);
  std::promise<void> begins;
  session.CallAt("\nEM_TALVOR (Create)  : Create Talvor process; command line: %s", [&] {
    begins.set_value();
    std::this_thread::sleep_for(STOP_GRACE + std::chrono::milliseconds(500));
  });
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(CREATE);
  begins.get_future().wait();
  ExpectStopAfter(STOP_GRACE);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
  EXPECT_EQ(session.Count(TERMINATE_FORMAT), 1);
}

TEST_F(ModuleStopTest, AHandBackThatWaitsForStopGetsFiveMoreSeconds) {
  InstallCollector(GOOD_COLLECTOR);
  const size_t threads = CountThreads();
  std::promise<void> begun;
  std::promise<void> release;
  m_oSwitch.onAnswer = [&](SipJson& /*answer*/) {
    begun.set_value();
    release.get_future().wait_for(std::chrono::seconds(60));
  };
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(CREATE);
  begun.get_future().wait();
  ExpectStopAfter(STOP_GRACE + LAST_WAIT);
  EXPECT_TRUE(m_oSwitch.Answers().empty());
  auto releasing = std::async(std::launch::async, [&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    release.set_value();
  });
  EXPECT_EQ(DeleteModule(), 1U);  // waits for the worker
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(1));
  EXPECT_TRUE(HasOnlyThreads(threads));
}

TEST_F(ModuleStopTest, ACollectorThatCannotBeKilledGetsFiveMoreSeconds) {
  InstallCollector("touch \"$D/runs\"; while test ! -e \"$D/go\"; do sleep 0.1; done");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("kill", 0);
  Send(CREATE);
  ASSERT_TRUE(WaitForCollector());
  ExpectStopAfter(STOP_GRACE + LAST_WAIT);
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated (0x%08X)!\n"),
      1);
  EXPECT_TRUE(m_oSwitch.Answers().empty());
  std::ofstream(m_strDirectory + "go") << "go";
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);  // it has left no archive
}

TEST_F(ModuleStopTest, JobsThatHaveNotBegunAreDropped) {
  InstallCollector(SHORT_RUN);
  StartWithRunningCollector();
  Send(CREATE);
  Send(TRANSFER);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(1));
}

TEST_F(ModuleStopTest, AStoppedModuleQueuesNothingAndStillAnswersPending) {
  InstallCollector("");
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  m_pModule->Stop();
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
  EXPECT_EQ(
      session.Count("\nCTaskSerializer     : Manager locked for Tasks at level %d. Task ignored!"),
      1);
  EXPECT_EQ(Send(QUERY), std::make_pair(1U, 0U));
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_TRUE(m_oSwitch.Answers().empty());
}

TEST_F(ModuleStopTest, KillsTheIdOfAFailedRunAllTheSame) {
  InstallCollector("exit 2");
  ExpectLines(
      LinesWith("(Stop)"),
      {{1, TERMINATE},
       {1,
        "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated (0x00000003)!\n"}},
      [this](TraceSession& /*session*/) {
        ASSERT_EQ(StartAfresh(), 1U);
        EXPECT_EQ(Run(CREATE), 6U);
        EXPECT_EQ(m_pModule->Stop(), 1U);
      });
}

TEST_F(ModuleStopTest, WaitsForTheProcessThatHasTheIdOfAFailedRun) {
  if (!MayChooseIds()) {
    GTEST_SKIP() << "needs the right to choose process ids";
  }
  InstallCollector("echo $$ > \"$D/runs\"; exit 2");
  ExpectLines(LinesWith("(Stop)"),
              {{1, TERMINATE}, {1, "\nEM_TALVOR (Stop)    : Talvor process exit"}},
              [this](TraceSession& /*session*/) {
                ASSERT_EQ(StartAfresh(), 1U);
                EXPECT_EQ(Run(CREATE), 6U);
                int32_t pid = 0;
                std::ifstream(m_strDirectory + "runs") >> pid;
                ASSERT_TRUE(LeaveEndedChild(pid)) << pid;
                EXPECT_EQ(m_pModule->Stop(), 1U);
                EXPECT_FALSE(HasChildren());
              });
}

TEST_F(ModuleStopTest, TheIdOfAFailedRunIsForgottenByTheNextOne) {
  InstallCollector("test -e \"$D/runs\" && exec touch \"$archive\"; touch \"$D/runs\"; exit 2");
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 6U);
  EXPECT_EQ(Run(CREATE), 0U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(session.Count(NOT_RUNNING), 1);
}

TEST_F(ModuleStopTest, MayComeFromWithinTheHandBack) {
  InstallCollector(GOOD_COLLECTOR);
  uint32_t stopped = 0;
  m_oSwitch.onAnswer = [&](SipJson& /*answer*/) { stopped = m_pModule->Stop(); };
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 0U);
  EXPECT_EQ(stopped, 1U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(DeleteModule(), 1U);
}

TEST_F(ModuleStopTest, ASecondThreadWaitsForTheFirst) {
  InstallCollector(LONG_RUN);
  const TraceSession session(1);
  StartWithRunningCollector();
  auto second = std::async(std::launch::async, [this] { return m_pModule->Stop(); });
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(second.get(), 1U);
  constexpr char BEGIN[] = "\n### Stopping module %s ###\n";
  constexpr char END[] = "\n\n### Stop of module %s completed successfully ###";
  std::vector<std::string> formats = session.Formats();
  std::erase_if(formats,
                [&](const std::string& format) { return format != BEGIN && format != END; });
  EXPECT_THAT(formats, testing::ElementsAre(BEGIN, END, BEGIN, END));
}

TEST_F(ModuleStopTest, EndsACollectorThatRanBeforeASecondStart) {
  // Shows only once the launcher has stored the id too: what Start() cleared stays cleared.
  InstallCollector(std::string("sleep 0.3; ") + LONG_RUN);
  StartWithRunningCollector();
  EXPECT_EQ(m_pModule->Start(&m_oSwitch, 1), 1U);
  ExpectStopAfter(STOP_GRACE);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
}

TEST_F(ModuleStopTest, SignalsTheStopEventThatEachStartResetsAndTheDestructionCloses) {
  InstallCollector("");
  const TraceSession session(5);
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  constexpr char CREATING[] = "creating event ";
  std::string event;  // the second of two; the first one wakes the worker
  for (const std::string& text : session.Texts()) {
    if (text.starts_with(CREATING)) {
      event = text.substr(sizeof(CREATING) - 1, text.find(" <") - sizeof(CREATING) + 1);
    }
  }
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(m_pModule->Start(&m_oSwitch, 1), 1U);
    EXPECT_EQ(m_pModule->Stop(), 1U);
  }
  EXPECT_EQ(DeleteModule(), 1U);
  std::vector<std::string> texts = session.Texts();
  std::erase_if(texts, [&](const std::string& text) {
    return text.find(" event " + event + " ") == std::string::npos;
  });
  EXPECT_THAT(
      texts,
      testing::ElementsAre(
          "creating event " + event + " <anon> (IsSignaled=0)\n",
          "Set event " + event + " <anon> IsSignaled=0 --> IsSignaled=1\n",
          "Create event " + event +
              " <anon>, changing attributes (IsSignaled=1,IsManual=1) --> (IsSignaled=0,IsManual=1)\n",
          "Set event " + event + " <anon> IsSignaled=0 --> IsSignaled=1\n",
          "Close event " + event + " <anon> IsSignaled=1 --> IsSignaled=1\n",
          "deleting event " + event + " <anon> (IsSignaled=1)\n"));
}

TEST_F(ModuleStopTest, MayBeRepeated) {
  InstallCollector("");
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
}
