// States and results of events, without a thread that waits.

#include "tests/conformance/conformance.h"
#include "tests/conformance/event_answers.h"

namespace {

constexpr char DECIMAL_TIMEOUT[] = "callers compare against the decimal number 102";

constexpr bool AUTO = false;
constexpr bool MANUAL = true;

using EventSteps = std::function<void(CEvent& event)>;

// The results of `waits` waits of no time on an event that was not signalled, after `steps`.
std::function<std::string()> After(bool isManual, int waits, const EventSteps& steps) {
  return [=] {
    CEvent event(false, isManual);
    steps(event);
    return WaitResults(event, waits);
  };
}

// The same on an event that was created signalled.
std::function<std::string()> CreatedSignalled(
    bool isManual, int waits, const EventSteps& steps = [](CEvent&) {}) {
  return [=] {
    CEvent event(true, isManual);
    steps(event);
    return WaitResults(event, waits);
  };
}

void None(CEvent& /*event*/) {}

void Set(CEvent& event) { event.Set(); }

void Reset(CEvent& event) { event.Reset(); }

void Pulse(CEvent& event) { event.Pulse(); }

void SetTwice(CEvent& event) {
  event.Set();
  event.Set();
}

void SetAndReset(CEvent& event) {
  event.Set();
  event.Reset();
}

void SetResetSet(CEvent& event) {
  SetAndReset(event);
  event.Set();
}

// What an operation returns on an event in either state.
std::function<std::string()> Succeeds(bool (CEvent::*operation)()) {
  return [operation]() -> std::string {
    CEvent unset(false, MANUAL);
    CEvent set(true, AUTO);
    return (unset.*operation)() && (set.*operation)() ? "yes" : "no";
  };
}

std::string Number(uint32_t number) { return std::to_string(number); }

}  // namespace

ConformanceCases EventCases() {
  return {
      {"number of \"signalled\"", [] { return Number(EVENT_SIGNALED); }, "0"},
      {"number of \"time-out\"", [] { return Number(EVENT_TIMEOUT); }, "258",
       Deliberate{"102", DECIMAL_TIMEOUT}},
      {"number of \"failed\"", [] { return Number(EVENT_FAILED); }, "4294967295"},
      {"number of \"without limit\"", [] { return Number(EVENT_INFINITE); }, "4294967295"},
      {"auto, created not signalled, wait", After(AUTO, 1, None), "time-out"},
      {"auto, created signalled, two waits", CreatedSignalled(AUTO, 2), "signalled, time-out"},
      {"auto, set, two waits", After(AUTO, 2, Set), "signalled, time-out"},
      {"auto, set twice, two waits", After(AUTO, 2, SetTwice), "signalled, time-out"},
      {"auto, set and reset, wait", After(AUTO, 1, SetAndReset), "time-out"},
      {"auto, set, reset and set, two waits", After(AUTO, 2, SetResetSet), "signalled, time-out"},
      {"auto, reset though not signalled, wait", After(AUTO, 1, Reset), "time-out"},
      {"auto, created signalled and set, two waits", CreatedSignalled(AUTO, 2, Set),
       "signalled, time-out"},
      {"auto, pulse without a waiter, wait", After(AUTO, 1, Pulse), "time-out"},
      {"auto, pulse though signalled, wait", CreatedSignalled(AUTO, 1, Pulse), "time-out"},
      {"auto, set, wait with a limit, wait",
       [] {
         CEvent event(true, AUTO);
         const std::string first = WaitResult(event, 100'000);
         return first + ", " + WaitResult(event);
       },
       "signalled, time-out"},
      {"auto, set, wait without limit, wait",
       [] {
         CEvent event(true, AUTO);
         const std::string first = WaitResult(event, EVENT_INFINITE);
         return first + ", " + WaitResult(event);
       },
       "signalled, time-out"},
      {"auto, wait of a moment, which passes",
       [] {
         CEvent event(false, AUTO);
         return WaitResult(event, 1);
       },
       "time-out"},
      {"manual, created not signalled, wait", After(MANUAL, 1, None), "time-out"},
      {"manual, created signalled, three waits", CreatedSignalled(MANUAL, 3),
       "signalled, signalled, signalled"},
      {"manual, set, three waits", After(MANUAL, 3, Set), "signalled, signalled, signalled"},
      {"manual, set twice and reset, wait",
       After(MANUAL, 1,
             [](CEvent& event) {
               SetTwice(event);
               event.Reset();
             }),
       "time-out"},
      {"manual, set and reset, wait", After(MANUAL, 1, SetAndReset), "time-out"},
      {"manual, set, reset and set, two waits", After(MANUAL, 2, SetResetSet),
       "signalled, signalled"},
      {"manual, reset though not signalled, wait", After(MANUAL, 1, Reset), "time-out"},
      {"manual, pulse without a waiter, wait", After(MANUAL, 1, Pulse), "time-out"},
      {"manual, pulse though signalled, wait", CreatedSignalled(MANUAL, 1, Pulse), "time-out"},
      {"manual, wait of a moment, which passes",
       [] {
         CEvent event(false, MANUAL);
         return WaitResult(event, 1);
       },
       "time-out"},
      {"set succeeds, signalled or not", Succeeds(&CEvent::Set), "yes"},
      {"reset succeeds, signalled or not", Succeeds(&CEvent::Reset), "yes"},
      {"pulse succeeds, signalled or not", Succeeds(&CEvent::Pulse), "yes"},
  };
}
