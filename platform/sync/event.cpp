#include "platform/sync/event.h"

#include <sched.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <new>
#include <string>

#include "platform/sync/critical_section.h"
#include "platform/sync/event_wait.h"
#include "trace/debug_client.h"

namespace {

// The named events of this process, sorted by name (byte order). The table does not own the
// records.
//
// Thread safety: every operation may be called from any thread. Whoever needs a search and a change
// to be one step holds the event reference lock around both; that lock is always taken before the
// table's.
class CEventNameTable {
 public:
  // Returns the record of that name, or null.
  EventRecord* Find(const std::string& name) noexcept {
    const CCriticalSectionGuard guard(m_oLock);
    const auto entry = m_oRecords.find(name);
    return entry != m_oRecords.end() ? entry->second : nullptr;
  }

  // Throws std::bad_alloc and then changes nothing.
  void Insert(const std::string& name, EventRecord* record) {
    const CCriticalSectionGuard guard(m_oLock);
    m_oRecords.insert_or_assign(name, record);
  }

  void Remove(const std::string& name) noexcept {
    const CCriticalSectionGuard guard(m_oLock);
    m_oRecords.erase(name);
  }

  void Clear() noexcept {
    const CCriticalSectionGuard guard(m_oLock);
    m_oRecords.clear();
  }

 private:
  CCriticalSection m_oLock;
  std::map<std::string, EventRecord*> m_oRecords;
};

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

// Wakes all waiters of a manual-reset event, one of an auto-reset event. Returns pthread's result.
int WakeWaiters(EventRecord& record) {
  return record.manualReset ? pthread_cond_broadcast(&record.condition)
                            : pthread_cond_signal(&record.condition);
}

// Under the record's lock.
void Signal(EventRecord& record) {
  DEBUG_TRACE_NOTHROW(5, "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n", record.GetAddress(),
                      record.GetName(), record.signaled.load());
  record.SetSignaled(true);
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

// Drops one reference; the last one destroys the record.
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
  DEBUG_TRACE_NOTHROW(
      5,
      "Create event %p <%s>, changing attributes (IsSignaled=%d,IsManual=%d) --> (IsSignaled=%d,IsManual=%d)\n",
      record->GetAddress(), record->GetName(), record->signaled.load(), record->manualReset.load(),
      isSignaled, isManualReset);
  record->SetSignaled(isSignaled);
  record->manualReset = isManualReset;
  return true;
}

bool CEvent::Set() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  EventRecordLock lock(*record);
  Signal(*record);
  const int result = WakeWaiters(*record);
  lock.Unlock();
  sched_yield();
  return result == 0;
}

bool CEvent::SetWithoutWaking() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  const EventRecordLock lock(*record);
  Signal(*record);
  return true;
}

bool CEvent::Wake() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  const int result = WakeWaiters(*record);
  sched_yield();
  return result == 0;
}

bool CEvent::Pulse() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  EventRecordLock lock(*record);
  DEBUG_TRACE_NOTHROW(5, "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n",
                      record->GetAddress(), record->GetName(), record->signaled.load());
  record->SetSignaled(false);
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
  DEBUG_TRACE_NOTHROW(5, "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n",
                      record->GetAddress(), record->GetName(), record->signaled.load());
  record->SetSignaled(false);
  return true;
}

bool CEvent::Close() {
  EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  DEBUG_TRACE_NOTHROW(5, "Close event %p <%s> IsSignaled=%d --> IsSignaled=1\n",
                      record->GetAddress(), record->GetName(), record->signaled.load());
  m_bClosed = true;
  {
    const EventRecordLock lock(*record);
    record->SetSignaled(true);
  }
  return WakeWaiters(*record) == 0;
}

bool CEvent::Check() const {
  const EventRecord* record = GetOpenRecord();
  if (record == nullptr) {
    return false;
  }
  const bool isSignaled = record->signaled;
  DEBUG_TRACE_NOTHROW(5, "Check event %p <%s> (IsSignaled=%d)\n", record->GetAddress(),
                      record->GetName(), isSignaled);
  return isSignaled;
}

bool CEvent::IsSignaled() const {
  const EventRecord* record = GetOpenRecord();
  return record != nullptr && record->signaled;
}

uint32_t CEvent::Wait(uint32_t milliseconds, bool trace) {
  EventRecord* record = GetOpenRecord();
  return record != nullptr ? WaitForEvent(*record, milliseconds, trace) : EVENT_FAILED;
}
