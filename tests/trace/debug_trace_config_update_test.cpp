#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/failing_new.h"
#include "tests/support/system_calls.h"
#include "tests/trace/trace_config_directory.h"
#include "trace/debug_trace_config.h"

namespace {

// Outlives the answers of a case.
std::atomic<time_t> g_now = 5000;

constexpr time_t OLD = 1000;
constexpr time_t NEWER = 2000;

std::string Global(const std::string& lines) { return "[GlobalDebugSettings]\n" + lines; }
std::string Module(const std::string& lines) { return "[EM_TALVOR]\n" + lines; }

// A client whose interval is ten seconds and whose last check is at second 5000.
class DebugTraceConfigUpdateTest : public TraceConfigDirectory {
 protected:
  void SetUp() override {
    TraceConfigDirectory::SetUp();
    if (!HasFatalFailure()) {
      Write("global_trace.ini", Global("DynamicUpdate=10\n"), OLD);
      Write("talvor.ini", Module("FileDebugLevel=3\nTraceFlags=9\n"), OLD);
      m_oClient.Load("EM_TALVOR");
      TraceAt(5000);
    }
  }

  // Any trace call of that second.
  void TraceAt(time_t now) {
    g_now = now;
    m_oClient.Trace(LEVEL_OF_NO_LINE, "line");
  }

  // True when a trace call of that second looks at the files.
  bool ChecksAt(time_t now) {
    const auto stats = calls::stat.Watch();
    TraceAt(now);
    return stats.GetCount() > 0;
  }

  static constexpr uint32_t LEVEL_OF_NO_LINE = 0xFFFFFFFF;

  const ScopedAnswer m_oTime = calls::time.Answer([](time_t* /*result*/) { return g_now.load(); });
};

TEST_F(DebugTraceConfigUpdateTest, TakesANewLevelTenSecondsAfterTheLastCheckAndNotEarlier) {
  Write("talvor.ini", Module("FileDebugLevel=5\nTraceFlags=0x11\nMemoryTracesFlag=7\n"), NEWER);
  TraceAt(5009);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 0x11U);
  EXPECT_EQ(m_oClient.GetMemoryTracesFlag(), 7U);
}

TEST_F(DebugTraceConfigUpdateTest, ChecksOnceInEachInterval) {
  EXPECT_FALSE(ChecksAt(5000));
  EXPECT_FALSE(ChecksAt(5009));
  EXPECT_TRUE(ChecksAt(5010));
  EXPECT_FALSE(ChecksAt(5010));
  EXPECT_FALSE(ChecksAt(5019));
  EXPECT_TRUE(ChecksAt(5025));
  EXPECT_FALSE(ChecksAt(5034));
  EXPECT_TRUE(ChecksAt(5035));
}

TEST_F(DebugTraceConfigUpdateTest, ChecksWhenTheClockWentBack) {
  EXPECT_TRUE(ChecksAt(4999));
  EXPECT_FALSE(ChecksAt(4999));
  EXPECT_FALSE(ChecksAt(5008));
  EXPECT_TRUE(ChecksAt(5009));
}

TEST_F(DebugTraceConfigUpdateTest, ChecksAtTheFirstCallAfterTheLoad) {
  CDebugClient client;
  client.Load("EM_TALVOR");
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  client.Trace(LEVEL_OF_NO_LINE, "line");
  EXPECT_EQ(client.GetDebugLevel(), 5U);
  client.Release();
}

TEST_F(DebugTraceConfigUpdateTest, NeverChecksWithoutAnInterval) {
  setenv("CV_LOG_DYNAMIC_UPDATE", "0", 1);
  m_oClient.Load("EM_TALVOR");
  EXPECT_FALSE(ChecksAt(1'000'000));
  EXPECT_FALSE(ChecksAt(1));
}

TEST_F(DebugTraceConfigUpdateTest, TakesAnIntervalOfMoreThan31BitsForLong) {
  setenv("CV_LOG_DYNAMIC_UPDATE", "4294967294", 1);
  m_oClient.Load("EM_TALVOR");
  EXPECT_FALSE(ChecksAt(1'000'000));
  EXPECT_TRUE(ChecksAt(5000 + 4294967294));
}

