#include "tests/schedules/explorer.h"

#include <csignal>

#include "tests/schedules/memory_watch.h"
#include "tests/schedules/modelled_calls.h"
#include "tests/schedules/scheduler.h"
#include "tests/support/choices.h"

namespace {

#ifdef __SANITIZE_ADDRESS__
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's
extern "C" void __sanitizer_set_death_callback(void (*callback)());
#endif

// A run that crashes is reported as one that fails.
void ReportCrashes() {
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_set_death_callback(Scheduler::FailCrashed);
#else
  for (const int number : {SIGSEGV, SIGBUS}) {
    signal(number, [](int) { Scheduler::FailCrashed(); });
  }
#endif
  signal(SIGABRT, [](int) { Scheduler::FailCrashed(); });
}

void RunOnce(const ScenarioEntry& scenario, Choices& choices, bool isTold) {
  ModelledCalls::StretchJoins(0);
  Scheduler scheduler(choices, scenario.name.c_str(), isTold);
  scheduler.Run(scenario.run);
}

// What the product makes once and keeps is no part of a run.
void WarmUp(const ScenarioEntry& scenario) {
  ReportCrashes();
  Choices first(0);
  MemoryWatch::Ignore(true);
  RunOnce(scenario, first, false);
  MemoryWatch::Ignore(false);
}

}  // namespace

std::vector<ScenarioEntry>& AllScenarios() {
  static std::vector<ScenarioEntry> scenarios;
  return scenarios;
}

int64_t Explore(const ScenarioEntry& scenario, int bound) {
  WarmUp(scenario);
  Choices choices(bound);
  int64_t count = 0;
  do {
    RunOnce(scenario, choices, false);
    ++count;
  } while (choices.Advance());
  return count;
}

void Replay(const ScenarioEntry& scenario, const std::string& schedule) {
  Choices choices(schedule);
  WarmUp(scenario);
  RunOnce(scenario, choices, true);
}
