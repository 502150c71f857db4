#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

// What all handles of one event share. The handle that drops the last reference destroys the
// record, but not while it counts a waiter.
//
// Thread safety: `references` is guarded by the event reference lock; the rest may be used from any
// thread that holds a reference or is counted as a waiter.
struct EventRecord {
  enum class InitStep { NONE, CLOCK, CONDITION, MUTEX };

  // The step that failed, with its error number; NONE and 0 on success.
  struct InitResult {
    InitStep failed = InitStep::NONE;
    int error = 0;
  };

  EventRecord(bool isSignaled, bool isManualReset) noexcept
      : manualReset(isManualReset), signaled(isSignaled) {}
  ~EventRecord();
  EventRecord(const EventRecord&) = delete;
  EventRecord& operator=(const EventRecord&) = delete;

  // Initialises the condition (its time-outs on CLOCK_MONOTONIC) and the mutex. After a failure the
  // record can only be destroyed.
  InitResult Init() noexcept;

  // Who sees the change, with the mutex or without, also sees what was done before it.
  void SetSignaled(bool isSignaled) noexcept {
    signaled.store(isSignaled, std::memory_order_release);
  }

  // For trace lines.
  const void* GetAddress() const noexcept { return this; }
  const char* GetName() const noexcept { return name != nullptr ? name->c_str() : "anon"; }

  pthread_cond_t condition = {};
  pthread_mutex_t mutex = {};  // guards the changes of signaled
  int32_t references = 1;      // guarded by the event reference lock
  std::atomic<bool> manualReset;
  std::atomic<bool> signaled;
  std::shared_ptr<const std::string> name;  // null: unnamed
  std::atomic<int32_t> waiters = 0;         // threads inside CEvent::Wait()
  pthread_condattr_t attribute = {};
  bool isInitialised = false;
};

// Holds a record's mutex for the life of the object or until Unlock(), unless locking failed.
class EventRecordLock {
 public:
  explicit EventRecordLock(EventRecord& record) noexcept
      : m_oRecord(record), m_nResult(pthread_mutex_lock(&record.mutex)), m_bHeld(m_nResult == 0) {}
  ~EventRecordLock() { Unlock(); }
  EventRecordLock(const EventRecordLock&) = delete;
  EventRecordLock& operator=(const EventRecordLock&) = delete;

  void Unlock() noexcept {
    if (m_bHeld) {
      m_bHeld = false;
      pthread_mutex_unlock(&m_oRecord.mutex);
    }
  }

  // The result of pthread_mutex_lock().
  int GetResult() const noexcept { return m_nResult; }

 private:
  EventRecord& m_oRecord;
  const int m_nResult;
  bool m_bHeld;
};

// A record's address and name for trace lines, usable after the record is gone.
class EventLabel {
 public:
  explicit EventLabel(const EventRecord& record) noexcept
      : m_pAddress(&record), m_pName(record.name) {}

  const void* GetAddress() const noexcept { return m_pAddress; }
  const char* GetName() const noexcept { return m_pName != nullptr ? m_pName->c_str() : "anon"; }

 private:
  const void* const m_pAddress;
  const std::shared_ptr<const std::string> m_pName;
};

// The wait of CEvent, on the record of an open handle; see CEvent::Wait(). The record may be
// destroyed by another thread as soon as the wait is over.
uint32_t WaitForEvent(EventRecord& record, uint32_t milliseconds, bool trace);
