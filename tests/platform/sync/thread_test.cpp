#include "platform/sync/thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char WITH_TIMEOUT[] =
    "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with "
    "timeout";
constexpr char JOINING[] = "\nCThread::Kill: Try to join a joinable Thread = 0x%08X";
constexpr char KILLING[] = "\nCThread::Kill: Killing a non-joinable thread 0x%08X";

void* const EXIT_VALUE = reinterpret_cast<void*>(0x2a);

// A CThread and what its thread does.
class ThreadTest : public testing::Test {
 protected:
  CThread m_oThread;
  std::atomic<bool> m_bRuns = false;
  std::atomic<bool> m_bMayEnd = false;
  std::atomic<bool> m_bHasEnded = false;   // by itself
  std::atomic<bool> m_bIsUnwound = false;  // left, also by cancellation

  ~ThreadTest() override {
    m_bMayEnd = true;
    if (m_bRuns) {
      WaitUntil([&] { return m_bIsUnwound.load(); });
    }
    if (m_oThread.Waitable) {
      m_oThread.WaitForTermination(CThread::INFINITE_TIME);
    }
  }

  // Runs until it may end; can be cancelled.
  bool Start(bool waitable, int32_t priority = 0) {
    m_bRuns = m_bIsUnwound = false;
    return m_oThread.Start(&ThreadTest::Run, this, priority, false, 0, 0, waitable) &&
           WaitUntil([&] { return m_bRuns.load(); });
  }

  // A thread that has ended by itself.
  bool StartEnded(bool waitable) {
    m_bMayEnd = true;
    return Start(waitable) && WaitUntil([&] { return !m_oThread.IsAlive(); });
  }

 private:
  static void* Run(void* argument) {
    auto* test = static_cast<ThreadTest*>(argument);
    struct Unwinding {
      std::atomic<bool>& flag;
      ~Unwinding() { flag = true; }
    };
    const Unwinding unwinding{test->m_bIsUnwound};
    test->m_bRuns = true;
    while (!test->m_bMayEnd) {
      // Not in a call that sleeps: the thread sanitizer loses track of a thread cancelled there.
      pthread_testcancel();
      sched_yield();
    }
    test->m_bHasEnded = true;
    return EXIT_VALUE;
  }
};

TEST_F(ThreadTest, HasNoThreadAtFirst) {
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
  EXPECT_FALSE(m_oThread.IsAlive());
  EXPECT_FALSE(m_oThread.KillAliveThread);
}

TEST_F(ThreadTest, RunsTheFunctionWithItsArgument) {
  int argument = 0;
  ASSERT_TRUE(m_oThread.Start(
      [](void* number) -> void* {
        *static_cast<int*>(number) = 7;
        return nullptr;
      },
      &argument, 0, false, 0, 0, true));
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(argument, 7);
}

TEST_F(ThreadTest, RunsInAThreadOfItsOwn) {
  pthread_t self = 0;
  ASSERT_TRUE(m_oThread.Start(
      [](void* id) -> void* {
        *static_cast<pthread_t*>(id) = pthread_self();
        return nullptr;
      },
      &self, 0, false, 0, 0, true));
  const pthread_t handle = m_oThread.GetHandle();
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(self, handle);
  EXPECT_NE(self, pthread_self());
}

TEST_F(ThreadTest, StartWritesWaitable) {
  ASSERT_TRUE(Start(true));
  EXPECT_TRUE(m_oThread.Waitable);
  m_bMayEnd = true;
  EXPECT_TRUE(m_oThread.Kill());
  ASSERT_TRUE(Start(false));
  EXPECT_FALSE(m_oThread.Waitable);
}

