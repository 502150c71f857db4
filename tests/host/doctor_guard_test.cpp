// What doctor says of the guard and of its history.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/run_history.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

class DoctorGuardTest : public HostProgramTest {
 protected:
  DoctorGuardTest() { InstallCollector(""); }
  ~DoctorGuardTest() override {
    std::filesystem::remove_all("/etc/em-talvor");
    std::filesystem::remove_all(HistoryDirectory());
  }

  static std::filesystem::path HistoryDirectory() {
    return std::filesystem::path(HISTORY_FILE).parent_path();
  }

  // A line of the history; size in MiB.
  static std::string RunLine(int duration, int64_t size, const std::string& ended) {
    constexpr int64_t BYTES = 1'048'576;
    return R"({"start":"2026-11-22T03:56:57.123Z","duration":)" + std::to_string(duration) +
           R"(,"size":)" + std::to_string(size * BYTES) + R"(,"ended":")" + ended + "\"}\n";
  }

  static HostResult DoctorAfter(const std::string& history) {
    std::filesystem::create_directories(HistoryDirectory());
    std::ofstream(HISTORY_FILE) << history;
    return Host("doctor", {});
  }
};

}  // namespace

TEST_F(DoctorGuardTest, ARunAsLongAsABmcWaitsIsInTime) {
  const HostResult result = DoctorAfter(RunLine(360, 1, "done"));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, HasSubstr("ok     last durations  The longest of the last 1 took 360 "
                                       "seconds; BMCs commonly wait for 360.\n"));
}

TEST_F(DoctorGuardTest, TheLongestOfTheLastFiveRunsCounts) {
  std::string history;
  for (const int duration : {900, 400, 1, 1, 1, 1}) {
    history += RunLine(duration, 1, "done");
  }
  const HostResult result = DoctorAfter(history);
  EXPECT_EQ(result.exitCode, 78);
  EXPECT_THAT(result.output, HasSubstr("warn   last durations  The longest of the last 5 took 400 "
                                       "seconds; BMCs commonly wait for 360. Look at"));
}

TEST_F(DoctorGuardTest, TheLastArchiveThatWasKeptTellsWhatTheNextOneNeeds) {
  const HostResult result = DoctorAfter(RunLine(1, 1 << 20, "done") + RunLine(1, 1, "done") +
                                        RunLine(1, 1 << 20, "large"));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, ContainsRegex("\nok     last archive    It had 1.0 MiB, and "
                                           "[0-9.]+ MiB are free where the next one goes.\n"));
}

// The next creation makes it.
TEST_F(DoctorGuardTest, ADataDirectoryThatIsNotThereYetHasRoomToo) {
  WriteRegistry(m_oFiles.Path(), m_oFiles.Path("new/data"));
  const HostResult result = DoctorAfter(RunLine(1, 1, "done"));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, HasSubstr("\nok     last archive    It had 1.0 MiB, and "));
}

TEST_F(DoctorGuardTest, AHistoryThatCannotBeReadIsAWarning) {
  std::filesystem::create_directories(HISTORY_FILE);
  const HostResult result = Host("doctor", {});
  EXPECT_EQ(result.exitCode, 78);
  EXPECT_THAT(result.output, HasSubstr("warn   guard           The history "));
}

TEST_F(DoctorGuardTest, WhatTheSettingsLeaveOutIsRight) {
  Program on({EM_HOST, "guard", "on"});
  EXPECT_EQ(on.Wait(), 0);
  std::filesystem::create_directories("/etc/em-talvor");
  std::ofstream("/etc/em-talvor/guard.conf") << "RUN_TIME=0\n";
  EXPECT_THAT(Host("doctor", {}).output,
              HasSubstr("ok     guard, run time Left out by the settings: RUN_TIME is 0.\n"));
}
