#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/event.h"
#include "tests/platform/event_texts.h"
#include "tests/platform/pthread_calls.h"
#include "tests/support/trace_session.h"

using testing::Contains;
using testing::ElementsAre;

namespace {

// An event whose calls of the system are watched.
class EventCallsTest : public testing::Test {
 protected:
  PthreadCalls m_oCalls;
  CEvent m_oAutomatic{false, false};
  CEvent m_oManual{false, true};

  EventCallsTest() { m_oCalls.Take(); }

  std::vector<std::string> CallsOf(const std::function<void()>& operation) {
    m_oCalls.Take();
    operation();
    return m_oCalls.Take();
  }
};

class EventWaitCallsTest : public EventCallsTest {
 protected:
  // On an event that is not signalled.
  std::vector<std::string> CallsOfWait(uint32_t milliseconds, uint32_t result) {
    return CallsOf([&] { EXPECT_EQ(m_oAutomatic.Wait(milliseconds), result); });
  }

  // True when the event is usable and counts no waiter.
  static bool IsLeftAlone(CEvent& event) {
    return event.Create(false, true) && event.Set() && event.Wait(0) == EVENT_SIGNALED;
  }
};

TEST_F(EventCallsTest, SetWakesUnderTheLockAndYields) {
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oAutomatic.Set()); }),
              ElementsAre("mutex_lock", "cond_signal", "mutex_unlock", "sched_yield"));
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Set()); }),
              ElementsAre("mutex_lock", "cond_broadcast", "mutex_unlock", "sched_yield"));
}

TEST_F(EventCallsTest, PulseWakesUnderTheLockAndYields) {
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oAutomatic.Pulse()); }),
              ElementsAre("mutex_lock", "cond_signal", "mutex_unlock", "sched_yield"));
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Pulse()); }),
              ElementsAre("mutex_lock", "cond_broadcast", "mutex_unlock", "sched_yield"));
}

TEST_F(EventCallsTest, ResetLocksAndDoesNotYield) {
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Reset()); }),
              ElementsAre("mutex_lock", "mutex_unlock"));
}

TEST_F(EventCallsTest, CloseWakesAfterTheUnlock) {
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oAutomatic.Close()); }),
              ElementsAre("mutex_lock", "mutex_unlock", "cond_signal"));
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Close()); }),
              ElementsAre("mutex_lock", "mutex_unlock", "cond_broadcast"));
}

TEST_F(EventCallsTest, CloseSignalsNobodyBeforeItHasClosedTheHandle) {
  for (CEvent* event : {&m_oAutomatic, &m_oManual}) {
    const CEvent other(*event);
    const auto look = [&other, event]() -> std::optional<int> {
      EXPECT_TRUE(other.IsSignaled());
      EXPECT_FALSE(event->IsOpen());
      return std::nullopt;
    };
    m_oCalls.AnswerNext("mutex_unlock", look);
    m_oCalls.AnswerNext(event == &m_oManual ? "cond_broadcast" : "cond_signal", look);
    EXPECT_TRUE(event->Close());
  }
}

TEST_F(EventCallsTest, CheckAndCreateTakeNoLock) {
  EXPECT_THAT(CallsOf([&] {
                m_oManual.Check();
                m_oManual.Create(true, false);
              }),
              ElementsAre());
}

TEST_F(EventCallsTest, SetPulseAndResetTraceUnderTheLock) {
  TraceSession session(5);
  for (const char* format : {"Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n",
                             "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n",
                             "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n"}) {
    session.CallAt(format, [&] { m_oCalls.Note("trace"); });
  }
  EXPECT_THAT(CallsOf([&] { m_oManual.Set(); }),
              ElementsAre("mutex_lock", "trace", "cond_broadcast", "mutex_unlock", "sched_yield"));
  EXPECT_THAT(CallsOf([&] { m_oManual.Pulse(); }),
              ElementsAre("mutex_lock", "trace", "cond_broadcast", "mutex_unlock", "sched_yield"));
  EXPECT_THAT(CallsOf([&] { m_oManual.Reset(); }),
              ElementsAre("mutex_lock", "trace", "mutex_unlock"));
}

