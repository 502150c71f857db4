#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "platform/sync/event.h"
#include "tests/platform/sync/event_fixture.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

using std::chrono::milliseconds;
using testing::ElementsAre;

namespace {

// Threads that wait on one event.
class Waiters {
 public:
  explicit Waiters(CEvent& event, int count, uint32_t limit = EVENT_INFINITE) {
    for (int number = 0; number < count; ++number) {
      m_oThreads.emplace_back([this, &event, limit] {
        if (event.Wait(limit) == EVENT_SIGNALED) {
          ++m_nReleased;
        }
      });
    }
  }
  ~Waiters() { Join(); }
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;

  int Released() const { return m_nReleased; }

  void Join() {
    for (std::thread& thread : m_oThreads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

 private:
  std::atomic<int> m_nReleased = 0;
  std::vector<std::thread> m_oThreads;
};

// True when the event is usable and counts no waiter.
bool IsLeftAlone(CEvent& event) {
  return event.Create(false, true) && event.Set() && event.Wait(0) == EVENT_SIGNALED;
}

TEST(EventWaitTest, ItsResultsAreWhatTheHostComparesAgainst) {
  EXPECT_EQ(EVENT_SIGNALED, 0U);
  EXPECT_EQ(EVENT_TIMEOUT, 102U);
  EXPECT_EQ(EVENT_FAILED, 0xFFFFFFFFU);
  EXPECT_EQ(EVENT_INFINITE, 0xFFFFFFFFU);
}

TEST(EventWaitTest, AutoResetSatisfiesExactlyOneWait) {
  CEvent event(false, false);
  event.Set();
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(1), EVENT_TIMEOUT);
}

TEST(EventWaitTest, ManualResetStaysSignalledUntilReset) {
  CEvent event(false, true);
  event.Set();
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(1), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(0), EVENT_SIGNALED);
  event.Reset();
  EXPECT_EQ(event.Wait(1), EVENT_TIMEOUT);
}

TEST(EventWaitTest, LastsAsLongAsAskedFor) {
  CEvent event(false, false);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(event.Wait(120), EVENT_TIMEOUT);
  const auto passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed, milliseconds(120));
  EXPECT_LT(passed, milliseconds(20'000));
}

TEST(EventWaitTest, OfNoTimeLooksOnce) {
  CEvent event(false, false);
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  event.Set();
  EXPECT_EQ(event.Wait(0), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
}

TEST(EventWaitTest, OfNoTimeDoesNotBlock) {
  CEvent event(false, false);
  const auto waits = calls::pthread_cond_timedwait.Watch();
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  EXPECT_EQ(waits.GetCount(), 0);
  EXPECT_TRUE(IsLeftAlone(event));
}

TEST(EventWaitTest, SetReleasesEveryWaiterOfAManualResetEvent) {
  CEvent event(false, true);
  const auto waits = calls::pthread_cond_wait.Watch();
  Waiters waiters(event, 3);
  EXPECT_TRUE(WaitUntil([&] { return waits.GetCount() == 3; }));
  EXPECT_TRUE(event.Set());
  EXPECT_TRUE(WaitUntil([&] { return waiters.Released() == 3; }));
  EXPECT_TRUE(event.Check());
}

// A thread that comes to wait just when the signal is on its way would be released, too.
TEST(EventWaitTest, AnAutoResetEventReleasesOneWaiterEachTime) {
  CEvent event(false, false);
  const auto waits = calls::pthread_cond_wait.Watch();
  Waiters waiters(event, 3);
  EXPECT_TRUE(WaitUntil([&] { return waits.GetCount() == 3; }));
  for (int wakes = 1; wakes <= 3; ++wakes) {
    EXPECT_TRUE(wakes == 2 ? event.Pulse() : event.Set());
    EXPECT_TRUE(WaitUntil([&] { return waiters.Released() == wakes; }));
  }
  waiters.Join();
  EXPECT_FALSE(event.Check());
}

TEST(EventWaitTest, SetEndsAWaitWithALimit) {
  CEvent event(false, false);
  Waiters waiters(event, 1, LONG);
  EXPECT_TRUE(HasWaiter(event, false));
  event.Set();
  EXPECT_TRUE(WaitUntil([&] { return waiters.Released() == 1; }));
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
}

TEST(EventWaitTest, PulseReleasesTheWaitersAndNobodyElse) {
  for (const uint32_t limit : {EVENT_INFINITE, LONG}) {
    CEvent event(false, true);
    const auto waits = calls::pthread_cond_wait.Watch();
    const auto timedWaits = calls::pthread_cond_timedwait.Watch();
    Waiters waiters(event, 2, limit);
    EXPECT_TRUE(WaitUntil([&] { return waits.GetCount() + timedWaits.GetCount() == 2; }));
    EXPECT_TRUE(event.Pulse());
    waiters.Join();
    EXPECT_EQ(waiters.Released(), 2);
    EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  }
}

TEST(EventWaitTest, CloseReleasesTheWaitersOfAllHandles) {
  CEvent event(false, true);
  CEvent other(event);
  Waiters waiters(event, 2);
  Waiters others(other, 1, LONG);
  EXPECT_TRUE(HasWaiter(event, true));
  EXPECT_TRUE(other.Close());
  waiters.Join();
  others.Join();
  EXPECT_EQ(waiters.Released(), 2);
}

TEST(EventWaitTest, CloseReleasesItsOwnWaiter) {
  CEvent event(false, false);
  Waiters waiters(event, 1);
  EXPECT_TRUE(HasWaiter(event, false));
  EXPECT_TRUE(event.Close());
  EXPECT_TRUE(WaitUntil([&] { return waiters.Released() == 1; }));
}

TEST(EventWaitTest, SeesWhatWasWrittenBeforeSet) {
  CEvent event(false, false);
  int written = 0;
  std::thread setter([&] {
    written = 7;
    event.Set();
  });
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_EQ(written, 7);
  setter.join();
}

TEST(EventWaitTest, HandsOverEveryOneOfManySignals) {
  CEvent ping(false, false);
  CEvent pong(false, false);
  std::thread other([&] {
    for (int turn = 0; turn < 20; ++turn) {
      EXPECT_EQ(ping.Wait(EVENT_INFINITE), EVENT_SIGNALED);
      pong.Set();
    }
  });
  for (int turn = 0; turn < 20; ++turn) {
    ping.Set();
    EXPECT_EQ(pong.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  }
  other.join();
}

TEST(EventWaitTest, ACancelledThreadLeavesNothingBehind) {
  for (const uint32_t limit : {EVENT_INFINITE, LONG}) {
    struct Context {
      CEvent event{false, true};
      uint32_t limit = 0;
    } context;
    context.limit = limit;
    pthread_t thread = 0;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* argument) -> void* {
                    auto* shared = static_cast<Context*>(argument);
                    shared->event.Wait(shared->limit, true);
                    return nullptr;
                  },
                  &context),
              0);
    EXPECT_TRUE(HasWaiter(context.event, true));
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(context.event.Create(true, false));
    EXPECT_EQ(context.event.Wait(0), EVENT_SIGNALED);
  }
}

TEST(EventWaitTest, OfNoTimeEndsACancelledThread) {
  CEvent event(false, true);
  bool isCancelled = true;
  std::thread thread([&] {
    pthread_cancel(pthread_self());
    event.Wait(0);
    isCancelled = false;
  });
  thread.join();
  EXPECT_TRUE(isCancelled);
  EXPECT_TRUE(event.Create(true, false)) << "no waiter is left";
  EXPECT_EQ(event.Wait(0), EVENT_SIGNALED);
}

TEST(EventWaitTest, TheDeadlineIsOnTheMonotonicClock) {
  struct Case {
    timespec now;
    uint32_t milliseconds;
    time_t seconds;
    int64_t nanoseconds;
  };
  const Case cases[] = {
      {{10, 0}, 1, 10, 1'000'000},
      {{10, 300'000'000}, 1500, 11, 800'000'000},
      {{10, 600'000'000}, 1500, 12, 100'000'000},
      {{10, 500'000'000}, 500, 11, 0},
      {{10, 500'000'000}, 499, 10, 999'000'000},
      {{5, 999'999'999}, 1, 6, 999'999},
      {{1, 0}, 0xFFFFFFFE, 4'294'968, 294'000'000},
  };
  for (const Case& each : cases) {
    const auto clock = StopClockAt(each.now);
    const auto waits = calls::pthread_cond_timedwait.Answer(
        [&each](pthread_cond_t*, pthread_mutex_t*, const timespec* deadline) {
          EXPECT_EQ(deadline->tv_sec, each.seconds);
          EXPECT_EQ(deadline->tv_nsec, each.nanoseconds);
          return ETIMEDOUT;
        });
    EXPECT_EQ(CEvent(false, false).Wait(each.milliseconds), EVENT_TIMEOUT);
    EXPECT_EQ(waits.GetCount(), 1);
  }
}

TEST(EventWaitTest, GoesOnAfterAnInterruption) {
  CEvent event(false, false);
  int count = 0;
  const auto waits =
      calls::pthread_cond_wait.Answer([&](auto...) { return ++count < 3 ? EINTR : 0; });
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_EQ(waits.GetCount(), 3);
}

TEST(EventWaitTest, KeepsItsDeadlineAfterAnInterruption) {
  CEvent event(false, false);
  std::vector<std::pair<time_t, int64_t>> deadlines;
  const auto waits = calls::pthread_cond_timedwait.Answer(
      [&](pthread_cond_t*, pthread_mutex_t*, const timespec* deadline) {
        deadlines.emplace_back(deadline->tv_sec, deadline->tv_nsec);
        return deadlines.size() < 3 ? EINTR : ETIMEDOUT;
      });
  EXPECT_EQ(event.Wait(1000), EVENT_TIMEOUT);
  EXPECT_THAT(deadlines, ElementsAre(deadlines[0], deadlines[0], deadlines[0]));
}

TEST(EventWaitTest, AWakeUpCountsAsASignal) {
  CEvent event(false, false);
  const auto waits = calls::pthread_cond_wait.Fail(0);
  const auto timedWaits = calls::pthread_cond_timedwait.Fail(0);
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_EQ(event.Wait(1000), EVENT_SIGNALED);
  EXPECT_FALSE(event.Check());
  EXPECT_TRUE(IsLeftAlone(event));
}

TEST(EventWaitTest, ASignalAtTheLastMomentCounts) {
  for (const bool isManualReset : {false, true}) {
    CEvent event(false, isManualReset);
    const auto waits = calls::pthread_cond_timedwait.Answer([&](auto...) {
      const auto held = calls::pthread_mutex_lock.Fail(EDEADLK, 0, 1);  // by the waiter
      event.Set();
      return ETIMEDOUT;
    });
    EXPECT_EQ(event.Wait(1000), EVENT_SIGNALED);
    EXPECT_EQ(event.Check(), isManualReset);
  }
}

TEST(EventWaitTest, AnErrorOfTheSystemFailsTheWait) {
  CEvent event(false, false);
  const auto waits = calls::pthread_cond_wait.Fail(EINVAL);
  const auto timedWaits = calls::pthread_cond_timedwait.Fail(EPERM);
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_FAILED);
  EXPECT_EQ(event.Wait(1000), EVENT_FAILED);
  EXPECT_TRUE(IsLeftAlone(event));
}

TEST(EventWaitTest, AnExceptionBreaksItOffAndLeavesNothingBehind) {
  CEvent event(false, false);
  const auto raise = [](auto...) -> int { throw std::runtime_error("broken"); };
  const auto waits = calls::pthread_cond_wait.Answer(raise);
  const auto timedWaits = calls::pthread_cond_timedwait.Answer(raise);
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_FAILED);
  EXPECT_EQ(event.Wait(1000), EVENT_FAILED);
  EXPECT_TRUE(IsLeftAlone(event));
}

TEST(EventWaitTest, ConsumesASignalWithoutTheLock) {
  CEvent event(true, false);
  const auto failing = calls::pthread_mutex_lock.Fail(EINVAL, 0, 1);
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_SIGNALED);
  EXPECT_FALSE(event.Check());
  EXPECT_TRUE(IsLeftAlone(event));
}

TEST(EventWaitTest, FailsWithoutTheLockAndStaysCounted) {
  CEvent& event = KeepReachable(CEvent(false, false));
  const auto failing = calls::pthread_mutex_lock.Fail(EINVAL, 0, 1);
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_FAILED);
  EXPECT_EQ(unlocks.GetCount(), 0);
  EXPECT_FALSE(event.Create(false, false));
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
}

}  // namespace