TEST_F(DebugTraceConfigUpdateTest, TakesTheIntervalFromANewerGlobalFile) {
  Write("global_trace.ini", Global("DynamicUpdate=20\n"), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
  EXPECT_FALSE(ChecksAt(5029));
  EXPECT_TRUE(ChecksAt(5030));
}

TEST_F(DebugTraceConfigUpdateTest, StopsForGoodWhenTheGlobalFileSaysNever) {
  for (const char* never : {"DynamicUpdate=0\n", "DynamicUpdate=0xFFFFFFFF\n"}) {
    Write("global_trace.ini", Global("DynamicUpdate=10\n"), OLD);
    m_oClient.Load("EM_TALVOR");
    Write("global_trace.ini", Global(never), NEWER);
    TraceAt(g_now + 10);
    EXPECT_EQ(m_oClient.GetDynamicUpdate(), 0U);
    EXPECT_FALSE(ChecksAt(1'000'000));
    g_now = 5010;
  }
}

TEST_F(DebugTraceConfigUpdateTest, PassesOverFilesThatAreNotNewer) {
  for (const time_t modified : {OLD, OLD - 1}) {
    Write("global_trace.ini", Global("DynamicUpdate=5\n; and some more bytes\n"), modified);
    Write("talvor.ini", Module("FileDebugLevel=5\n; and some more bytes\n"), modified);
    TraceAt(g_now + 10);
    EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
    EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  }
}

TEST_F(DebugTraceConfigUpdateTest, SeesAFileThatIsNewerByANanosecond) {
  Write("talvor.ini", Module("FileDebugLevel=5\n"), OLD, 1);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
}

// The year 2286: nanoseconds since the epoch do not fit 64 bits any more.
TEST_F(DebugTraceConfigUpdateTest, SeesAFileOfTheFarFuture) {
  Write("talvor.ini", Module("FileDebugLevel=5\n"), 10'000'000'000);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
  Write("talvor.ini", Module("FileDebugLevel=4\n"), NEWER, 999'999'999);
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U) << "it is older";
}

TEST_F(DebugTraceConfigUpdateTest, TakesALevelOfAllOnesForUnset) {
  Write("talvor.ini", Module("FileDebugLevel=0xFFFFFFFF\n"), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
}

TEST_F(DebugTraceConfigUpdateTest, KeepsALevelOfAllOnesOfTheEnvironmentThatNoFileNames) {
  setenv("CV_LOG_DEBUG_LEVEL", "4294967295", 1);
  m_oClient.Load("EM_TALVOR");
  Write("talvor.ini", Module(""), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), UINT32_MAX);
}

TEST_F(DebugTraceConfigUpdateTest, ReadsAFileThatAProfileWriterHoldsAtALaterCheck) {
  Write("global_trace.ini", Global("DynamicUpdate=20\n"), NEWER);
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  {
    const HeldConfigFile global(Path("global_trace.ini"));
    const HeldConfigFile module(Path("talvor.ini"));
    TraceAt(5010);
    EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
    EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  }
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
}

// The load may have met it half changed, and its modification time may not change any more.
TEST_F(DebugTraceConfigUpdateTest, ReadsAFileAgainThatAProfileWriterHeldAtTheFirstLoad) {
  CDebugClient client;
  {
    const HeldConfigFile module(Path("talvor.ini"));
    client.Load("EM_TALVOR");
  }
  Write("talvor.ini", Module("FileDebugLevel=5\n"), OLD);
  client.Trace(LEVEL_OF_NO_LINE, "line");
  EXPECT_EQ(client.GetDebugLevel(), 5U);
  client.Release();
}

TEST_F(DebugTraceConfigUpdateTest, RemembersTheModificationTimesOfTheLoad) {
  CDebugClient client;
  client.Load("EM_TALVOR");
  Write("global_trace.ini", Global("DynamicUpdate=5\n"), OLD);
  Write("talvor.ini", Module("FileDebugLevel=5\n"), OLD);
  client.Trace(LEVEL_OF_NO_LINE, "line");
  EXPECT_EQ(client.GetDynamicUpdate(), 10U);
  EXPECT_EQ(client.GetDebugLevel(), 3U);
  client.Release();
}

TEST_F(DebugTraceConfigUpdateTest, RemembersTheNewModificationTimes) {
  Write("global_trace.ini", Global("DynamicUpdate=11\n"), NEWER);
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  TraceAt(5010);
  Write("global_trace.ini", Global("DynamicUpdate=12\n"), NEWER);
  Write("talvor.ini", Module("FileDebugLevel=4\n"), NEWER);
  TraceAt(5021);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 11U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
}

TEST_F(DebugTraceConfigUpdateTest, KeepsWhatANewerFileDoesNotName) {
  Write("talvor.ini", Module("FileDebugLevel=3\nTraceFlags=9\nMemoryTracesFlag=7\n"), NEWER);
  TraceAt(5010);
  Write("global_trace.ini", Global(""), NEWER + 1);
  Write("talvor.ini", Module(""), NEWER + 1);
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
  EXPECT_EQ(m_oClient.GetMemoryTracesFlag(), 7U);
}

TEST_F(DebugTraceConfigUpdateTest, KeepsEverythingWhenTheSectionsOrFilesAreGone) {
  Write("global_trace.ini", "[OTHER]\nDynamicUpdate=1\n", NEWER);
  Write("talvor.ini", "[OTHER]\nFileDebugLevel=1\n", NEWER);
  TraceAt(5010);
  std::filesystem::remove_all(Path(""));
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
}

TEST_F(DebugTraceConfigUpdateTest, ReadsTheModulesSectionOnlyFromTheFileOfTheLoad) {
  Write("a.ini", Module("FileDebugLevel=1\n"), NEWER);
  Write("zzz.ini", Module("FileDebugLevel=2\n"), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
}

TEST_F(DebugTraceConfigUpdateTest, ForgetsAFileWhoseSectionWasGoneAtTheLastLoad) {
  Write("talvor.ini", "", OLD);
  m_oClient.Load("EM_TALVOR");
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
}

TEST_F(DebugTraceConfigUpdateTest, SeesAGlobalFileThatComesLater) {
  std::filesystem::remove(Path("global_trace.ini"));
  setenv("CV_LOG_DYNAMIC_UPDATE", "10", 1);
  m_oClient.Load("EM_TALVOR");
  Write("global_trace.ini", Global("DynamicUpdate=20\n"), OLD);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
}

TEST_F(DebugTraceConfigUpdateTest, LevelLoweredToZeroCanBeRaisedAgain) {
  Write("talvor.ini", Module("FileDebugLevel=0\n"), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
  EXPECT_TRUE(m_oClient.IsEnabled());
  Write("talvor.ini", Module("FileDebugLevel=4\n"), NEWER + 1);
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 4U);
}

TEST_F(DebugTraceConfigUpdateTest, NewerFileHoldsOverTheEnvironment) {
  setenv("CV_LOG_DEBUG_LEVEL", "1", 1);
  setenv("CV_LOG_DYNAMIC_UPDATE", "5", 1);
  m_oClient.Load("EM_TALVOR");
  Write("global_trace.ini", Global("DynamicUpdate=20\n"), NEWER);
  Write("talvor.ini", Module("FileDebugLevel=4\n"), NEWER);
  TraceAt(5010);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 4U);
}

TEST_F(DebugTraceConfigUpdateTest, RunsWithoutAnyFileAtTheLoad) {
  CDebugClient client;
  std::filesystem::remove_all(Path(""));
  setenv("CV_LOG_DYNAMIC_UPDATE", "10", 1);
  setenv("CV_LOG_DEBUG_LEVEL", "2", 1);
  client.Load("");
  g_now = 5010;
  client.Trace(LEVEL_OF_NO_LINE, "line");
  EXPECT_EQ(client.GetDebugLevel(), 2U);
  EXPECT_EQ(client.GetDynamicUpdate(), 10U);
  client.Release();
}

TEST_F(DebugTraceConfigUpdateTest, NeverReadsAgainAfterRelease) {
  m_oClient.Release();
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  EXPECT_FALSE(ChecksAt(5010));
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
}

TEST_F(DebugTraceConfigUpdateTest, KeepsTheSettingsWhenMemoryRunsOut) {
  Write("global_trace.ini", Global("DynamicUpdate=20\n"), NEWER);
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  FailingNew memory(0);
  TraceAt(5010);
  memory.Stop();
  EXPECT_TRUE(memory.HasFailed());
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U) << "the next check takes them";
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
}

