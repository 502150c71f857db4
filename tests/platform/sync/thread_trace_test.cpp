#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/sync/thread.h"
#include "tests/platform/sync/thread_texts.h"
#include "tests/support/trace_session.h"

using testing::ElementsAreArray;

namespace {

void* EndAtOnce(void* /*argument*/) { return reinterpret_cast<void*>(0x2a); }

void* RunUntilCancelled(void* /*argument*/) {
  for (;;) {
    // Not in a call that sleeps: the thread sanitizer loses track of a thread cancelled there.
    pthread_testcancel();
    sched_yield();
  }
}

struct Line {
  uint32_t level;
  const char* format;
  const char* text;  // "ID" stands for the low half of the thread's id
};

constexpr char START[] =
    "\nCThread::Start: Start a thread, Prio=%d, Suspend=%d, StackSize=0x%08x, Waitable=%d, "
    "KillAliveThread=%d";
constexpr char ATTRIBUTE[] = "\npthread_attr_init: %d";
constexpr char PRIORITY[] = "\nThreadPrio=%d";
constexpr char CREATED[] =
    "\nCThread::Start: thread=0x%08X created, Prio=%d, Waitable=%d, StackSize=0x%x";
constexpr char NAME[] =
    "CThread::SetThreadName: ThreadId = 0x%08X, DebugName = %s, Qualifier = (%s)\n";
constexpr char KILL[] = "\nCThread::Kill: Try to kill the Thread = 0x%08X";
constexpr char KILL_NONE[] = "\nCThread::Kill: Thread = 0x0%08X doesn't exist !";
constexpr char KILL_JOINABLE[] = "\nCThread::Kill: Try to join a joinable Thread = 0x%08X";
constexpr char KILL_JOINED[] =
    "\nCThread::Kill: a joinable Thread = 0x%08X has terminated, pstat=%p";
constexpr char KILL_DETACHED[] = "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0%08X";
constexpr char CANCELLING[] = "\nCThread::Kill: Killing a non-joinable thread 0x%08X";
constexpr char CANCELLED[] = "\nCThread::Kill: a non-joinable thread 0x%08X cancel invoked";
constexpr char WAIT_NONE[] = "\nCThread::WaitForTermination: Thread = 0x0%08X doesn't exist !";
constexpr char WAIT_LIMITED[] =
    "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with "
    "timeout";
constexpr char WAIT_DETACHED[] =
    "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0x%08X";
constexpr char WAIT_JOINED[] =
    "\nCThread::WaitForTermination: a joinable Thread = 0x%08X has terminated, pstat=%p";

// Makes a thread and uses it; may forget the lines that are written before the ones looked for.
// Returns the thread's handle.
using Use = std::function<pthread_t(const std::function<void()>& forget)>;

// The lines of a use at level 5, in their order, and the level of each.
void ExpectLines(const Use& use, const std::vector<Line>& lines) {
  {
    TraceSession session(5);
    const pthread_t handle = use([&] { session.Clear(); });
    std::vector<std::string> texts;
    for (const Line& line : lines) {
      texts.push_back(WithId(handle, line.text));
    }
    EXPECT_THAT(session.Texts(), ElementsAreArray(texts));
  }
  for (const Line& line : lines) {
    EXPECT_EQ(LevelOf(line.format, [&] { use([] {}); }), line.level) << line.format;
  }
}

void ExpectLinesAfterStart(CThread::Function function, bool waitable,
                           const std::function<void(CThread&)>& use,
                           const std::vector<Line>& lines) {
  ExpectLines(
      [&](const auto& forget) {
        CThread thread;
        thread.Start(function, nullptr, 0, false, 0, 0, waitable);
        forget();
        const pthread_t handle = thread.GetHandle();
        use(thread);
        return handle;
      },
      lines);
}

TEST(ThreadTraceTest, StartAndTermination) {
  ExpectLines(
      [](const auto&) {
        CThread thread;
        thread.Start(EndAtOnce, nullptr, 83, true, 0x1000, 0, true);
        const pthread_t handle = thread.GetHandle();
        thread.WaitForTermination(CThread::INFINITE_TIME);
        return handle;
      },
      {{5, START,
        "\nCThread::Start: Start a thread, Prio=83, Suspend=1, StackSize=0x00001000, Waitable=1, "
        "KillAliveThread=0"},
       {4, ATTRIBUTE, "\npthread_attr_init: 0"},
       {2, PRIORITY, "\nThreadPrio=83"},
       {2, CREATED, "\nCThread::Start: thread=0xID created, Prio=83, Waitable=1, StackSize=0x1000"},
       {1, WAIT_JOINED,
        "\nCThread::WaitForTermination: a joinable Thread = 0xID has terminated, pstat=0x2a"}});
}

TEST(ThreadTraceTest, StartOfADetachedThreadThatKillsTheOneBefore) {
  ExpectLines(
      [](const auto&) {
        CThread thread(true);
        thread.Start(EndAtOnce, nullptr, 0, false, 0, 0, false);
        return thread.GetHandle();
      },
      {{5, START,
        "\nCThread::Start: Start a thread, Prio=0, Suspend=0, StackSize=0x00000000, Waitable=0, "
        "KillAliveThread=1"},
       {1, KILL, "\nCThread::Kill: Try to kill the Thread = 0x00000000"},
       {1, KILL_NONE, "\nCThread::Kill: Thread = 0x000000000 doesn't exist !"},
       {4, ATTRIBUTE, "\npthread_attr_init: 0"},
       {2, PRIORITY, "\nThreadPrio=0"},
       {2, CREATED, "\nCThread::Start: thread=0xID created, Prio=0, Waitable=0, StackSize=0x0"}});
}

TEST(ThreadTraceTest, WaitWithATimeOut) {
  ExpectLinesAfterStart(
      EndAtOnce, true, [](CThread& thread) { thread.WaitForTermination(2000); },
      {{1, WAIT_LIMITED,
        "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0xID termination with "
        "timeout"},
       {1, WAIT_JOINED,
        "\nCThread::WaitForTermination: a joinable Thread = 0xID has terminated, pstat=0x2a"}});
}

TEST(ThreadTraceTest, WaitForADetachedThread) {
  ExpectLinesAfterStart(
      EndAtOnce, false,
      [](CThread& thread) {
        thread.WaitForTermination(CThread::INFINITE_TIME);
        thread.WaitForTermination(0);
      },
      {{1, WAIT_DETACHED,
        "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0xID"},
       {1, WAIT_LIMITED,
        "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0xID termination with "
        "timeout"},
       {1, WAIT_DETACHED,
        "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0xID"}});
}

TEST(ThreadTraceTest, KillOfAJoinableThread) {
  ExpectLinesAfterStart(
      EndAtOnce, true, [](CThread& thread) { thread.Kill(); },
      {{1, KILL, "\nCThread::Kill: Try to kill the Thread = 0xID"},
       {1, KILL_JOINABLE, "\nCThread::Kill: Try to join a joinable Thread = 0xID"},
       {1, KILL_JOINED, "\nCThread::Kill: a joinable Thread = 0xID has terminated, pstat=0x2a"}});
}

TEST(ThreadTraceTest, KillOfADetachedThread) {
  ExpectLinesAfterStart(
      RunUntilCancelled, false, [](CThread& thread) { thread.Kill(); },
      {{1, KILL, "\nCThread::Kill: Try to kill the Thread = 0xID"},
       {1, KILL_DETACHED, "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0ID"},
       {2, CANCELLING, "\nCThread::Kill: Killing a non-joinable thread 0xID"},
       {2, CANCELLED, "\nCThread::Kill: a non-joinable thread 0xID cancel invoked"}});
}

TEST(ThreadTraceTest, KillOfADetachedThreadThatHasEnded) {
  ExpectLinesAfterStart(
      EndAtOnce, false,
      [](CThread& thread) {
        EXPECT_TRUE(WaitUntil([&] { return !thread.IsAlive(); }));
        thread.Kill();
      },
      {{1, KILL, "\nCThread::Kill: Try to kill the Thread = 0xID"},
       {1, KILL_DETACHED, "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0ID"}});
}

TEST(ThreadTraceTest, NoThread) {
  ExpectLines(
      [](const auto&) {
        CThread thread;
        thread.WaitForTermination(CThread::INFINITE_TIME);
        thread.WaitForTermination(2000);
        thread.Kill();
        return pthread_t{};
      },
      {{1, WAIT_NONE, "\nCThread::WaitForTermination: Thread = 0x000000000 doesn't exist !"},
       {1, WAIT_NONE, "\nCThread::WaitForTermination: Thread = 0x000000000 doesn't exist !"},
       {1, KILL, "\nCThread::Kill: Try to kill the Thread = 0x00000000"},
       {1, KILL_NONE, "\nCThread::Kill: Thread = 0x000000000 doesn't exist !"}});
}

TEST(ThreadTraceTest, NameOfAThreadAndOfNone) {
  ExpectLinesAfterStart(
      EndAtOnce, false,
      [](CThread& thread) {
        thread.SetThreadName("EM_TALVOR", "_TaskHandler");
        CThread().SetThreadName("", "");
      },
      {{1, NAME,
        "CThread::SetThreadName: ThreadId = 0xID, DebugName = EM_TALVOR, Qualifier = "
        "(_TaskHandler)\n"},
       {1, NAME, "CThread::SetThreadName: ThreadId = 0x00000000, DebugName = , Qualifier = ()\n"}});
}

}  // namespace
