#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/sync/event.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

// "signalled", "time-out" or "failed".
std::string WaitResult(CEvent& event, uint32_t milliseconds = 0);

// The results of that many waits of no time, as in "signalled, time-out".
std::string WaitResults(CEvent& event, int count);

// Threads that wait without limit, on whatever event. Ends when they all have.
class EventWaiters {
 public:
  EventWaiters() : m_oBlocked(calls::pthread_cond_wait.Watch()) {}
  ~EventWaiters();

  // Starts threads that wait `times` times each, one after the other, and returns when they all
  // block, for the first time, in the wait that releases the event's lock.
  void Start(CEvent& event, int count, int times = 1);

  // How many waits have ended with a signal.
  int Released() const { return m_nReleased; }

  // Waits until that many waits have ended so. False after ten seconds.
  bool WaitForReleased(int count) const;
  // Waits until waits have begun to block that often. False after ten seconds.
  bool WaitForBlocked(int count) const;

  void Join();

 private:
  std::atomic<int> m_nReleased = 0;
  ScopedAnswer m_oBlocked;
  int m_nStarted = 0;
  std::vector<std::thread> m_oThreads;
};
