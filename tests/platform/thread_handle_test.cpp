// The handle of a thread as the thread itself sees it.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/thread.h"
#include "tests/support/trace_session.h"

namespace {

std::atomic<bool> g_bRuns = false;
std::atomic<pthread_t> g_nSeen = 0;

void* SeeOwnHandle(void* thread) {
  g_nSeen = static_cast<CThread*>(thread)->GetHandle();
  g_bRuns = true;
  return nullptr;
}

// With each of the two waits.
void* JoinItself(void* argument) {
  auto& thread = *static_cast<CThread*>(argument);
  EXPECT_TRUE(thread.IsCurrentThread());
  EXPECT_FALSE(thread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_FALSE(thread.WaitForTermination(CThread::INFINITE_TIME, [](std::chrono::milliseconds) {
    ADD_FAILURE() << "waited";
    return false;
  }));
  return nullptr;
}

}  // namespace

extern "C" {
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

// Gives the new thread a head start on whoever stores its handle.
int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attribute,
                          void* (*function)(void*), void* argument) {
  const int result = __real_pthread_create(handle, attribute, function, argument);
  for (int turn = 0; turn < 200 && !g_bRuns; ++turn) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return result;
}
}

TEST(ThreadHandleTest, IsStoredBeforeTheThreadRuns) {
  CThread thread;
  ASSERT_TRUE(thread.Start(SeeOwnHandle, &thread, 0, false, 0, 0, true));
  const pthread_t handle = thread.GetHandle();
  ASSERT_TRUE(thread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(g_nSeen, handle);
}

TEST(ThreadHandleTest, AThreadThatJoinsItselfFailsAndCanBeJoinedByOthers) {
  const TraceSession session(1);
  CThread thread;
  ASSERT_TRUE(thread.Start(JoinItself, &thread, 0, false, 0, 0, true));
  EXPECT_FALSE(thread.IsCurrentThread());
  EXPECT_TRUE(thread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(
      session.Count(
          "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x"),
      2);
}
