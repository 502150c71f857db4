#include "platform/event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/event_texts.h"
#include "tests/platform/pthread_calls.h"
#include "tests/support/trace_session.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char OPENING[] = "refCount for event %p <%s> incremented (IsSignaled=%d)\n";
constexpr char DELETING[] = "deleting event %p <%s> (IsSignaled=%d)\n";
constexpr char CLOCK_ERROR[] =
    "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=%d) for event %p "
    "<%s> (IsSignaled=%d)\n";
constexpr char CONDITION_ERROR[] =
    "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> "
    "(IsSignaled=%d)\n";
constexpr char MUTEX_ERROR[] =
    "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> "
    "(IsSignaled=%d)\n";

class EventRecordTest : public testing::Test {
 protected:
  PthreadCalls m_oCalls;

  EventRecordTest() {
    { const CEvent first(false, false, "first"); }  // makes the locks that all events share
    m_oCalls.Take();
  }
};

struct Failure {
  const char* call;
  const char* format;
  const char* text;  // for error 22 and a signalled event
  std::vector<std::string> calls;
};

const Failure FAILURES[] = {
    {"condattr_init",
     CLOCK_ERROR,
     "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=22) for event "
     "EVENT <anon> (IsSignaled=1)\n",
     {"condattr_init", "condattr_destroy"}},
    {"condattr_setclock",
     CLOCK_ERROR,
     "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=22) for event "
     "EVENT <anon> (IsSignaled=1)\n",
     {"condattr_init", "condattr_setclock(MONOTONIC)", "condattr_destroy"}},
    {"cond_init",
     CONDITION_ERROR,
     "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=22) on event EVENT <anon> "
     "(IsSignaled=1)\n",
     {"condattr_init", "condattr_setclock(MONOTONIC)", "cond_init", "condattr_destroy"}},
    {"mutex_init",
     MUTEX_ERROR,
     "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=22) on event EVENT <anon> "
     "(IsSignaled=1)\n",
     {"condattr_init", "condattr_setclock(MONOTONIC)", "cond_init", "mutex_init", "cond_destroy",
      "condattr_destroy"}},
};

class EventFailureTest : public EventRecordTest, public testing::WithParamInterface<Failure> {
 protected:
  void FailNextCreation() { m_oCalls.FailNext(GetParam().call, EINVAL); }
};

INSTANTIATE_TEST_SUITE_P(, EventFailureTest, testing::ValuesIn(FAILURES),
                         [](const auto& each) { return std::string(each.param.call); });

TEST_P(EventFailureTest, CleansUp) {
  FailNextCreation();
  { const CEvent event(true, false); }
  EXPECT_EQ(m_oCalls.Take(), GetParam().calls);
}

TEST_P(EventFailureTest, IsTraced) {
  const TraceSession session(5);
  FailNextCreation();
  { const CEvent event(true, false); }
  EXPECT_THAT(EventTexts(session), ElementsAre(GetParam().text));
}

TEST_P(EventFailureTest, IsTracedWithoutItsName) {
  const TraceSession session(5);
  FailNextCreation();
  { const CEvent event(true, false, "bell"); }
  EXPECT_THAT(EventTexts(session), ElementsAre(GetParam().text));
}

TEST_P(EventFailureTest, IsTracedAtLevelThree) {
  EXPECT_EQ(LevelOf(GetParam().format,
                    [&] {
                      FailNextCreation();
                      const CEvent event(true, false);
                    }),
            3U);
}

TEST_P(EventFailureTest, LeavesAnEmptyHandle) {
  FailNextCreation();
  CEvent event(true, true);
  EXPECT_TRUE(event.IsOpen());
  const TraceSession session(5);
  EXPECT_FALSE(event.Set());
  EXPECT_FALSE(event.Pulse());
  EXPECT_FALSE(event.Reset());
  EXPECT_FALSE(event.Check());
  EXPECT_FALSE(event.Create(true, true));
  EXPECT_FALSE(event.Close());
  EXPECT_EQ(event.Wait(0, true), EVENT_FAILED);
  EXPECT_EQ(event.Wait(EVENT_INFINITE, true), EVENT_FAILED);
  EXPECT_THAT(session.Lines(), IsEmpty());
}

