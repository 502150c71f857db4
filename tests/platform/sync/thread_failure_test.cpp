#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "platform/sync/thread.h"
#include "tests/platform/sync/thread_texts.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;

namespace {

void* EndAtOnceWithoutValue(void* /*argument*/) { return nullptr; }

void* RunUntilTold(void* mayEnd) {
  WaitUntil([mayEnd] { return static_cast<std::atomic<bool>*>(mayEnd)->load(); });
  return nullptr;
}

// What a thread was created with.
struct Attributes {
  explicit Attributes(const pthread_attr_t& attribute) {
    sched_param parameter = {};
    calls::pthread_attr_getschedparam.Real(&attribute, &parameter);
    priority = parameter.sched_priority;
    pthread_attr_getdetachstate(&attribute, &detachState);
    pthread_attr_getschedpolicy(&attribute, &policy);
    pthread_attr_getinheritsched(&attribute, &inheritance);
    pthread_attr_getstacksize(&attribute, &stackSize);
  }

  int detachState = -1;
  int policy = -1;
  int priority = -1;
  int inheritance = -1;
  size_t stackSize = 0;
};

class ThreadFailureTest : public testing::Test {
 protected:
  ThreadFailureTest() { s_bMayEnd = false; }
  ~ThreadFailureTest() override {
    s_bMayEnd = true;
    if (m_oThread.Waitable) {
      m_oThread.WaitForTermination(CThread::INFINITE_TIME);
    }
    WaitUntil([&] { return !m_oThread.IsAlive(); });
  }

  bool Start(int32_t priority, bool waitable) {
    return m_oThread.Start(RunUntilTold, &s_bMayEnd, priority, false, 0, 0, waitable);
  }

