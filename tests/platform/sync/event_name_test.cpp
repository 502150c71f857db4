// Events that have a name.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/sync/event.h"
#include "tests/platform/sync/event_fixture.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

// Destroyed after what events share, if that were destroyed at all.
std::optional<CEvent> g_oLast;
// Made before main().
const CEvent g_oFirst(true, true, "first");

TEST(EventNameTest, TheSameNameIsTheSameEvent) {
  CEvent one(false, false, "bell");
  CEvent other(false, false, "bell");
  EXPECT_TRUE(IsSame(one, other));
}

TEST(EventNameTest, AnotherNameIsAnotherEvent) {
  CEvent one(false, false, "bell");
  for (const char* name : {"bells", "bel", "Bell", ""}) {
    CEvent other(false, false, name);
    EXPECT_FALSE(IsSame(one, other)) << name;
  }
}

TEST(EventNameTest, UnnamedEventsAreNeverShared) {
  CEvent one(false, false);
  CEvent other(false, false);
  EXPECT_FALSE(IsSame(one, other));
}

TEST(EventNameTest, TheEmptyNameIsAName) {
  CEvent one(false, false, "");
  CEvent other(false, false, "");
  EXPECT_TRUE(IsSame(one, other));
}

TEST(EventNameTest, TheNameIsCopied) {
  std::string name = "bell";
  CEvent one(false, false, name.c_str());
  name = "door";
  CEvent other(false, false, "bell");
  EXPECT_TRUE(IsSame(one, other));
}

TEST(EventNameTest, OpeningKeepsStateAndKindOfReset) {
  CEvent one(false, false, "bell");
  CEvent other(true, true, "bell");
  EXPECT_FALSE(one.Check());
  EXPECT_TRUE(IsAutoReset(one));
  EXPECT_TRUE(IsAutoReset(other));
}

TEST(EventNameTest, OpeningWithTheOtherKindOfResetWarns) {
  const CEvent automatic(false, false, "automatic");
  const CEvent manual(false, true, "manual");
  const TraceSession session(1);
  const CEvent asAutomatic(true, false, "automatic");
  const CEvent asManual(true, true, "manual");
  EXPECT_THAT(session.Lines(), testing::IsEmpty());
  const CEvent notManual(false, false, "manual");
  EXPECT_EQ(session.Count(MISMATCH), 1);
  const CEvent notAutomatic(false, true, "automatic");
  EXPECT_EQ(session.Count(MISMATCH), 2);
}

TEST(EventNameTest, ManyNamesAreToldApart) {
  std::vector<std::unique_ptr<CEvent>> events;
  const auto name = [](int number) { return "event " + std::to_string(number * 37 % 100); };
  for (int number = 0; number < 100; ++number) {
    events.push_back(std::make_unique<CEvent>(false, false, name(number).c_str()));
  }
  for (int number = 0; number < 100; number += 2) {
    events[static_cast<size_t>(number)].reset();
  }
  const TraceSession session(5);
  for (int number = 0; number < 100; ++number) {
    CEvent other(false, false, name(number).c_str());
    EXPECT_EQ(session.Count(number % 2 == 0 ? CREATING : OPENING), number / 2 + 1);
  }
}

TEST(EventNameTest, OneHandleOutlivesTheOther) {
  auto first = std::make_unique<CEvent>(false, true, "bell");
  CEvent second(false, true, "bell");
  first.reset();
  EXPECT_TRUE(second.Set());
  EXPECT_EQ(second.Wait(0), EVENT_SIGNALED);
  CEvent third(false, true, "bell");
  EXPECT_TRUE(IsSame(second, third));
}

TEST(EventNameTest, TheLastHandleTakesTheNameAway) {
  {
    const CEvent first(true, true, "bell");
    const CEvent second(true, true, "bell");
  }
  CEvent fresh(false, false, "bell");
  EXPECT_FALSE(fresh.Check());
  EXPECT_TRUE(IsAutoReset(fresh));
}

TEST(EventNameTest, AnEventMayBeMadeBeforeMain) {
  EXPECT_TRUE(CEvent(false, true, "first").Check());
}

// What may fail comes after the test: in the program's end, and with the address sanitizer.
TEST(EventNameTest, AnEventMayOutliveMain) {
  g_oLast.emplace(true, true, "last");
  EXPECT_TRUE(g_oLast->Check());
}

TEST(EventNameTest, NoHandleIsCountedDuringANamedCreation) {
  const CEvent event(true, true);
  auto copy = std::make_unique<CEvent>(event);
  const std::function<bool()> counts[] = {
      [&] { return CEvent(event).Check(); },
      [&] { return copy.reset(), true; },
      [] { return CEvent(false, true, "bell").Check(); },
  };
  for (const auto& count : counts) {
    std::atomic<bool> isCounted = false;
    std::thread other;
    const auto creator = std::this_thread::get_id();
    const auto inits = calls::pthread_cond_init.Answer([&](auto* condition, const auto* kind) {
      if (std::this_thread::get_id() == creator) {
        const auto locks = calls::pthread_mutex_lock.Watch();
        other = std::thread([&] { isCounted = count(); });
        EXPECT_TRUE(WaitUntil([&] { return locks.GetCount() == 1; }));
        EXPECT_FALSE(isCounted);
      }
      return calls::pthread_cond_init.Real(condition, kind);
    });
    const CEvent named(true, true, "bell");
    other.join();
    EXPECT_TRUE(isCounted);
  }
}

TEST(EventNameTest, ThreadsThatCreateOneNameGetOneEvent) {
  const TraceSession session(5);
  std::atomic<int> created = 0;
  InManyThreads([&] {
    const CEvent event(false, false, "bell");
    ++created;
    WaitUntil([&] { return created == 4; });
  });
  EXPECT_EQ(session.Count(CREATING), 1);
  EXPECT_EQ(session.Count(OPENING), 3);
  EXPECT_EQ(session.Count(DROPPING), 3);
  EXPECT_EQ(session.Count(DELETING), 1);
}

TEST(EventNameTest, ThreadsMayOpenAndDropOneNameAllTheTime) {
  const TraceSession session(5);
  InManyThreads([&] {
    for (int turn = 0; turn < 100; ++turn) {
      const CEvent event(true, false, "bell");
      EXPECT_TRUE(event.Check());
    }
  });
  EXPECT_EQ(session.Count(CREATING), session.Count(DELETING));
  EXPECT_EQ(session.Count(OPENING), session.Count(DROPPING));
  EXPECT_EQ(session.Count(CREATING) + session.Count(OPENING), 400);
}

}  // namespace
