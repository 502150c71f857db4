#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <iomanip>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tasks/task_serializer.h"
#include "tests/support/trace_session.h"

// The trace formats of the serializer, and those of its event and its thread that its tests use.
namespace line {

inline constexpr char ENABLE_ALL[] = "\nCTaskSerializer     : Enable all Tasks";
inline constexpr char START[] = "\nCTaskSerializer     : StartSerialization!";
inline constexpr char RAISED[] = "\nCTaskSerializer     : Task at level %d raised";
inline constexpr char LOCKED[] =
    "\nCTaskSerializer     : Manager locked for Tasks at level %d. Task ignored!";
inline constexpr char INSERTED[] =
    "\nCTaskSerializer     : Task with priority %d inserted into task queue!";
inline constexpr char FULL[] =
    "\nCTaskSerializer     : ## ERROR! Task queue for priority %d is full";
inline constexpr char TERMINATE[] = "\nCTaskSerializer     : TerminateSerialization!";
inline constexpr char DISABLE_ALL[] = "\nCTaskSerializer     : Disable all Tasks";
inline constexpr char ALL_REMOVED[] =
    "\nCTaskSerializer     : All pending tasks removed from queues!";
inline constexpr char TERMINATED[] = "\nCTaskSerializer     :   terminated";
inline constexpr char DESTROYED[] = "\n\nCTaskSerializer     : Class destroyed!";

inline constexpr char WORKER_START[] = "\nCTaskSerializer     : START THREAD TaskHandler()!";
inline constexpr char WAITING[] = "\nCTaskSerializer     : Waiting on task queue for next task ...";
inline constexpr char WAKEUP[] = "\nCTaskSerializer     : Wakeup from (any) task queue!";
inline constexpr char CHECKING[] =
    "\nCTaskSerializer     : Checking Task queue for Task records ..";
inline constexpr char PROCESS[] = "\nCTaskSerializer     : Process Task (Record 0x%X) at level %d";
inline constexpr char COMPLETED[] =
    "\nCTaskSerializer     : Task (Record 0x%X) at level %d completed";
inline constexpr char EXCEPTION[] =
    "\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##";
inline constexpr char EVENT_SET[] = "\nCTaskSerializer     : External event object 0x%X set!";
inline constexpr char EVENT_ERROR[] =
    "\nCTaskSerializer     : ERROR setting external event object 0x%X!";
inline constexpr char WORKER_EXIT[] = "\nCTaskSerializer     : EXIT THREAD TaskHandler()!";
inline constexpr char THREAD_RETURN[] =
    "THREAD_RETURN: ## INFO: Thread = 0x%08X exited, Return = 0x%08x##\n";

inline constexpr char CREATING[] = "creating event %p <%s> (IsSignaled=%d)\n";
inline constexpr char DELETING[] = "deleting event %p <%s> (IsSignaled=%d)\n";
inline constexpr char SET[] = "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n";
inline constexpr char RESET[] = "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n";
inline constexpr char WAIT_FOREVER[] = "\nwaiting forever on event %p";
inline constexpr char WAIT_NOT_NEEDED[] =
    "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n";
inline constexpr char WAIT_RESULT[] = "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n";

inline constexpr char THREAD_NAME[] =
    "CThread::SetThreadName: ThreadId = 0x%08X, DebugName = %s, Qualifier = (%s)\n";
inline constexpr char THREAD_START[] =
    "\nCThread::Start: Start a thread, Prio=%d, Suspend=%d, StackSize=0x%08x, Waitable=%d, KillAliveThread=%d";
inline constexpr char THREAD_ATTRIBUTE[] = "\npthread_attr_init: %d";
inline constexpr char THREAD_PRIORITY[] = "\nThreadPrio=%d";
inline constexpr char THREAD_CREATED[] =
    "\nCThread::Start: thread=0x%08X created, Prio=%d, Waitable=%d, StackSize=0x%x";
inline constexpr char THREAD_NOT_CREATED[] = "\npthread_create failed: %d";
inline constexpr char NO_TIMEOUT[] =
    "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with timeout";
inline constexpr char JOINED[] =
    "\nCThread::WaitForTermination: a joinable Thread = 0x%08X has terminated, pstat=%p";
inline constexpr char KILL[] = "\nCThread::Kill: Try to kill the Thread = 0x%08X";
inline constexpr char KILL_JOINS[] = "\nCThread::Kill: Try to join a joinable Thread = 0x%08X";
inline constexpr char KILLED[] =
    "\nCThread::Kill: a joinable Thread = 0x%08X has terminated, pstat=%p";
inline constexpr char NOTHING_TO_KILL[] = "\nCThread::Kill: Thread = 0x0%08X doesn't exist !";

}  // namespace line

// A message that counts its live instances.
class Message {
 public:
  explicit Message(int messageNumber) : number(messageNumber) { ++s_alive; }
  Message(const Message& other) : number(other.number) {
    if (s_onCopy) {
      s_onCopy();
    }
    ++s_alive;
  }
  Message& operator=(const Message&) = delete;
  ~Message() {
    if (s_onDestruction) {
      s_onDestruction();
    }
    --s_alive;
  }

  int number;

  static inline std::atomic<int> s_alive = 0;
  // Called at the start of each copy and of each destruction.
  static inline std::function<void()> s_onCopy;
  static inline std::function<void()> s_onDestruction;
};

