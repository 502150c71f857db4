// Two changes of the trace settings at once, in every order of their system calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/trace_settings.h"
#include "tests/support/interleaving.h"
#include "tests/support/stepped_child.h"
#include "tests/support/system_calls.h"
#include "trace/config_files.h"

namespace {

namespace fs = std::filesystem;
using testing::Each;

Interleavings::Action Change(void (*store)(uint32_t number), uint32_t number) {
  return [store, number] {
    SteppedChild::Begin();
    try {
      store(number);
      return 0;
    } catch (const std::exception&) {
      return 1;
    }
  };
}

class TraceSaversTest : public testing::TestWithParam<bool> {
 protected:
  // With a file, or without even its directory.
  static void Prepare() {
    fs::remove_all("/etc/orvane");
    if (GetParam()) {
      fs::create_directories(TRACE_CONFIG_DIRECTORY);
      std::ofstream(TRACE_GLOBAL_FILE) << "[EM_TALVOR]\n\nFileDebugLevel=1\n";
    }
  }

  // Whether both changes are there, and nothing besides the file.
  static bool AreBothKept() {
    const TraceSettings settings = ReadTraceSettings();
    const auto count = std::distance(fs::directory_iterator(TRACE_CONFIG_DIRECTORY), {});
    return settings.level == 3 && settings.interval == 20 && count == 1;
  }

  ~TraceSaversTest() override { fs::remove_all("/etc/orvane"); }

  const Interleavings m_oChanges{{Change(StoreTraceLevel, 3), Change(StoreTraceInterval, 20)}};
};

INSTANTIATE_TEST_SUITE_P(Trace, TraceSaversTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& hasFile) {
                           return hasFile.param ? "File" : "NoDirectory";
                         });

TEST_P(TraceSaversTest, BothChangesAreKept) {
  const auto check = [](const InterleavedRun& run) {
    EXPECT_THAT(run.exitCodes, Each(0)) << run.schedule;
    EXPECT_TRUE(AreBothKept()) << run.schedule;
  };
  // A change makes so many calls that one switch less takes as long as elsewhere.
  EXPECT_GT(m_oChanges.Try(std::max(1, GetSwitches() - 1), Prepare, check), 10);
}

// A fault that the test above is to find.
TEST_P(TraceSaversTest, ChangesThatTakeNoLockAreFound) {
  const auto fault = calls::flock.Answer([](int, int) { return 0; });
  int lost = 0;
  m_oChanges.Try(1, Prepare, [&lost](const InterleavedRun&) { lost += AreBothKept() ? 0 : 1; });
  EXPECT_GT(lost, 0);
}

}  // namespace
