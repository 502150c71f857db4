#pragma once

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/forced_unwind.h"
#include "base/shown_address.h"
#include "platform/sync/critical_section.h"
#include "platform/sync/event.h"
#include "platform/sync/thread.h"
#include "tasks/byte_ring.h"
#include "trace/debug_client.h"

// Runs queued jobs one at a time on one worker thread. A job is a copy of a message of type T,
// queued at a level; levels are served from the highest to the lowest, the tasks of a level in the
// order queued. A derived class defines what to do with a message in OnTaskExecution().
//
//   constructed       levels enabled, no worker: tasks are kept until the start
//   started           StartSerialization(): the worker runs the tasks
//   terminated        TerminateSerialization(): levels disabled, queues empty, worker joined
//
// A serializer whose worker was terminated refuses every task for good, even after another start:
// nothing enables its levels again (deliberate; the module never restarts a stopped serializer).
//
// The destructor of a derived class must terminate: the worker calls into that class.
//
// Thread safety: InsertTask() may be called from any thread, the other operations from one thread
// at a time. No lock is held while a task runs.
template <typename T>
class CTaskSerializer {
 public:
  // Terminates, and frees the tasks that never ran.
  virtual ~CTaskSerializer();

  CTaskSerializer(const CTaskSerializer&) = delete;
  CTaskSerializer& operator=(const CTaskSerializer&) = delete;

  // Starts the worker unless it is alive, and gives it 100 ms to reach its wait.
  void StartSerialization();

  // Queues a copy of `message`; the worker sets `externalEvent` (may be null; not owned, must live
  // until then) when the task has run. Returns 1 when queued; 0 when the level does not exist, is
  // disabled or holds 19 tasks already. Throws what the copy throws, and then nothing is queued.
  uint32_t InsertTask(const T& message, int32_t level, CEvent* externalEvent);

  // Disables all levels, drops the tasks that have not begun, and joins the worker after its task,
  // without a time limit. Without a live worker it does nothing: the levels stay enabled.
  void TerminateSerialization();

 protected:
  // As the public one, but calls `waitsOn` every 10 ms while the worker runs, with the time since
  // the worker was asked to end, and stops waiting when that returns false. The worker then ends
  // after its task and is joined by the destructor. `waitsOn` must not throw.
  void TerminateSerialization(const CThread::WaitsOn& waitsOn);

  // `levelCount` queues, numbered from 0.
  explicit CTaskSerializer(int32_t levelCount);

  // Runs one task, on the worker thread; it may change the message. What it throws is traced.
  virtual void OnTaskExecution(T& message, int32_t level) = 0;

  // A level's queue has become empty after a task. Called on the worker thread, under the lock.
  virtual void OnQueueEmpty(int32_t /*level*/) {}

  // A task was refused because its level is full. Called on the queuing thread, under the lock.
  virtual void OnQueueFull(const T& /*message*/, int32_t /*level*/) {}

  // The first and the last call on the worker thread.
  virtual void OnThreadStart() {}
  virtual void OnThreadExit() {}

  bool IsWorkerAlive() const { return m_oWorker.IsAlive(); }
  // False when the wake-up event could not be created: the worker would spin instead of sleeping.
  bool CanWakeWorker() const { return !m_oWakeUp.IsEmpty(); }
  bool IsOnWorker() const { return m_oWorker.IsCurrentThread(); }

 private:
  struct TaskRecord {
    CEvent* externalEvent;
    T message;
    std::unique_ptr<TaskRecord> nextDropped;
  };

  struct Level {
    CByteRing queue;
    std::atomic<bool> enabled = false;  // tasks are accepted
    std::atomic<bool> active = true;    // the worker looks at the level
  };

  // What the worker found in the queues.
  struct Task {
    std::unique_ptr<TaskRecord> record;  // null: every queue is empty
    int32_t level = 0;
  };

