#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/default_sink.h"
#include "trace/debug_client.h"

// Lives before the first and after the last static object, as a host's sink may.
class Sink final : public DefaultSink {
 public:
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* moduleName) override {
    std::array<char, 100> text = {};
    vsnprintf(text.data(), text.size(), format, arguments);
    std::array<char, 200> line = {};
    const int length = snprintf(line.data(), line.size(), "<%s|%s>\n", moduleName, text.data());
    if (!m_bEcho) {
      m_oLast = line;
    } else if (write(STDERR_FILENO, line.data(), static_cast<size_t>(length)) != length) {
      abort();
    }
  }

  std::string Last() const { return m_oLast.data(); }

  bool m_bEcho = false;  // writes the lines to stderr

 private:
  std::array<char, 200> m_oLast = {};
};

extern constinit Sink Debug;
constinit Sink Debug;

namespace {

std::array<char, 200> g_lineBeforeMain;
bool g_wasEnabledBeforeMain = true;

// Runs before every static object of the program.
[[gnu::constructor(101)]] void TraceBeforeMain() {
  g_wasEnabledBeforeMain = g_oDebugClient.IsEnabled();
  setenv("CV_LOG_DEBUG_LEVEL", "3", 1);
  g_oDebugClient.Load("EM_TALVOR");
  DEBUG_TRACE(3, "early %d", 1);
  std::snprintf(g_lineBeforeMain.data(), g_lineBeforeMain.size(), "%s", Debug.Last().c_str());
}

struct TracingObject {
  ~TracingObject() { DEBUG_TRACE(3, "static destructor"); }
} g_object;

[[gnu::destructor]] void TraceAtUnload() { DEBUG_TRACE(3, "unload"); }

// The last but one of the program's destructors.
[[gnu::destructor(102)]] void TraceLate() { DEBUG_TRACE(3, "late"); }

// The very last: the client has given back what it held.
void TraceLast() { DEBUG_TRACE(3, "last"); }
[[gnu::section(".fini_array.00001"), gnu::used]] void (*g_last)() = TraceLast;

}  // namespace

TEST(DebugClientLifetimeTest, ServesBeforeTheFirstStaticObject) {
  EXPECT_FALSE(g_wasEnabledBeforeMain);
  EXPECT_STREQ(g_lineBeforeMain.data(), "<EM_TALVOR|early 1>\n");
}

TEST(DebugClientLifetimeTest, KeepsTheLoadOfStaticInitialisation) {
  EXPECT_EQ(g_oDebugClient.GetDebugLevel(), 3U);
  EXPECT_STREQ(g_oDebugClient.GetModuleName(), "EM_TALVOR");
}

TEST(DebugClientLifetimeTest, IsReleasedAtTheEndOfTheProgramAndServesAllTheSame) {
  EXPECT_EXIT(
      {
        Debug.m_bEcho = true;
        exit(0);
      },
      testing::ExitedWithCode(0),
      "<EM_TALVOR.static destructor>\n(.*\n)*<EM_TALVOR.unload>\n(.*\n)*<EM_TALVOR.late>\n<.last>");
}

TEST(DebugClientLifetimeTest, ServesAfterItsRelease) {
  g_oDebugClient.Release();
  DEBUG_TRACE(3, "afterwards");
  EXPECT_EQ(Debug.Last(), "<|afterwards>\n");
  g_oDebugClient.Load("EM_TALVOR");
  DEBUG_TRACE(3, "again");
  EXPECT_EQ(Debug.Last(), "<EM_TALVOR|again>\n");
}
