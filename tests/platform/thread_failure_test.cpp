#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <map>
#include <string>

#include "platform/thread.h"
#include "tests/platform/thread_texts.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;

namespace {

// The attributes of the last thread that was created.
struct Attributes {
  int detachState = -1;
  int policy = -1;
  int priority = -1;
  int inheritance = -1;
  size_t stackSize = 0;
};

Attributes g_oAttributes;
std::map<std::string, int> g_oErrors;  // what a call returns instead of its work
std::map<std::string, int> g_oCounts;  // how often a call was made

// Notes a call of the test's own thread. Returns true when it is to return `error`.
bool IsAnswered(const char* call, int& error) {
  ++g_oCounts[call];
  const auto answer = g_oErrors.find(call);
  if (answer == g_oErrors.end()) {
    return false;
  }
  error = answer->second;
  return true;
}

template <typename Real, typename... Arguments>
int Call(const char* call, Real real, Arguments... arguments) {
  int error = 0;
  return IsAnswered(call, error) ? error : real(arguments...);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_pthread_attr_init(pthread_attr_t* attribute);
int __real_pthread_attr_setdetachstate(pthread_attr_t* attribute, int state);
int __real_pthread_attr_setschedpolicy(pthread_attr_t* attribute, int policy);
int __real_pthread_attr_getschedparam(const pthread_attr_t* attribute, sched_param* parameter);
int __real_pthread_attr_setschedparam(pthread_attr_t* attribute, const sched_param* parameter);
int __real_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*function)(void*), void* argument);
int __real_pthread_join(pthread_t handle, void** result);
int __real_pthread_getschedparam(pthread_t handle, int* policy, sched_param* parameter);
int __real_pthread_cancel(pthread_t handle);
int __real_sched_yield();

int __wrap_pthread_attr_init(pthread_attr_t* attribute) {
  return Call("pthread_attr_init", __real_pthread_attr_init, attribute);
}
int __wrap_pthread_attr_setdetachstate(pthread_attr_t* attribute, int state) {
  return Call("pthread_attr_setdetachstate", __real_pthread_attr_setdetachstate, attribute, state);
}
int __wrap_pthread_attr_setschedpolicy(pthread_attr_t* attribute, int policy) {
  return Call("pthread_attr_setschedpolicy", __real_pthread_attr_setschedpolicy, attribute, policy);
}
int __wrap_pthread_attr_getschedparam(const pthread_attr_t* attribute, sched_param* parameter) {
  return Call("pthread_attr_getschedparam", __real_pthread_attr_getschedparam, attribute,
              parameter);
}
int __wrap_pthread_attr_setschedparam(pthread_attr_t* attribute, const sched_param* parameter) {
  return Call("pthread_attr_setschedparam", __real_pthread_attr_setschedparam, attribute,
              parameter);
}
int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*function)(void*), void* argument) {
  sched_param parameter = {};
  __real_pthread_attr_getschedparam(attribute, &parameter);
  g_oAttributes.priority = parameter.sched_priority;
  pthread_attr_getdetachstate(attribute, &g_oAttributes.detachState);
  pthread_attr_getschedpolicy(attribute, &g_oAttributes.policy);
  pthread_attr_getinheritsched(attribute, &g_oAttributes.inheritance);
  pthread_attr_getstacksize(attribute, &g_oAttributes.stackSize);
  return Call("pthread_create", __real_pthread_create, handle, attribute, function, argument);
}
int __wrap_pthread_join(pthread_t handle, void** result) {
  return Call("pthread_join", __real_pthread_join, handle, result);
}
int __wrap_pthread_getschedparam(pthread_t handle, int* policy, sched_param* parameter) {
  return Call("pthread_getschedparam", __real_pthread_getschedparam, handle, policy, parameter);
}
int __wrap_pthread_cancel(pthread_t handle) {
  return Call("pthread_cancel", __real_pthread_cancel, handle);
}
int __wrap_sched_yield() { return Call("sched_yield", __real_sched_yield); }
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

void* EndAtOnce(void* /*argument*/) { return nullptr; }

