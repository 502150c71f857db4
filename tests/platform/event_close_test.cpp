// Closed handles of events.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event.h"
#include "tests/support/trace_session.h"

namespace {

TEST(EventCloseTest, SignalsTheEvent) {
  CEvent event(false, true);
  const CEvent other(event);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_TRUE(event.Close());
  EXPECT_TRUE(other.Check());
}

TEST(EventCloseTest, ClosesThisHandleForGood) {
  CEvent event(false, true);
  event.Close();
  EXPECT_FALSE(event.IsOpen());
  const TraceSession session(5);
  EXPECT_FALSE(event.Set());
  EXPECT_FALSE(event.Pulse());
  EXPECT_FALSE(event.Reset());
  EXPECT_FALSE(event.Check());
  EXPECT_FALSE(event.Create(false, false));
  EXPECT_FALSE(event.Create(true, true));
  EXPECT_FALSE(event.Close());
  EXPECT_EQ(event.Wait(0, true), EVENT_FAILED);
  EXPECT_EQ(event.Wait(EVENT_INFINITE, true), EVENT_FAILED);
  EXPECT_THAT(session.Lines(), testing::IsEmpty());
}

TEST(EventCloseTest, ChangesNothingThroughTheClosedHandle) {
  CEvent event(false, true);
  CEvent other(event);
  event.Close();
  event.Reset();
  event.Pulse();
  event.Create(false, false);
  EXPECT_TRUE(other.Check());
  other.Reset();
  event.Set();
  event.Close();
  EXPECT_FALSE(other.Check());
}

TEST(EventCloseTest, OtherHandlesKeepWorking) {
  CEvent event(false, true);
  CEvent other(event);
  event.Close();
  EXPECT_TRUE(other.IsOpen());
  EXPECT_EQ(other.Wait(0), EVENT_SIGNALED);
  EXPECT_TRUE(other.Reset());
  EXPECT_EQ(other.Wait(0), EVENT_TIMEOUT);
  EXPECT_TRUE(other.Set());
  EXPECT_TRUE(other.Pulse());
  EXPECT_TRUE(other.Create(true, false));
}

TEST(EventCloseTest, AClosedHandleStillReleasesItsReference) {
  const TraceSession session(5);
  { CEvent(false, false).Close(); }
  EXPECT_EQ(session.Count("deleting event %p <%s> (IsSignaled=%d)\n"), 1);
}

}  // namespace
