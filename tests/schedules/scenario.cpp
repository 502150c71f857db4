#include "tests/schedules/scenario.h"

#include <utility>

#include "tests/schedules/explorer.h"
#include "tests/schedules/modelled_calls.h"
#include "tests/schedules/scheduler.h"

namespace schedules {

Scenario::Scenario(const char* name, void (*run)()) { AllScenarios().push_back({name, run}); }

Thread::Thread(const char* name, std::function<void()> body)
    : m_pThread(&Scheduler::Current()->Spawn(
          name,
          [body = std::move(body)]() -> void* {
            body();
            return nullptr;
          },
          false)) {
  SwitchPoint("go on beside a new thread");
}

Thread::~Thread() {
  if (m_pThread != nullptr) {
    Join();
  }
}

void Thread::Join() {
  auto& thread = *static_cast<Scheduler::Thread*>(std::exchange(m_pThread, nullptr));
  Scheduler& scheduler = *Scheduler::Current();
  scheduler.Block(Scheduler::State::JOIN, &thread, Scheduler::NEVER, "return from the join");
  scheduler.Join(thread);
}

bool Thread::IsAtCondition() const {
  return static_cast<const Scheduler::Thread*>(m_pThread)->state == Scheduler::State::CONDITION;
}

const char* Thread::GetStep() const {
  return static_cast<const Scheduler::Thread*>(m_pThread)->step;
}

bool Thread::HasEnded() const {
  return static_cast<const Scheduler::Thread*>(m_pThread)->state == Scheduler::State::ENDED;
}

void Require(bool holds, const std::string& what) {
  if (!holds) {
    Scheduler::Current()->Fail("broken: " + what);
  }
}

void WaitFor(std::function<bool()> condition) {
  Scheduler::Current()->BlockUntil(std::move(condition));
}

bool WaitFor(std::function<bool()> condition, int milliseconds) {
  Scheduler& scheduler = *Scheduler::Current();
  return scheduler.BlockUntil(std::move(condition),
                              scheduler.Now() + int64_t{milliseconds} * 1'000'000);
}

void SleepFor(int milliseconds) {
  Scheduler& scheduler = *Scheduler::Current();
  scheduler.Block(Scheduler::State::SLEEP, nullptr,
                  scheduler.Now() + int64_t{milliseconds} * 1'000'000, "end of a sleep");
}

void SwitchPoint(const char* step) { Scheduler::Current()->SwitchPoint(step, nullptr); }

void StretchJoins(int milliseconds) {
  ModelledCalls::StretchJoins(int64_t{milliseconds} * 1'000'000);
}

}  // namespace schedules
