#pragma once

#include <functional>
#include <string>

// What a scenario is made of. Its threads run one at a time, so that it needs no lock and no atomic
// for what it notes itself.
namespace schedules {

// Registers a scenario; a static object.
class Scenario {
 public:
  // `name` is one word. `run` is the scenario's thread "main"; it is run again and again, each time
  // with a clean state, and must do the same each time.
  Scenario(const char* name, void (*run)());
};

// A thread of a scenario; must be joined.
class Thread {
 public:
  Thread(const char* name, std::function<void()> body);
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  void Join();
  bool IsJoined() const { return m_pThread == nullptr; }

  // True while it waits on a condition without having been woken.
  bool IsAtCondition() const;

  // What it does next, as a report says it.
  const char* GetStep() const;
  bool HasEnded() const;

 private:
  void* m_pThread;
};

// Ends the run as failed unless `holds`.
void Require(bool holds, const std::string& what);

// Lets the calling thread wait for what other threads do. `condition` is asked at each step and
// must touch no atomic and no lock.
void WaitFor(std::function<bool()> condition);

// The same, for `milliseconds` at most. False when they have passed.
bool WaitFor(std::function<bool()> condition, int milliseconds);

// Lets virtual time pass.
void SleepFor(int milliseconds);

// Another thread may go on here.
void SwitchPoint(const char* step);

// See ModelledCalls.
void StretchJoins(int milliseconds);

}  // namespace schedules
