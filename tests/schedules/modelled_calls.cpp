#include "tests/schedules/modelled_calls.h"

#include <cerrno>
#include <ctime>
#include <functional>
#include <utility>
#include <vector>

#include "tests/schedules/scheduler.h"
#include "tests/support/system_calls.h"

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
// A thread that yields goes on when nobody else can, or as late as this.
constexpr int64_t YIELD_TIME = 10'000;

int64_t g_nJoinTime = 0;

int64_t Nanoseconds(const timespec& time) {
  return time.tv_sec * NANOSECONDS_PER_SECOND + time.tv_nsec;
}

timespec TimeOf(int64_t nanoseconds) {
  return {nanoseconds / NANOSECONDS_PER_SECOND, nanoseconds % NANOSECONDS_PER_SECOND};
}

// The answer to a call: `model` gets the scheduler and the arguments.
template <typename Result, typename... Arguments, typename Model>
void Answer(SystemCall<Result(Arguments...)>& call, Model model) {
  static std::vector<std::unique_ptr<ScopedAnswer>> answers;
  auto answer = [&call, model](Arguments... arguments) -> Result {
    Scheduler* scheduler = Scheduler::Current();
    return scheduler != nullptr ? model(*scheduler, arguments...) : call.Real(arguments...);
  };
  answers.push_back(std::unique_ptr<ScopedAnswer>(new ScopedAnswer(call.Answer(answer))));
}

void Sleep(Scheduler& scheduler, int64_t until) {
  scheduler.EndSelfWhenCancelled();
  scheduler.Self().isCancellable = true;
  scheduler.Block(Scheduler::State::SLEEP, nullptr, until, "end of a sleep");
  scheduler.EndSelfWhenCancelled();
}

void InstallLocks() {
  Answer(calls::pthread_mutex_init, [](Scheduler& scheduler, pthread_mutex_t* mutex, auto*) {
    scheduler.Init(mutex);
    return 0;
  });
  Answer(calls::pthread_mutex_destroy, [](Scheduler& scheduler, pthread_mutex_t* mutex) {
    scheduler.Destroy(mutex, "lock");
    return 0;
  });
  Answer(calls::pthread_mutex_lock, [](Scheduler& scheduler, pthread_mutex_t* mutex) {
    scheduler.Lock(mutex);
    return 0;
  });
  Answer(calls::pthread_mutex_unlock, [](Scheduler& scheduler, pthread_mutex_t* mutex) {
    scheduler.Unlock(mutex);
    return 0;
  });
}

void InstallConditions() {
  Answer(calls::pthread_cond_init, [](Scheduler&, pthread_cond_t*, auto*) { return 0; });
  Answer(calls::pthread_cond_destroy, [](Scheduler& scheduler, pthread_cond_t* condition) {
    scheduler.Destroy(condition, "condition");
    return 0;
  });
  Answer(calls::pthread_cond_signal, [](Scheduler& scheduler, pthread_cond_t* condition) {
    scheduler.Wake(condition, false);
    return 0;
  });
  Answer(calls::pthread_cond_broadcast, [](Scheduler& scheduler, pthread_cond_t* condition) {
    scheduler.Wake(condition, true);
    return 0;
  });
  Answer(calls::pthread_cond_wait,
         [](Scheduler& scheduler, pthread_cond_t* condition, pthread_mutex_t* mutex) {
           scheduler.WaitOn(condition, mutex, Scheduler::NEVER);
           return 0;
         });
  Answer(calls::pthread_cond_timedwait, [](Scheduler& scheduler, pthread_cond_t* condition,
                                           pthread_mutex_t* mutex, const timespec* deadline) {
    return scheduler.WaitOn(condition, mutex, Nanoseconds(*deadline)) ? 0 : ETIMEDOUT;
  });
}

int Create(Scheduler& scheduler, pthread_t* handle, const pthread_attr_t* attribute,
           ThreadFunction function, void* argument) {
  scheduler.SwitchPoint("create a thread", nullptr);
  int detachState = PTHREAD_CREATE_JOINABLE;
  if (attribute != nullptr) {
    pthread_attr_getdetachstate(attribute, &detachState);
  }
  Scheduler::Thread& thread = scheduler.Spawn(
      "", [function, argument] { return function(argument); },
      detachState == PTHREAD_CREATE_DETACHED);
  *handle = thread.os->GetHandle();
  scheduler.SwitchPoint("go on beside a new thread", nullptr);
  return 0;
}