  CThread m_oThread;
  std::optional<Attributes> m_oAttributes;  // of the last thread that was created
  const ScopedAnswer m_oCreations = calls::pthread_create.Answer(
      [this](pthread_t* handle, const pthread_attr_t* attribute, auto... arguments) {
        m_oAttributes.emplace(*attribute);
        return calls::pthread_create.Real(handle, attribute, arguments...);
      });
  // Outlives a detached thread.
  static inline std::atomic<bool> s_bMayEnd = false;
};

TEST_F(ThreadFailureTest, EachCallThatFailsEndsTheStart) {
  struct Case {
    ScopedAnswer (*fail)();
    const char* format;
    const char* text;
    size_t linesBefore;
  };
  // A detached thread with a priority needs all of them.
  const Case cases[] = {
      {[] { return calls::pthread_attr_init.Fail(EINVAL); }, "\npthread_attr_init failed: %d",
       "\npthread_attr_init failed: 22", 1},
      {[] { return calls::pthread_attr_setdetachstate.Fail(EINVAL); },
       "\npthread_attr_setdetachstate failed: %d", "\npthread_attr_setdetachstate failed: 22", 2},
      {[] { return calls::pthread_attr_setschedpolicy.Fail(EINVAL); },
       "\npthread_attr_setschedpolicy failed: %d", "\npthread_attr_setschedpolicy failed: 22", 3},
      {[] { return calls::pthread_attr_getschedparam.Fail(EINVAL); },
       "\npthread_attr_getschedparam failed: %d", "\npthread_attr_getschedparam failed: 22", 3},
      {[] { return calls::pthread_attr_setschedparam.Fail(EINVAL); },
       "\npthread_attr_setschedparam failed: error=%d priority=%d",
       "\npthread_attr_setschedparam failed: error=22 priority=83", 3},
      {[] { return calls::pthread_create.Fail(EINVAL); }, "\npthread_create failed: %d",
       "\npthread_create failed: 22", 3},
  };
  const auto yields = calls::sched_yield.Watch();
  for (const Case& each : cases) {
    SCOPED_TRACE(each.text);
    const ScopedAnswer failing = each.fail();
    const auto fail = [&] { EXPECT_FALSE(Start(83, false)); };
    EXPECT_EQ(LevelOf(each.format, fail), 2U);
    const TraceSession session(5);
    fail();
    EXPECT_EQ(session.Texts().size(), each.linesBefore + 1);
    EXPECT_EQ(session.Texts().back(), each.text);
    EXPECT_EQ(m_oThread.GetHandle(), 0U);
    EXPECT_FALSE(m_oThread.IsAlive());
  }
  EXPECT_EQ(m_oCreations.GetCount(), 0);
  EXPECT_EQ(yields.GetCount(), 0);
}

TEST_F(ThreadFailureTest, AFailedStartHasWrittenWaitable) {
  const auto failing = calls::pthread_attr_init.Fail(ENOMEM);
  m_oThread.Waitable = true;
  EXPECT_FALSE(Start(0, false));
  EXPECT_FALSE(m_oThread.Waitable);
}

TEST_F(ThreadFailureTest, AnImpossiblePriorityIsRefused) {
  const TraceSession session(2);
  EXPECT_FALSE(Start(1000, true));
  EXPECT_EQ(session.Texts().back(), "\npthread_attr_setschedparam failed: error=22 priority=1000");
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadFailureTest, AFailedCreationDropsTheHandleHeldBefore) {
  ASSERT_TRUE(Start(0, false));
  const auto failing = calls::pthread_create.Fail(EAGAIN);
  EXPECT_FALSE(Start(0, false));
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadFailureTest, AStartWithoutPriorityLeavesSchedulingAlone) {
  ASSERT_TRUE(Start(0, true));
  EXPECT_EQ(m_oAttributes->policy, SCHED_OTHER);
  EXPECT_EQ(m_oAttributes->priority, 0);
  EXPECT_EQ(m_oAttributes->inheritance, PTHREAD_INHERIT_SCHED);
}

TEST_F(ThreadFailureTest, AStartWithAPriorityAsksForRoundRobin) {
  ASSERT_TRUE(Start(83, true));
  EXPECT_EQ(m_oAttributes->policy, SCHED_RR);
  EXPECT_EQ(m_oAttributes->priority, 83);
  EXPECT_EQ(m_oAttributes->inheritance, PTHREAD_INHERIT_SCHED);
}

TEST_F(ThreadFailureTest, OnlyAWaitableThreadIsJoinable) {
  ASSERT_TRUE(Start(0, false));
  EXPECT_EQ(m_oAttributes->detachState, PTHREAD_CREATE_DETACHED);
  ASSERT_TRUE(Start(0, true));
  EXPECT_EQ(m_oAttributes->detachState, PTHREAD_CREATE_JOINABLE);
}

TEST_F(ThreadFailureTest, TheStackSizeHasNoEffect) {
  pthread_attr_t standard;
  size_t size = 0;
  pthread_attr_init(&standard);
  pthread_attr_getstacksize(&standard, &size);
  pthread_attr_destroy(&standard);
  ASSERT_TRUE(m_oThread.Start(EndAtOnceWithoutValue, nullptr, 0, false, 1U << 20U, 0, true));
  EXPECT_EQ(m_oAttributes->stackSize, size);
}

TEST_F(ThreadFailureTest, AStartYieldsOnce) {
  const auto yields = calls::sched_yield.Watch();
  ASSERT_TRUE(Start(0, true));
  EXPECT_EQ(yields.GetCount(), 1);
}

TEST_F(ThreadFailureTest, WaitForTerminationKeepsAThreadThatItCannotJoin) {
  ASSERT_TRUE(Start(0, true));
  s_bMayEnd = true;
  const pthread_t handle = m_oThread.GetHandle();
  const char* const format =
      "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x";
  auto failing = calls::pthread_join.Fail(EDEADLK);
  const auto wait = [&] { EXPECT_FALSE(m_oThread.WaitForTermination(CThread::INFINITE_TIME)); };
  EXPECT_EQ(LevelOf(format, wait), 1U);
  const TraceSession session(5);
  wait();
  EXPECT_THAT(session.Texts(),
              ElementsAre(WithId(handle,
                                 "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread "
                                 "= 0xID, Err = 0x00000023")));
  EXPECT_EQ(m_oThread.GetHandle(), handle);
  failing.End();
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
}

TEST_F(ThreadFailureTest, KillKeepsAThreadThatItCannotJoin) {
  ASSERT_TRUE(Start(0, true));
  s_bMayEnd = true;
  const pthread_t handle = m_oThread.GetHandle();
  const char* const format =
      "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x";
  auto failing = calls::pthread_join.Fail(EDEADLK);
  const auto kill = [&] { EXPECT_FALSE(m_oThread.Kill()); };
  EXPECT_EQ(LevelOf(format, kill), 1U);
  const TraceSession session(5);
  kill();
  EXPECT_EQ(session.Texts().back(),
            WithId(handle,
                   "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0xID, Err = 0x00000023"));
  EXPECT_EQ(m_oThread.GetHandle(), handle);
  failing.End();
  const auto cancels = calls::pthread_cancel.Watch();
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(cancels.GetCount(), 0);
}

TEST_F(ThreadFailureTest, ADetachedThreadThatTheSystemDoesNotKnowIsGone) {
  ASSERT_TRUE(Start(0, false));
  const auto unknown = calls::pthread_getschedparam.Fail(ESRCH);
  const auto cancels = calls::pthread_cancel.Watch();
  EXPECT_FALSE(m_oThread.IsAlive());
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(cancels.GetCount(), 0);
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadFailureTest, ADetachedThreadThatCannotBeCancelledIsLetGo) {
  const char* const format =
      "\nCThread::Kill: unable to cancel a non-joinable thread 0x%08X (err = 0x%08x)";
  const auto failing = calls::pthread_cancel.Fail(ESRCH);
  pthread_t handle = 0;
  const auto kill = [&] {
    ASSERT_TRUE(Start(0, false));
    handle = m_oThread.GetHandle();
    EXPECT_FALSE(m_oThread.Kill());
    EXPECT_EQ(m_oThread.GetHandle(), 0U);
  };
  EXPECT_EQ(LevelOf(format, kill), 2U);
  const TraceSession session(5);
  kill();
  EXPECT_EQ(
      session.Texts().back(),
      WithId(handle,
             "\nCThread::Kill: unable to cancel a non-joinable thread 0xID (err = 0x00000003)"));
}

// The system may have given the id of a detached thread to another one.
TEST_F(ThreadFailureTest, AnEndedDetachedThreadIsNeverProbedByItsId) {
  s_bMayEnd = true;
  ASSERT_TRUE(Start(0, false));
  EXPECT_TRUE(WaitUntil([&] { return !m_oThread.IsAlive(); }));
  const auto probes = calls::pthread_getschedparam.Fail(0);
  const auto cancels = calls::pthread_cancel.Fail(0);
  EXPECT_FALSE(m_oThread.IsAlive());
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(probes.GetCount(), 0);
  EXPECT_EQ(cancels.GetCount(), 0);
}

}  // namespace