TEST_F(EventCallsTest, ASetThatCannotWakeFailsAndSignals) {
  m_oCalls.FailNext("cond_signal", EINVAL);
  EXPECT_FALSE(m_oAutomatic.Set());
  EXPECT_TRUE(m_oAutomatic.Check());
  m_oCalls.FailNext("cond_broadcast", EINVAL);
  EXPECT_FALSE(m_oManual.Set());
  EXPECT_TRUE(m_oManual.Check());
}

TEST_F(EventCallsTest, APulseThatCannotWakeFails) {
  m_oCalls.FailNext("cond_signal", EINVAL);
  EXPECT_FALSE(m_oAutomatic.Pulse());
  m_oCalls.FailNext("cond_broadcast", EINVAL);
  EXPECT_FALSE(m_oManual.Pulse());
}

TEST_F(EventCallsTest, ACloseThatCannotWakeFailsAndCloses) {
  m_oCalls.FailNext("cond_signal", EINVAL);
  EXPECT_FALSE(m_oAutomatic.Close());
  EXPECT_FALSE(m_oAutomatic.IsOpen());
  m_oCalls.FailNext("cond_broadcast", EINVAL);
  EXPECT_FALSE(m_oManual.Close());
  EXPECT_FALSE(m_oManual.IsOpen());
}

TEST_F(EventCallsTest, SetWorksWithoutTheLock) {
  m_oCalls.FailNext("mutex_lock", EINVAL);
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Set()); }),
              ElementsAre("mutex_lock", "cond_broadcast", "sched_yield"));
  EXPECT_TRUE(m_oManual.Check());
}

TEST_F(EventCallsTest, PulseWorksWithoutTheLock) {
  m_oManual.Set();
  m_oCalls.FailNext("mutex_lock", EINVAL);
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Pulse()); }),
              ElementsAre("mutex_lock", "cond_broadcast", "sched_yield"));
  EXPECT_FALSE(m_oManual.Check());
}

TEST_F(EventCallsTest, ResetWorksWithoutTheLock) {
  m_oManual.Set();
  m_oCalls.FailNext("mutex_lock", EINVAL);
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Reset()); }), ElementsAre("mutex_lock"));
  EXPECT_FALSE(m_oManual.Check());
}

TEST_F(EventCallsTest, CloseWorksWithoutTheLock) {
  const CEvent other(m_oManual);
  m_oCalls.FailNext("mutex_lock", EINVAL, 1);
  EXPECT_THAT(CallsOf([&] { EXPECT_TRUE(m_oManual.Close()); }),
              ElementsAre("mutex_lock", "cond_broadcast"));
  EXPECT_TRUE(other.Check());
}

TEST_F(EventWaitCallsTest, AnAutoResetEventReleasesOneWaiterEachTime) {
  std::atomic<int> released = 0;
  std::vector<std::thread> waiters;
  // A thread that comes to wait just when the signal is on its way would be released, too.
  for (int number = 0; number < 3; ++number) {
    m_oCalls.Take();
    waiters.emplace_back([&] {
      EXPECT_EQ(m_oAutomatic.Wait(EVENT_INFINITE), EVENT_SIGNALED);
      ++released;
    });
    std::vector<std::string> calls;
    EXPECT_TRUE(WaitUntil([&] {
      const std::vector<std::string> more = m_oCalls.Take();
      calls.insert(calls.end(), more.begin(), more.end());
      return calls == std::vector<std::string>({"mutex_lock", "cond_wait"});
    }));
  }
  for (int wakes = 1; wakes <= 3; ++wakes) {
    EXPECT_TRUE(wakes == 2 ? m_oAutomatic.Pulse() : m_oAutomatic.Set());
    EXPECT_TRUE(WaitUntil([&] { return released == wakes; }));
  }
  for (std::thread& waiter : waiters) {
    waiter.join();
  }
  EXPECT_FALSE(m_oAutomatic.Check());
}

TEST_F(EventWaitCallsTest, OnASignalledEventOnlyLocks) {
  m_oManual.Set();
  EXPECT_THAT(CallsOf([&] { EXPECT_EQ(m_oManual.Wait(EVENT_INFINITE), EVENT_SIGNALED); }),
              ElementsAre("mutex_lock", "mutex_unlock"));
}

