#include "platform/sync/event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

#include "tests/platform/sync/event_fixture.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

TEST(EventTest, StartsOpenInTheGivenState) {
  EXPECT_TRUE(CEvent(true, false).Check());
  EXPECT_TRUE(CEvent(true, true).Check());
  EXPECT_FALSE(CEvent(false, false).Check());
  EXPECT_FALSE(CEvent(false, true).Check());
  EXPECT_TRUE(CEvent(false, false).IsOpen());
}

TEST(EventTest, StartsWithTheGivenKindOfReset) {
  CEvent automatic(false, false);
  EXPECT_TRUE(IsAutoReset(automatic));
  CEvent manual(false, true);
  EXPECT_FALSE(IsAutoReset(manual));
}

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
  const CEvent signalled(true, false);
  const TraceSession session(5);
  EXPECT_FALSE(event.IsSignaled());
  EXPECT_TRUE(signalled.IsSignaled());
  EXPECT_THAT(session.Lines(), testing::IsEmpty());
  event.Close();
  EXPECT_FALSE(event.IsSignaled());
}

TEST(EventTest, PulseWithoutAWaiterLeavesItNotSignalled) {
  CEvent event(true, true);
  EXPECT_TRUE(event.Pulse());
  EXPECT_FALSE(event.Check());
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
}

TEST(EventTest, SetPulseAndWakeYieldAndNothingElseDoes) {
  CEvent event(false, true);
  const auto yields = calls::sched_yield.Watch();
  event.Set();
  EXPECT_EQ(yields.GetCount(), 1);
  event.Pulse();
  EXPECT_EQ(yields.GetCount(), 2);
  event.Wake();
  EXPECT_EQ(yields.GetCount(), 3);
  event.SetWithoutWaking();
  event.Reset();
  event.Close();
  event.Set();
  event.Pulse();
  event.Wake();
  EXPECT_EQ(yields.GetCount(), 3);
}

TEST(EventTest, SetInTwoStepsSignalsFirstAndWakesThen) {
  CEvent event(false, true);
  const auto wakes = calls::pthread_cond_broadcast.Watch();
  EXPECT_TRUE(event.SetWithoutWaking());
  EXPECT_EQ(event.Wait(0), EVENT_SIGNALED);
  EXPECT_EQ(wakes.GetCount(), 0);
  EXPECT_TRUE(event.Wake());
  EXPECT_EQ(wakes.GetCount(), 1);
  event.Close();
  EXPECT_FALSE(event.SetWithoutWaking());
  EXPECT_FALSE(event.Wake());
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

// The sink runs while a Set(), a Pulse() or a Reset() holds the lock.
TEST(EventTest, CheckAndCreateDoNotWaitForTheLock) {
  CEvent event(false, true);
  TraceSession session(5);
  for (const char* format : {SETTING, PULSING, RESETTING}) {
    session.CallAt(format, [&] {
      EXPECT_TRUE(event.Create(true, false));
      EXPECT_TRUE(event.Check());
    });
  }
  event.Set();
  event.Pulse();
  event.Reset();
  EXPECT_EQ(session.Count(CHECKING), 3);
}

TEST(EventCloseTest, SignalsTheEvent) {
  CEvent event(false, true);
  const CEvent other(event);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_TRUE(event.Close());
  EXPECT_TRUE(other.Check());
}

TEST(EventCloseTest, SignalsNobodyBeforeItHasClosedTheHandle) {
  for (const bool isManualReset : {false, true}) {
    CEvent event(false, isManualReset);
    const CEvent other(event);
    const auto look = [&] {
      EXPECT_TRUE(other.IsSignaled());
      EXPECT_FALSE(event.IsOpen());
    };
    const auto unlocks = calls::pthread_mutex_unlock.Answer([&](pthread_mutex_t* mutex) {
      look();
      return calls::pthread_mutex_unlock.Real(mutex);
    });
    const auto signals = calls::pthread_cond_signal.Answer([&](pthread_cond_t* condition) {
      look();
      return calls::pthread_cond_signal.Real(condition);
    });
    const auto broadcasts = calls::pthread_cond_broadcast.Answer([&](pthread_cond_t* condition) {
      look();
      return calls::pthread_cond_broadcast.Real(condition);
    });
    EXPECT_TRUE(event.Close());
    EXPECT_EQ(unlocks.GetCount(), 1);
    EXPECT_EQ(signals.GetCount() + broadcasts.GetCount(), 1);
  }
}

TEST(EventCloseTest, WakesAllWaitersOfAManualResetEventAndOneOfAnAutoResetEvent) {
  for (const bool isManualReset : {false, true}) {
    CEvent event(false, isManualReset);
    const auto signals = calls::pthread_cond_signal.Watch();
    const auto broadcasts = calls::pthread_cond_broadcast.Watch();
    event.Close();
    EXPECT_EQ(signals.GetCount(), isManualReset ? 0 : 1);
    EXPECT_EQ(broadcasts.GetCount(), isManualReset ? 1 : 0);
  }
}

TEST(EventCloseTest, ClosesThisHandleForGood) {
  CEvent event(false, true);
  event.Close();
  EXPECT_FALSE(event.IsOpen());
  ExpectEverythingRefused(event);
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
  EXPECT_EQ(session.Count(DELETING), 1);
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
    CEvent target(false, false, "never released");
    target = event;
    EXPECT_EQ(session.Count(DROPPING) + session.Count(DELETING), 0);
  }
  EXPECT_EQ(session.Count(DELETING), 1);
  const CEvent again(true, true, "never released");
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
