#pragma once

#include <atomic>
#include <cstdint>

struct EventRecord;

// Results of CEvent::Wait(). The time-out is the decimal number 102 on purpose, not the Win32
// 0x102: callers compare against 102.
constexpr uint32_t EVENT_SIGNALED = 0;
constexpr uint32_t EVENT_TIMEOUT = 102;
constexpr uint32_t EVENT_FAILED = 0xFFFFFFFF;

// A time-out without limit.
constexpr uint32_t EVENT_INFINITE = 0xFFFFFFFF;

// A handle of an event that threads wait for.
//
// A manual-reset event stays signalled until Reset() and releases every waiter. An auto-reset event
// is consumed by the first successful Wait(). Two handles created with the same name, and copies of
// a handle, refer to one event; it lives until its last handle is destroyed.
//
// A handle is closed after Close(), and empty when the event could not be created; every operation
// on such a handle answers false or EVENT_FAILED.
//
// No operation throws, whatever the host's trace sink does: it has its effect all the same.
//
// Thread safety: every operation may be called from any thread, on any handle of the event, except
// that a handle must not be destroyed or assigned to while another thread uses that same handle for
// anything but a Wait(). What one thread wrote before Set() is visible to the threads whose Wait()
// it ends.
class CEvent {
 public:
  // Creates an event, or opens the one of that name (null: unnamed), which keeps its own state and
  // kind of reset. On failure the handle is empty.
  CEvent(bool isSignaled, bool isManualReset, const char* name = nullptr) noexcept;

  // A second handle on the event of `other`, open even when `other` was closed; empty when that is.
  CEvent(const CEvent& other) noexcept;

  // As the copy constructor. The event that this handle referred to before is deliberately not
  // released: it stays allocated, and under its name, for the life of the process.
  CEvent& operator=(const CEvent& other) noexcept;

  // Releases the event. The last handle blocks, polling once a second, until no thread is inside
  // Wait().
  ~CEvent();

  // Changes state and kind of reset without waking anybody. False while a thread is inside Wait().
  bool Create(bool isSignaled, bool isManualReset);

  // Signals the event and yields the processor, so that a woken thread can run at once. False when
  // the system could not wake the waiters.
  bool Set();

  // Set() in two steps, for a caller who holds a lock that the woken thread takes next: under that
  // lock the first, which signals the event, and after it the second, which wakes the waiters and
  // yields. Results as for Set().
  bool SetWithoutWaking();
  bool Wake();

  // Releases the threads that are waiting now (an auto-reset event: one of them), leaves the event
  // not signalled and yields. Result as for Set().
  bool Pulse();

  // Makes the event not signalled.
  bool Reset();

  // Signals the event, wakes its waiters and closes this handle for good; other handles keep
  // working.
  bool Close();

  // True when the event is signalled at this moment; consumes nothing.
  bool Check() const;

  // The same without a trace line.
  bool IsSignaled() const;

  // True when the event could not be created, and on a copy of such a handle.
  bool IsEmpty() const { return m_pRecord == nullptr; }

  // True until Close() was called on this handle.
  bool IsOpen() const { return !m_bClosed; }

  // Waits until the event is signalled or `milliseconds` have passed on the monotonic clock
  // (EVENT_INFINITE: no limit; 0: checks once and does not block). A wake-up counts as a signal
  // even when the event is not signalled, so that Pulse() works; it is deliberately not checked
  // again, and a thread that starts waiting between the signal of an auto-reset event and the
  // wake-up is released too. With `trace` the wait writes its level-5 lines. Returns
  // EVENT_SIGNALED, EVENT_TIMEOUT, or EVENT_FAILED when the system refused or an exception broke
  // the wait off. Thread cancellation ends the wait, which is traced as failed, and goes on.
  uint32_t Wait(uint32_t milliseconds, bool trace = false);

 private:
  EventRecord* GetOpenRecord() const;
  void ShareRecordOf(const CEvent& other) noexcept;

  std::atomic<EventRecord*> m_pRecord = nullptr;
  std::atomic<bool> m_bClosed = false;
};
