#include "platform/sync/event_wait.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "base/forced_unwind.h"
#include "platform/sync/event.h"
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

// For calls that return their error number. POSIX rules EINTR out; should a system return it, the
// call is repeated.
template <typename Call>
int RetryInterruptedWait(const Call& call) {
  int result = call();
  while (result == EINTR) {
    result = call();
  }
  return result;
}

int WaitForever(EventRecord& record) {
  return RetryInterruptedWait([&] { return pthread_cond_wait(&record.condition, &record.mutex); });
}

int WaitUntil(EventRecord& record, const timespec& deadline) {
  return RetryInterruptedWait(
      [&] { return pthread_cond_timedwait(&record.condition, &record.mutex, &deadline); });
}

// A wait with a time-out of 0: pthread_cond_timedwait() would take tens of microseconds to notice
// that the deadline has passed.
int LookOnly() {
  pthread_testcancel();
  return ETIMEDOUT;
}

// Waits on the locked record. Returns pthread's result.
int WaitOn(EventRecord& record, uint32_t milliseconds, bool trace) {
  if (milliseconds == EVENT_INFINITE) {
    return WaitForever(record);
  }
  if (milliseconds == 0 && !(trace && g_oDebugClient.IsEnabled())) {
    return LookOnly();
  }
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const timespec deadline = DeadlineAfter(now, milliseconds);
  if (trace) {
    DEBUG_TRACE_NOTHROW(
        5,
        "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> (ts:sec=%ld,ts:nsec=%ld)\n",
        record.GetAddress(), record.GetName(), now.tv_sec, now.tv_nsec, deadline.tv_sec,
        deadline.tv_nsec);
  }
  if (milliseconds == 0) {
    return LookOnly();
  }
  return WaitUntil(record, deadline);
}

// Turns pthread's result into that of the wait, and consumes the signal of an auto-reset event.
uint32_t TakeResult(EventRecord& record, int waitResult) {
  if (waitResult == 0 || record.signaled) {
    if (!record.manualReset) {
      record.SetSignaled(false);
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

// Counts the calling thread as waiting until Leave() or the end of the object's life. A record
// that counts a waiter is not destroyed.
class WaiterCount {
 public:
  explicit WaiterCount(EventRecord& record) : m_pRecord(&record) { ++m_pRecord->waiters; }
  ~WaiterCount() { Leave(); }
  WaiterCount(const WaiterCount&) = delete;
  WaiterCount& operator=(const WaiterCount&) = delete;

  void Leave() {
    if (m_pRecord != nullptr) {
      --std::exchange(m_pRecord, nullptr)->waiters;
    }
  }

  // Leaves the thread counted for ever.
  void Keep() { m_pRecord = nullptr; }

 private:
  EventRecord* m_pRecord;
};

// How a wait ended, and the state that it left.
struct WaitEnd {
  uint32_t result = EVENT_FAILED;
  int lockResult = 0;
  int waitResult = 0;  // pthread's
  bool isSignaled = false;
  bool hasBlocked = true;  // false: the event was signalled already
};

// The wait itself; `count` has counted the thread.
WaitEnd WaitCounted(EventRecord& record, WaiterCount& count, uint32_t milliseconds, bool trace) {
  const EventRecordLock lock(record);
  if (record.signaled) {
    const bool isManualReset = record.manualReset;
    if (!isManualReset) {
      record.SetSignaled(false);
    }
    return {.result = EVENT_SIGNALED, .isSignaled = isManualReset, .hasBlocked = false};
  }
  WaitEnd end = {.lockResult = lock.GetResult()};
  if (end.lockResult == 0) {
    end.waitResult = WaitOn(record, milliseconds, trace);
    end.result = TakeResult(record, end.waitResult);
  } else {
    // A record whose mutex fails must never be destroyed.
    count.Keep();
  }
  end.isSignaled = record.signaled;
  return end;
}

void TraceWaitBegin(const EventLabel& label, uint32_t milliseconds) {
  if (milliseconds == EVENT_INFINITE) {
    DEBUG_TRACE_NOTHROW(5, "\nwaiting forever on event %p", label.GetAddress());
  } else {
    DEBUG_TRACE_NOTHROW(5, "\nwaiting %dms on event %p", static_cast<int>(milliseconds),
                        label.GetAddress());
  }
}

void TraceWaitEnd(const EventLabel& label, const WaitEnd& end) {
  if (end.hasBlocked) {
    DEBUG_TRACE_NOTHROW(5, "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n", ResultWord(end.result),
                        end.lockResult, end.waitResult, label.GetAddress(), label.GetName(),
                        end.isSignaled);
  } else {
    // An event that is still signalled is a manual-reset one.
    DEBUG_TRACE_NOTHROW(
        5, "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n",
        label.GetAddress(), label.GetName(), end.isSignaled, end.isSignaled);
  }
}

}  // namespace

EventRecord::~EventRecord() {
  if (isInitialised) {
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attribute);
    pthread_mutex_destroy(&mutex);
  }
}

EventRecord::InitResult EventRecord::Init() noexcept {
  int error = pthread_condattr_init(&attribute);
  if (error == 0) {
    error = pthread_condattr_setclock(&attribute, CLOCK_MONOTONIC);
  }
  if (error != 0) {
    pthread_condattr_destroy(&attribute);
    return {InitStep::CLOCK, error};
  }
  error = pthread_cond_init(&condition, &attribute);
  if (error != 0) {
    pthread_condattr_destroy(&attribute);
    return {InitStep::CONDITION, error};
  }
  error = pthread_mutex_init(&mutex, nullptr);
  if (error != 0) {
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attribute);
    return {InitStep::MUTEX, error};
  }
  isInitialised = true;
  return {};
}

HANDLES_FORCED_UNWIND uint32_t WaitForEvent(EventRecord& record, uint32_t milliseconds,
                                            bool trace) {
  // Counted before the first line: while that is written, the last handle may be destroyed.
  WaiterCount count(record);
  const EventLabel label(record);
  if (trace) {
    TraceWaitBegin(label, milliseconds);
  }
  WaitEnd end;
  try {
    end = WaitCounted(record, count, milliseconds, trace);
  } catch (const abi::__forced_unwind&) {
    end.isSignaled = record.signaled;
    count.Leave();
    if (trace) {
      TraceWaitEnd(label, end);
    }
    throw;
  } catch (...) {
    end.isSignaled = record.signaled;
  }
  count.Leave();
  if (trace) {
    TraceWaitEnd(label, end);
  }
  return end.result;
}
