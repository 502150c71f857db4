#pragma once

#include <pthread.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/schedules/os_thread.h"
#include "tests/support/choices.h"

// Runs the threads of a scenario one at a time: exactly one has the baton, and hands it on where it
// blocks, yields, ends, or stands at a switch point and a choice says so. Which one goes on is a
// choice of its own (see Choices): a thread that could go on and does not is a preemption and costs
// one; so does a time-out that comes while another thread could run. Otherwise the virtual clock
// jumps to the next time-out when nobody can run.
//
// A run in which nobody can run any more, or which does not end, is reported by Fail().
//
// Thread safety: one scheduler at a time, used by the thread that has the baton.
class Scheduler {
 public:
  static constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

  enum class State { READY, LOCK, CONDITION, JOIN, SLEEP, UNTIL, ENDED };

  struct Thread {
    int id = 0;
    std::string name;
    State state = State::READY;
    const void* object = nullptr;      // the lock, condition or thread that it waits for
    pthread_mutex_t* mutex = nullptr;  // of the condition
    int64_t deadline = NEVER;          // nanoseconds on the virtual clock
    bool hasTimedOut = false;
    bool isCancellable = false;  // the wait is a cancellation point
    bool isCancelled = false;
    bool cancelsNow = true;  // false: cancellation is held back
    bool isDetached = false;
    bool isJoined = false;
    std::function<bool()> condition;
    const char* step = "";  // what it does next
    void* exitValue = nullptr;
    OsThread* os = nullptr;
  };

  // The scheduler whose thread this is; null on any other thread, and inside a QuietScope.
  static Scheduler* Current();

  // For a handler of fatal signals: reports the run of the calling thread, if it is in one.
  static void FailCrashed();

  Scheduler(Choices& choices, const char* scenario, bool isTold);
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  // Runs `body` as the thread "main" and then waits for the others, all of which must end.
  void Run(const std::function<void()>& body);

  // The thread that has the baton.
  Thread& Self() { return *m_pSelf; }
  int64_t Now() const { return m_nNow; }
  bool IsTold() const { return m_bTold; }

  // Another thread may go on here. `object` is what the thread is about to touch.
  void SwitchPoint(const char* step, const void* object);

  // Lets the thread wait. False when `deadline` came first. Ends the thread when it is cancelled.
  bool Block(State state, const void* object, int64_t deadline, const char* step);
  // The same for a condition that only the scenario knows.
  bool BlockUntil(std::function<bool()> condition, int64_t deadline = NEVER);

  // One of `count` alternatives of equal cost.
  size_t Choose(size_t count);

  Thread& Spawn(const std::string& name, std::function<void*()> body, bool isDetached);
  // The thread with that id of the system that has not been given back; null when there is none.
  Thread* Find(pthread_t handle);
  const std::deque<Thread>& Threads() const { return m_oThreads; }
  void Join(Thread& thread);
  // Cancels `thread`, at its next cancellation point.
  static void Cancel(Thread& thread);
  void EndSelfWhenCancelled();

  // Locks and conditions, by their addresses.
  void Init(const void* object);
  void Destroy(const void* object, const char* kind);
  void Lock(const void* mutex);
  void Unlock(const void* mutex);
  bool WaitOn(const void* condition, pthread_mutex_t* mutex, int64_t deadline);
  void Wake(const void* condition, bool all);

  // Reports the run and ends the process.
  [[noreturn]] void Fail(const std::string& what);

  // One line of the told run.
  void Tell(const std::string& line);

 private:
  struct Owner {
    const void* mutex;
    const Thread* owner;
  };

  bool IsReady(const Thread& thread) const;
  bool HasOtherThreadsLeft() const;
  void Expire();
  bool JumpToNextDeadline();
  Thread* ChooseNext();
  void HandOver();
  void EndThread(Thread& thread);
  void Check();
  const Thread* OwnerOf(const void* mutex) const;
  void SetOwner(const void* mutex, const Thread* owner);
  [[noreturn]] void FailBlocked(const char* why);
  std::string DescribeThreads() const;

  Choices& m_oChoices;
  const char* const m_pScenario;
  const bool m_bTold;
  int64_t m_nNow = 1'000'000'000'000;
  int64_t m_nSteps = 0;
  std::deque<Thread> m_oThreads;
  Thread* m_pSelf = nullptr;
  bool m_bHasReturned = false;  // the thread "main" from the scenario
  std::vector<Owner> m_oOwners;
  std::vector<Thread*> m_oAlternatives;
  std::vector<int> m_oCosts;
};

// What the calling thread does inside is no part of the schedule.
class QuietScope {
 public:
  QuietScope() noexcept { Begin(); }
  ~QuietScope() { End(); }
  QuietScope(const QuietScope&) = delete;
  QuietScope& operator=(const QuietScope&) = delete;

  static void Begin() noexcept;
  static void End() noexcept;
};
