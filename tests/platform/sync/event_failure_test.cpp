// Events for which the system refuses something, and their end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/sync/event.h"
#include "platform/sync/thread.h"
#include "tests/platform/sync/event_fixture.h"
#include "tests/support/failing_new.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

using testing::IsEmpty;

namespace {

struct CreationFailure {
  const char* name;
  std::function<ScopedAnswer()> fail;  // the next creation
  const char* format;
  const char* text;  // for error 22 and a signalled event
};

constexpr char CLOCK_ERROR[] =
    "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=%d) for event %p "
    "<%s> (IsSignaled=%d)\n";
constexpr char CONDITION_ERROR[] =
    "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> "
    "(IsSignaled=%d)\n";
constexpr char MUTEX_ERROR[] =
    "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> "
    "(IsSignaled=%d)\n";

constexpr char CLOCK_TEXT[] =
    "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=22) for event "
    "EVENT <anon> (IsSignaled=1)\n";

const CreationFailure CREATION_FAILURES[] = {
    {"condattr_init", [] { return calls::pthread_condattr_init.Fail(EINVAL, 0, 1); }, CLOCK_ERROR,
     CLOCK_TEXT},
    {"condattr_setclock", [] { return calls::pthread_condattr_setclock.Fail(EINVAL, 0, 1); },
     CLOCK_ERROR, CLOCK_TEXT},
    {"cond_init", [] { return calls::pthread_cond_init.Fail(EINVAL, 0, 1); }, CONDITION_ERROR,
     "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=22) on event EVENT <anon> "
     "(IsSignaled=1)\n"},
    {"mutex_init", [] { return calls::pthread_mutex_init.Fail(EINVAL, 0, 1); }, MUTEX_ERROR,
     "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=22) on event EVENT <anon> "
     "(IsSignaled=1)\n"},
};

class EventCreationFailureTest : public testing::TestWithParam<CreationFailure> {
 protected:
  // Makes what all events share.
  EventCreationFailureTest() { const CEvent first(false, false, "the first of all"); }