TEST_F(EventWaitCallsTest, TheDeadlineIsOnTheMonotonicClock) {
  struct Case {
    timespec now;
    uint32_t milliseconds;
    const char* call;
  };
  const Case cases[] = {
      {{10, 0}, 1, "cond_timedwait(10.001000000)"},
      {{10, 300'000'000}, 1500, "cond_timedwait(11.800000000)"},
      {{10, 600'000'000}, 1500, "cond_timedwait(12.100000000)"},
      {{10, 500'000'000}, 500, "cond_timedwait(11.000000000)"},
      {{10, 500'000'000}, 499, "cond_timedwait(10.999000000)"},
      {{5, 999'999'999}, 1, "cond_timedwait(6.000999999)"},
      {{1, 0}, 0xFFFFFFFE, "cond_timedwait(4294968.294000000)"},
  };
  for (const Case& each : cases) {
    m_oCalls.StopClockAt(each.now);
    m_oCalls.FailNext("cond_timedwait", ETIMEDOUT);
    EXPECT_THAT(CallsOfWait(each.milliseconds, EVENT_TIMEOUT),
                ElementsAre("mutex_lock", each.call, "mutex_unlock"));
  }
}

TEST_F(EventWaitCallsTest, OfNoTimeDoesNotBlock) {
  EXPECT_THAT(CallsOfWait(0, EVENT_TIMEOUT), ElementsAre("mutex_lock", "mutex_unlock"));
  EXPECT_TRUE(IsLeftAlone(m_oAutomatic));
}

TEST_F(EventWaitCallsTest, TracesTheTimesOfAWait) {
  m_oCalls.StopClockAt({10, 600'000'000});
  m_oCalls.FailNext("cond_timedwait", ETIMEDOUT);
  const TraceSession session(5);
  EXPECT_EQ(m_oAutomatic.Wait(1500, true), EVENT_TIMEOUT);
  EXPECT_THAT(
      EventTexts(session),
      ElementsAre("\nwaiting 1500ms on event EVENT",
                  "prepare time for waiting on event EVENT <anon> "
                  "(ts_beg:sec=10,ts_beg:nsec=600000000) -> (ts:sec=12,ts:nsec=100000000)\n",
                  "TIMEOUT(0,110) on event EVENT <anon> (IsSignaled=0)\n"));
}

TEST_F(EventWaitCallsTest, GoesOnAfterAnInterruption) {
  m_oCalls.FailNext("cond_wait", EINTR, 2);
  m_oCalls.FailNext("cond_wait", 0);
  EXPECT_THAT(CallsOfWait(EVENT_INFINITE, EVENT_SIGNALED),
              ElementsAre("mutex_lock", "cond_wait", "cond_wait", "cond_wait", "mutex_unlock"));
}

TEST_F(EventWaitCallsTest, KeepsItsDeadlineAfterAnInterruption) {
  m_oCalls.StopClockAt({10, 0});
  for (const time_t second : {20, 30}) {
    m_oCalls.AnswerNext("cond_timedwait", [this, second] {
      m_oCalls.StopClockAt({second, 0});
      return EINTR;
    });
  }
  m_oCalls.FailNext("cond_timedwait", ETIMEDOUT);
  EXPECT_THAT(
      CallsOfWait(1000, EVENT_TIMEOUT),
      ElementsAre("mutex_lock", "cond_timedwait(11.000000000)", "cond_timedwait(11.000000000)",
                  "cond_timedwait(11.000000000)", "mutex_unlock"));
}

TEST_F(EventWaitCallsTest, AWakeUpCountsAsASignal) {
  m_oCalls.FailNext("cond_wait", 0);
  m_oCalls.FailNext("cond_timedwait", 0);
  CallsOfWait(EVENT_INFINITE, EVENT_SIGNALED);
  CallsOfWait(1000, EVENT_SIGNALED);
  EXPECT_FALSE(m_oAutomatic.Check());
  EXPECT_TRUE(IsLeftAlone(m_oAutomatic));
}

