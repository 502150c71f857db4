#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/event.h"
#include "tests/platform/event_texts.h"
#include "tests/support/trace_session.h"

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char FOREVER[] = "\nwaiting forever on event %p";
constexpr char BEGIN[] = "\nwaiting %dms on event %p";
constexpr char ALREADY[] =
    "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n";
constexpr char PREPARE[] =
    "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> "
    "(ts:sec=%ld,ts:nsec=%ld)\n";
constexpr char RESULT[] = "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n";

// Long enough never to pass in a test.
constexpr uint32_t LONG = 100'000;

// Waits until a thread counts as waiting on the event, which is not signalled and of that kind of
// reset: that is when changing nothing is refused. The thread may not block yet.
bool HasWaiter(CEvent& event, bool isManualReset) {
  return WaitUntil([&] { return !event.Create(false, isManualReset); });
}

// Threads that wait on one event.
class Waiters {
 public:
  explicit Waiters(CEvent& event, int count, uint32_t limit = EVENT_INFINITE) {
    for (int number = 0; number < count; ++number) {
      m_threads.emplace_back([this, &event, limit] {
        if (event.Wait(limit) == EVENT_SIGNALED) {
          ++m_released;
        }
      });
    }
  }
  ~Waiters() { Join(); }
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;

  int Released() const { return m_released; }

  void Join() {
    for (std::thread& thread : m_threads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

 private:
  std::atomic<int> m_released = 0;
  std::vector<std::thread> m_threads;
};

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

TEST(EventWaitTest, SetReleasesEveryWaiterOfAManualResetEvent) {
  CEvent event(false, true);
  Waiters waiters(event, 3);
  EXPECT_TRUE(HasWaiter(event, true));
  EXPECT_TRUE(event.Set());
  waiters.Join();
  EXPECT_EQ(waiters.Released(), 3);
  EXPECT_TRUE(event.Check());
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
    Waiters waiters(event, 1, limit);
    EXPECT_TRUE(HasWaiter(event, true));
    EXPECT_TRUE(WaitUntil([&] { return event.Pulse() && waiters.Released() == 1; }));
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

// What Wait() writes at level 5.
std::vector<std::string> TextsOfWait(CEvent& event, uint32_t limit, bool trace = true) {
  const TraceSession session(5);
  event.Wait(limit, trace);
  return EventTexts(session);
}

TEST(EventWaitTraceTest, WritesNothingUnlessAskedTo) {
  CEvent event(false, false);
  EXPECT_THAT(TextsOfWait(event, 0, false), IsEmpty());
  event.Set();
  EXPECT_THAT(TextsOfWait(event, 0, false), IsEmpty());
  event.Set();
  EXPECT_THAT(TextsOfWait(event, EVENT_INFINITE, false), IsEmpty());
  const TraceSession session(5);
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
  EXPECT_THAT(session.Lines(), IsEmpty());
}

TEST(EventWaitTraceTest, EachLineHasLevelFive) {
  CEvent event(true, true);
  EXPECT_EQ(LevelOf(FOREVER, [&] { event.Wait(EVENT_INFINITE, true); }), 5U);
  EXPECT_EQ(LevelOf(BEGIN, [&] { event.Wait(1, true); }), 5U);
  EXPECT_EQ(LevelOf(ALREADY, [&] { event.Wait(1, true); }), 5U);
  event.Reset();
  EXPECT_EQ(LevelOf(PREPARE, [&] { event.Wait(1, true); }), 5U);
  EXPECT_EQ(LevelOf(RESULT, [&] { event.Wait(1, true); }), 5U);
}

TEST(EventWaitTraceTest, OfASignalledEvent) {
  CEvent manual(true, true, "bell");
  EXPECT_THAT(TextsOfWait(manual, EVENT_INFINITE),
              ElementsAre("\nwaiting forever on event EVENT",
                          "event EVENT <bell> (IsManual=1) has been already signaled --> New "
                          "state: IsSignaled=1\n"));
  CEvent automatic(true, false);
  EXPECT_THAT(TextsOfWait(automatic, 1500),
              ElementsAre("\nwaiting 1500ms on event EVENT",
                          "event EVENT <anon> (IsManual=0) has been already signaled --> New "
                          "state: IsSignaled=0\n"));
}

TEST(EventWaitTraceTest, OfATimeOut) {
  CEvent event(false, false, "bell");
  EXPECT_THAT(TextsOfWait(event, 0),
              ElementsAre("\nwaiting 0ms on event EVENT",
                          StartsWith("prepare time for waiting on event EVENT <bell> (ts_beg:sec="),
                          "TIMEOUT(0,110) on event EVENT <bell> (IsSignaled=0)\n"));
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

TEST(EventWaitTraceTest, OfASignal) {
  CEvent event(false, true);
  EXPECT_THAT(TextsOfReleasedWait(event, [&] { event.Set(); }),
              ElementsAre("Set event EVENT <anon> IsSignaled=0 --> IsSignaled=1\n",
                          "SIGNAL(0,0) on event EVENT <anon> (IsSignaled=1)\n"));
}

TEST(EventWaitTraceTest, OfAPulse) {
  CEvent event(false, true, "bell");
  EXPECT_THAT(TextsOfReleasedWait(event, [&] { event.Pulse(); }),
              ElementsAre("Pulse event EVENT <bell> IsSignaled=0 --> IsSignaled=0\n",
                          "SIGNAL(0,0) on event EVENT <bell> (IsSignaled=0)\n"));
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
    EXPECT_EQ(session.Count(RESULT), 1);
  }
}

TEST(EventWaitTraceTest, OfACancelledThreadIsNotWrittenUnlessAskedFor) {
  CEvent event(false, true);
  const TraceSession session(5);
  std::thread waiter([&] { event.Wait(LONG); });
  EXPECT_TRUE(HasWaiter(event, true));
  pthread_cancel(waiter.native_handle());
  waiter.join();
  EXPECT_EQ(session.Count(RESULT), 0);
}

TEST(EventWaitTraceTest, AThrowingSinkChangesNoResult) {
  CEvent event(true, false);
  TraceSession session(5);
  for (const char* format : {FOREVER, BEGIN, ALREADY, PREPARE, RESULT}) {
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
