#include "trace/trace_system_log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "trace/debug_client.h"

namespace {

struct Entry {
  int priority;
  std::string text;
  bool operator==(const Entry&) const = default;
};

struct Opening {
  std::string name;
  int options;
  int facility;
};

std::mutex g_lock;
std::vector<Opening> g_openings;
std::vector<Entry> g_entries;
std::atomic<bool> g_throwAtOpening = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" void __wrap_openlog(const char* name, int options, int facility) {
  if (g_throwAtOpening.exchange(false)) {
    throw std::runtime_error("openlog");
  }
  const std::lock_guard guard(g_lock);
  g_openings.push_back({name, options, facility});
  errno = EPIPE;
}

extern "C" [[gnu::format(printf, 2, 3)]] void __wrap_syslog(int priority, const char* format, ...) {
  std::string text(4096, '\0');
  va_list arguments;
  va_start(arguments, format);
  text.resize(static_cast<size_t>(vsnprintf(text.data(), text.size(), format, arguments)));
  va_end(arguments);
  const std::lock_guard guard(g_lock);
  g_entries.push_back({priority, text});
  errno = EPIPE;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

[[gnu::format(printf, 1, 2)]] void Write(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  WriteTraceToSystemLog(format, arguments);
  va_end(arguments);
}

// The entry that a call leaves, which is the only new one.
template <typename Action>
Entry EntryOf(const Action& action) {
  g_entries.clear();
  action();
  EXPECT_EQ(g_entries.size(), 1U);
  return g_entries.empty() ? Entry{-1, ""} : g_entries.front();
}

}  // namespace

TEST(TraceSystemLogTest, OpensTheLogOnceUnderTheShortProgramName) {
  Write("first");
  Write("second");
  ASSERT_EQ(g_openings.size(), 1U);
  EXPECT_EQ(g_openings[0].name, "trace_system_log_test");
  EXPECT_EQ(g_openings[0].options, LOG_CONS | LOG_PID | LOG_NDELAY);
  EXPECT_EQ(g_openings[0].facility, LOG_LOCAL1);
}

TEST(TraceSystemLogTest, OpensTheLogBeforeTheFirstLine) {
  g_throwAtOpening = true;
  EXPECT_THROW(Write("line"), std::runtime_error);
  EXPECT_TRUE(g_entries.empty());
}

TEST(TraceSystemLogTest, OpensTheLogLaterWhenTheFirstAttemptIsInterrupted) {
  g_throwAtOpening = true;
  EXPECT_THROW(Write("line"), std::runtime_error);
  EXPECT_EQ(EntryOf([] { Write("line"); }), (Entry{LOG_INFO, "line"}));
  EXPECT_EQ(g_openings.size(), 1U);
}

TEST(TraceSystemLogTest, OpensTheLogOnceForThreadsThatStartTogether) {
  constexpr int THREADS = 4;
  std::atomic<int> ready = 0;
  const auto write = [&] {
    ++ready;
    while (ready < THREADS) {
      std::this_thread::yield();
    }
    Write("line");
  };
  std::vector<std::thread> threads;
  threads.reserve(THREADS);
  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back(write);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(g_openings.size(), 1U);
  EXPECT_EQ(g_entries, std::vector<Entry>(THREADS, {LOG_INFO, "line"}));
}

TEST(TraceSystemLogTest, FormatsWithPriorityInformation) {
  EXPECT_EQ(EntryOf([] { Write("a %d %s", 7, "%d%n"); }), (Entry{LOG_INFO, "a 7 %d%n"}));
}

TEST(TraceSystemLogTest, SkipsNewlinesAtTheStartOfTheFormatOnly) {
  EXPECT_EQ(EntryOf([] { Write("\n\nEM_TALVOR : %s\n", "\n"); }).text, "EM_TALVOR : \n\n");
  EXPECT_EQ(EntryOf([] { Write("%s", "\nx"); }).text, "\nx");
  EXPECT_EQ(EntryOf([] { Write("\n"); }).text, "");
}

TEST(TraceSystemLogTest, CutsTheTextTo1023Bytes) {
  EXPECT_EQ(EntryOf([] { Write("%s", std::string(1023, 'x').c_str()); }).text,
            std::string(1023, 'x'));
  EXPECT_EQ(EntryOf([] { Write("%s", (std::string(1023, 'x') + "yz").c_str()); }).text,
            std::string(1023, 'x'));
}

TEST(TraceSystemLogTest, SaysSoWhenTheTextCannotBeFormatted) {
  // A character that the locale "C" does not have.
  EXPECT_EQ(EntryOf([] { Write("%ls", L"\u20AC"); }),
            (Entry{LOG_INFO, "ERROR: cann't format message"}));
}

class LevelZeroTest : public testing::Test {
 protected:
  ~LevelZeroTest() override { m_client.Release(); }

  // No trace sink is in this program.
  CDebugClient m_client;
};

TEST_F(LevelZeroTest, ReachesTheLogWithoutASinkAndWithoutLeadingNewlines) {
  EXPECT_EQ(EntryOf([&] { m_client.Trace(0, "\n\nEM_TALVOR : %d", 5); }),
            (Entry{LOG_INFO, "EM_TALVOR : 5"}));
}

TEST_F(LevelZeroTest, AloneReachesTheLog) {
  setenv("CV_LOG_DEBUG_LEVEL", "5", 1);
  m_client.Load("EM_TALVOR");
  for (const uint32_t level : {1U, 2U, 5U, 6U}) {
    m_client.Trace(level, "line");
  }
  m_client.Print("plain");
  m_client.PrintFor(1, "plain");
  EXPECT_TRUE(g_entries.empty());
  EXPECT_TRUE(g_openings.empty());
}

TEST_F(LevelZeroTest, KeepsErrno) {
  errno = 4711;
  m_client.Trace(0, "%ls", L"\u20AC");
  EXPECT_EQ(errno, 4711);
}