int Join(Scheduler& scheduler, pthread_t handle, void** exitValue, int64_t deadline) {
  scheduler.SwitchPoint("join", nullptr);
  Scheduler::Thread* thread = scheduler.Find(handle);
  if (thread == nullptr || thread->isDetached) {
    scheduler.Fail("a thread is joined that is not there");
  }
  scheduler.EndSelfWhenCancelled();
  if (thread->state != Scheduler::State::ENDED) {
    scheduler.Self().isCancellable = true;
    const bool hasEnded =
        scheduler.Block(Scheduler::State::JOIN, thread, deadline, "return from the join");
    scheduler.EndSelfWhenCancelled();
    if (!hasEnded) {
      return ETIMEDOUT;
    }
  }
  if (exitValue != nullptr) {
    *exitValue = thread->exitValue;
  }
  scheduler.Join(*thread);
  return 0;
}

void InstallThreads() {
  Answer(calls::pthread_create, Create);
  Answer(calls::pthread_join, [](Scheduler& scheduler, pthread_t handle, void** exitValue) {
    return Join(scheduler, handle, exitValue, Scheduler::NEVER);
  });
  Answer(calls::pthread_clockjoin_np, [](Scheduler& scheduler, pthread_t handle, void** exitValue,
                                         clockid_t, const timespec* deadline) {
    return Join(scheduler, handle, exitValue,
                std::max(Nanoseconds(*deadline), scheduler.Now() + g_nJoinTime));
  });
  Answer(calls::pthread_getschedparam,
         [](Scheduler& scheduler, pthread_t handle, int*, sched_param*) {
           scheduler.SwitchPoint("look at a thread", nullptr);
           const Scheduler::Thread* thread = scheduler.Find(handle);
           return thread != nullptr && thread->state != Scheduler::State::ENDED ? 0 : ESRCH;
         });
  Answer(calls::pthread_cancel, [](Scheduler& scheduler, pthread_t handle) {
    scheduler.SwitchPoint("cancel", nullptr);
    Scheduler::Thread* thread = scheduler.Find(handle);
    if (thread == nullptr || thread->state == Scheduler::State::ENDED) {
      scheduler.Fail("a thread is cancelled that has ended");
    }
    Scheduler::Cancel(*thread);
    return 0;
  });
  Answer(calls::pthread_setcancelstate, [](Scheduler& scheduler, int state, int* before) {
    Scheduler::Thread& self = scheduler.Self();
    if (before != nullptr) {
      *before = self.cancelsNow ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE;
    }
    self.cancelsNow = state == PTHREAD_CANCEL_ENABLE;
    return 0;
  });
  Answer(calls::pthread_testcancel, [](Scheduler& scheduler) { scheduler.EndSelfWhenCancelled(); });
}

void InstallTime() {
  Answer(calls::clock_gettime, [](Scheduler& scheduler, clockid_t, timespec* time) {
    *time = TimeOf(scheduler.Now());
    return 0;
  });
  Answer(calls::usleep, [](Scheduler& scheduler, useconds_t microseconds) {
    Sleep(scheduler, scheduler.Now() + int64_t{microseconds} * 1000);
    return 0;
  });
  Answer(calls::sleep, [](Scheduler& scheduler, unsigned seconds) {
    Sleep(scheduler, scheduler.Now() + int64_t{seconds} * NANOSECONDS_PER_SECOND);
    return 0U;
  });
  Answer(calls::sched_yield, [](Scheduler& scheduler) {
    scheduler.Block(Scheduler::State::SLEEP, nullptr, scheduler.Now() + YIELD_TIME,
                    "return from a yield");
    return 0;
  });
}

}  // namespace

void ModelledCalls::Install() {
  InstallLocks();
  InstallConditions();
  InstallThreads();
  InstallTime();
}

void ModelledCalls::StretchJoins(int64_t time) { g_nJoinTime = time; }

// The clock of the C++ library, which reads it out of reach.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();
extern "C" int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
  const Scheduler* scheduler = Scheduler::Current();
  return scheduler != nullptr ? scheduler->Now() : __real__ZNSt6chrono3_V212steady_clock3nowEv();
}
// NOLINTEND(bugprone-reserved-identifier)
