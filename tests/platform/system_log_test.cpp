#include "platform/system_log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/system_calls.h"

namespace {

class SystemLogTest : public testing::Test {
 protected:
  using Calls = std::vector<std::string>;

  Calls m_oCalls;  // what reached the C library
  const ScopedAnswer m_oOpen =
      calls::openlog.Answer([this](const char* name, int options, int facility) {
        m_oCalls.push_back("open " + std::string(name) + " " + std::to_string(options) + " " +
                           std::to_string(facility));
      });
  const ScopedAnswer m_oWrite = calls::syslog.Answer([this](int priority, const char* entry) {
    m_oCalls.push_back("write " + std::to_string(priority) + " " + entry);
  });
  const ScopedAnswer m_oClose = calls::closelog.Answer([this] { m_oCalls.emplace_back("close"); });
};

}  // namespace

TEST_F(SystemLogTest, OpensUnderTheShortNameWithPidAndConsoleAtOnce) {
  OpenSystemLog();
  // LOG_PID, LOG_CONS and LOG_NDELAY; LOG_LOCAL1.
  EXPECT_EQ(m_oCalls, Calls{"open " + std::string(program_invocation_short_name) + " 11 136"});
}

TEST_F(SystemLogTest, WritesUpToFourArgumentsWithThePriority) {
  WriteSystemLog(LOG_ERR, "plain");
  WriteSystemLog(LOG_INFO, "%d %s %c %ld", 1, "two", '3', 4L);
  EXPECT_EQ(m_oCalls, (Calls{"write 3 plain", "write 6 1 two 3 4"}));
}

TEST_F(SystemLogTest, WritesNothingWithoutAFormat) {
  // Without the attribute that lets the compiler look at the format.
  void (*const write)(int32_t, const char*, ...) = WriteSystemLog;
  write(LOG_ERR, nullptr);
  EXPECT_EQ(m_oCalls, Calls{});
}

TEST_F(SystemLogTest, Closes) {
  CloseSystemLog();
  EXPECT_EQ(m_oCalls, Calls{"close"});
}