  // An event whose creation fails.
  static std::unique_ptr<CEvent> Fail(const char* name = nullptr) {
    const auto failing = GetParam().fail();
    return std::make_unique<CEvent>(true, true, name);
  }
};

INSTANTIATE_TEST_SUITE_P(, EventCreationFailureTest, testing::ValuesIn(CREATION_FAILURES),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(EventCreationFailureTest, IsTracedWithoutTheName) {
  for (const char* name : {static_cast<const char*>(nullptr), "bell"}) {
    ExpectEventLines({{3, GetParam().text}}, [&] { Fail(name); });
  }
}

TEST_P(EventCreationFailureTest, LeavesNothingInitialised) {
  const auto conditions = calls::pthread_cond_destroy.Watch();
  const auto attributes = calls::pthread_condattr_destroy.Watch();
  const auto mutexes = calls::pthread_mutex_destroy.Watch();
  Fail();
  EXPECT_EQ(conditions.GetCount(), GetParam().name == std::string("mutex_init") ? 1 : 0);
  EXPECT_EQ(attributes.GetCount(), 1);
  EXPECT_EQ(mutexes.GetCount(), 0);
}

TEST_P(EventCreationFailureTest, LeavesAnEmptyHandle) {
  const auto event = Fail();
  EXPECT_TRUE(event->IsOpen());
  ExpectEverythingRefused(*event);
}

TEST_P(EventCreationFailureTest, LeavesNameAndLocksFree) {
  const auto failed = Fail("bell");
  auto other = std::async(std::launch::async, [] { return CEvent(false, true, "bell").Check(); });
  EXPECT_FALSE(other.get());
}

TEST_P(EventCreationFailureTest, IsSurvivedWithASinkThatThrows) {
  TraceSession session(5);
  session.ThrowAt(GetParam().format);
  EXPECT_FALSE(Fail("bell")->Set());
  EXPECT_TRUE(CEvent(true, true, "bell").Check());
}

// A handle whose event could not be created.
std::unique_ptr<CEvent> MakeEmpty() {
  const auto failing = calls::pthread_cond_init.Fail(ENOMEM, 0, 1);
  return std::make_unique<CEvent>(true, true);
}

TEST(EventFailureTest, ACopyOfAnEmptyHandleIsEmpty) {
  const auto empty = MakeEmpty();
  const TraceSession session(5);
  {
    CEvent copy(*empty);
    EXPECT_FALSE(copy.Set());
    EXPECT_TRUE(copy.IsOpen());
    copy = *empty;
    EXPECT_FALSE(copy.Check());
  }
  EXPECT_THAT(session.Lines(), IsEmpty());
}

TEST(EventFailureTest, AssignmentFillsAnEmptyHandle) {
  const auto target = MakeEmpty();
  const CEvent event(true, true);
  *target = event;
  EXPECT_TRUE(target->Check());
}

TEST(EventFailureTest, AssignmentOfAnEmptyHandleEmpties) {
  CEvent& event = KeepReachable(CEvent(true, true));
  CEvent target(event);
  target.Close();
  target = *MakeEmpty();
  EXPECT_TRUE(target.IsOpen());
  EXPECT_FALSE(target.Check());
  EXPECT_TRUE(event.Check());
}

// What `operation` answers when pthread can neither signal nor broadcast.
bool WithoutAWakeUp(CEvent& event, bool (CEvent::*operation)()) {
  const auto signals = calls::pthread_cond_signal.Fail(EINVAL);
  const auto broadcasts = calls::pthread_cond_broadcast.Fail(EINVAL);
  return (event.*operation)();
}

TEST(EventFailureTest, WhatCannotWakeFailsAndDoesTheRest) {
  for (const bool isManualReset : {false, true}) {
    CEvent event(false, isManualReset);
    const CEvent other(event);
    EXPECT_FALSE(WithoutAWakeUp(event, &CEvent::Set));
    EXPECT_TRUE(event.Check());
    EXPECT_FALSE(WithoutAWakeUp(event, &CEvent::Pulse));
    EXPECT_FALSE(event.Check());
    EXPECT_FALSE(WithoutAWakeUp(event, &CEvent::Close));
    EXPECT_FALSE(event.IsOpen());
    EXPECT_TRUE(other.Check());
  }
}

// What `operation` answers when pthread does not lock; what is not locked is not unlocked.
bool WithoutTheLock(CEvent& event, bool (CEvent::*operation)()) {
  const auto locks = calls::pthread_mutex_lock.Fail(EINVAL, 0, 1);
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  const bool result = (event.*operation)();
  EXPECT_EQ(locks.GetCount(), 1);
  EXPECT_EQ(unlocks.GetCount(), 0);
  return result;
}

TEST(EventFailureTest, WhatCannotLockWorksAllTheSame) {
  CEvent event(false, true);
  const CEvent other(event);
  EXPECT_TRUE(WithoutTheLock(event, &CEvent::Set));
  EXPECT_TRUE(event.Check());
  EXPECT_TRUE(WithoutTheLock(event, &CEvent::Pulse));
  EXPECT_FALSE(event.Check());
  event.Set();
  EXPECT_TRUE(WithoutTheLock(event, &CEvent::Reset));
  EXPECT_FALSE(event.Check());
  EXPECT_TRUE(WithoutTheLock(event, &CEvent::Close));
  EXPECT_TRUE(other.Check());
}

TEST(EventFailureTest, AnUnnamedCreationDoesNotWaitForANamedOne) {
  const auto named = std::this_thread::get_id();
  std::unique_ptr<CEvent> other;
  const auto inits = calls::pthread_cond_init.Answer([&](auto* condition, const auto* kind) {
    if (std::this_thread::get_id() == named) {
      std::thread([&] { other = std::make_unique<CEvent>(true, true); }).join();
    }
    return calls::pthread_cond_init.Real(condition, kind);
  });
  EXPECT_TRUE(CEvent(true, true, "bell").Check());
  EXPECT_TRUE(other->Check());
}

// Runs `succeeds` with ever more allocations until it does. Returns how often it failed.
int FailuresOf(const std::function<bool()>& succeeds) {
  for (int allocations = 0; allocations < 100; ++allocations) {
    const FailingNew failing(allocations);
    if (succeeds()) {
      return allocations;
    }
  }
  return 100;
}

// Longer than what a std::string keeps in itself.
constexpr char LONG_NAME[] = "the bell of the front door of the house";

TEST(OutOfMemoryTest, LeavesAnEmptyHandleOfAnEvent) {
  EXPECT_EQ(FailuresOf([] { return CEvent(true, false).Check(); }), 1);
}

TEST(OutOfMemoryTest, LeavesNameAndLocksOfAnEventFree) {
  const int failures = FailuresOf([] { return CEvent(true, false, LONG_NAME).Check(); });
  EXPECT_GE(failures, 3);
  EXPECT_LT(failures, 100);
  EXPECT_FALSE(CEvent(false, false, LONG_NAME).Check());
}

TEST(OutOfMemoryTest, StartsNoThread) {
  CThread thread;
  const auto start = [&] {
    return thread.Start([](void*) -> void* { return nullptr; }, nullptr, 0, false, 0, 0, true);
  };
  {
    const FailingNew failing(0);
    EXPECT_FALSE(start());
  }
  EXPECT_EQ(thread.GetHandle(), 0U);
  EXPECT_EQ(FailuresOf(start), 2);
  EXPECT_TRUE(thread.WaitForTermination(CThread::INFINITE_TIME));
}

TEST(EventEndTest, DestroysWhatWasMadeWithTheLastHandle) {
  const auto conditions = calls::pthread_cond_destroy.Watch();
  const auto attributes = calls::pthread_condattr_destroy.Watch();
  const auto mutexes = calls::pthread_mutex_destroy.Watch();
  const auto pauses = calls::sleep.Watch();
  auto event = std::make_unique<CEvent>(false, false);
  { const CEvent copy(*event); }  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(conditions.GetCount() + attributes.GetCount() + mutexes.GetCount(), 0);
  event.reset();
  EXPECT_EQ(conditions.GetCount(), 1);
  EXPECT_EQ(attributes.GetCount(), 1);
  EXPECT_EQ(mutexes.GetCount(), 1);
  EXPECT_EQ(pauses.GetCount(), 0);
}

// A thread that waits without limit on an event whose last handle goes meanwhile: the destroyer
// pauses second by second, and `pauses[n]` runs in place of its n-th pause. The thread must leave
// in the last one.
void DestroyWhileAThreadWaits(const char* name, const std::vector<std::function<void()>>& pauses) {
  auto event = std::make_unique<CEvent>(false, false, name);
  pthread_cond_t* condition = nullptr;
  const auto waits = calls::pthread_cond_wait.Answer([&](auto* waited, auto* mutex) {
    condition = waited;
    return calls::pthread_cond_wait.Real(waited, mutex);
  });
  std::atomic<bool> hasLeft = false;
  std::thread waiter([&, handle = event.get()] {
    EXPECT_EQ(handle->Wait(EVENT_INFINITE), EVENT_SIGNALED);
    hasLeft = true;
  });
  EXPECT_TRUE(WaitUntil([&] { return waits.GetCount() == 1; }));

  size_t pause = 0;
  const auto destroys = calls::pthread_cond_destroy.Watch();
  const auto sleeps = calls::sleep.Answer([&](unsigned seconds) {
    EXPECT_EQ(seconds, 1U);
    EXPECT_EQ(destroys.GetCount(), 0);
    EXPECT_FALSE(hasLeft);
    pauses.at(pause)();
    if (++pause == pauses.size()) {
      EXPECT_TRUE(WaitUntil([&] {
        pthread_cond_broadcast(condition);
        return hasLeft.load();
      }));
    }
    return 0U;
  });
  event.reset();
  waiter.join();
  EXPECT_EQ(sleeps.GetCount(), static_cast<int>(pauses.size()));
  EXPECT_EQ(destroys.GetCount(), 1);
}

TEST(EventEndTest, WaitsSecondBySecondUntilNobodyWaits) {
  DestroyWhileAThreadWaits(nullptr, {[] {}, [] {}, [] {}});
}

TEST(EventEndTest, GivesTheNameAwayBeforeTheWaiterLeaves) {
  std::unique_ptr<CEvent> fresh;
  DestroyWhileAThreadWaits(
      "bell", {[&] {
        std::thread([&] { fresh = std::make_unique<CEvent>(true, true, "bell"); }).join();
        EXPECT_TRUE(fresh->Check());
      }});
}

TEST(EventEndTest, WaitsForAThreadThatWritesTheFirstLineOfItsWait) {
  auto event = std::make_unique<CEvent>(true, false);
  TraceSession session(5);
  std::atomic<bool> isWriting = false;
  std::atomic<bool> isPausing = false;
  session.CallAt(FOREVER, [&] {
    isWriting = true;
    EXPECT_TRUE(WaitUntil([&] { return isPausing || session.Count(DELETING) > 0; }));
    EXPECT_EQ(session.Count(DELETING), 0);
  });
  std::thread waiter([&handle = *event] { handle.Wait(EVENT_INFINITE, true); });
  EXPECT_TRUE(WaitUntil([&] { return isWriting.load(); }));
  const auto sleeps = calls::sleep.Answer([&](unsigned) {
    isPausing = true;
    return 0U;
  });
  event.reset();
  waiter.join();
  EXPECT_EQ(session.Count(DELETING), 1);
}

}  // namespace
