// Events that threads wait for.

#include <pthread.h>

#include <cerrno>
#include <memory>

#include "tests/conformance/conformance.h"
#include "tests/conformance/event_answers.h"

namespace {

constexpr char WAKING_COUNTS[] = "a wake-up counts as a signal, so that a pulse releases";

// How many of three waiters the call and two sets release, and the state that is left. A call that
// released more than one would leave a set without a waiter.
std::string ReleaseOneByOne(bool (CEvent::*operation)()) {
  CEvent event(false, false);
  EventWaiters waiters;
  waiters.Start(event, 3);
  (event.*operation)();
  waiters.WaitForReleased(1);
  event.Set();
  waiters.WaitForReleased(2);
  event.Set();
  waiters.Join();
  return std::to_string(waiters.Released()) + " released, then " + WaitResult(event);
}

// How many of three waiters one call releases, and the state that is left.
std::string ReleaseAll(bool (CEvent::*operation)()) {
  CEvent event(false, true);
  EventWaiters waiters;
  waiters.Start(event, 3);
  (event.*operation)();
  waiters.WaitForReleased(3);
  const std::string released = std::to_string(waiters.Released());
  const std::string state = WaitResult(event);
  event.Set();
  waiters.Join();
  return released + " released, then " + state;
}

std::string SetOneAtATime() {
  CEvent event(false, false);
  CEvent acknowledged(false, false);
  int count = 0;
  std::thread waiter([&] {
    for (int turn = 0; turn < 20; ++turn) {
      count += event.Wait(EVENT_INFINITE) == EVENT_SIGNALED ? 1 : 0;
      acknowledged.Set();
    }
  });
  for (int turn = 0; turn < 20; ++turn) {
    event.Set();
    acknowledged.Wait(EVENT_INFINITE);
  }
  waiter.join();
  return std::to_string(count) + " released, then " + WaitResult(event);
}

std::string SettersAndWaiters() {
  CEvent event(false, false);
  EventWaiters waiters;
  waiters.Start(event, 4);
  CEvent turn(true, false);
  std::vector<std::thread> setters;
  setters.reserve(4);
  for (int number = 0; number < 4; ++number) {
    setters.emplace_back([&] {
      turn.Wait(100'000);
      const int before = waiters.Released();
      event.Set();
      waiters.WaitForReleased(before + 1);
      turn.Set();
    });
  }
  for (std::thread& setter : setters) {
    setter.join();
  }
  waiters.Join();
  return std::to_string(waiters.Released()) + " released, then " + WaitResult(event);
}

// The thread waits again as soon as it was released.
std::string WaitingAgain(bool isManual) {
  CEvent event(false, isManual);
  EventWaiters waiters;
  waiters.Start(event, 1, 2);
  event.Pulse();
  waiters.WaitForBlocked(2);
  const std::string released = std::to_string(waiters.Released());
  event.Set();
  waiters.Join();
  return released + " released";
}

std::string SetAndResetAtOnce(bool isManual) {
  CEvent event(false, isManual);
  EventWaiters waiters;
  waiters.Start(event, 1);
  event.Set();
  event.Reset();
  const bool isReleased = waiters.WaitForReleased(1);
  event.Set();
  waiters.Join();
  return isReleased ? "released" : "missed";
}

// A second thread waits between the signal and the wake-up of the first.
std::string WaitBetween() {
  struct Shared {
    std::atomic<bool> asleep = false;
    std::atomic<bool> wake = false;
  };
  const auto shared = std::make_shared<Shared>();
  CEvent event(false, false);
  auto held = calls::pthread_cond_wait.Answer([shared](pthread_cond_t*, pthread_mutex_t* mutex) {
    pthread_mutex_unlock(mutex);
    shared->asleep = true;
    WaitUntil([&] { return shared->wake.load(); });
    return pthread_mutex_lock(mutex);
  });
  std::atomic<int> released = 0;
  std::thread waiter([&] { released += event.Wait(EVENT_INFINITE) == EVENT_SIGNALED ? 1 : 0; });
  WaitUntil([&] { return shared->asleep.load(); });
  event.Set();
  released += event.Wait(0) == EVENT_SIGNALED ? 1 : 0;
  shared->wake = true;
  WaitUntil([&] { return released == 2; });
  const int count = released;
  event.Set();  // for a first thread that goes on waiting
  waiter.join();
  held.End();
  return std::to_string(count) + " released";
}

// A wait with a limit that does not pass, ended by the call.
std::string EndWithLimit(bool isManual, bool (CEvent::*operation)()) {
  const ScopedAnswer blocked = calls::pthread_cond_timedwait.Watch();
  CEvent event(false, isManual);
  std::string result;
  std::thread waiter([&] { result = WaitResult(event, 100'000); });
  WaitUntil([&] { return blocked.GetCount() == 1; });
  (event.*operation)();
  waiter.join();
  return result + ", then " + WaitResult(event);
}

// A reset that released the thread would leave the signal without a waiter.
std::string ResetWhileWaiting() {
  CEvent event(false, false);
  EventWaiters waiters;
  waiters.Start(event, 1);
  event.Reset();
  event.Set();
  waiters.Join();
  return std::to_string(waiters.Released()) + " released, then " + WaitResult(event);
}

std::string SetBeforeTheThreadWaits(bool isManual) {
  CEvent event(false, isManual);
  event.Set();
  std::string result;
  std::thread late([&] { result = WaitResult(event, EVENT_INFINITE); });
  late.join();
  return result;
}

std::string EndedThread() {
  CEvent event(false, false);
  const ScopedAnswer blocked = calls::pthread_cond_wait.Watch();
  std::thread waiter([&] { event.Wait(EVENT_INFINITE); });
  WaitUntil([&] { return blocked.GetCount() == 1; });
  pthread_cancel(waiter.native_handle());
  waiter.join();
  event.Set();
  return WaitResults(event, 2);
}

}  // namespace

ConformanceCases EventWaiterCases() {
  return {
      {"auto, three wait, set three times", [] { return ReleaseOneByOne(&CEvent::Set); },
       "3 released, then time-out"},
      {"auto, three wait, pulse and set twice", [] { return ReleaseOneByOne(&CEvent::Pulse); },
       "3 released, then time-out"},
      {"auto, four set and four wait, each set acknowledged", &SettersAndWaiters,
       "4 released, then time-out"},
      {"auto, one sets and one waits, 20 times, each set acknowledged", &SetOneAtATime,
       "20 released, then time-out"},
      {"auto, set before the thread waits", [] { return SetBeforeTheThreadWaits(false); },
       "signalled"},
      {"auto, set and reset at once while one waits", [] { return SetAndResetAtOnce(false); },
       "released"},
      {"auto, set while one waits, another waits before that wakes up", &WaitBetween, "1 released",
       Deliberate{"2 released", WAKING_COUNTS}},
      {"auto, reset while one waits, then set", &ResetWhileWaiting, "1 released, then time-out"},
      {"auto, one waits again after a pulse", [] { return WaitingAgain(false); }, "1 released"},
      {"auto, wait with a limit, set", [] { return EndWithLimit(false, &CEvent::Set); },
       "signalled, then time-out"},
      {"auto, wait with a limit, pulse", [] { return EndWithLimit(false, &CEvent::Pulse); },
       "signalled, then time-out"},
      {"auto, thread ended by force in its wait, set, two waits", &EndedThread,
       "signalled, time-out"},
      {"manual, three wait, set", [] { return ReleaseAll(&CEvent::Set); },
       "3 released, then signalled"},
      {"manual, three wait, pulse", [] { return ReleaseAll(&CEvent::Pulse); },
       "3 released, then time-out"},
      {"manual, set before the thread waits", [] { return SetBeforeTheThreadWaits(true); },
       "signalled"},
      {"manual, set and reset at once while one waits", [] { return SetAndResetAtOnce(true); },
       "released or missed", Deliberate{"released", WAKING_COUNTS}},
      {"manual, one waits again after a pulse", [] { return WaitingAgain(true); }, "1 released"},
      {"manual, wait with a limit, set", [] { return EndWithLimit(true, &CEvent::Set); },
       "signalled, then signalled"},
      {"manual, wait with a limit, pulse", [] { return EndWithLimit(true, &CEvent::Pulse); },
       "signalled, then time-out"},
  };
}
