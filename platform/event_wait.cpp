#include "platform/event_wait.h"

#include <cxxabi.h>
#include <pthread.h>

#include <cerrno>
#include <ctime>

#include "platform/event.h"
#include "platform/event_record.h"
#include "trace/debug_client.h"

namespace {

constexpr uint32_t MILLISECONDS_PER_SECOND = 1000;
constexpr int64_t NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;

timespec DeadlineAfter(const timespec& start, uint32_t milliseconds) {
  timespec deadline = start;
  deadline.tv_sec += milliseconds / MILLISECONDS_PER_SECOND;
  deadline.tv_nsec += (milliseconds % MILLISECONDS_PER_SECOND) * NANOSECONDS_PER_MILLISECOND;
  deadline.tv_sec += deadline.tv_nsec / NANOSECONDS_PER_SECOND;
  deadline.tv_nsec %= NANOSECONDS_PER_SECOND;
  return deadline;
}

int WaitForever(EventRecord& record) {
  int result = 0;
  do {
    result = pthread_cond_wait(&record.condition, &record.mutex);
  } while (result == EINTR);
  return result;
}

int WaitUntil(EventRecord& record, const timespec& deadline) {
  int result = 0;
  do {
    result = pthread_cond_timedwait(&record.condition, &record.mutex, &deadline);
  } while (result == EINTR);
  return result;
}

// Waits on the locked record. Returns pthread's result.
int WaitOn(EventRecord& record, uint32_t milliseconds, bool trace) {
  if (milliseconds == EVENT_INFINITE) {
    return WaitForever(record);
  }
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const timespec deadline = DeadlineAfter(now, milliseconds);
  if (trace) {
    DEBUG_TRACE(
        5,
        "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> (ts:sec=%ld,ts:nsec=%ld)\n",
        record.GetAddress(), record.GetName(), now.tv_sec, now.tv_nsec, deadline.tv_sec,
        deadline.tv_nsec);
  }
  if (milliseconds == 0) {
    // The deadline has come. Asked to wait for it, the system takes tens of microseconds to notice.
    pthread_testcancel();
    return ETIMEDOUT;
  }
  return WaitUntil(record, deadline);
}

// Judges the end of a wait and consumes the signal of an auto-reset event.
uint32_t TakeResult(EventRecord& record, int waitResult) {
  if (waitResult == 0 || record.signaled) {
    if (!record.manualReset) {
      record.signaled = false;
    }
    return EVENT_SIGNALED;
  }
  return waitResult == ETIMEDOUT ? EVENT_TIMEOUT : EVENT_FAILED;
}

const char* ResultWord(uint32_t result) {
  switch (result) {
    case EVENT_SIGNALED:
      return "SIGNAL";
    case EVENT_TIMEOUT:
      return "TIMEOUT";
    default:
      return "FAILURE";
  }
}

// Counts the calling thread as waiting, also when the wait is broken off.
class WaiterCount {
 public:
  explicit WaiterCount(EventRecord& record) : m_oRecord(record) { ++m_oRecord.waiters; }
  ~WaiterCount() { --m_oRecord.waiters; }
  WaiterCount(const WaiterCount&) = delete;
  WaiterCount& operator=(const WaiterCount&) = delete;

 private:
  EventRecord& m_oRecord;
};

// The blocking part of a wait, on a record that is not signalled. Stores pthread's result.
//
// The runtime binds the reference to a forced unwind to null, which the sanitizer would report; the
// exemption does not hold where the function is inlined.
__attribute__((noinline, no_sanitize("null"))) uint32_t BlockUntilSignaled(
    EventRecord& record, const EventRecordLock& lock, uint32_t milliseconds, bool trace,
    int& waitResult) {
  if (lock.GetResult() != 0) {
    // Deliberately left counted: a record whose mutex fails must never be destroyed.
    ++record.waiters;
    return EVENT_FAILED;
  }
  const WaiterCount count(record);
  try {
    waitResult = WaitOn(record, milliseconds, trace);
    return TakeResult(record, waitResult);
  } catch (const abi::__forced_unwind&) {
    throw;  // cancellation goes on; glibc aborts the process when it is swallowed
  } catch (...) {
    return EVENT_FAILED;
  }
}

void TraceWaitBegin(const EventLabel& label, uint32_t milliseconds) {
  if (milliseconds == EVENT_INFINITE) {
    DEBUG_TRACE_NOTHROW(5, "\nwaiting forever on event %p", label.GetAddress());
  } else {
    DEBUG_TRACE_NOTHROW(5, "\nwaiting %dms on event %p", static_cast<int>(milliseconds),
                        label.GetAddress());
  }
}

}  // namespace

uint32_t WaitForEvent(EventRecord& record, uint32_t milliseconds, bool trace) {
  const EventLabel label(record);
  if (trace) {
    TraceWaitBegin(label, milliseconds);
  }
  EventRecordLock lock(record);
  if (record.signaled) {
    const bool isManualReset = record.manualReset;
    record.signaled = isManualReset;
    lock.Unlock();
    if (trace) {
      DEBUG_TRACE_NOTHROW(
          5, "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n",
          label.GetAddress(), label.GetName(), isManualReset, isManualReset);
    }
    return EVENT_SIGNALED;
  }
  int waitResult = 0;
  const uint32_t result = BlockUntilSignaled(record, lock, milliseconds, trace, waitResult);
  const bool isSignaled = record.signaled;
  lock.Unlock();
  if (trace) {
    DEBUG_TRACE_NOTHROW(5, "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n", ResultWord(result),
                        lock.GetResult(), waitResult, label.GetAddress(), label.GetName(),
                        isSignaled);
  }
  return result;
}