TEST_P(EventFailureTest, LeavesTheNameFree) {
  FailNextCreation();
  const CEvent failed(true, true, "bell");
  const TraceSession session(3);
  const CEvent event(false, true, "bell");
  EXPECT_FALSE(event.Check());
  EXPECT_EQ(session.Count(OPENING), 0);
}

TEST_P(EventFailureTest, LeavesNoLockBehind) {
  FailNextCreation();
  const CEvent failed(true, true, "bell");
  auto other = std::async(std::launch::async, [] { return CEvent(true, false, "bell").Check(); });
  EXPECT_TRUE(other.get());
}

TEST_P(EventFailureTest, IsSurvivedWithASinkThatThrows) {
  TraceSession session(5);
  session.ThrowAt(GetParam().format);
  FailNextCreation();
  CEvent event(true, true, "bell");
  EXPECT_FALSE(event.Set());
  EXPECT_TRUE(CEvent(true, true, "bell").Check());
}

TEST_F(EventRecordTest, ACopyOfAnEmptyHandleIsEmpty) {
  m_oCalls.FailNext("cond_init", ENOMEM);
  const CEvent empty(true, true);
  const TraceSession session(5);
  {
    CEvent copy(empty);
    EXPECT_FALSE(copy.Set());
    EXPECT_TRUE(copy.IsOpen());
    copy = empty;
    EXPECT_FALSE(copy.Check());
  }
  EXPECT_THAT(session.Lines(), IsEmpty());
}

TEST_F(EventRecordTest, AssignmentFillsAnEmptyHandle) {
  m_oCalls.FailNext("cond_init", ENOMEM);
  CEvent target(true, true);
  const CEvent event(true, true);
  target = event;
  EXPECT_TRUE(target.Check());
}

TEST_F(EventRecordTest, AssignmentOfAnEmptyHandleEmpties) {
  m_oCalls.FailNext("cond_init", ENOMEM);
  const CEvent empty(true, true);
  // Lives on, so that the event that the assignment does not release stays in reach.
  static const CEvent& event = *new CEvent(true, true);
  CEvent target(event);
  target.Close();
  target = empty;
  EXPECT_TRUE(target.IsOpen());
  EXPECT_FALSE(target.Check());
  EXPECT_TRUE(event.Check());
}

TEST_F(EventRecordTest, AnUnnamedCreationTakesNoLock) {
  const auto event = std::make_unique<CEvent>(false, false);
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("condattr_init", "condattr_setclock(MONOTONIC)",
                                           "cond_init", "mutex_init"));
}

TEST_F(EventRecordTest, ANamedCreationKeepsOtherNamedOnesOut) {
  const CEvent event(false, false, "bell");
  // Outside the reference lock, inside the table's.
  EXPECT_THAT(m_oCalls.Take(),
              ElementsAre("mutex_lock", "mutex_lock", "mutex_unlock", "condattr_init",
                          "condattr_setclock(MONOTONIC)", "cond_init", "mutex_init", "mutex_lock",
                          "mutex_unlock", "mutex_unlock"));
}

TEST_F(EventRecordTest, OpeningCountsUnderTheLock) {
  const CEvent event(false, false, "bell");
  m_oCalls.Take();
  const CEvent opened(false, false, "bell");
  EXPECT_THAT(m_oCalls.Take(),
              ElementsAre("mutex_lock", "mutex_lock", "mutex_unlock", "mutex_unlock"));
}

TEST_F(EventRecordTest, CopyingCountsUnderTheLock) {
  const CEvent event(false, false);
  m_oCalls.Take();
  const CEvent copy(event);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("mutex_lock", "mutex_unlock"));
}

TEST_F(EventRecordTest, TheLastHandleDestroysWhatWasMade) {
  auto event = std::make_unique<CEvent>(false, false);
  auto copy = std::make_unique<CEvent>(*event);
  m_oCalls.Take();
  copy.reset();
  const auto destroys =
      AllOf(Contains("cond_destroy"), Contains("condattr_destroy"), Contains("mutex_destroy"));
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("mutex_lock", "mutex_unlock"));
  event.reset();
  EXPECT_THAT(m_oCalls.Take(), destroys);
}

