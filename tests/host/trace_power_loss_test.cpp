// What a change of the trace settings leaves when the machine loses power, or the process its life.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/trace_settings.h"
#include "tests/support/disk_recorder.h"
#include "tests/support/forgotten_flush.h"
#include "tests/support/stepped_child.h"
#include "trace/config_files.h"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::Not;

namespace fs = std::filesystem;

struct TraceStart {
  const char* name;
  const char* file;
  const char* text;  // null: there is not even a directory
};

void PrintTo(const TraceStart& start, std::ostream* stream) { *stream << start.name; }

// A file of the configuration and its text; nothing when there is none, or an empty one.
using Configuration = std::vector<std::pair<std::string, std::string>>;

class TracePowerLossTest : public testing::TestWithParam<TraceStart> {
 protected:
  TracePowerLossTest() {
    fs::remove_all(TOP);
    if (GetParam().text != nullptr) {
      fs::create_directories(TRACE_CONFIG_DIRECTORY);
      std::ofstream(std::string(TRACE_CONFIG_DIRECTORY) + "/" + GetParam().file) << GetParam().text;
    }
  }
  ~TracePowerLossTest() override { fs::remove_all(TOP); }

  static void SetLevel() {
    SteppedChild::Begin();
    StoreTraceLevel(3);
  }

  // As agents find it.
  static Configuration Read() {
    Configuration files;
    for (const std::string& path : ListTraceConfigFiles()) {
      std::ifstream file(path);
      const std::string text{std::istreambuf_iterator<char>(file), {}};
      if (!text.empty()) {
        files.emplace_back(path, text);
      }
    }
    return files;
  }

  static std::vector<Configuration> ReadEach(const DiskRecorder& disk,
                                             const DiskRecorder::Survivors& survivors) {
    std::vector<Configuration> all;
    for (const LossyDisk::Files& files : survivors) {
      disk.Restore(files);
      all.push_back(Read());
    }
    return all;
  }

  static constexpr char TOP[] = "/etc/orvane";
};

INSTANTIATE_TEST_SUITE_P(
    Trace, TracePowerLossTest,
    testing::Values(TraceStart{"NoDirectory", "", nullptr},
                    TraceStart{"NoSection", "global_trace.ini", "[EM_OTHER]\n\nFileDebugLevel=1\n"},
                    TraceStart{"Section", "a.ini",
                               "[EM_TALVOR]\n\nFileDebugLevel=10\n\n[EM_OTHER]\nx=1\n"}),
    [](const testing::TestParamInfo<TraceStart>& start) { return start.param.name; });

TEST_P(TracePowerLossTest, AnyMomentOfAChangeLeavesTheOldOrTheNewSettings) {
  const Configuration before = Read();
  DiskRecorder disk(TOP);
  const DiskRecorder::Survivors survivors = disk.Run(SetLevel);
  std::cout << survivors.size() << " states\n";
  const Configuration after = Read();
  EXPECT_EQ(ReadTraceSettings().level, 3U);
  EXPECT_THAT(ReadEach(disk, survivors), Each(AnyOf(before, after)));
}

TEST_P(TracePowerLossTest, EndOfAChangeLeavesTheNewSettings) {
  DiskRecorder disk(TOP);
  disk.Run(SetLevel);
  const Configuration after = Read();
  EXPECT_THAT(ReadEach(disk, disk.GetSurvivors()), Each(after));
}

// --- Faults that the tests above are to find ---

TEST_P(TracePowerLossTest, ChangeThatForgotToFlushItsFileIsFound) {
  const auto fault = ForgetFlush(Forgotten::FILES);
  const Configuration before = Read();
  DiskRecorder disk(TOP);
  const DiskRecorder::Survivors survivors = disk.Run(SetLevel);
  const Configuration after = Read();
  EXPECT_THAT(ReadEach(disk, survivors), Contains(Not(AnyOf(before, after))));
}

TEST_P(TracePowerLossTest, ChangeThatForgotToFlushADirectoryIsFound) {
  const auto fault = ForgetFlush(Forgotten::DIRECTORIES);
  const Configuration before = Read();
  DiskRecorder disk(TOP);
  disk.Run(SetLevel);
  EXPECT_THAT(ReadEach(disk, disk.GetSurvivors()), Contains(before));
}

}  // namespace
