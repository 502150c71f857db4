#include <gtest/gtest.h>

#include "tests/trace/next_sink.h"
#include "trace/debug_client.h"

// What a host may have under the sink's name: to call it as one would end the process.
void Debug();  // NOLINT(misc-use-internal-linkage)
void Debug() {}

TEST(DebugClientOtherSymbolTest, PassesOverAFunctionOfTheSinksNameToTheNextObject) {
  CDebugClient client;
  client.Print("line");
  EXPECT_EQ(TakeLinesOfNextSink(), 1);
}
