#include "platform/event.h"

#include <cxxabi.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <new>

#include "platform/critical_section.h"
#include "platform/event_name_table.h"
#include "platform/event_record.h"
#include "trace/debug_client.h"

namespace {

constexpr uint32_t MILLISECONDS_PER_SECOND = 1000;
constexpr int64_t NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;

// Lock order: referenceLock, then the lock inside the table.
struct EventGlobals {
  CCriticalSection referenceLock;  // guards every reference count and the creation of named events
  CEventNameTable names;
};

// Made before the first event and never destroyed, so that it outlives the last.
EventGlobals& Globals() {
  alignas(EventGlobals) static unsigned char storage[sizeof(EventGlobals)];
  static EventGlobals& globals = *new (storage) EventGlobals;
  return globals;
}

// Runs after the last static destructor of the library or program; frees what leaked handles left.
[[gnu::destructor(102)]] void ClearEventNames() { Globals().names.Clear(); }

void TraceInitFailure(const EventRecord& record, const EventRecord::InitResult& result) {
  switch (result.failed) {
    case EventRecord::InitStep::CLOCK:
      DEBUG_TRACE(
          3,
          "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=%d) for event %p <%s> (IsSignaled=%d)\n",
          result.error, record.GetAddress(), record.GetName(), record.signaled.load());
      break;
    case EventRecord::InitStep::CONDITION:
      DEBUG_TRACE(
          3,
          "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> (IsSignaled=%d)\n",
          result.error, record.GetAddress(), record.GetName(), record.signaled.load());
      break;
    case EventRecord::InitStep::MUTEX:
      DEBUG_TRACE(
          3,
          "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> (IsSignaled=%d)\n",
          result.error, record.GetAddress(), record.GetName(), record.signaled.load());
      break;
    case EventRecord::InitStep::NONE:
      break;
  }
}

// Ends a creation: hands the record over to the caller, or destroys it and returns null when its
// initialisation failed.
EventRecord* FinishCreation(std::unique_ptr<EventRecord> record,
                            const EventRecord::InitResult& result) {
  if (result.failed != EventRecord::InitStep::NONE) {
    TraceInitFailure(*record, result);
    return nullptr;
  }
  DEBUG_TRACE(5, "creating event %p <%s> (IsSignaled=%d)\n", record->GetAddress(),
              record->GetName(), record->signaled.load());
  return record.release();
}

EventRecord* CreateUnnamed(bool isSignaled, bool isManualReset) {
  auto record = std::make_unique<EventRecord>(isSignaled, isManualReset);
  const EventRecord::InitResult result = record->Init();
  return FinishCreation(std::move(record), result);
}

void TraceOpened(const EventRecord& record, bool isManualReset) {
  DEBUG_TRACE(3, "refCount for event %p <%s> incremented (IsSignaled=%d)\n", record.GetAddress(),
              record.GetName(), record.signaled.load());
  if (record.manualReset != isManualReset) {
    DEBUG_TRACE(1, "WARNING: manual setting mismatch for event %p <%s>\n", record.GetAddress(),
                record.GetName());
  }
}

EventRecord* OpenOrCreateNamed(bool isSignaled, bool isManualReset, const std::string& name) {
  std::unique_ptr<EventRecord> created;
  EventRecord::InitResult result;
  EventRecord* existing = nullptr;
  {
    const CCriticalSectionGuard guard(Globals().referenceLock);
    existing = Globals().names.Find(name);
    if (existing != nullptr) {
      ++existing->references;
    } else {
      created = std::make_unique<EventRecord>(isSignaled, isManualReset);
      result = created->Init();
      if (result.failed == EventRecord::InitStep::NONE) {
        created->name = std::make_shared<const std::string>(name);
        Globals().names.Insert(name, created.get());
      }
    }
  }
  if (existing != nullptr) {
    TraceOpened(*existing, isManualReset);
    return existing;
  }
  return FinishCreation(std::move(created), result);
}

// Broadcast or signal, as the kind of reset asks for. Returns pthread's result.
int WakeWaiters(EventRecord& record) {
  return record.manualReset ? pthread_cond_broadcast(&record.condition)
                            : pthread_cond_signal(&record.condition);
}

void WaitUntilNobodyWaits(EventRecord& record) {
  for (;;) {
    {
      const EventRecordLock lock(record);
      if (record.waiters == 0) {
        return;
      }
    }
    sleep(1);
  }
}

// Drops one reference; the last one takes the record with it.
void ReleaseRecord(EventRecord* record) {
  const EventLabel label(*record);
  const bool isSignaled = record->signaled;
  bool isLast = false;
  {
    const CCriticalSectionGuard guard(Globals().referenceLock);
    isLast = --record->references == 0;
    if (isLast && record->name != nullptr) {
      Globals().names.Remove(*record->name);
    }
  }
  if (!isLast) {
    // Another thread may have destroyed the record by now.
    DEBUG_TRACE(5, "decr refcount on event %p <%s> (IsSignaled=%d)\n", label.GetAddress(),
                label.GetName(), isSignaled);
    return;
  }
  WaitUntilNobodyWaits(*record);
  DEBUG_TRACE(5, "deleting event %p <%s> (IsSignaled=%d)\n", label.GetAddress(), label.GetName(),
              record->signaled.load());
  delete record;
}

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

CEvent::CEvent(bool isSignaled, bool isManualReset, const char* name) noexcept {
  const CTraceShield shield;
  try {
    m_pRecord = name == nullptr ? CreateUnnamed(isSignaled, isManualReset)
                                : OpenOrCreateNamed(isSignaled, isManualReset, name);
  } catch (const std::bad_alloc&) {
    // The handle stays empty.
  }
}

CEvent::CEvent(const CEvent& other) noexcept { ShareRecordOf(other); }

CEvent& CEvent::operator=(const CEvent& other) noexcept {
  if (this != &other) {
    ShareRecordOf(other);
  }
  return *this;
}

void CEvent::ShareRecordOf(const CEvent& other) noexcept {
  const CTraceShield shield;
  EventRecord* record = nullptr;
  {
    const CCriticalSectionGuard guard(Globals().referenceLock);
    record = other.m_pRecord;
    m_pRecord = record;
    m_bClosed = false;
    if (record != nullptr) {
      ++record->references;
    }
  }
  if (record != nullptr) {
    DEBUG_TRACE(5, "incr refcount on event %p <%s> (IsSignaled=%d,IsManual=%d)\n",
                record->GetAddress(), record->GetName(), record->signaled.load(),
                record->manualReset.load());
  }
}

CEvent::~CEvent() {
  const CTraceShield shield;
  if (EventRecord* record = m_pRecord) {
    ReleaseRecord(record);
  }
}

EventRecord* CEvent::GetOpenRecord() const { return m_bClosed ? nullptr : m_pRecord.load(); }

bool CEvent::Create(bool isSignaled, bool isManualReset) {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr || record->waiters != 0) {
    return false;
  }
  if (record->signaled == isSignaled && record->manualReset == isManualReset) {
    return true;
  }
  DEBUG_TRACE(
      5,
      "Create event %p <%s>, changing attributes (IsSignaled=%d,IsManual=%d) --> (IsSignaled=%d,IsManual=%d)\n",
      record->GetAddress(), record->GetName(), record->signaled.load(), record->manualReset.load(),
      isSignaled, isManualReset);
  record->signaled = isSignaled;
  record->manualReset = isManualReset;
  return true;
}

