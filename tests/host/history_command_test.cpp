#include "host/commands.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/run_history.h"
#include "tests/host/host_program.h"
#include "tests/support/built_files.h"

namespace {

constexpr char HISTORY_HEAD[] = "start (UTC)             duration      archive       memory  end\n";

class HistoryCommandTest : public testing::Test {
 protected:
  ~HistoryCommandTest() override { std::filesystem::remove_all(Directory()); }

  static std::filesystem::path Directory() {
    return std::filesystem::path(HISTORY_FILE).parent_path();
  }

  static void WriteHistory(const std::string& lines) {
    std::filesystem::create_directories(Directory());
    std::ofstream(HISTORY_FILE) << lines;
  }

  static HostResult History(const std::vector<std::string>& arguments = {}) {
    std::vector<std::string> command = {EM_HOST, "history"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Program program(command);
    const int exitCode = program.Wait();
    return {exitCode, program.Output(), program.Errors()};
  }

  // What is shown as the end of a run; the numbers are JSON.
  static std::string EndOf(const std::string& ended, const std::string& exitStatus = "null",
                           const std::string& signal = "null") {
    WriteHistory(R"({"start":"","exit":)" + exitStatus + R"(,"signal":)" + signal +
                 R"(,"ended":")" + ended + "\"}\n");
    const std::string output = History().output;
    return output.substr(output.find_last_of('-') + 3);  // the memory is unknown
  }
};

}  // namespace

TEST_F(HistoryCommandTest, ShowsWhatIsKnownOfEachRun) {
  WriteHistory(
      R"({"start":"2026-11-22T03:56:57.123Z","duration":1.94,"size":2621440,"exit":0,"signal":null,)"
      R"("ended":"done","memory":3145728})"
      "\n"
      R"({"start":"2026-11-22T04:00:00.000Z","duration":null,"size":null,"exit":null,"signal":null,)"
      R"("ended":"killed","memory":null})"
      "\n");
  const HostResult result = History();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            std::string(HISTORY_HEAD) +
                "2026-11-22 03:56:57      1.9 s      2.5 MiB      3.0 MiB  done\n"
                "2026-11-22 04:00:00          -            -            -  killed with the guard, "
                "as a stop of the agent does\n");
}

TEST_F(HistoryCommandTest, TellsWhatEndedARun) {
  EXPECT_EQ(EndOf("time"), "ended: it ran longer than RUN_TIME\n");
  EXPECT_EQ(EndOf("space"), "ended: less than FREE_SPACE was free\n");
  EXPECT_EQ(EndOf("memory"), "ended: it needed more than MEMORY\n");
  EXPECT_EQ(EndOf("stopped"), "ended: the guard got a signal\n");
  EXPECT_EQ(EndOf("missing"), "failed: it left no archive\n");
  EXPECT_EQ(EndOf("empty"), "failed: the archive was empty\n");
  EXPECT_EQ(EndOf("broken"), "failed: the archive could not be read to its end\n");
  EXPECT_EQ(EndOf("large"), "failed: the archive was larger than ARCHIVE_SIZE\n");
  EXPECT_EQ(EndOf("unsaved"),
            "failed: the archive could not be flushed to the disk or got no checksum\n");
  EXPECT_EQ(EndOf("hung"), "failed: it hangs in the kernel and could not be ended\n");
  EXPECT_EQ(EndOf("exit", "3"), "failed: exit status 3\n");
  EXPECT_EQ(EndOf("signal", "null", "11"), "failed: signal 11 ended it\n");
}

// Such as one of a later version.
TEST_F(HistoryCommandTest, ShowsAnUnknownEndAsItIs) { EXPECT_EQ(EndOf("bored"), "bored\n"); }

TEST_F(HistoryCommandTest, SkipsInvalidLines) {
  const std::string run = R"({"start":"2026-11-22T03:56:57.123Z","ended":"done"})";
  WriteHistory("no JSON\n[]\n" + run + "\n");
  EXPECT_EQ(History().output,
            std::string(HISTORY_HEAD) +
                "2026-11-22 03:56:57          -            -            -  done\n");
  EXPECT_EQ(History({"--json"}).output, run + "\n");
}

TEST_F(HistoryCommandTest, AHistoryThatCannotBeReadIsAnError) {
  std::filesystem::create_directories(HISTORY_FILE);
  const HostResult result = History();
  EXPECT_EQ(result.exitCode, 66);
  EXPECT_EQ(result.output, "");
  EXPECT_TRUE(
      result.errors.starts_with("em_host: The history /var/lib/em-talvor/history.jsonl "
                                "cannot be read ("))
      << result.errors;
  EXPECT_TRUE(result.errors.ends_with("): run em_host as root, or repair the file.\n"))
      << result.errors;
}