TEST_F(EventWaitCallsTest, ASignalAtTheLastMomentCounts) {
  for (CEvent* event : {&m_oAutomatic, &m_oManual}) {
    m_oCalls.AnswerNext("cond_timedwait", [this, event] {
      m_oCalls.FailNext("mutex_lock", EDEADLK);  // the waiter's own lock is held
      event->Set();
      return ETIMEDOUT;
    });
    EXPECT_EQ(event->Wait(1000), EVENT_SIGNALED);
  }
  EXPECT_FALSE(m_oAutomatic.Check());
  EXPECT_TRUE(m_oManual.Check());
}

TEST_F(EventWaitCallsTest, AnErrorOfTheSystemFailsTheWait) {
  m_oCalls.FailNext("cond_wait", EINVAL);
  EXPECT_THAT(CallsOfWait(EVENT_INFINITE, EVENT_FAILED),
              ElementsAre("mutex_lock", "cond_wait", "mutex_unlock"));
  EXPECT_TRUE(IsLeftAlone(m_oAutomatic));
  m_oCalls.FailNext("cond_timedwait", EPERM);
  EXPECT_EQ(m_oAutomatic.Create(false, false), true);
  CallsOfWait(1000, EVENT_FAILED);
  EXPECT_TRUE(IsLeftAlone(m_oAutomatic));
}

TEST_F(EventWaitCallsTest, TracesAnErrorOfTheSystem) {
  m_oCalls.FailNext("cond_wait", EINVAL);
  const TraceSession session(5);
  m_oAutomatic.Wait(EVENT_INFINITE, true);
  EXPECT_THAT(EventTexts(session),
              ElementsAre("\nwaiting forever on event EVENT",
                          "FAILURE(0,22) on event EVENT <anon> (IsSignaled=0)\n"));
}

TEST_F(EventWaitCallsTest, AnExceptionBreaksItOffAndLeavesNothingBehind) {
  const auto raise = []() -> std::optional<int> { throw std::runtime_error("broken"); };
  m_oCalls.AnswerNext("cond_wait", raise);
  EXPECT_THAT(CallsOfWait(EVENT_INFINITE, EVENT_FAILED),
              ElementsAre("mutex_lock", "cond_wait", "mutex_unlock"));
  m_oCalls.AnswerNext("cond_timedwait", raise);
  EXPECT_THAT(CallsOfWait(1000, EVENT_FAILED), Contains("mutex_unlock"));
  EXPECT_TRUE(IsLeftAlone(m_oAutomatic));
}

TEST_F(EventWaitCallsTest, ConsumesASignalWithoutTheLock) {
  m_oAutomatic.Set();
  m_oCalls.FailNext("mutex_lock", EINVAL);
  EXPECT_THAT(CallsOfWait(EVENT_INFINITE, EVENT_SIGNALED), ElementsAre("mutex_lock"));
  EXPECT_FALSE(m_oAutomatic.Check());
}

TEST_F(EventWaitCallsTest, FailsWithoutTheLockAndStaysCounted) {
  // Lives on: an event that counts a waiter is never destroyed.
  static CEvent& event = *new CEvent(false, false);
  m_oCalls.FailNext("mutex_lock", EINVAL);
  EXPECT_THAT(CallsOf([&] { EXPECT_EQ(event.Wait(EVENT_INFINITE), EVENT_FAILED); }),
              ElementsAre("mutex_lock"));
  EXPECT_FALSE(event.Create(false, false));
  EXPECT_EQ(event.Wait(0), EVENT_TIMEOUT);
}

TEST_F(EventWaitCallsTest, TracesThatTheLockFailed) {
  static CEvent& event = *new CEvent(false, false, "bell");
  const TraceSession session(5);
  m_oCalls.FailNext("mutex_lock", EINVAL);
  EXPECT_EQ(event.Wait(1000, true), EVENT_FAILED);
  EXPECT_THAT(EventTexts(session),
              ElementsAre("\nwaiting 1000ms on event EVENT",
                          "FAILURE(22,0) on event EVENT <bell> (IsSignaled=0)\n"));
}

}  // namespace
