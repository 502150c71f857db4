// What the job makes of a launcher that reports success although the collector failed. The one of
// this system never does, so another stands in for it.

#include <gtest/gtest.h>

#include <atomic>

#include "archive_module/em_talvor.h"
#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/trace_session.h"

namespace {

int32_t g_nExitCode = 0;

class CollectorOutcomeTest : public ModuleHost {
 protected:
  // Expects a creation whose collector "succeeds" with that exit code to fail, with that line.
  void ExpectFailure(int32_t exitCode, const std::string& line) {
    InstallCollector("");
    g_nExitCode = exitCode;
    ExpectLines(LinesWith("Talvor archive process"), {{2, line}},
                [this](TraceSession& /*session*/) {
                  m_switch.Forget();
                  EM_TALVOR module;
                  ASSERT_EQ(module.Start(&m_switch, 1), 1U);
                  SipJson request = MakeRequest(CREATE);
                  EXPECT_EQ(module.ModuleRequest(request), 1U);
                  EXPECT_EQ(m_switch.StatusOf(0), 6U);
                  EXPECT_EQ(module.Stop(), 1U);
                });
  }
};

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's name.
extern "C" bool __wrap__Z10RunProgramPKcRSt6atomicIiERiS0_bb(
    const char* /*program*/, std::atomic<int32_t>& pid, int32_t& exitCode,
    const char* /*workingDirectory*/, bool /*reserved*/, bool /*keepDescriptors*/) {
  pid = INT32_MAX;  // nobody's
  exitCode = g_nExitCode;
  return true;
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
