#include "tests/platform/pthread_calls.h"

#include <pthread.h>

#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <utility>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __real_pthread_condattr_init(pthread_condattr_t* attribute);
int __real_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock);
int __real_pthread_condattr_destroy(pthread_condattr_t* attribute);
int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute);
int __real_pthread_cond_destroy(pthread_cond_t* condition);
int __real_pthread_cond_signal(pthread_cond_t* condition);
int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_sched_yield();
unsigned __real_sleep(unsigned seconds);
int __real_clock_gettime(clockid_t clock, timespec* now);
}

namespace {

struct State {
  std::mutex lock;
  bool isActive = false;
  std::set<const void*> mutexes;
  std::set<const void*> conditions;
  std::map<std::string, std::deque<PthreadCalls::Answer>> answers;
  std::optional<timespec> now;
  std::vector<std::string> notes;
};

State& TheState() {
  static State& state = *new State;
  return state;
}

// The state's own mutex goes through the wrapper, too.
thread_local bool t_isInside = false;

class StateAccess {
 public:
  StateAccess() {
    t_isInside = true;
    m_rState.lock.lock();
  }
  ~StateAccess() {
    m_rState.lock.unlock();
    t_isInside = false;
  }
  StateAccess(const StateAccess&) = delete;
  StateAccess& operator=(const StateAccess&) = delete;

  State* operator->() { return &m_rState; }

 private:
  State& m_rState = TheState();
};

bool IsNoted(std::set<const void*> State::*objects, const void* object) {
  if (t_isInside) {
    return false;
  }
  StateAccess state;
  return state->isActive && (TheState().*objects).contains(object);
}

// Notes the call. Returns the test's answer, if it has one.
std::optional<int> Answered(const std::string& call, const std::string& argument = "") {
  PthreadCalls::Answer answer;
  {
    StateAccess state;
    if (!state->isActive) {
      return std::nullopt;
    }
    state->notes.push_back(call + argument);
    auto& queue = state->answers[call];
    if (!queue.empty()) {
      answer = std::move(queue.front());
      queue.pop_front();
    }
  }
  return answer ? answer() : std::nullopt;
}

template <typename Real, typename... Arguments>
int Call(const char* name, Real real, Arguments... arguments) {
  const std::optional<int> answer = Answered(name);
  return answer ? *answer : real(arguments...);
}

template <typename Real>
int CallOnMutex(const char* name, Real real, pthread_mutex_t* mutex) {
  return IsNoted(&State::mutexes, mutex) ? Call(name, real, mutex) : real(mutex);
}

template <typename Real>
int CallOnCondition(const char* name, Real real, pthread_cond_t* condition) {
  return IsNoted(&State::conditions, condition) ? Call(name, real, condition) : real(condition);
}

std::string Shown(const timespec& time) {
  char text[64] = "";
  snprintf(text, sizeof text, "(%ld.%09ld)", static_cast<long>(time.tv_sec), time.tv_nsec);
  return text;
}

}  // namespace

extern "C" {

int __wrap_pthread_condattr_init(pthread_condattr_t* attribute) {
  return Call("condattr_init", __real_pthread_condattr_init, attribute);
}

int __wrap_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock) {
  const std::optional<int> answer =
      Answered("condattr_setclock", clock == CLOCK_MONOTONIC ? "(MONOTONIC)" : "(other)");
  return answer ? *answer : __real_pthread_condattr_setclock(attribute, clock);
}

int __wrap_pthread_condattr_destroy(pthread_condattr_t* attribute) {
  return Call("condattr_destroy", __real_pthread_condattr_destroy, attribute);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attribute) {
  const int result = Call("cond_init", __real_pthread_cond_init, condition, attribute);
  if (result == 0) {
    StateAccess()->conditions.insert(condition);
  }
  return result;
}

int __wrap_pthread_cond_destroy(pthread_cond_t* condition) {
  const int result = CallOnCondition("cond_destroy", __real_pthread_cond_destroy, condition);
  StateAccess()->conditions.erase(condition);
  return result;
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  return CallOnCondition("cond_signal", __real_pthread_cond_signal, condition);
}

int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  return CallOnCondition("cond_broadcast", __real_pthread_cond_broadcast, condition);
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return Call("cond_wait", __real_pthread_cond_wait, condition, mutex);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  const std::optional<int> answer = Answered("cond_timedwait", Shown(*deadline));
  return answer ? *answer : __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attribute) {
  const int result = Call("mutex_init", __real_pthread_mutex_init, mutex, attribute);
  if (result == 0) {
    StateAccess()->mutexes.insert(mutex);
  }
  return result;
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
  const int result = CallOnMutex("mutex_destroy", __real_pthread_mutex_destroy, mutex);
  StateAccess()->mutexes.erase(mutex);
  return result;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  return CallOnMutex("mutex_lock", __real_pthread_mutex_lock, mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  return CallOnMutex("mutex_unlock", __real_pthread_mutex_unlock, mutex);
}

int __wrap_sched_yield() { return Call("sched_yield", __real_sched_yield); }

unsigned __wrap_sleep(unsigned seconds) {
  const std::optional<int> answer = Answered("sleep", "(" + std::to_string(seconds) + ")");
  return answer ? static_cast<unsigned>(*answer) : __real_sleep(seconds);
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (clock == CLOCK_MONOTONIC) {
    StateAccess state;
    if (state->now) {
      *now = *state->now;
      return 0;
    }
  }
  return __real_clock_gettime(clock, now);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

PthreadCalls::PthreadCalls() { StateAccess()->isActive = true; }

PthreadCalls::~PthreadCalls() {
  StateAccess state;
  state->isActive = false;
  state->answers.clear();
  state->notes.clear();
  state->now.reset();
}

void PthreadCalls::AnswerNext(const std::string& call, Answer answer) {
  StateAccess()->answers[call].push_back(std::move(answer));
}

void PthreadCalls::FailNext(const std::string& call, int error, int times) {
  for (int time = 0; time < times; ++time) {
    AnswerNext(call, [error] { return error; });
  }
}

void PthreadCalls::StopClockAt(timespec now) { StateAccess()->now = now; }

void PthreadCalls::WakeSpuriously() {
  StateAccess state;
  for (const void* condition : state->conditions) {
    __real_pthread_cond_broadcast(static_cast<pthread_cond_t*>(const_cast<void*>(condition)));
  }
}

void PthreadCalls::Note(const std::string& line) { StateAccess()->notes.push_back(line); }

std::vector<std::string> PthreadCalls::Take() { return std::exchange(StateAccess()->notes, {}); }
