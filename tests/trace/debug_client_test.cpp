#include "trace/debug_client.h"

#include <gtest/gtest.h>

#include "tests/support/trace_session.h"

TEST(DebugClientTest, DropsALineAboveTheLevel) {
  EXPECT_EQ(LevelOf("line %d", [] { DEBUG_TRACE(3, "line %d", 1); }), 3U);
}

TEST(DebugClientTest, HandsFormatAndArgumentsAndModuleNameToTheSink) {
  const TraceSession session(1);
  DEBUG_TRACE(1, "line %d %s", 7, "x");
  ASSERT_EQ(session.Lines().size(), 1U);
  EXPECT_EQ(session.Lines()[0].format, "line %d %s");
  EXPECT_EQ(session.Lines()[0].text, "line 7 x");
  EXPECT_EQ(session.Lines()[0].moduleName, "EM_TALVOR");
}