// Holds a thread at a point until the test opens the gate.
class Gate {
 public:
  void Pass() {
    m_bReached = true;
    EXPECT_TRUE(WaitUntil([this] { return m_bOpen.load(); }));
  }
  bool WaitUntilReached() const {
    return WaitUntil([this] { return m_bReached.load(); });
  }
  void Open() { m_bOpen = true; }

 private:
  std::atomic<bool> m_bReached = false;
  std::atomic<bool> m_bOpen = false;
};

// A serializer whose tasks and hooks do what the test says: each writes a line "hook <name>" and
// then calls the test's function, if there is one. The functions must be set before the start.
class TestSerializer : public CTaskSerializer<Message> {
 public:
  explicit TestSerializer(int32_t levelCount = 1) : CTaskSerializer(levelCount) {}
  ~TestSerializer() override {
    const CTraceShield shield;
    TerminateSerialization();
  }

  using CTaskSerializer::TerminateSerialization;

  uint32_t Insert(int number, int32_t level = 0, CEvent* event = nullptr) {
    return InsertTask(Message(number), level, event);
  }

  // Inserts `count` tasks with the numbers from `first` on and expects each to be accepted.
  void InsertMany(int first, int count, int32_t level = 0) {
    for (int number = first; number < first + count; ++number) {
      EXPECT_EQ(Insert(number, level), 1U) << number;
    }
  }

  // The numbers of the tasks begun so far, in the order in which they began.
  std::vector<int> Begun() const {
    const std::lock_guard guard(m_oBegunLock);
    return m_oBegun;
  }
  bool WaitUntilBegun(size_t count) const {
    return WaitUntil([&] { return Begun().size() >= count; });
  }

  std::function<void(Message&, int32_t)> onTask;
  std::function<void(int32_t)> onEmpty;
  std::function<void(const Message&, int32_t)> onFull;
  std::function<void()> onStart;
  std::function<void()> onExit;

 private:
  void OnTaskExecution(Message& message, int32_t level) override {
    DEBUG_TRACE(1, "hook OnTaskExecution");
    {
      const std::lock_guard guard(m_oBegunLock);
      m_oBegun.push_back(message.number);
    }
    Call(onTask, message, level);
  }
  void OnQueueEmpty(int32_t level) override {
    DEBUG_TRACE(1, "hook OnQueueEmpty");
    Call(onEmpty, level);
  }
  void OnQueueFull(const Message& message, int32_t level) override {
    DEBUG_TRACE(1, "hook OnQueueFull");
    Call(onFull, message, level);
  }
  void OnThreadStart() override {
    DEBUG_TRACE(1, "hook OnThreadStart");
    Call(onStart);
  }
  void OnThreadExit() override {
    DEBUG_TRACE(1, "hook OnThreadExit");
    Call(onExit);
  }

  template <typename Function, typename... Arguments>
  static void Call(const Function& function, Arguments&... arguments) {
    if (function) {
      function(arguments...);
    }
  }

  mutable std::mutex m_oBegunLock;
  std::vector<int> m_oBegun;
};

class SerializerTest : public testing::Test {
 protected:
  void TearDown() override {
    Message::s_onCopy = nullptr;
    Message::s_onDestruction = nullptr;
    EXPECT_EQ(Message::s_alive, 0);
  }
};

// The formats in `session` that belong to the serializer and its hooks, not to threads or events.
inline std::vector<std::string> SerializerFormats(const TraceSession& session) {
  std::vector<std::string> formats;
  for (std::string& format : session.Formats()) {
    if (format.find("CTaskSerializer") != std::string::npos || format.starts_with("hook ") ||
        format.starts_with("THREAD_RETURN")) {
      formats.push_back(std::move(format));
    }
  }
  return formats;
}

// The lines with that format.
inline std::vector<std::string> TextsOf(const TraceSession& session, const std::string& format) {
  std::vector<std::string> texts;
  for (TraceLine& traced : session.Lines()) {
    if (traced.format == format) {
      texts.push_back(std::move(traced.text));
    }
  }
  return texts;
}

// Queues a task on another thread and waits for the result. A 1 also shows that the lock is free.
inline uint32_t InsertFromAnotherThread(TestSerializer& serializer, int number, int32_t level = 0) {
  return std::async(std::launch::async, [&] { return serializer.Insert(number, level); }).get();
}

// An insertion by another thread while the serializer's lock should be held.
class BlockedInsertion {
 public:
  // Begins the insertion. Call it where the lock should be held; it waits long enough for the
  // insertion to end if the lock is free.
  void Begin(TestSerializer& serializer, int number, int32_t level) {
    m_oResult = std::async(std::launch::async, [&serializer, number, level] {
      return serializer.Insert(number, level);
    });
    m_bWasBlocked = m_oResult.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready;
  }

  // Waits for the end of the insertion. True when it was blocked first and accepted then.
  bool WasBlocked() { return m_oResult.valid() && m_oResult.get() == 1 && m_bWasBlocked; }

 private:
  std::future<uint32_t> m_oResult;
  bool m_bWasBlocked = false;
};

// The low 32 bits, as 0x%0*X prints them with that width.
inline std::string Hex(uintptr_t number, int width = 0) {
  std::ostringstream text;
  text << "0x" << std::hex << std::uppercase << std::setfill('0') << std::setw(width)
       << static_cast<uint32_t>(number);
  return text.str();
}