TEST_F(DebugTraceConfigUpdateTest, ReadsAFileLaterThatCannotBeReadNow) {
  Write("global_trace.ini", Global("DynamicUpdate=20\n"), NEWER);
  Write("talvor.ini", Module("FileDebugLevel=5\n"), NEWER);
  {
    const auto failing = calls::read.Fail(EIO);
    TraceAt(5010);
  }
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
  TraceAt(5020);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
}

TEST_F(DebugTraceConfigUpdateTest, LoadsAndReleasesWhileOtherThreadsTrace) {
  constexpr int THREADS = 3;
  std::atomic<bool> isOver = false;
  std::vector<std::thread> threads;
  threads.reserve(THREADS);
  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([&] {
      while (!isOver) {
        TraceAt(g_now + 10);
        m_oClient.Trace(0x7FFFFFFF, "%s", m_oClient.GetModuleName());
      }
    });
  }
  for (int i = 1; i <= 100; ++i) {
    Write("talvor.ini", Module("FileDebugLevel=" + std::to_string(i) + "\n"), NEWER + i);
    if (i % 3 == 0) {
      m_oClient.Release();
    }
    m_oClient.Load(i % 2 == 0 ? "EM_TALVOR" : "em_talvor");
    EXPECT_EQ(m_oClient.GetDebugLevel(), static_cast<uint32_t>(i));
  }
  isOver = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