void* RunUntilTold(void* mayEnd) {
  WaitUntil([mayEnd] { return static_cast<std::atomic<bool>*>(mayEnd)->load(); });
  return nullptr;
}

class ThreadFailureTest : public testing::Test {
 protected:
  CThread m_oThread;
  // Outlives a detached thread.
  static inline std::atomic<bool> s_bMayEnd = false;

  ThreadFailureTest() {
    g_oCounts.clear();
    s_bMayEnd = false;
  }
  ~ThreadFailureTest() override {
    g_oErrors.clear();
    s_bMayEnd = true;
    if (m_oThread.Waitable) {
      m_oThread.WaitForTermination(CThread::INFINITE_TIME);
    }
    WaitUntil([&] { return !m_oThread.IsAlive(); });
  }

  bool Start(int32_t priority, bool waitable) {
    return m_oThread.Start(RunUntilTold, &s_bMayEnd, priority, false, 0, 0, waitable);
  }
};

TEST_F(ThreadFailureTest, EachCallThatFailsEndsTheStart) {
  struct Case {
    const char* call;
    const char* format;
    const char* text;
    size_t linesBefore;
  };
  // A detached thread with a priority needs all of them.
  const Case cases[] = {
      {"pthread_attr_init", "\npthread_attr_init failed: %d", "\npthread_attr_init failed: 22", 1},
      {"pthread_attr_setdetachstate", "\npthread_attr_setdetachstate failed: %d",
       "\npthread_attr_setdetachstate failed: 22", 2},
      {"pthread_attr_setschedpolicy", "\npthread_attr_setschedpolicy failed: %d",
       "\npthread_attr_setschedpolicy failed: 22", 3},
      {"pthread_attr_getschedparam", "\npthread_attr_getschedparam failed: %d",
       "\npthread_attr_getschedparam failed: 22", 3},
      {"pthread_attr_setschedparam", "\npthread_attr_setschedparam failed: error=%d priority=%d",
       "\npthread_attr_setschedparam failed: error=22 priority=83", 3},
      {"pthread_create", "\npthread_create failed: %d", "\npthread_create failed: 22", 3},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.call);
    g_oErrors = {{each.call, EINVAL}};
    g_oCounts.clear();
    const auto fail = [&] { EXPECT_FALSE(Start(83, false)); };
    EXPECT_EQ(LevelOf(each.format, fail), 2U);
    const TraceSession session(5);
    fail();
    EXPECT_EQ(session.Texts().size(), each.linesBefore + 1);
    EXPECT_EQ(session.Texts().back(), each.text);
    EXPECT_EQ(g_oCounts["pthread_create"], each.call == std::string("pthread_create") ? 3 : 0);
    EXPECT_EQ(g_oCounts["sched_yield"], 0);
    EXPECT_EQ(m_oThread.GetHandle(), 0U);
    EXPECT_FALSE(m_oThread.IsAlive());
  }
}

TEST_F(ThreadFailureTest, AFailedStartHasWrittenWaitable) {
  g_oErrors = {{"pthread_attr_init", ENOMEM}};
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
  g_oErrors = {{"pthread_create", EAGAIN}};
  EXPECT_FALSE(Start(0, false));
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadFailureTest, AStartWithoutPriorityLeavesSchedulingAlone) {
  ASSERT_TRUE(Start(0, true));
  EXPECT_EQ(g_oCounts["pthread_attr_setschedpolicy"], 0);
  EXPECT_EQ(g_oCounts["pthread_attr_getschedparam"], 0);
  EXPECT_EQ(g_oCounts["pthread_attr_setschedparam"], 0);
  EXPECT_EQ(g_oAttributes.policy, SCHED_OTHER);
  EXPECT_EQ(g_oAttributes.priority, 0);
  EXPECT_EQ(g_oAttributes.inheritance, PTHREAD_INHERIT_SCHED);
}