bool CEvent::Set() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  EventRecordLock lock(*record);
  DEBUG_TRACE(5, "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n", record->GetAddress(),
              record->GetName(), record->signaled.load());
  record->signaled = true;
  const int result = WakeWaiters(*record);
  lock.Unlock();
  sched_yield();
  return result == 0;
}

bool CEvent::Pulse() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  EventRecordLock lock(*record);
  DEBUG_TRACE(5, "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n", record->GetAddress(),
              record->GetName(), record->signaled.load());
  record->signaled = false;
  const int result = WakeWaiters(*record);
  lock.Unlock();
  sched_yield();
  return result == 0;
}

bool CEvent::Reset() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  const EventRecordLock lock(*record);
  DEBUG_TRACE(5, "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n", record->GetAddress(),
              record->GetName(), record->signaled.load());
  record->signaled = false;
  return true;
}

bool CEvent::Close() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  DEBUG_TRACE(5, "Close event %p <%s> IsSignaled=%d --> IsSignaled=1\n", record->GetAddress(),
              record->GetName(), record->signaled.load());
  m_bClosed = true;
  {
    const EventRecordLock lock(*record);
    record->signaled = true;
  }
  return WakeWaiters(*record) == 0;
}

bool CEvent::Check() const {
  const EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  const bool isSignaled = record->signaled;
  DEBUG_TRACE(5, "Check event %p <%s> (IsSignaled=%d)\n", record->GetAddress(), record->GetName(),
              isSignaled);
  return isSignaled;
}

uint32_t CEvent::Wait(uint32_t milliseconds, bool trace) {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return EVENT_FAILED;
  }
  const EventLabel label(*record);
  if (trace) {
    TraceWaitBegin(label, milliseconds);
  }
  EventRecordLock lock(*record);
  if (record->signaled) {
    const bool isManualReset = record->manualReset;
    record->signaled = isManualReset;
    lock.Unlock();
    if (trace) {
      DEBUG_TRACE_NOTHROW(
          5, "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n",
          label.GetAddress(), label.GetName(), isManualReset, isManualReset);
    }
    return EVENT_SIGNALED;
  }
  int waitResult = 0;
  const uint32_t result = BlockUntilSignaled(*record, lock, milliseconds, trace, waitResult);
  const bool isSignaled = record->signaled;
  lock.Unlock();
  if (trace) {
    DEBUG_TRACE_NOTHROW(5, "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n", ResultWord(result),
                        lock.GetResult(), waitResult, label.GetAddress(), label.GetName(),
                        isSignaled);
  }
  return result;
}
