#include "platform/event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/trace_session.h"

using testing::IsEmpty;

namespace {

constexpr char CREATING[] = "creating event %p <%s> (IsSignaled=%d)\n";
constexpr char OPENING[] = "refCount for event %p <%s> incremented (IsSignaled=%d)\n";
constexpr char DROPPING[] = "decr refcount on event %p <%s> (IsSignaled=%d)\n";
constexpr char DELETING[] = "deleting event %p <%s> (IsSignaled=%d)\n";
constexpr char MISMATCH[] = "WARNING: manual setting mismatch for event %p <%s>\n";

// Destroyed after what events share, if that were destroyed at all.
std::optional<CEvent> g_oLast;
// Made before main().
const CEvent g_oFirst(true, true, "first");

bool IsSame(CEvent& one, CEvent& other) {
  one.Reset();
  other.Set();
  const bool isSame = one.Check();
  other.Reset();
  return isSame;
}

bool IsAutoReset(CEvent& event) {
  event.Set();
  event.Wait(0);
  return !event.Check();
}

// Assignment takes the event that the target held before out of everybody's reach; the leak checker
// accepts what an object that lives on still refers to.
void KeepReachable(const CEvent& event) {
  static std::vector<CEvent*>& kept = *new std::vector<CEvent*>;
  kept.push_back(new CEvent(event));
}

void InManyThreads(const std::function<void()>& work) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back(work);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(EventTest, StartsInTheGivenState) {
  EXPECT_TRUE(CEvent(true, false).Check());
  EXPECT_TRUE(CEvent(true, true).Check());
  EXPECT_FALSE(CEvent(false, false).Check());
  EXPECT_FALSE(CEvent(false, true).Check());
}

TEST(EventTest, StartsWithTheGivenKindOfReset) {
  CEvent automatic(false, false);
  EXPECT_TRUE(IsAutoReset(automatic));
  CEvent manual(false, true);
  EXPECT_FALSE(IsAutoReset(manual));
}

TEST(EventTest, StartsOpen) { EXPECT_TRUE(CEvent(false, false).IsOpen()); }

TEST(EventTest, IsSignalledBySetAndClearedByReset) {
  CEvent event(false, false);
  EXPECT_TRUE(event.Set());
  EXPECT_TRUE(event.Check());
  EXPECT_TRUE(event.Reset());
  EXPECT_FALSE(event.Check());
}

TEST(EventTest, CheckConsumesNothing) {
  const CEvent event(true, false);
  EXPECT_TRUE(event.Check());
  EXPECT_TRUE(event.Check());
}

TEST(EventTest, IsSignaledIsACheckWithoutATraceLine) {
  CEvent event(false, true);
  const TraceSession session(5);
  EXPECT_FALSE(event.IsSignaled());
  EXPECT_TRUE(CEvent(true, false).IsSignaled());
  event.Close();
  EXPECT_FALSE(event.IsSignaled());
  EXPECT_EQ(session.Count("Check event %p <%s> (IsSignaled=%d)\n"), 0);
}

TEST(EventTest, PulseWithoutAWaiterLeavesItNotSignalled) {
  CEvent event(true, true);
  EXPECT_TRUE(event.Pulse());
  EXPECT_FALSE(event.Check());
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
}

TEST(EventTest, CreateChangesStateAndKindOfReset) {
  CEvent event(false, false);
  EXPECT_TRUE(event.Create(true, false));
  EXPECT_TRUE(event.Check());
  EXPECT_TRUE(event.Create(true, true));
  EXPECT_FALSE(IsAutoReset(event));
  EXPECT_TRUE(event.Create(false, false));
  EXPECT_FALSE(event.Check());
  EXPECT_TRUE(IsAutoReset(event));
}

TEST(EventTest, CreateIsRefusedWhileAThreadWaits) {
  CEvent event(false, true);
  std::thread waiter([&] { event.Wait(EVENT_INFINITE); });
  EXPECT_TRUE(WaitUntil([&] { return !event.Create(false, true); }));
  EXPECT_FALSE(event.Create(true, false));
  EXPECT_FALSE(event.Check());
  event.Set();
  waiter.join();
  EXPECT_FALSE(IsAutoReset(event));
  EXPECT_TRUE(event.Create(true, false));
}

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
  EXPECT_THAT(session.Lines(), IsEmpty());
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

TEST(EventCopyTest, ACopyIsTheSameEvent) {
  CEvent event(false, false);
  CEvent copy(event);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_TRUE(IsSame(event, copy));
}

TEST(EventCopyTest, AnAssignedHandleIsTheSameEvent) {
  CEvent event(false, false);
  CEvent target(false, false);
  KeepReachable(target);
  target = event;
  EXPECT_TRUE(IsSame(event, target));
}

TEST(EventCopyTest, ACopyOutlivesTheOriginal) {
  auto event = std::make_unique<CEvent>(false, true);
  CEvent copy(*event);
  event.reset();
  EXPECT_TRUE(copy.Set());
  EXPECT_EQ(copy.Wait(0), EVENT_SIGNALED);
}

TEST(EventCopyTest, TheLastHandleDeletesTheEvent) {
  const TraceSession session(5);
  {
    const CEvent event(false, false);
    {
      const CEvent copy(event);  // NOLINT(performance-unnecessary-copy-initialization)
      CEvent second(copy);
      EXPECT_EQ(session.Count(DROPPING), 0);
    }
    EXPECT_EQ(session.Count(DROPPING), 2);
    EXPECT_EQ(session.Count(DELETING), 0);
  }
  EXPECT_EQ(session.Count(DROPPING), 2);
  EXPECT_EQ(session.Count(DELETING), 1);
}

TEST(EventCopyTest, ACopyOfAClosedHandleIsOpen) {
  CEvent event(false, true);
  event.Close();
  CEvent copy(event);
  EXPECT_TRUE(copy.IsOpen());
  EXPECT_TRUE(copy.Reset());
  EXPECT_FALSE(event.IsOpen());
}

TEST(EventCopyTest, AssignmentOpensAClosedHandle) {
  const CEvent event(false, true);
  CEvent target(false, true);
  KeepReachable(target);
  target.Close();
  target = event;
  EXPECT_TRUE(target.IsOpen());
  EXPECT_TRUE(target.Reset());
}

TEST(EventCopyTest, AssignmentToItselfDoesNothing) {
  const TraceSession session(5);
  {
    CEvent event(false, false);
    event.Close();
    const size_t lines = session.Lines().size();
    const CEvent& same = event;
    event = same;
    EXPECT_EQ(session.Lines().size(), lines);
    EXPECT_FALSE(event.IsOpen());
  }
  EXPECT_EQ(session.Count(DELETING), 1);
}

TEST(EventCopyTest, AssignmentDoesNotReleaseTheEventHeldBefore) {
  const TraceSession session(5);
  {
    const CEvent event(false, false);
    CEvent target(false, false, "bell");
    target = event;
    EXPECT_EQ(session.Count(DROPPING) + session.Count(DELETING), 0);
  }
  EXPECT_EQ(session.Count(DELETING), 1);
  const CEvent again(true, true, "bell");
  KeepReachable(again);
  EXPECT_EQ(session.Count(OPENING), 1);
  EXPECT_FALSE(again.Check());
}

TEST(EventCopyTest, ThreadsMayCopyAndDropOneEvent) {
  const TraceSession session(5);
  {
    const CEvent event(false, true);
    InManyThreads([&] {
      for (int turn = 0; turn < 200; ++turn) {
        const CEvent copy(event);  // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_FALSE(copy.Check());
      }
    });
    EXPECT_EQ(session.Count(DROPPING), 800);
    EXPECT_EQ(session.Count(DELETING), 0);
  }
  EXPECT_EQ(session.Count(DELETING), 1);
}

}  // namespace
