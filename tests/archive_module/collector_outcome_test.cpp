// A job and its end when the launcher and the kill, which are replaced here, do what the real ones
// do rarely or never.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "archive_module/em_talvor.h"
#include "platform/process/process_control.h"
#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char NOT_IN_TIME[] =
    "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated in time or WaitForExit() failed!\n";

// Replaces the launcher.
std::function<bool(std::atomic<int32_t>& pid, int32_t& exitCode)> g_fnRun;

class CollectorOutcomeTest : public ModuleHost {
 protected:
  // Expects a creation whose collector "succeeds" with that exit code to fail, with that line.
  void ExpectFailure(int32_t exitCode, const std::string& line) {
    InstallCollector("");
    g_fnRun = [exitCode](std::atomic<int32_t>& /*pid*/, int32_t& code) {
      code = exitCode;
      return true;
    };
    ExpectLines(LinesWith("Talvor archive process"), {{2, line}},
                [this](TraceSession& /*session*/) {
                  m_oSwitch.Forget();
                  EM_TALVOR module;
                  ASSERT_EQ(module.Start(&m_oSwitch, 1), 1U);
                  SipJson request = MakeRequest(CREATE);
                  EXPECT_EQ(module.ModuleRequest(request), 1U);
                  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
                  EXPECT_EQ(module.Stop(), 1U);
                });
  }
};

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's name.
extern "C" bool __wrap__Z10RunProgramPKcRSt6atomicIiERiS0_bb(
    const char* /*program*/, std::atomic<int32_t>& pid, int32_t& exitCode,
    const char* /*workingDirectory*/, bool /*reserved*/, bool /*keepDescriptors*/) {
  return g_fnRun(pid, exitCode);
}

TEST_F(CollectorOutcomeTest, AnExitCodeWithBit7StandsForASignal) {
  ExpectFailure(0x80 + 9,
                "\nEM_TALVOR (Create)  : ## Talvor archive process was killed by signal 9!");
}

TEST_F(CollectorOutcomeTest, AnyOtherExitCodeIsAnErrorOfTheCollector) {
  ExpectFailure(
      17,
      "\nEM_TALVOR (Create)  : ## ERROR! Talvor archive process was terminated unsuccessfully; process exit code = 17 (0x11)!");
}

// The launcher has not stored an id yet when the grace period is over.
TEST_F(CollectorOutcomeTest, TheIdOfAFailedRunIsNoneOfTheNextOne) {
  InstallCollector("");
  const TraceSession session(1);
  std::promise<void> begun;
  int killsMeanwhile = -1;
  g_fnRun = [&](std::atomic<int32_t>& pid, int32_t& /*exitCode*/) {
    if (m_oSwitch.Answers().empty()) {
      pid = INT32_MAX;  // nobody's
      return false;
    }
    begun.set_value();
    std::this_thread::sleep_for(STOP_GRACE + std::chrono::milliseconds(500));
    killsMeanwhile = session.Count(TERMINATE_FORMAT);
    return true;
  };
  EM_TALVOR module;
  ASSERT_EQ(module.Start(&m_oSwitch, 1), 1U);
  for (const size_t answers : {0U, 1U}) {
    SipJson request = MakeRequest(CREATE);
    EXPECT_EQ(module.ModuleRequest(request), 1U);
    EXPECT_TRUE(answers > 0 || m_oSwitch.StatusOf(answers) == 6U);
  }
  begun.get_future().wait();
  EXPECT_EQ(module.Stop(), 1U);
  EXPECT_EQ(killsMeanwhile, 0);
}

// Like a process in a system call that cannot be interrupted.
TEST_F(CollectorOutcomeTest, ACollectorThatTheKillDoesNotEndIsNotWaitedForWithoutLimit) {
  InstallCollector("");
  TraceSession session(1);
  std::chrono::steady_clock::time_point reported;
  session.CallAt(NOT_IN_TIME, [&] { reported = std::chrono::steady_clock::now(); });
  std::atomic<int32_t> collector = 0;
  ASSERT_TRUE(StartProcess("sleep 60", collector, nullptr, false, false));
  std::promise<void> begun;
  std::promise<void> end;
  auto killing = calls::kill.Answer([](pid_t /*pid*/, int /*signal*/) { return 0; });
  g_fnRun = [&](std::atomic<int32_t>& pid, int32_t& /*exitCode*/) {
    pid = collector.load();
    begun.set_value();
    end.get_future().wait();
    return false;
  };
  {
    EM_TALVOR module;
    ASSERT_EQ(module.Start(&m_oSwitch, 1), 1U);
    SipJson request = MakeRequest(CREATE);
    EXPECT_EQ(module.ModuleRequest(request), 1U);
    begun.get_future().wait();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(module.Stop(), 1U);
    const auto time = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(time, std::chrono::milliseconds(7100));
    EXPECT_LT(time, std::chrono::seconds(30));
    EXPECT_EQ(session.Count(TERMINATE_FORMAT), 1);
    EXPECT_EQ(session.Count(NOT_IN_TIME), 1);
    EXPECT_GE(reported - begin, STOP_GRACE + std::chrono::milliseconds(2000));
    end.set_value();
  }
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
  killing.End();
  int32_t exitCode = 0;
  EXPECT_TRUE(KillProcess(collector, true));
  EXPECT_FALSE(WaitProcess(collector, exitCode, 0));
}