  static constexpr int32_t WORKER_PRIORITY = 83;      // under round robin
  static constexpr useconds_t SETTLE_TIME = 100'000;  // microseconds
  static constexpr int32_t TERMINATION_TIME = 2000;   // milliseconds
  static constexpr std::chrono::microseconds LINGER_TIME{10};

  bool Accepts(int32_t level) const;
  Level& GetLevel(int32_t level) { return m_oLevels[static_cast<size_t>(level)]; }
  void EnableAllLevels(bool enabled);
  bool HoldsTask() const;
  // A signalled event stays so until the worker has found the queues empty, under the lock. Until
  // then, setting it or waiting for it does nothing but write trace lines.
  bool IsWakeUpPending() const { return m_oWakeUp.IsSignaled() && !g_oDebugClient.IsEnabled(); }
  void DropAllTasks();
  void JoinWorker(const CThread::WaitsOn& waitsOn);

  // Runs a call into the derived class; the worker survives what it throws. False when it threw.
  template <typename Call>
  HANDLES_FORCED_UNWIND static bool Survives(const Call& call) {
    try {
      call();
      return true;
    } catch (const abi::__forced_unwind&) {
      throw;
    } catch (...) {
      return false;
    }
  }

  static void* TaskHandler(void* serializer);
  void RunWorker();
  Task TakeTask();
  void LingerForTask() const;
  void Execute(Task task);
  void ReportEmptyQueue(int32_t level);
  static void SignalExternalEvent(CEvent* event);

  std::vector<Level> m_oLevels;
  CCriticalSection m_oLock;  // guards the queues and the calls of OnQueueEmpty() and OnQueueFull()
  CEvent m_oWakeUp;          // set for a task and reset under the lock, so that no task is missed
  CThread m_oWorker;
  const uint32_t m_nStackSize = 0;
  const int32_t m_nLevelCount;
  std::atomic<bool> m_bTerminate = false;  // asks the worker to leave its loop

  // The tasks dropped by TerminateSerialization(). Deliberately not freed before the destructor: a
  // termination destroys no message.
  std::unique_ptr<TaskRecord> m_pDropped;
};

template <typename T>
CTaskSerializer<T>::CTaskSerializer(int32_t levelCount)
    : m_oLevels(static_cast<size_t>(levelCount)),
      m_oWakeUp(false, true),
      m_oWorker(true),
      m_nLevelCount(levelCount) {
  DEBUG_TRACE(4, "\nCTaskSerializer     : Enable all Tasks");
  EnableAllLevels(true);
}

template <typename T>
CTaskSerializer<T>::~CTaskSerializer() {
  const CTraceShield shield;
  TerminateSerialization();
  {
    const CCriticalSectionGuard guard(m_oLock);
    DropAllTasks();
    m_pDropped.reset();
    m_oLevels.clear();
  }
  DEBUG_TRACE(4, "\n\nCTaskSerializer     : Class destroyed!");
  if (m_oWorker.KillAliveThread) {
    m_oWorker.Kill();
  }
}

template <typename T>
void CTaskSerializer<T>::StartSerialization() {
  DEBUG_TRACE(4, "\nCTaskSerializer     : StartSerialization!");
  if (m_oWorker.IsAlive()) {
    return;
  }
  {
    const CCriticalSectionGuard guard(m_oLock);
    m_oWakeUp.Reset();
    if (HoldsTask()) {
      m_oWakeUp.Set();
    }
  }
  m_bTerminate = false;
  m_oWorker.SetThreadName(g_oDebugClient.GetModuleName(), "_TaskHandler");
  m_oWorker.Start(&CTaskSerializer::TaskHandler, this, WORKER_PRIORITY, false, m_nStackSize, 0,
                  true);
  usleep(SETTLE_TIME);
}

