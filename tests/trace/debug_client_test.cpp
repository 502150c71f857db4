#include "trace/debug_client.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/trace_session.h"
#include "tests/trace/taken_system_log.h"

namespace {

constexpr uint32_t LARGEST_LEVEL = 0xFFFFFFFF;

void ChangeErrno() { errno = EPIPE; }

void TraceLines(uint32_t first, uint32_t last) {
  for (uint32_t level = first; level <= last; ++level) {
    g_oDebugClient.Trace(level, "line %u", level);
  }
}

TEST(DebugClientTest, WritesALineAtItsLevelAndDropsItBelow) {
  {
    const TraceSession session(2);
    DEBUG_TRACE(3, "line of level 3");
    EXPECT_EQ(session.Count("line of level 3"), 0);
  }
  const TraceSession session(3);
  DEBUG_TRACE(3, "line of level 3");
  EXPECT_EQ(session.Count("line of level 3"), 1);
}

TEST(DebugClientTest, WritesTheLinesUpToTheLevel) {
  const TraceSession session(4);
  TraceLines(1, 7);
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"line 1", "line 2", "line 3", "line 4"}));
}

TEST(DebugClientTest, ComparesLevelsWithoutSign) {
  {
    const TraceSession session(5);
    g_oDebugClient.Trace(0x80000000, "high");
    g_oDebugClient.Trace(LARGEST_LEVEL, "highest");
    EXPECT_EQ(session.Lines().size(), 0U);
  }
  const TraceSession session(LARGEST_LEVEL);
  g_oDebugClient.Trace(1, "low");
  g_oDebugClient.Trace(LARGEST_LEVEL, "highest");
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"low", "highest"}));
}

TEST(DebugClientTest, HandsFormatAndArgumentsAndModuleNameToTheSink) {
  const TraceSession session(1);
  DEBUG_TRACE(1, "\n%d %s %.1f %llx", 7, "x", 1.5, 0x123456789ABCDEFULL);
  ASSERT_EQ(session.Lines().size(), 1U);
  EXPECT_EQ(session.Lines()[0].format, "\n%d %s %.1f %llx");
  EXPECT_EQ(session.Lines()[0].text, "\n7 x 1.5 123456789abcdef");
  EXPECT_EQ(session.Lines()[0].moduleName, "EM_TALVOR");
}

TEST(DebugClientTest, HandsALineOfLevelZeroToSinkAndSystemLogWithItsArgumentsIntact) {
  TakenSystemLog log;
  const TraceSession session(1);
  DEBUG_TRACE(0, "\n\nnumber %d and %s", 7, "text");
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"\n\nnumber 7 and text"}));
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].text, "number 7 and text");
}

TEST(DebugClientTest, SinkThatThrowsCannotKeepALineOfLevelZeroFromTheSystemLog) {
  TakenSystemLog log;
  TraceSession session(1);
  session.ThrowAt("line");
  EXPECT_THROW(DEBUG_TRACE(0, "line"), std::runtime_error);
  EXPECT_EQ(log.entries.size(), 1U);
}

TEST(DebugClientTest, WritesALineOfLevelZeroWhileTheLevelIsZero) {
  TakenSystemLog log;
  const TraceSession session(0);
  g_oDebugClient.Trace(0, "line");
  g_oDebugClient.Trace(1, "line");
  EXPECT_EQ(session.Count("line"), 1);
}

TEST(DebugClientTest, HandsOutAnEmptyModuleNameWhenThereIsNone) {
  const TraceSession session(1);
  g_oDebugClient.Release();
  DEBUG_TRACE(1, "line");
  g_oDebugClient.Print("plain");
  ASSERT_EQ(session.Lines().size(), 2U);
  EXPECT_EQ(session.Lines()[0].moduleName, "");
  EXPECT_EQ(session.Lines()[1].moduleName, "");
}

