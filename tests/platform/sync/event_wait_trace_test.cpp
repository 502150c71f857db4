// The lines of a wait.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/sync/event.h"
#include "tests/platform/sync/event_fixture.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;

namespace {

TEST(EventWaitTraceTest, IsWrittenOnlyWhenAskedFor) {
  CEvent event(false, false);
  const TraceSession session(5);
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  EXPECT_EQ(event.Wait(1, false), EVENT_TIMEOUT);
  event.Create(true, true);
  const size_t lines = session.Lines().size();
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_EQ(session.Lines().size(), lines);
}

TEST(EventWaitTraceTest, OfASignalledEvent) {
  CEvent manual(true, true, "bell");
  ExpectEventLines(
      {
          {5, "\nwaiting forever on event EVENT"},
          {5,
           "event EVENT <bell> (IsManual=1) has been already signaled --> New state: "
           "IsSignaled=1\n"},
      },
      [&] { manual.Wait(EVENT_INFINITE, true); });
  CEvent automatic(true, false);
  const TraceSession session(5);
  automatic.Wait(1500, true);
  EXPECT_THAT(EventTexts(session),
              ElementsAre("\nwaiting 1500ms on event EVENT",
                          "event EVENT <anon> (IsManual=0) has been already signaled --> New "
                          "state: IsSignaled=0\n"));
}

TEST(EventWaitTraceTest, OfATimeOut) {
  CEvent event(false, false, "bell");
  const auto clock = StopClockAt({10, 600'000'000});
  const auto waits = calls::pthread_cond_timedwait.Fail(ETIMEDOUT);
  ExpectEventLines(
      {
          {5, "\nwaiting 1500ms on event EVENT"},
          {5,
           "prepare time for waiting on event EVENT <bell> "
           "(ts_beg:sec=10,ts_beg:nsec=600000000) -> (ts:sec=12,ts:nsec=100000000)\n"},
          {5, "TIMEOUT(0,110) on event EVENT <bell> (IsSignaled=0)\n"},
      },
      [&] { event.Wait(1500, true); });
}

// What is written when `release` ends a wait on a manual-reset event.
std::vector<std::string> TextsOfReleasedWait(CEvent& event, const std::function<void()>& release) {
  TraceSession session(5);
  std::thread waiter([&] { event.Wait(LONG, true); });
  EXPECT_TRUE(session.WaitFor(PREPARE));
  session.Clear();
  release();
  waiter.join();
  return EventTexts(session);
}

TEST(EventWaitTraceTest, OfASignalAndAPulse) {
  CEvent event(false, true, "bell");
  EXPECT_THAT(TextsOfReleasedWait(event, [&] { event.Pulse(); }),
              ElementsAre("Pulse event EVENT <bell> IsSignaled=0 --> IsSignaled=0\n",
                          "SIGNAL(0,0) on event EVENT <bell> (IsSignaled=0)\n"));
  EXPECT_THAT(TextsOfReleasedWait(event, [&] { event.Set(); }),
              ElementsAre("Set event EVENT <bell> IsSignaled=0 --> IsSignaled=1\n",
                          "SIGNAL(0,0) on event EVENT <bell> (IsSignaled=1)\n"));
}

TEST(EventWaitTraceTest, OfAnErrorOfTheSystem) {
  CEvent event(false, false);
  const auto waits = calls::pthread_cond_wait.Fail(EINVAL);
  const TraceSession session(5);
  event.Wait(EVENT_INFINITE, true);
  EXPECT_THAT(EventTexts(session),
              ElementsAre("\nwaiting forever on event EVENT",
                          "FAILURE(0,22) on event EVENT <anon> (IsSignaled=0)\n"));
}

TEST(EventWaitTraceTest, OfALockThatFailed) {
  const pthread_mutex_t* own = nullptr;
  const auto inits = calls::pthread_mutex_init.Answer([&](auto* mutex, const auto* attribute) {
    own = own != nullptr ? own : mutex;
    return calls::pthread_mutex_init.Real(mutex, attribute);
  });
  CEvent& event = KeepReachable(CEvent(false, false));
  const TraceSession session(5);
  const auto locks = calls::pthread_mutex_lock.Answer([&](pthread_mutex_t* mutex) {
    return mutex == own ? EINVAL : calls::pthread_mutex_lock.Real(mutex);
  });
  EXPECT_EQ(event.Wait(1000, true), EVENT_FAILED);
  EXPECT_THAT(EventTexts(session),
              ElementsAre("\nwaiting 1000ms on event EVENT",
                          "FAILURE(22,0) on event EVENT <anon> (IsSignaled=0)\n"));
}

TEST(EventWaitTraceTest, OfACancelledThread) {
  for (const uint32_t limit : {EVENT_INFINITE, LONG}) {
    CEvent event(false, true, "bell");
    TraceSession session(5);
    std::thread waiter([&] { event.Wait(limit, true); });
    EXPECT_TRUE(session.WaitFor(limit == LONG ? PREPARE : FOREVER));
    pthread_cancel(waiter.native_handle());
    waiter.join();
    EXPECT_EQ(EventTexts(session).back(), "FAILURE(0,0) on event EVENT <bell> (IsSignaled=0)\n");
    EXPECT_EQ(session.Count(ENDING), 1);
  }
}

TEST(EventWaitTraceTest, OfACancelledThreadIsNotWrittenUnlessAskedFor) {
  CEvent event(false, true);
  const TraceSession session(5);
  std::thread waiter([&] { event.Wait(LONG); });
  EXPECT_TRUE(HasWaiter(event, true));
  pthread_cancel(waiter.native_handle());
  waiter.join();
  EXPECT_EQ(session.Count(ENDING), 0);
}

TEST(EventWaitTraceTest, WhileTracingIsOffEveryResultIsTheSame) {
  CEvent event(true, false);
  const TraceSession session(0);
  EXPECT_EQ(event.Wait(0, true), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(0, true), EVENT_TIMEOUT);
  EXPECT_EQ(event.Wait(1, true), EVENT_TIMEOUT);
  EXPECT_THAT(session.Lines(), testing::IsEmpty());
}

TEST(EventWaitTraceTest, AThrowingSinkChangesNoResult) {
  CEvent event(true, false);
  TraceSession session(5);
  for (const char* format : {FOREVER, BEGIN, ALREADY, PREPARE, ENDING}) {
    session.ThrowAt(format);
  }
  EXPECT_EQ(event.Wait(EVENT_INFINITE, true), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(0, true), EVENT_TIMEOUT);
  EXPECT_EQ(event.Wait(1, true), EVENT_TIMEOUT);
  EXPECT_TRUE(event.Create(true, true));
}

TEST(EventWaitTraceTest, AThreadCountsAsWaitingFromItsFirstLineOn) {
  for (const bool isSignaled : {false, true}) {
    CEvent event(isSignaled, true);
    TraceSession session(5);
    bool isCounted = false;
    session.CallAt(BEGIN, [&] { isCounted = !event.Create(isSignaled, true); });
    event.Wait(1, true);
    EXPECT_TRUE(isCounted);
    EXPECT_TRUE(event.Create(isSignaled, true));
  }
}

}  // namespace
