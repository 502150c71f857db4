#include "platform/system_log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// What reached the C library, a call to an element.
std::vector<std::string> g_oCalls;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names.
extern "C" {

void __wrap_openlog(const char* name, int options, int facility) {
  g_oCalls.push_back("open " + std::string(name) + " " + std::to_string(options) + " " +
                     std::to_string(facility));
}

__attribute__((format(printf, 2, 0))) void __wrap_vsyslog(int priority, const char* format,
                                                          va_list arguments) {
  std::array<char, 100> text = {};
  vsnprintf(text.data(), text.size(), format, arguments);
  g_oCalls.push_back("write " + std::to_string(priority) + " " + text.data());
}

void __wrap_closelog() { g_oCalls.emplace_back("close"); }

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

using Calls = std::vector<std::string>;

}  // namespace

TEST(SystemLogTest, OpensUnderTheShortNameWithPidAndConsoleAtOnce) {
  OpenSystemLog();
  // LOG_PID, LOG_CONS and LOG_NDELAY; LOG_LOCAL1.
  EXPECT_EQ(g_oCalls, Calls{"open " + std::string(program_invocation_short_name) + " 11 136"});
}

TEST(SystemLogTest, WritesUpToFourArgumentsWithThePriority) {
  WriteSystemLog(LOG_ERR, "plain");
  WriteSystemLog(LOG_INFO, "%d %s %c %ld", 1, "two", '3', 4L);
  EXPECT_EQ(g_oCalls, (Calls{"write 3 plain", "write 6 1 two 3 4"}));
}

TEST(SystemLogTest, WritesNothingWithoutAFormat) {
  // Without the attribute that lets the compiler look at the format.
  void (*const write)(int32_t, const char*, ...) = WriteSystemLog;
  write(LOG_ERR, nullptr);
  EXPECT_EQ(g_oCalls, Calls{});
}

TEST(SystemLogTest, Closes) {
  CloseSystemLog();
  EXPECT_EQ(g_oCalls, Calls{"close"});
}
