// The lines of events, but for those of a wait.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "platform/sync/event.h"
#include "tests/platform/sync/event_fixture.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;

namespace {

TEST(EventTraceTest, TheLifeOfAnUnnamedEvent) {
  ExpectEventLines(
      {
          {5, "creating event EVENT <anon> (IsSignaled=0)\n"},
          {5, "Set event EVENT <anon> IsSignaled=0 --> IsSignaled=1\n"},
          {5, "deleting event EVENT <anon> (IsSignaled=1)\n"},
      },
      [] { CEvent(false, true).Set(); });
}

TEST(EventTraceTest, TheLifeOfANamedEvent) {
  ExpectEventLines(
      {
          {5, "creating event EVENT <bell> (IsSignaled=1)\n"},
          {3, "refCount for event EVENT <bell> incremented (IsSignaled=1)\n"},
          {1, "WARNING: manual setting mismatch for event EVENT <bell>\n"},
          {5, "decr refcount on event EVENT <bell> (IsSignaled=1)\n"},
          {5, "deleting event EVENT <bell> (IsSignaled=1)\n"},
      },
      [] {
        const CEvent event(true, false, "bell");
        { const CEvent opened(false, true, "bell"); }
      });
}

TEST(EventTraceTest, CopiesOfAHandle) {
  const CEvent manual(false, true, "bell");
  ExpectEventLines(
      {
          {5, "incr refcount on event EVENT <bell> (IsSignaled=0,IsManual=1)\n"},
          {5, "decr refcount on event EVENT <bell> (IsSignaled=0)\n"},
      },
      [&] { CEvent copy(manual); });
  const CEvent automatic(true, false);
  ExpectEventLines(
      {
          {5, "incr refcount on event EVENT <anon> (IsSignaled=1,IsManual=0)\n"},
          {5, "decr refcount on event EVENT <anon> (IsSignaled=1)\n"},
      },
      [&] { CEvent copy(automatic); });
}

TEST(EventTraceTest, AssignmentToAHandle) {
  CEvent target(KeepReachable(CEvent(true, true)));
  const CEvent source(false, false, "door");
  const TraceSession session(5);
  target = source;
  EXPECT_THAT(EventTexts(session),
              ElementsAre("incr refcount on event EVENT <door> (IsSignaled=0,IsManual=0)\n"));
}

TEST(EventTraceTest, ChangesOfAttributes) {
  CEvent event(false, true, "bell");
  ExpectEventLines(
      {
          {5,
           "Create event EVENT <bell>, changing attributes (IsSignaled=0,IsManual=1) --> "
           "(IsSignaled=1,IsManual=1)\n"},
          {5,
           "Create event EVENT <bell>, changing attributes (IsSignaled=1,IsManual=1) --> "
           "(IsSignaled=1,IsManual=0)\n"},
          {5,
           "Create event EVENT <bell>, changing attributes (IsSignaled=1,IsManual=0) --> "
           "(IsSignaled=0,IsManual=1)\n"},
      },
      [&] {
        event.Create(false, true);
        event.Create(true, true);
        event.Create(true, true);
        event.Create(true, false);
        event.Create(false, true);
      });
}

TEST(EventTraceTest, ChangesOfState) {
  CEvent event(false, true, "bell");
  ExpectEventLines(
      {
          {5, "Check event EVENT <bell> (IsSignaled=0)\n"},
          {5, "Set event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n"},
          {5, "Set event EVENT <bell> IsSignaled=1 --> IsSignaled=1\n"},
          {5, "Check event EVENT <bell> (IsSignaled=1)\n"},
          {5, "Reset event EVENT <bell>: IsSignaled=1 --> IsSignaled=0\n"},
          {5, "Reset event EVENT <bell>: IsSignaled=0 --> IsSignaled=0\n"},
          {5, "Pulse event EVENT <bell> IsSignaled=0 --> IsSignaled=0\n"},
          {5, "Set event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n"},
          {5, "Pulse event EVENT <bell> IsSignaled=1 --> IsSignaled=0\n"},
      },
      [&] {
        event.Check();
        event.Set();
        event.Set();
        event.Check();
        event.Reset();
        event.Reset();
        event.Pulse();
        event.Set();
        event.Pulse();
      });
}

TEST(EventTraceTest, TheCloseOfAHandle) {
  CEvent event(false, true, "bell");
  ExpectEventLines(
      {
          {5, "incr refcount on event EVENT <bell> (IsSignaled=0,IsManual=1)\n"},
          {5, "incr refcount on event EVENT <bell> (IsSignaled=0,IsManual=1)\n"},
          {5, "Close event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n"},
          {5, "Close event EVENT <bell> IsSignaled=1 --> IsSignaled=1\n"},
          {5, "decr refcount on event EVENT <bell> (IsSignaled=1)\n"},
          {5, "decr refcount on event EVENT <bell> (IsSignaled=1)\n"},
          {5, "Reset event EVENT <bell>: IsSignaled=1 --> IsSignaled=0\n"},
      },
      [&] {
        {
          CEvent one(event);
          CEvent other(event);
          one.Close();
          other.Close();
        }
        event.Reset();
      });
}

TEST(EventTraceTest, UnnamedEventsAreAnon) {
  CEvent event(false, true);
  ExpectEventLines(
      {
          {5,
           "Create event EVENT <anon>, changing attributes (IsSignaled=0,IsManual=1) --> "
           "(IsSignaled=1,IsManual=1)\n"},
          {5, "Pulse event EVENT <anon> IsSignaled=1 --> IsSignaled=0\n"},
          {5, "Reset event EVENT <anon>: IsSignaled=0 --> IsSignaled=0\n"},
          {5, "Check event EVENT <anon> (IsSignaled=0)\n"},
      },
      [&] {
        event.Create(true, true);
        event.Pulse();
        event.Reset();
        event.Check();
      });
  const TraceSession session(5);
  event.Close();
  EXPECT_THAT(EventTexts(session),
              ElementsAre("Close event EVENT <anon> IsSignaled=0 --> IsSignaled=1\n"));
}

TEST(EventTraceTest, DifferentEventsHaveDifferentAddresses) {
  CEvent one(false, true);
  CEvent other(false, true);
  const TraceSession session(5);
  one.Check();
  other.Check();
  EXPECT_NE(session.Texts()[0], session.Texts()[1]);
}

TEST(EventTraceTest, AThrowingSinkCannotKeepAnEventFromBeingMadeAndDestroyed) {
  TraceSession session(5);
  for (const char* format : {CREATING, OPENING, MISMATCH, SHARING, DROPPING, DELETING}) {
    session.ThrowAt(format);
  }
  for (int turn = 0; turn < 2; ++turn) {
    CEvent event(false, true, "bell");
    CEvent opened(true, false, "bell");
    CEvent copy(opened);
    EXPECT_TRUE(copy.Set());
    EXPECT_TRUE(event.Check());
  }
}

TEST(EventTraceTest, AThrowingSinkKeepsNoOperationFromItsWork) {
  TraceSession session(5);
  for (const char* format : {SETTING, PULSING, RESETTING, CLOSING, CHECKING, CHANGING}) {
    session.ThrowAt(format);
  }
  CEvent event(false, true);
  CEvent other(event);
  EXPECT_TRUE(event.Set());
  EXPECT_TRUE(event.Check());
  EXPECT_TRUE(event.Reset());
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  event.Set();
  EXPECT_TRUE(event.Pulse());
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  EXPECT_TRUE(event.Create(true, true));
  EXPECT_EQ(event.Wait(0), EVENT_SIGNALED);
  event.Reset();
  EXPECT_TRUE(event.Close());
  EXPECT_FALSE(event.IsOpen());
  EXPECT_EQ(other.Wait(0), EVENT_SIGNALED);
}

TEST(EventTraceTest, AThrowingSinkKeepsNoWaiterAsleep) {
  const std::function<void(CEvent&)> wakes[] = {
      [](CEvent& event) { event.Set(); },
      [](CEvent& event) { event.Close(); },
      [](CEvent& event) { event.Pulse(); },
  };
  for (const auto& wake : wakes) {
    TraceSession session(5);
    for (const char* format : {SETTING, PULSING, CLOSING}) {
      session.ThrowAt(format);
    }
    CEvent event(false, true);
    CEvent handle(event);
    std::atomic<bool> isReleased = false;
    std::thread waiter([&] { isReleased = event.Wait(10'000, true) == EVENT_SIGNALED; });
    EXPECT_TRUE(session.WaitFor(PREPARE));
    wake(handle);
    waiter.join();
    EXPECT_TRUE(isReleased);
  }
}

}  // namespace
