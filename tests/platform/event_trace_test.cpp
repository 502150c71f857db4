#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/event.h"
#include "tests/platform/event_texts.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;

namespace {

constexpr char SETTING[] = "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n";
constexpr char PULSING[] = "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n";
constexpr char RESETTING[] = "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n";
constexpr char CLOSING[] = "Close event %p <%s> IsSignaled=%d --> IsSignaled=1\n";
constexpr char PREPARING[] =
    "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> "
    "(ts:sec=%ld,ts:nsec=%ld)\n";
constexpr char CHANGING[] =
    "Create event %p <%s>, changing attributes (IsSignaled=%d,IsManual=%d) --> "
    "(IsSignaled=%d,IsManual=%d)\n";
constexpr char CHECKING[] = "Check event %p <%s> (IsSignaled=%d)\n";

// What the operations write at level 5.
std::vector<std::string> TextsOf(const std::function<void()>& operations) {
  const TraceSession session(5);
  operations();
  return EventTexts(session);
}

TEST(EventTraceTest, EachLineHasItsLevel) {
  struct Line {
    const char* format;
    uint32_t level;
    std::function<void()> action;
  };
  const Line lines[] = {
      {"creating event %p <%s> (IsSignaled=%d)\n", 5, [] { CEvent(false, false); }},
      {"deleting event %p <%s> (IsSignaled=%d)\n", 5, [] { CEvent(false, false); }},
      {"refCount for event %p <%s> incremented (IsSignaled=%d)\n", 3,
       [] {
         const CEvent one(false, false, "bell");
         const CEvent other(false, false, "bell");
       }},
      {"WARNING: manual setting mismatch for event %p <%s>\n", 1,
       [] {
         const CEvent one(false, false, "bell");
         const CEvent other(false, true, "bell");
       }},
      {"incr refcount on event %p <%s> (IsSignaled=%d,IsManual=%d)\n", 5,
       [] {
         const CEvent one(false, false);
         const CEvent other(one);  // NOLINT(performance-unnecessary-copy-initialization)
       }},
      {"decr refcount on event %p <%s> (IsSignaled=%d)\n", 5,
       [] {
         const CEvent one(false, false);
         const CEvent other(one);  // NOLINT(performance-unnecessary-copy-initialization)
       }},
      {CHANGING, 5, [] { CEvent(false, false).Create(true, true); }},
      {SETTING, 5, [] { CEvent(false, false).Set(); }},
      {PULSING, 5, [] { CEvent(false, false).Pulse(); }},
      {RESETTING, 5, [] { CEvent(false, false).Reset(); }},
      {CLOSING, 5, [] { CEvent(false, false).Close(); }},
      {CHECKING, 5, [] { CEvent(false, false).Check(); }},
  };
  for (const Line& line : lines) {
    EXPECT_EQ(LevelOf(line.format, line.action), line.level) << line.format;
  }
}

TEST(EventTraceTest, TheLifeOfAnUnnamedEvent) {
  EXPECT_THAT(TextsOf([] { CEvent(true, false); }),
              ElementsAre("creating event EVENT <anon> (IsSignaled=1)\n",
                          "deleting event EVENT <anon> (IsSignaled=1)\n"));
}

TEST(EventTraceTest, TheStateAtTheEnd) {
  EXPECT_THAT(TextsOf([] {
                CEvent event(false, true);
                event.Set();
              }),
              ElementsAre("creating event EVENT <anon> (IsSignaled=0)\n",
                          "Set event EVENT <anon> IsSignaled=0 --> IsSignaled=1\n",
                          "deleting event EVENT <anon> (IsSignaled=1)\n"));
}

TEST(EventTraceTest, TheLifeOfANamedEvent) {
  EXPECT_THAT(TextsOf([] {
                const CEvent event(true, false, "bell");
                { const CEvent opened(false, true, "bell"); }
              }),
              ElementsAre("creating event EVENT <bell> (IsSignaled=1)\n",
                          "refCount for event EVENT <bell> incremented (IsSignaled=1)\n",
                          "WARNING: manual setting mismatch for event EVENT <bell>\n",
                          "decr refcount on event EVENT <bell> (IsSignaled=1)\n",
                          "deleting event EVENT <bell> (IsSignaled=1)\n"));
}

TEST(EventTraceTest, CopiesOfAHandle) {
  CEvent manual(false, true, "bell");
  EXPECT_THAT(TextsOf([&] { CEvent copy(manual); }),
              ElementsAre("incr refcount on event EVENT <bell> (IsSignaled=0,IsManual=1)\n",
                          "decr refcount on event EVENT <bell> (IsSignaled=0)\n"));
  CEvent automatic(true, false);
  EXPECT_THAT(TextsOf([&] { CEvent copy(automatic); }),
              ElementsAre("incr refcount on event EVENT <anon> (IsSignaled=1,IsManual=0)\n",
                          "decr refcount on event EVENT <anon> (IsSignaled=1)\n"));
}

TEST(EventTraceTest, AssignmentToAHandle) {
  // Lives on, so that the event that the assignment does not release stays in reach.
  static const CEvent* const kept = new CEvent(true, true, "kept");
  CEvent target(*kept);
  const CEvent source(false, false, "door");
  EXPECT_THAT(TextsOf([&] { target = source; }),
              ElementsAre("incr refcount on event EVENT <door> (IsSignaled=0,IsManual=0)\n"));
}

TEST(EventTraceTest, ChangesOfAttributes) {
  CEvent event(false, true, "bell");
  EXPECT_THAT(TextsOf([&] {
                event.Create(false, true);
                event.Create(true, true);
                event.Create(true, true);
                event.Create(true, false);
                event.Create(false, true);
              }),
              ElementsAre("Create event EVENT <bell>, changing attributes (IsSignaled=0,IsManual=1)"
                          " --> (IsSignaled=1,IsManual=1)\n",
                          "Create event EVENT <bell>, changing attributes (IsSignaled=1,IsManual=1)"
                          " --> (IsSignaled=1,IsManual=0)\n",
                          "Create event EVENT <bell>, changing attributes (IsSignaled=1,IsManual=0)"
                          " --> (IsSignaled=0,IsManual=1)\n"));
}

TEST(EventTraceTest, ChangesOfState) {
  CEvent event(false, true, "bell");
  EXPECT_THAT(TextsOf([&] {
                event.Check();
                event.Set();
                event.Set();
                event.Check();
                event.Reset();
                event.Reset();
                event.Pulse();
                event.Set();
                event.Pulse();
              }),
              ElementsAre("Check event EVENT <bell> (IsSignaled=0)\n",
                          "Set event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n",
                          "Set event EVENT <bell> IsSignaled=1 --> IsSignaled=1\n",
                          "Check event EVENT <bell> (IsSignaled=1)\n",
                          "Reset event EVENT <bell>: IsSignaled=1 --> IsSignaled=0\n",
                          "Reset event EVENT <bell>: IsSignaled=0 --> IsSignaled=0\n",
                          "Pulse event EVENT <bell> IsSignaled=0 --> IsSignaled=0\n",
                          "Set event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n",
                          "Pulse event EVENT <bell> IsSignaled=1 --> IsSignaled=0\n"));
}

TEST(EventTraceTest, TheCloseOfAHandle) {
  CEvent event(false, true, "bell");
  CEvent other(event);
  EXPECT_THAT(TextsOf([&] {
                event.Close();
                other.Close();
              }),
              ElementsAre("Close event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n",
                          "Close event EVENT <bell> IsSignaled=1 --> IsSignaled=1\n"));
}

TEST(EventTraceTest, UnnamedEventsAreAnon) {
  CEvent event(false, true);
  EXPECT_THAT(TextsOf([&] {
                event.Create(true, true);
                event.Pulse();
                event.Reset();
                event.Check();
                event.Close();
              }),
              ElementsAre("Create event EVENT <anon>, changing attributes (IsSignaled=0,IsManual=1)"
                          " --> (IsSignaled=1,IsManual=1)\n",
                          "Pulse event EVENT <anon> IsSignaled=1 --> IsSignaled=0\n",
                          "Reset event EVENT <anon>: IsSignaled=0 --> IsSignaled=0\n",
                          "Check event EVENT <anon> (IsSignaled=0)\n",
                          "Close event EVENT <anon> IsSignaled=0 --> IsSignaled=1\n"));
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
  session.ThrowAt("creating event %p <%s> (IsSignaled=%d)\n");
  session.ThrowAt("refCount for event %p <%s> incremented (IsSignaled=%d)\n");
  session.ThrowAt("WARNING: manual setting mismatch for event %p <%s>\n");
  session.ThrowAt("incr refcount on event %p <%s> (IsSignaled=%d,IsManual=%d)\n");
  session.ThrowAt("decr refcount on event %p <%s> (IsSignaled=%d)\n");
  session.ThrowAt("deleting event %p <%s> (IsSignaled=%d)\n");
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
    EXPECT_TRUE(session.WaitFor(PREPARING));
    wake(handle);
    waiter.join();
    EXPECT_TRUE(isReleased);
  }
}

}  // namespace