template <typename T>
uint32_t CTaskSerializer<T>::InsertTask(const T& message, int32_t level, CEvent* externalEvent) {
  DEBUG_TRACE(4, "\nCTaskSerializer     : Task at level %d raised", level);
  if (!Accepts(level)) {
    DEBUG_TRACE(4, "\nCTaskSerializer     : Manager locked for Tasks at level %d. Task ignored!",
                level);
    return 0;
  }
  std::unique_ptr<TaskRecord> record(new TaskRecord{externalEvent, message, nullptr});
  bool isWakeUpDue = false;
  {
    const CCriticalSectionGuard guard(m_oLock);
    CByteRing& queue = GetLevel(level).queue;
    if (!queue.HasRoomForAddress()) {
      DEBUG_TRACE(1, "\nCTaskSerializer     : ## ERROR! Task queue for priority %d is full", level);
      OnQueueFull(message, level);
      return 0;
    }
    queue.WriteAddress(record.release());
    const CTraceShield shield;  // the task is queued: nothing may throw from here on
    DEBUG_TRACE(5, "\nCTaskSerializer     : Task with priority %d inserted into task queue!",
                level);
    isWakeUpDue = !IsWakeUpPending() && m_oWakeUp.SetWithoutWaking();
  }
  // Not under the lock, which the woken worker takes next.
  if (isWakeUpDue) {
    m_oWakeUp.Wake();
  } else {
    sched_yield();
  }
  return 1;
}

template <typename T>
void CTaskSerializer<T>::TerminateSerialization() {
  TerminateSerialization([](std::chrono::milliseconds /*waited*/) { return true; });
}

template <typename T>
void CTaskSerializer<T>::TerminateSerialization(const CThread::WaitsOn& waitsOn) {
  DEBUG_TRACE(4, "\nCTaskSerializer     : TerminateSerialization!");
  if (m_oWorker.IsAlive()) {
    DEBUG_TRACE(4, "\nCTaskSerializer     : Disable all Tasks");
    EnableAllLevels(false);
    {
      const CCriticalSectionGuard guard(m_oLock);
      DropAllTasks();
      DEBUG_TRACE(4, "\nCTaskSerializer     : All pending tasks removed from queues!");
    }
    m_bTerminate = true;
    m_oWakeUp.Set();
    usleep(SETTLE_TIME);
    JoinWorker(waitsOn);
  }
  DEBUG_TRACE(5, "\nCTaskSerializer     :   terminated");
}

template <typename T>
void CTaskSerializer<T>::JoinWorker(const CThread::WaitsOn& waitsOn) {
  bool isGivenUp = false;
  m_oWorker.WaitForTermination(TERMINATION_TIME, [&](std::chrono::milliseconds waited) {
    isGivenUp = !waitsOn(std::chrono::milliseconds(SETTLE_TIME / 1000) + waited);
    return !isGivenUp;
  });
  if (!isGivenUp) {
    m_oWorker.Kill();
  }
}

template <typename T>
bool CTaskSerializer<T>::Accepts(int32_t level) const {
  return level >= 0 && level < m_nLevelCount && m_oLevels[static_cast<size_t>(level)].enabled;
}

template <typename T>
void CTaskSerializer<T>::EnableAllLevels(bool enabled) {
  for (Level& level : m_oLevels) {
    level.enabled = enabled;
  }
}

template <typename T>
bool CTaskSerializer<T>::HoldsTask() const {
  return std::any_of(m_oLevels.begin(), m_oLevels.end(),
                     [](const Level& level) { return level.queue.HoldsAddress(); });
}

// Takes every queued task out of its queue and keeps it in m_pDropped.
template <typename T>
void CTaskSerializer<T>::DropAllTasks() {
  for (Level& level : m_oLevels) {
    while (level.queue.HoldsAddress()) {
      std::unique_ptr<TaskRecord> record(static_cast<TaskRecord*>(level.queue.ReadAddress()));
      record->nextDropped = std::move(m_pDropped);
      m_pDropped = std::move(record);
    }
    level.queue.Clear();
  }
}

template <typename T>
void* CTaskSerializer<T>::TaskHandler(void* serializer) {
  static_cast<CTaskSerializer*>(serializer)->RunWorker();
  return nullptr;
}

