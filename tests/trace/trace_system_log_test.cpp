#include "trace/trace_system_log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/trace/taken_system_log.h"
#include "trace/debug_client.h"

namespace {

using Entry = TakenSystemLog::Entry;

[[gnu::format(printf, 1, 2)]] void Write(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  WriteTraceToSystemLog(format, arguments);
  va_end(arguments);
}

class TraceSystemLogTest : public testing::Test {
 protected:
  // The entry that a call leaves, which is the only new one.
  template <typename Action>
  Entry EntryOf(const Action& action) {
    m_oLog.entries.clear();
    action();
    EXPECT_EQ(m_oLog.entries.size(), 1U);
    return m_oLog.entries.empty() ? Entry{-1, ""} : m_oLog.entries.front();
  }

  TakenSystemLog m_oLog;
};

// The log is opened once in the life of a process: each case needs one of its own.
class TraceSystemLogOpeningTest : public TraceSystemLogTest {
 protected:
  // Makes the next opening throw.
  static ScopedAnswer Interrupt() {
    return calls::openlog.Answer([](const char* /*name*/, int /*options*/, int /*facility*/) {
      throw std::runtime_error("openlog");
    });
  }

  const std::vector<TakenSystemLog::Opening> m_oOnce = {
      {program_invocation_short_name, LOG_CONS | LOG_PID | LOG_NDELAY, LOG_LOCAL1}};
};

TEST_F(TraceSystemLogOpeningTest, OpensTheLogOnceUnderTheShortProgramName) {
  Write("first");
  Write("second");
  EXPECT_EQ(m_oLog.openings, m_oOnce);
}

TEST_F(TraceSystemLogOpeningTest, OpensTheLogLaterWhenTheFirstAttemptIsInterrupted) {
  auto interrupted = Interrupt();
  EXPECT_THROW(Write("line"), std::runtime_error);
  interrupted.End();
  EXPECT_TRUE(m_oLog.entries.empty()) << "a line before the log was opened";
  EXPECT_EQ(EntryOf([] { Write("line"); }), (Entry{LOG_INFO, "line"}));
  EXPECT_EQ(m_oLog.openings, m_oOnce);
}

TEST_F(TraceSystemLogOpeningTest, OpensTheLogOnceForThreadsThatStartTogether) {
  constexpr int THREADS = 4;
  std::atomic<int> ready = 0;
  std::vector<std::thread> threads;
  threads.reserve(THREADS);
  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([&] {
      ++ready;
      while (ready < THREADS) {
        std::this_thread::yield();
      }
      Write("line");
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(m_oLog.openings, m_oOnce);
  EXPECT_EQ(m_oLog.entries, std::vector<Entry>(THREADS, {LOG_INFO, "line"}));
}

TEST_F(TraceSystemLogOpeningTest, OnlyALineOfLevelZeroOpensIt) {
  CDebugClient client;
  setenv("CV_LOG_DEBUG_LEVEL", "5", 1);
  client.Load("EM_TALVOR");
  for (const uint32_t level : {1U, 2U, 5U, 6U}) {
    client.Trace(level, "line");
  }
  client.Print("plain");
  client.PrintFor(1, "plain");
  EXPECT_TRUE(m_oLog.entries.empty());
  EXPECT_TRUE(m_oLog.openings.empty());
  client.Trace(0, "\n\nEM_TALVOR : %d", 5);
  EXPECT_EQ(m_oLog.entries, std::vector<Entry>({{LOG_INFO, "EM_TALVOR : 5"}}));
  client.Release();
}

TEST_F(TraceSystemLogTest, FormatsWithPriorityInformation) {
  EXPECT_EQ(EntryOf([] { Write("a %d %s", 7, "%d%n"); }), (Entry{LOG_INFO, "a 7 %d%n"}));
}

TEST_F(TraceSystemLogTest, SkipsNewlinesAtTheStartOfTheFormatOnly) {
  EXPECT_EQ(EntryOf([] { Write("\n\nEM_TALVOR : %s\n", "\n"); }).text, "EM_TALVOR : \n\n");
  EXPECT_EQ(EntryOf([] { Write("%s", "\nx"); }).text, "\nx");
  EXPECT_EQ(EntryOf([] { Write("\n"); }).text, "");
}

TEST_F(TraceSystemLogTest, CutsTheTextTo1023Bytes) {
  EXPECT_EQ(EntryOf([] { Write("%s", std::string(1023, 'x').c_str()); }).text,
            std::string(1023, 'x'));
  EXPECT_EQ(EntryOf([] { Write("%s", (std::string(1023, 'x') + "yz").c_str()); }).text,
            std::string(1023, 'x'));
}

TEST_F(TraceSystemLogTest, SaysSoWhenTheTextCannotBeFormatted) {
  // A character that the locale "C" does not have.
  EXPECT_EQ(EntryOf([] { Write("%ls", L"\u20AC"); }),
            (Entry{LOG_INFO, "ERROR: cann't format message"}));
}

TEST_F(TraceSystemLogTest, ALineOfLevelZeroKeepsErrno) {
  CDebugClient client;
  errno = 4711;
  client.Trace(0, "%ls", L"\u20AC");
  EXPECT_EQ(errno, 4711);
}

}  // namespace
