#include "tests/support/interleaving.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "tests/support/choices.h"
#include "tests/support/stepped_child.h"
#include "tests/support/system_calls.h"

namespace {

constexpr int DEFAULT_SWITCHES = 1;

// Less than any process waits for a lock.
constexpr std::chrono::milliseconds LONGEST_RUN(800);
constexpr int MOST_ATTEMPTS = 50;

// Calls that change nothing for other processes, and that these cannot change. What they learn of
// an open file they learn as well in the step before.
bool IsPrivate(uint64_t call) {
  switch (call) {
    case SYS_fstat:
    case SYS_fsync:
    case SYS_fdatasync:
    case SYS_fchmod:
    case SYS_brk:
    case SYS_mmap:
    case SYS_munmap:
    case SYS_mprotect:
    case SYS_madvise:
    case SYS_futex:
    case SYS_nanosleep:
    case SYS_clock_nanosleep:
    case SYS_clock_gettime:
    case SYS_sched_yield:
    case SYS_rt_sigaction:
    case SYS_rt_sigprocmask:
    case SYS_sigaltstack:
    case SYS_getpid:
    case SYS_gettid:
    case SYS_getrandom:
    case SYS_umask:
    case SYS_exit_group:
      return true;
    default:
      return false;
  }
}

// A process that tries for a lock again and again sleeps in between; here it stands still anyway.
void RunWithoutSleep(const Interleavings::Action& action) {
  const auto sleep = calls::nanosleep.Answer([](const timespec*, timespec*) { return 0; });
  _exit(action());
}

// A process that comes from one step to the next.
class Runner {
 public:
  explicit Runner(const Interleavings::Action& action)
      : m_oChild([&action] { RunWithoutSleep(action); }), m_bRunning(m_oChild.Step()) {
    SkipPrivate();
  }

  bool IsRunning() const { return m_bRunning; }
  bool IsBlocked() const { return m_bBlocked; }
  int GetExitCode() const { return m_oChild.GetExitCode(); }

  void Unblock() { m_bBlocked = false; }

  // Makes the call at which it stands. True when that may let others go on that are blocked.
  bool Step() {
    const uint64_t call = m_oChild.GetSystemCall();
    const uint64_t descriptor = m_oChild.GetArguments()[0];
    const auto operation = static_cast<int>(m_oChild.GetArguments()[1]);
    CheckThatItDoesNotWait(call, operation);
    m_bRunning = m_oChild.Step();
    bool hasReleased = !m_bRunning;
    if (call == SYS_flock && m_bRunning) {
      hasReleased = NoteLock(descriptor, operation);
    } else if (call == SYS_close) {
      hasReleased = m_oLocked.erase(descriptor) > 0 || hasReleased;
    }
    SkipPrivate();
    return hasReleased || !m_bRunning;
  }

 private:
  void SkipPrivate() {
    while (m_bRunning && (IsPrivate(m_oChild.GetSystemCall()) || IsCloseWithoutLock())) {
      m_bRunning = m_oChild.Step();
    }
  }

  bool IsCloseWithoutLock() const {
    return m_oChild.GetSystemCall() == SYS_close && !m_oLocked.contains(m_oChild.GetArguments()[0]);
  }

  bool NoteLock(uint64_t descriptor, int operation) {
    if (m_oChild.GetResult() == -EWOULDBLOCK) {
      m_bBlocked = true;
    } else if ((operation & LOCK_UN) != 0) {
      return m_oLocked.erase(descriptor) > 0;
    } else if (m_oChild.GetResult() == 0) {
      m_oLocked.insert(descriptor);
    }
    return false;
  }

  static void CheckThatItDoesNotWait(uint64_t call, int operation) {
    if ((call == SYS_flock && (operation & (LOCK_NB | LOCK_UN)) == 0) ||
        (call == SYS_fcntl && (operation == F_SETLKW || operation == F_OFD_SETLKW))) {
      throw std::logic_error("a process would wait for a lock inside a system call");
    }
  }

  SteppedChild m_oChild;
  bool m_bRunning;
  bool m_bBlocked = false;
  std::set<uint64_t> m_oLocked;  // the descriptors whose files it has locked
};

// One run.
class Interleaving {
 public:
  Interleaving(const std::vector<Interleavings::Action>& actions, Choices& choices)
      : m_oChoices(choices) {
    for (const Interleavings::Action& action : actions) {
      m_oRunners.push_back(std::make_unique<Runner>(action));
    }
  }

  InterleavedRun Run() {
    while (const std::optional<size_t> next = ChooseNext()) {
      m_nLast = *next;
      if (m_oRunners[m_nLast]->Step()) {
        for (const auto& runner : m_oRunners) {
          runner->Unblock();
        }
      }
    }
    InterleavedRun run;
    for (const auto& runner : m_oRunners) {
      run.exitCodes.push_back(runner->GetExitCode());
    }
    run.schedule = m_oChoices.Describe();
    return run;
  }

 private:
  bool CanGoOn(size_t index) const {
    return m_oRunners[index]->IsRunning() && !m_oRunners[index]->IsBlocked();
  }

  // Nothing when all have ended.
  std::optional<size_t> ChooseNext() {
    std::vector<size_t> candidates;
    for (size_t offset = 0; offset < m_oRunners.size(); ++offset) {
      const size_t index = (m_nLast + offset) % m_oRunners.size();
      if (CanGoOn(index)) {
        candidates.push_back(index);
      }
    }
    if (candidates.empty()) {
      CheckThatAllHaveEnded();
      return std::nullopt;
    }
    const bool isSwitch = m_bStarted && candidates.front() == m_nLast;
    m_bStarted = true;
    std::vector<int> costs(candidates.size(), isSwitch ? 1 : 0);
    costs.front() = 0;
    return candidates[m_oChoices.Choose(costs)];
  }

  void CheckThatAllHaveEnded() const {
    for (const auto& runner : m_oRunners) {
      if (runner->IsRunning()) {
        throw std::logic_error("all processes wait for each other: " + m_oChoices.Describe());
      }
    }
  }

  Choices& m_oChoices;
  std::vector<std::unique_ptr<Runner>> m_oRunners;
  size_t m_nLast = 0;
  bool m_bStarted = false;
};

}  // namespace

int64_t Interleavings::Try(int switches, const std::function<void()>& prepare,
                           const std::function<void(const InterleavedRun&)>& check) const {
  Choices choices(switches);
  int64_t count = 0;
  do {
    check(RunInTime(choices, prepare));
    ++count;
  } while (choices.Advance());
  std::cout << count << " interleavings with at most " << switches << " switches\n";
  return count;
}

InterleavedRun Interleavings::Replay(const std::string& schedule,
                                     const std::function<void()>& prepare) const {
  Choices choices(schedule);
  return RunInTime(choices, prepare);
}

InterleavedRun Interleavings::RunInTime(Choices& choices,
                                        const std::function<void()>& prepare) const {
  for (int attempt = 0; attempt < MOST_ATTEMPTS; ++attempt) {
    prepare();
    const auto end = std::chrono::steady_clock::now() + LONGEST_RUN;
    try {
      InterleavedRun run = Interleaving(m_oActions, choices).Run();
      if (std::chrono::steady_clock::now() < end) {
        return run;
      }
    } catch (const std::logic_error&) {
      if (std::chrono::steady_clock::now() < end) {
        throw;
      }
    }
    choices.Repeat();
  }
  throw std::runtime_error("the machine is too busy to run the processes in time");
}

int GetSwitches() {
  const char* const text = getenv("EM_TALVOR_SWITCHES");
  return text != nullptr ? std::atoi(text) : DEFAULT_SWITCHES;
}