// A thread that waits without limit on an event whose last handle another one destroys meanwhile.
class EventEndTest : public EventRecordTest {
 protected:
  std::atomic<bool> m_bHasLeft = false;
  std::atomic<uint32_t> m_nResult = EVENT_FAILED;
  int m_nSleeps = 0;

  // Destroys the event, running `action` in place of the n-th pause of the destroyer.
  void DestroyWhileAThreadWaits(std::unique_ptr<CEvent> event,
                                const std::vector<std::function<void()>>& actions) {
    CEvent* handle = event.get();
    std::thread waiter([&, handle] {
      m_nResult = handle->Wait(EVENT_INFINITE);
      m_bHasLeft = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return !handle->Create(false, false); }));
    for (const auto& action : actions) {
      m_oCalls.AnswerNext("sleep", [&]() -> std::optional<int> {
        EXPECT_FALSE(m_bHasLeft);
        ++m_nSleeps;
        action();
        return 0;
      });
    }
    m_oCalls.Take();
    event.reset();
    EXPECT_TRUE(WaitUntil([&] { return m_bHasLeft.load(); }));
    waiter.join();
  }

  void LetTheWaiterLeave() {
    EXPECT_TRUE(WaitUntil([&] {
      m_oCalls.WakeSpuriously();
      return m_bHasLeft.load();
    }));
  }
};

TEST_F(EventEndTest, WaitsSecondBySecondUntilNobodyWaits) {
  DestroyWhileAThreadWaits(std::make_unique<CEvent>(false, false),
                           {[] {}, [] {}, [this] { LetTheWaiterLeave(); }});
  EXPECT_EQ(m_nSleeps, 3);
  EXPECT_EQ(m_nResult, EVENT_SIGNALED);
  const std::vector<std::string> calls = m_oCalls.Take();
  EXPECT_THAT(calls, Contains("sleep(1)").Times(3));
  EXPECT_THAT(calls, Contains("cond_destroy"));
}

TEST_F(EventEndTest, DestroysNothingWhileAThreadWaits) {
  DestroyWhileAThreadWaits(std::make_unique<CEvent>(false, false), {[this] {
                             EXPECT_THAT(m_oCalls.Take(), Not(Contains("cond_destroy")));
                             LetTheWaiterLeave();
                           }});
  EXPECT_EQ(m_nSleeps, 1);
}

TEST_F(EventEndTest, GivesTheNameAwayBeforeTheWaiterLeaves) {
  DestroyWhileAThreadWaits(std::make_unique<CEvent>(false, false, "bell"), {[this] {
                             auto fresh = std::async(std::launch::async, [] {
                               return CEvent(true, true, "bell").Check();
                             });
                             EXPECT_TRUE(fresh.get());
                             LetTheWaiterLeave();
                           }});
  EXPECT_EQ(m_nSleeps, 1);
}

TEST_F(EventEndTest, WaitsForAThreadThatWritesTheFirstLineOfItsWait) {
  auto event = std::make_unique<CEvent>(true, false);
  TraceSession session(5);
  std::atomic<bool> isWriting = false;
  std::atomic<bool> isPausing = false;
  session.CallAt("\nwaiting forever on event %p", [&] {
    isWriting = true;
    EXPECT_TRUE(WaitUntil([&] { return isPausing || session.Count(DELETING) > 0; }));
    EXPECT_EQ(session.Count(DELETING), 0);
  });
  std::thread waiter([&handle = *event] { handle.Wait(EVENT_INFINITE, true); });
  EXPECT_TRUE(WaitUntil([&] { return isWriting.load(); }));
  m_oCalls.AnswerNext("sleep", [&] {
    isPausing = true;
    return 0;
  });
  event.reset();
  waiter.join();
  EXPECT_EQ(session.Count(DELETING), 1);
}

TEST_F(EventRecordTest, TheEndTakesNoPauseWhenNobodyWaits) {
  { const CEvent event(false, false); }
  EXPECT_THAT(m_oCalls.Take(), Not(Contains("sleep(1)")));
}

}  // namespace