TEST(DebugClientTest, MacroEvaluatesNothingWhileTracingIsOff) {
  int evaluations = 0;
  {
    const TraceSession session(0);
    DEBUG_TRACE(0, "line %d", ++evaluations);
    DEBUG_TRACE_NOTHROW(0, "line %d", ++evaluations);
    EXPECT_EQ(session.Lines().size(), 0U);
  }
  EXPECT_EQ(evaluations, 0);
  const TraceSession session(1);
  DEBUG_TRACE(1, "line %d", ++evaluations);
  DEBUG_TRACE_NOTHROW(1, "line %d", ++evaluations);
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"line 1", "line 2"}));
}

// NOLINTBEGIN(readability-braces-around-statements): the braces would hide what this shows
TEST(DebugClientTest, MacroIsOneStatement) {
  const TraceSession session(1);
  if (session.Lines().empty())
    DEBUG_TRACE(1, "then");
  else
    DEBUG_TRACE_NOTHROW(1, "else");
  if (session.Lines().empty())
    DEBUG_TRACE_NOTHROW(1, "then");
  else
    DEBUG_TRACE(1, "else");
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"then", "else"}));
}
// NOLINTEND(readability-braces-around-statements)

TEST(DebugClientTest, KeepsErrnoInEveryOperation) {
  TraceSession session(1);
  session.CallAt("line", ChangeErrno);
  errno = ENOENT;
  DEBUG_TRACE(1, "line");
  EXPECT_EQ(errno, ENOENT);
  DEBUG_TRACE_NOTHROW(1, "line");
  EXPECT_EQ(errno, ENOENT);
  g_oDebugClient.Print("line");
  EXPECT_EQ(errno, ENOENT);
  g_oDebugClient.PrintFor(0, "line");
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(session.Count("line"), 4);
}

TEST(DebugClientTest, KeepsErrnoWhenTheSinkThrows) {
  TraceSession session(1);
  session.CallAt("line", [] {
    ChangeErrno();
    throw std::runtime_error("sink");
  });
  errno = ENOENT;
  EXPECT_THROW(DEBUG_TRACE(1, "line"), std::runtime_error);
  EXPECT_EQ(errno, ENOENT);
  DEBUG_TRACE_NOTHROW(1, "line");
  EXPECT_EQ(errno, ENOENT);
}

TEST(DebugClientTest, LetsAnExceptionOfTheSinkReachTheCaller) {
  TraceSession session(1);
  session.ThrowAt("line %d");
  EXPECT_THROW(DEBUG_TRACE(1, "line %d", 1), std::runtime_error);
  EXPECT_THROW(g_oDebugClient.Print("line %d", 1), std::runtime_error);
  EXPECT_THROW(g_oDebugClient.PrintFor(0, "line %d", 1), std::runtime_error);
  DEBUG_TRACE(1, "next");
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"next"}));
}

TEST(DebugClientTest, NothrowMacroSwallowsAnExceptionOfTheSink) {
  TraceSession session(1);
  session.ThrowAt("line %d");
  EXPECT_NO_THROW(DEBUG_TRACE_NOTHROW(1, "line %d", 1));
  EXPECT_FALSE(CTraceShield::IsUp());
  DEBUG_TRACE(1, "next");
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"next"}));
}

TEST(DebugClientTest, NothrowMacroKeepsTheLevels) {
  EXPECT_EQ(LevelOf("line", [] { DEBUG_TRACE_NOTHROW(4, "line"); }), 4U);
}

TEST(DebugClientTest, PrintsWhateverTheLevel) {
  const TraceSession session(0);
  g_oDebugClient.Print("plain %d", 1);
  g_oDebugClient.PrintFor(4711, "plain %d", 2);
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"plain 1", "plain 2"}));
}

TEST(DebugClientTest, TakesLinesOfManyThreads) {
  constexpr int THREADS = 4;
  constexpr int LINES = 50;
  const TraceSession session(5);
  std::vector<std::thread> threads;
  threads.reserve(THREADS);
  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([] {
      for (int line = 0; line < LINES; ++line) {
        DEBUG_TRACE(5, "line %d", line);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(session.Count("line %d"), THREADS * LINES);
}

}  // namespace
