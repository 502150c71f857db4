#pragma once

// The worker of CTaskSerializer: part of tasks/task_serializer.h, which includes it at its end.

#include <cxxabi.h>
#include <pthread.h>
#include <sched.h>

#include <chrono>

#include "tasks/task_serializer.h"

namespace task_handler {

// The part of an address that trace lines show.
inline uint32_t Shown(const void* address) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

// Runs a call into the deriving class; the worker survives whatever it throws. False when it threw.
// The end of the thread goes on: no object stands behind it for the handler's reference to bind to,
// which is what a sanitizer would report.
template <typename Call>
__attribute__((no_sanitize("null"))) bool Survives(const Call& call) {
  try {
    call();
    return true;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return false;
  }
}

}  // namespace task_handler

template <typename T>
void* CTaskSerializer<T>::TaskHandler(void* serializer) {
  static_cast<CTaskSerializer*>(serializer)->RunWorker();
  return nullptr;
}

template <typename T>
void CTaskSerializer<T>::RunWorker() {
  DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : START THREAD TaskHandler()!");
  task_handler::Survives([this] { OnThreadStart(); });
  do {
    DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : Waiting on task queue for next task ...");
    m_oWakeUp.Wait(EVENT_INFINITE, true);
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
  task_handler::Survives([this] { OnThreadExit(); });
  DEBUG_TRACE_NOTHROW(4, "\nCTaskSerializer     : EXIT THREAD TaskHandler()!");
  DEBUG_TRACE_NOTHROW(1, "THREAD_RETURN: ## INFO: Thread = 0x%08X exited, Return = 0x%08x##\n",
                      static_cast<uint32_t>(pthread_self()), 0U);
}

// Takes the oldest task of the highest level that holds one; without any task the worker goes to
// sleep.
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

// Tasks often come close together: looking for the next one for a moment costs less than falling
// asleep and being woken. Whoever queues it may need this processor for that.
template <typename T>
void CTaskSerializer<T>::LingerForTask() const {
  const auto end = std::chrono::steady_clock::now() + LINGER_TIME;
  while (!m_oWakeUp.IsSignaled() && std::chrono::steady_clock::now() < end) {
    sched_yield();
  }
}

template <typename T>
void CTaskSerializer<T>::Execute(Task task) {
  const uint32_t shown = task_handler::Shown(task.record.get());
  DEBUG_TRACE_NOTHROW(5, "\nCTaskSerializer     : Process Task (Record 0x%X) at level %d", shown,
                      task.level);
  if (task_handler::Survives([&] { OnTaskExecution(task.record->message, task.level); })) {
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
  if (!task_handler::Survives([&] { isSet = event->Set(); })) {
    DEBUG_TRACE_NOTHROW(
        1, "\n\nCTaskSerializer     : ## EXCEPTION setting external event object 0x%X!",
        task_handler::Shown(event));
  } else if (isSet) {
    DEBUG_TRACE_NOTHROW(5, "\nCTaskSerializer     : External event object 0x%X set!",
                        task_handler::Shown(event));
  } else {
    DEBUG_TRACE_NOTHROW(1, "\nCTaskSerializer     : ERROR setting external event object 0x%X!",
                        task_handler::Shown(event));
  }
}

template <typename T>
void CTaskSerializer<T>::ReportEmptyQueue(int32_t level) {
  const CCriticalSectionGuard guard(m_oLock);
  if (GetLevel(level).queue.GetStoredBytes() == 0) {
    task_handler::Survives([&] { OnQueueEmpty(level); });
  }
}
