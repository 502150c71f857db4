#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

class Choices;

// Processes that work on the same files, in every order of their system calls.
//
// Each process stands before a system call; one of them makes its call and comes to its next one,
// while the others stand still. Which one goes on is tried in every way with at most so many
// switches away from a process that could have gone on. Calls that nobody else can tell (memory,
// time, a flush, the close of a file that is not locked) belong to the step before.
//
// No process may wait inside a system call for another one, which stands still. Locks are therefore
// tried for without waiting (flock with LOCK_NB), and a process that was refused one counts as
// blocked: it is passed over, which is no switch, until another process gives a lock back or ends.
// A call that would wait for a lock in the kernel is refused with an exception.
//
// Time passes as ever. A run in which a process may have waited for a lock to the end of its
// patience, because the machine was busy, tells nothing and is repeated.

// How a run went.
struct InterleavedRun {
  std::vector<int> exitCodes;  // of the processes
  std::string schedule;        // to tell it from others, and to run it alone
};

class Interleavings {
 public:
  // An action runs in a child (see SteppedChild: it is observed from Begin() on) and gives its exit
  // code.
  using Action = std::function<int()>;

  explicit Interleavings(std::vector<Action> actions) : m_oActions(std::move(actions)) {}

  // Tries all runs with at most `switches`. `prepare` goes before each, `check` follows it. Returns
  // and prints how many there were.
  int64_t Try(int switches, const std::function<void()>& prepare,
              const std::function<void(const InterleavedRun&)>& check) const;

  // The one run of that schedule, after `prepare`.
  InterleavedRun Replay(const std::string& schedule, const std::function<void()>& prepare) const;

 private:
  InterleavedRun RunInTime(Choices& choices, const std::function<void()>& prepare) const;

  const std::vector<Action> m_oActions;
};

// The switches of the tests: what the variable EM_TALVOR_SWITCHES says, or 1.
int GetSwitches();
