// Events: what a waiter gets from Set(), Pulse() and Close(), and the life of the event below it.

#include <memory>
#include <string>

#include "platform/sync/event.h"
#include "tests/schedules/scenario.h"

using schedules::Require;
using schedules::Scenario;
using schedules::Thread;

namespace {

// Each signal of an auto-reset event is taken by somebody, or still there.
void SetAutoReset() {
  CEvent event(false, false);
  uint32_t first = EVENT_FAILED;
  Thread waiter("waiter", [&] { first = event.Wait(EVENT_INFINITE); });
  Require(event.Set(), "Set() wakes");
  waiter.Join();
  Require(first == EVENT_SIGNALED, "the waiter is released");
  Require(!event.Check(), "its wait consumes the signal");
  Require(event.Set() && event.Wait(EVENT_INFINITE) == EVENT_SIGNALED, "the next signal");
  Require(!event.Check(), "the next wait consumes it");
}
const Scenario setAutoReset("event-auto", SetAutoReset);

void SetAutoResetForTwo() {
  CEvent event(false, false);
  int released = 0;
  const auto wait = [&] { released += event.Wait(50) == EVENT_SIGNALED ? 1 : 0; };
  Thread one("one", wait);
  Thread two("two", wait);
  event.Set();
  one.Join();
  two.Join();
  Require(released > 0 || event.Check(), "the signal is not lost");
  Require(released == 0 || !event.Check(), "it is consumed");
}
const Scenario setAutoResetForTwo("event-auto-two", SetAutoResetForTwo);

void SetManualReset() {
  CEvent event(false, true);
  const auto wait = [&] {
    Require(event.Wait(EVENT_INFINITE) == EVENT_SIGNALED, "every waiter is released");
  };
  Thread one("one", wait);
  Thread two("two", wait);
  event.Set();
  one.Join();
  two.Join();
  Require(event.Check(), "the event stays signalled");
}
const Scenario setManualReset("event-manual", SetManualReset);

void SetAndReset() {
  CEvent event(false, true);
  uint32_t result = EVENT_FAILED;
  Thread waiter("waiter", [&] { result = event.Wait(50); });
  Thread resetter("resetter", [&] { event.Reset(); });
  event.Set();
  waiter.Join();
  resetter.Join();
  Require(result == EVENT_SIGNALED || result == EVENT_TIMEOUT, "a wait does not fail");
}
const Scenario setAndReset("event-reset", SetAndReset);

void TimedWait() {
  CEvent event(false, false);
  uint32_t result = EVENT_FAILED;
  Thread waiter("waiter", [&] { result = event.Wait(50); });
  schedules::SleepFor(50);
  event.Set();
  waiter.Join();
  Require(result == EVENT_SIGNALED || result == EVENT_TIMEOUT, "a wait does not fail");
  Require(event.Check() == (result == EVENT_TIMEOUT), "the signal is consumed once");
}
const Scenario timedWait("event-timed", TimedWait);

// A pulse releases those who wait at that moment and nobody later; with auto-reset, one of them.
void Pulse(bool isManualReset) {
  CEvent event(false, isManualReset);
  int released = 0;
  int again = 0;
  const auto wait = [&] {
    if (event.Wait(50) == EVENT_SIGNALED) {
      ++released;
      again += event.Wait(10) == EVENT_SIGNALED ? 1 : 0;
    }
  };
  Thread one("one", wait);
  Thread two("two", wait);
  Require(event.Pulse(), "Pulse() wakes");
  Require(!event.Check(), "a pulse leaves no signal");
  one.Join();
  two.Join();
  Require(again == 0, "nobody is released twice");
  Require(isManualReset || released <= 1, "one waiter is released");
}
const Scenario pulseManual("event-pulse", [] { Pulse(true); });
const Scenario pulseAuto("event-pulse-auto", [] { Pulse(false); });

// Everybody who waits when the pulse comes is released by it.
void PulseReachesAll() {
  CEvent event(false, true);
  const auto wait = [&] {
    Require(event.Wait(EVENT_INFINITE) == EVENT_SIGNALED, "every waiter is released");
  };
  Thread one("one", wait);
  Thread two("two", wait);
  schedules::WaitFor([&] { return one.IsAtCondition() && two.IsAtCondition(); });
  event.Pulse();
  one.Join();
  two.Join();
}
const Scenario pulseReachesAll("event-pulse-all", PulseReachesAll);

void Close() {
  CEvent event(false, true);
  CEvent other(event);
  Thread one("one", [&] {
    const uint32_t result = event.Wait(EVENT_INFINITE);
    Require(result == EVENT_SIGNALED || result == EVENT_FAILED, "a closed handle fails or wakes");
  });
  Thread two("two", [&] {
    Require(other.Wait(EVENT_INFINITE) == EVENT_SIGNALED, "the other handle works");
  });
  Require(event.Close(), "Close() wakes");
  Require(event.Wait(EVENT_INFINITE) == EVENT_FAILED, "the handle stays closed");
  one.Join();
  two.Join();
}
const Scenario close("event-close", Close);

// One thread gives back the last handle of a name while another opens it.
void OpenAgainstLastRelease() {
  Thread releaser("releaser", [] { const CEvent event(true, true, "name"); });
  {
    CEvent event(true, true, "name");
    Require(!event.IsEmpty() && event.Wait(0) == EVENT_SIGNALED, "an opened event works");
  }
  releaser.Join();
  const CEvent fresh(false, true, "name");
  Require(!fresh.Check(), "the name is free when the last handle is gone");
}
const Scenario openAgainstLastRelease("event-named", OpenAgainstLastRelease);

// Two threads make the same name: it is one event.
void CreateSameName() {
  std::unique_ptr<CEvent> one;
  Thread maker("maker", [&] { one = std::make_unique<CEvent>(false, true, "name"); });
  CEvent two(false, true, "name");
  maker.Join();
  two.Set();
  Require(one->Check(), "one name is one event");
}
const Scenario createSameName("event-same-name", CreateSameName);

// True once `waiter` counts as a waiter: it is about to lock the event, or further.
bool IsInsideWait(const Thread& waiter) {
  const std::string step = waiter.GetStep();
  return waiter.HasEnded() || (step != "begin" && step != "touch an atomic");
}

// The handle on which a thread waits goes, and the other one after its Set(): the last of them
// waits for the thread.
void DestroyWhileWaitedFor() {
  auto event = std::make_unique<CEvent>(false, true);
  auto second = std::make_unique<CEvent>(*event);
  Thread waiter("waiter", [&] {
    Require(event->Wait(EVENT_INFINITE) == EVENT_SIGNALED, "the waiter is released");
  });
  schedules::WaitFor([&] { return IsInsideWait(waiter); });
  Thread setter("setter", [&] {
    second->Set();
    second.reset();
  });
  event.reset();
  waiter.Join();
  setter.Join();
}
const Scenario destroyWhileWaitedFor("event-last-handle", DestroyWhileWaitedFor);

// A timed wait outlives its handle.
void DestroyDuringTimedWait() {
  auto event = std::make_unique<CEvent>(false, false);
  Thread waiter("waiter", [&] { event->Wait(50); });
  schedules::WaitFor([&] { return IsInsideWait(waiter); });
  event.reset();
  waiter.Join();
}
const Scenario destroyDuringTimedWait("event-last-handle-timed", DestroyDuringTimedWait);

}  // namespace