TEST_F(ThreadTest, HasItsHandleBeforeTheThreadRuns) {
  // Gives the new thread a head start on whoever stores its handle.
  const auto creation = calls::pthread_create.Answer([&](auto... arguments) {
    const int error = calls::pthread_create.Real(arguments...);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return error;
  });
  struct Seen {
    CThread thread;
    pthread_t handle = 0;
  } seen;
  const auto see = [](void* argument) -> void* {
    auto& seenByThread = *static_cast<Seen*>(argument);
    seenByThread.handle = seenByThread.thread.GetHandle();
    return nullptr;
  };
  ASSERT_TRUE(seen.thread.Start(see, &seen, 0, false, 0, 0, true));
  const pthread_t handle = seen.thread.GetHandle();
  ASSERT_TRUE(seen.thread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(seen.handle, handle);
}

TEST_F(ThreadTest, ASuspendedStartRunsAtOnce) {
  m_bMayEnd = true;
  ASSERT_TRUE(
      m_oThread.Start([](void*) -> void* { return nullptr; }, nullptr, 0, true, 1, 0, true));
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
}

TEST_F(ThreadTest, StartsWithAPriority) {
  ASSERT_TRUE(Start(true, 83));
  EXPECT_TRUE(m_oThread.IsAlive());
}

TEST_F(ThreadTest, IsAliveUntilItEnds) {
  for (const bool waitable : {true, false}) {
    m_bMayEnd = false;
    ASSERT_TRUE(Start(waitable));
    EXPECT_TRUE(m_oThread.IsAlive());
    m_bMayEnd = true;
    EXPECT_TRUE(WaitUntil([&] { return !m_oThread.IsAlive(); }));
    EXPECT_NE(m_oThread.GetHandle(), 0U);
    EXPECT_TRUE(m_oThread.Kill());
  }
}

TEST_F(ThreadTest, RunsOnWhenTheObjectIsDestroyed) {
  std::atomic<bool> isDestroyed = false;
  {
    CThread thread;
    ASSERT_TRUE(thread.Start(
        [](void* argument) -> void* {
          auto* flag = static_cast<std::atomic<bool>*>(argument);
          WaitUntil([flag] { return flag->load(); });
          *flag = false;
          return nullptr;
        },
        &isDestroyed, 0, false, 0, 0, false));
  }
  isDestroyed = true;
  EXPECT_TRUE(WaitUntil([&] { return !isDestroyed; }));
}

TEST_F(ThreadTest, WaitForTerminationWaitsUntilTheThreadHasEnded) {
  ASSERT_TRUE(Start(true));
  std::thread other([&] { m_bMayEnd = true; });
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_TRUE(m_bHasEnded);
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
  other.join();
}

TEST_F(ThreadTest, WaitForTerminationDoesNotKeepATimeOut) {
  for (const int32_t limit : {2000, 0, 1, -2}) {
    m_bMayEnd = m_bHasEnded = false;
    ASSERT_TRUE(Start(true));
    const TraceSession session(1);
    std::thread other([&] {
      session.WaitFor(WITH_TIMEOUT);
      usleep(20'000);  // for a time-out that is kept to show
      m_bMayEnd = true;
    });
    EXPECT_TRUE(m_oThread.WaitForTermination(limit));
    EXPECT_TRUE(m_bHasEnded);
    EXPECT_EQ(session.Count(WITH_TIMEOUT), 1);
    other.join();
  }
}

TEST_F(ThreadTest, AWaitCanBeGivenUpAndKeepsTheThread) {
  ASSERT_TRUE(Start(true));
  const TraceSession session(5);
  std::vector<std::chrono::milliseconds> times;
  EXPECT_FALSE(m_oThread.WaitForTermination(2000, [&](std::chrono::milliseconds waited) {
    times.push_back(waited);
    return times.size() < 3;
  }));
  ASSERT_EQ(times.size(), 3U);
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
  EXPECT_GE(times.front(), std::chrono::milliseconds(10));
  EXPECT_GE(times.back(), std::chrono::milliseconds(30));
  EXPECT_THAT(session.Formats(), ElementsAre(WITH_TIMEOUT));
  EXPECT_TRUE(m_oThread.IsAlive());
  m_bMayEnd = true;
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
}

#ifndef __SANITIZE_THREAD__  // which has another call to wait with
TEST_F(ThreadTest, AWaitLooksUpEveryTenMilliseconds) {
  ASSERT_TRUE(Start(true));
  const auto joins = calls::pthread_clockjoin_np.Answer(
      [](pthread_t thread, void** exitValue, clockid_t clock, const timespec* end) {
        timespec now = {};
        calls::clock_gettime.Real(clock, &now);
        const auto slice = std::chrono::seconds(end->tv_sec - now.tv_sec) +
                           std::chrono::nanoseconds(end->tv_nsec - now.tv_nsec);
        EXPECT_LE(slice, std::chrono::milliseconds(10));
        return calls::pthread_clockjoin_np.Real(thread, exitValue, clock, end);
      });
  m_oThread.WaitForTermination(2000, [](std::chrono::milliseconds /*waited*/) { return false; });
  EXPECT_EQ(joins.GetCount(), 1);
}
#endif

TEST_F(ThreadTest, AWaitThatIsAskedToGoOnSeesTheEndOfTheThread) {
  ASSERT_TRUE(Start(true));
  EXPECT_TRUE(m_oThread.WaitForTermination(2000, [&](std::chrono::milliseconds /*waited*/) {
    m_bMayEnd = true;
    return true;
  }));
  EXPECT_TRUE(m_bHasEnded);
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadTest, AWaitWithNothingToWaitForAsksNobody) {
  const auto fail = [](std::chrono::milliseconds /*waited*/) {
    ADD_FAILURE() << "asked";
    return false;
  };
  EXPECT_TRUE(m_oThread.WaitForTermination(2000, fail));
  ASSERT_TRUE(Start(false));
  EXPECT_FALSE(m_oThread.WaitForTermination(2000, fail));
}

TEST_F(ThreadTest, AThreadThatJoinsItselfFailsAndCanBeJoinedByOthers) {
  const TraceSession session(1);
  // With each of the two waits.
  const auto joinItself = [](void* argument) -> void* {
    auto& thread = *static_cast<CThread*>(argument);
    EXPECT_TRUE(thread.IsCurrentThread());
    EXPECT_FALSE(thread.WaitForTermination(CThread::INFINITE_TIME));
    EXPECT_FALSE(thread.WaitForTermination(CThread::INFINITE_TIME, [](std::chrono::milliseconds) {
      ADD_FAILURE() << "waited";
      return false;
    }));
    return nullptr;
  };
  ASSERT_TRUE(m_oThread.Start(joinItself, &m_oThread, 0, false, 0, 0, true));
  EXPECT_FALSE(m_oThread.IsCurrentThread());
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(
      session.Count(
          "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x"),
      2);
}

TEST_F(ThreadTest, WaitForTerminationOfNoThreadSucceedsAtOnce) {
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  ASSERT_TRUE(StartEnded(true));
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_TRUE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_TRUE(m_oThread.WaitForTermination(2000));
}

TEST_F(ThreadTest, WaitForTerminationOfADetachedThreadFails) {
  ASSERT_TRUE(Start(false));
  const pthread_t handle = m_oThread.GetHandle();
  EXPECT_FALSE(m_oThread.WaitForTermination(CThread::INFINITE_TIME));
  EXPECT_EQ(m_oThread.GetHandle(), handle);
  EXPECT_FALSE(m_bHasEnded);
}

TEST_F(ThreadTest, KillOfNoThreadFails) {
  EXPECT_FALSE(m_oThread.Kill());
  ASSERT_TRUE(StartEnded(true));
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_FALSE(m_oThread.Kill());
}

TEST_F(ThreadTest, KillNeverCancelsAJoinableThread) {
  ASSERT_TRUE(Start(true));
  const TraceSession session(1);
  std::thread other([&] {
    session.WaitFor(JOINING);
    m_bMayEnd = true;
  });
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_TRUE(m_bHasEnded);
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
  other.join();
}

TEST_F(ThreadTest, KillCancelsADetachedThread) {
  ASSERT_TRUE(Start(false));
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
  EXPECT_FALSE(m_oThread.IsAlive());
  EXPECT_TRUE(WaitUntil([&] { return m_bIsUnwound.load(); }));
  EXPECT_FALSE(m_bHasEnded);
}

TEST_F(ThreadTest, KillDoesNotWaitForTheCancellation) {
  std::atomic<bool> isCancelled = false;
  ASSERT_TRUE(m_oThread.Start(
      [](void* flag) -> void* {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        auto* killed = static_cast<std::atomic<bool>*>(flag);
        WaitUntil([&] { return killed->load(); });
        *killed = false;
        return nullptr;
      },
      &isCancelled, 0, false, 0, 0, false));
  EXPECT_TRUE(m_oThread.Kill());
  isCancelled = true;
  EXPECT_TRUE(WaitUntil([&] { return !isCancelled; }));
}

TEST_F(ThreadTest, KillOfAnEndedDetachedThreadSucceedsWithoutCancelling) {
  ASSERT_TRUE(StartEnded(false));
  const TraceSession session(5);
  EXPECT_TRUE(m_oThread.Kill());
  EXPECT_EQ(session.Count(KILLING), 0);
  EXPECT_EQ(m_oThread.GetHandle(), 0U);
}

TEST_F(ThreadTest, StartWithKillAliveThreadEndsTheThreadBefore) {
  CThread thread(true);
  std::atomic<int> ended = 0;
  const auto count = [](void* number) -> void* {
    usleep(1000);
    ++*static_cast<std::atomic<int>*>(number);
    return nullptr;
  };
  ASSERT_TRUE(thread.Start(count, &ended, 0, false, 0, 0, true));
  ASSERT_TRUE(thread.Start(count, &ended, 0, false, 0, 0, false));
  EXPECT_GE(ended, 1);
  EXPECT_TRUE(WaitUntil([&] { return ended == 2 && !thread.IsAlive(); }));
}

TEST_F(ThreadTest, StartWithoutKillAliveThreadLetsTheThreadBeforeRun) {
  ASSERT_TRUE(Start(true));
  const pthread_t first = m_oThread.GetHandle();
  const TraceSession session(1);
  ASSERT_TRUE(Start(true));
  EXPECT_NE(m_oThread.GetHandle(), first);
  EXPECT_THAT(session.Lines(), IsEmpty());
  m_bMayEnd = true;
  EXPECT_EQ(pthread_join(first, nullptr), 0);
}

TEST_F(ThreadTest, SetThreadNameRenamesNothing) {
  char before[32] = "";
  char after[32] = "";
  pthread_getname_np(pthread_self(), before, sizeof before);
  ASSERT_TRUE(Start(true));
  m_oThread.SetThreadName("EM_TALVOR", "_TaskHandler");
  pthread_getname_np(m_oThread.GetHandle(), after, sizeof after);
  EXPECT_STREQ(after, before);
}

}  // namespace