template <typename T>
void CTaskSerializer<T>::RunWorker() {
  DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : START THREAD TaskHandler()!");
  Survives([this] { OnThreadStart(); });
  do {
    DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : Waiting on task queue for next task ...");
    if (!IsWakeUpPending()) {
      m_oWakeUp.Wait(EVENT_INFINITE, true);
    }
    DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : Wakeup from (any) task queue!");
    if (m_bTerminate) {
      break;
    }
    DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : Checking Task queue for Task records ..");
    Task task = TakeTask();
    if (task.record != nullptr) {
      Execute(std::move(task));
    } else {
      LingerForTask();
    }
  } while (!m_bTerminate);
  Survives([this] { OnThreadExit(); });
  DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : EXIT THREAD TaskHandler()!");
  DEBUG_TRACE_NOTHROW(1, "THREAD_RETURN: ## INFO: Thread = 0x%08X exited, Return = 0x%08x##\n",
                      static_cast<uint32_t>(pthread_self()), 0U);
}

// Takes the oldest task of the highest level that holds one. When there is none it resets the
// event, so that the worker goes to sleep.
template <typename T>
typename CTaskSerializer<T>::Task CTaskSerializer<T>::TakeTask() {
  const CTraceShield shield;
  const CCriticalSectionGuard guard(m_oLock);
  for (int32_t index = m_nLevelCount - 1; index >= 0; --index) {
    Level& level = GetLevel(index);
    if (level.active && level.queue.HoldsAddress()) {
      return {std::unique_ptr<TaskRecord>(static_cast<TaskRecord*>(level.queue.ReadAddress())),
              index};
    }
  }
  m_oWakeUp.Reset();
  return {};
}

// Tasks often come in quick succession: polling briefly for the next one costs less than going to
// sleep and being woken. It yields, because the queuing thread may need this processor.
template <typename T>
void CTaskSerializer<T>::LingerForTask() const {
  const auto end = std::chrono::steady_clock::now() + LINGER_TIME;
  while (!m_oWakeUp.IsSignaled() && std::chrono::steady_clock::now() < end) {
    sched_yield();
  }
}

template <typename T>
void CTaskSerializer<T>::Execute(Task task) {
  const uint32_t shown = ShownAddress(task.record.get());
  DEBUG_TRACE_NOTHROW(5, "\nCTaskSerializer     : Process Task (Record 0x%X) at level %d", shown,
                      task.level);
  if (Survives([&] { OnTaskExecution(task.record->message, task.level); })) {
    DEBUG_TRACE_NOTHROW(5, "\nCTaskSerializer     : Task (Record 0x%X) at level %d completed",
                        shown, task.level);
  } else {
    DEBUG_TRACE_NOTHROW(1, "\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##");
  }
  if (task.record->externalEvent != nullptr) {
    SignalExternalEvent(task.record->externalEvent);
  }
  task.record.reset();
  ReportEmptyQueue(task.level);
}

template <typename T>
void CTaskSerializer<T>::SignalExternalEvent(CEvent* event) {
  bool isSet = false;
  if (!Survives([&] { isSet = event->Set(); })) {
    DEBUG_TRACE_NOTHROW(
        1, "\n\nCTaskSerializer     : ## EXCEPTION setting external event object 0x%X!",
        ShownAddress(event));
  } else if (isSet) {
    DEBUG_TRACE_NOTHROW(5, "\nCTaskSerializer     : External event object 0x%X set!",
                        ShownAddress(event));
  } else {
    DEBUG_TRACE_NOTHROW(1, "\nCTaskSerializer     : ERROR setting external event object 0x%X!",
                        ShownAddress(event));
  }
}

template <typename T>
void CTaskSerializer<T>::ReportEmptyQueue(int32_t level) {
  const CCriticalSectionGuard guard(m_oLock);
  if (GetLevel(level).queue.GetStoredBytes() == 0) {
    Survives([&] { OnQueueEmpty(level); });
  }
}