TEST_F(ThreadFailureTest, AStartWithAPriorityAsksForRoundRobin) {
  ASSERT_TRUE(Start(83, true));
  EXPECT_EQ(g_oAttributes.policy, SCHED_RR);
  EXPECT_EQ(g_oAttributes.priority, 83);
  EXPECT_EQ(g_oAttributes.inheritance, PTHREAD_INHERIT_SCHED);
}

TEST_F(ThreadFailureTest, OnlyAWaitableThreadIsJoinable) {
  ASSERT_TRUE(Start(0, false));
  EXPECT_EQ(g_oAttributes.detachState, PTHREAD_CREATE_DETACHED);
  ASSERT_TRUE(Start(0, true));
  EXPECT_EQ(g_oAttributes.detachState, PTHREAD_CREATE_JOINABLE);
}

TEST_F(ThreadFailureTest, TheStackSizeHasNoEffect) {
  pthread_attr_t standard;
  size_t size = 0;
  __real_pthread_attr_init(&standard);
  pthread_attr_getstacksize(&standard, &size);
  pthread_attr_destroy(&standard);
  ASSERT_TRUE(m_oThread.Start(EndAtOnce, nullptr, 0, false, 1U << 20U, 0, true));
  EXPECT_EQ(g_oAttributes.stackSize, size);
}

TEST_F(ThreadFailureTest, AStartYieldsOnce) {
  ASSERT_TRUE(Start(0, true));
  EXPECT_EQ(g_oCounts["sched_yield"], 1);
}

TEST_F(ThreadFailureTest, WaitForTerminationKeepsAThreadThatItCannotJoin) {
  ASSERT_TRUE(Start(0, true));
  s_bMayEnd = true;
  const pthread_t handle = m_oThread.GetHandle();
  const char* const format =
      "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x";
  g_oErrors = {{"pthread_join", EDEADLK}};
  const auto wait = [&] { EXPECT_FALSE(m_oThread.WaitForTermination(CThread::INFINITE_TIME)); };
  EXPECT_EQ(LevelOf(format, wait), 1U);
  const TraceSession session(5);
  wait();
  EXPECT_THAT(session.Texts(),
              ElementsAre(WithId(handle,
                                 "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread "
                                 "= 0xID, Err = 0x00000023")));
  EXPECT_EQ(m_oThread.GetHandle(), handle);
  g_oErrors.clear();
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
}

TEST_F(ThreadFailureTest, KillKeepsAThreadThatItCannotJoin) {
  ASSERT_TRUE(Start(0, true));
  s_bMayEnd = true;
  const pthread_t handle = m_oThread.GetHandle();
  const char* const format =
      "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x";
  g_oErrors = {{"pthread_join", EDEADLK}};
  const auto kill = [&] { EXPECT_FALSE(m_oThread.Kill()); };
  EXPECT_EQ(LevelOf(format, kill), 1U);
  const TraceSession session(5);
  kill();
  EXPECT_EQ(session.Texts().back(),
            WithId(handle,
                   "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0xID, Err = 0x00000023"));
  EXPECT_EQ(m_oThread.GetHandle(), handle);
  g_oErrors.clear();
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(g_oCounts["pthread_cancel"], 0);
}

TEST_F(ThreadFailureTest, ADetachedThreadThatTheSystemDoesNotKnowIsGone) {
  ASSERT_TRUE(Start(0, false));
  g_oErrors = {{"pthread_getschedparam", ESRCH}};
  EXPECT_FALSE(m_oThread.IsAlive());
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(g_oCounts["pthread_cancel"], 0);
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadFailureTest, ADetachedThreadThatCannotBeCancelledIsLetGo) {
  const char* const format =
      "\nCThread::Kill: unable to cancel a non-joinable thread 0x%08X (err = 0x%08x)";
  g_oErrors = {{"pthread_cancel", ESRCH}};
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
  g_oErrors = {{"pthread_getschedparam", 0}, {"pthread_cancel", 0}};
  g_oCounts.clear();
  EXPECT_FALSE(m_oThread.IsAlive());
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(g_oCounts["pthread_getschedparam"], 0);
  EXPECT_EQ(g_oCounts["pthread_cancel"], 0);
}

}  // namespace
