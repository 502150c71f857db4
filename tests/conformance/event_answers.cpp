#include "tests/conformance/event_answers.h"

std::string WaitResult(CEvent& event, uint32_t milliseconds) {
  switch (event.Wait(milliseconds)) {
    case EVENT_SIGNALED:
      return "signalled";
    case EVENT_TIMEOUT:
      return "time-out";
    default:
      return "failed";
  }
}

std::string WaitResults(CEvent& event, int count) {
  std::string results;
  for (int wait = 0; wait < count; ++wait) {
    results += (wait > 0 ? ", " : "") + WaitResult(event);
  }
  return results;
}

EventWaiters::~EventWaiters() { Join(); }

void EventWaiters::Start(CEvent& event, int count, int times) {
  for (int number = 0; number < count; ++number) {
    m_oThreads.emplace_back([this, &event, times] {
      for (int wait = 0; wait < times; ++wait) {
        if (event.Wait(EVENT_INFINITE) == EVENT_SIGNALED) {
          ++m_nReleased;
        }
      }
    });
  }
  m_nStarted += count;
  WaitForBlocked(m_nStarted);
}

bool EventWaiters::WaitForReleased(int count) const {
  return WaitUntil([&] { return m_nReleased >= count; });
}

// The count rises under the event's lock, which the blocking wait releases: whoever takes that lock
// afterwards finds the thread asleep.
bool EventWaiters::WaitForBlocked(int count) const {
  return WaitUntil([&] { return m_oBlocked.GetCount() >= count; });
}

void EventWaiters::Join() {
  for (std::thread& thread : m_oThreads) {
    if (thread.joinable()) {
      thread.join();
    }
  }
}
