#pragma once

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Stands between the platform layer and the system: while the object lives, it notes the layer's
// calls on every mutex and condition that is initialised meanwhile, and lets a test answer them.
// One at a time, in programs that are linked with ${PTHREAD_CALLS} as WRAPS.
//
// A call is named without "pthread_" ("mutex_lock"), and with the argument that matters where there
// is one: "condattr_setclock(MONOTONIC)", "cond_timedwait(12.100000000)", "sleep(1)".
class PthreadCalls {
 public:
  // Runs in place of a call and gives its result; nothing: the real call follows.
  using Answer = std::function<std::optional<int>()>;

  PthreadCalls();
  ~PthreadCalls();
  PthreadCalls(const PthreadCalls&) = delete;
  PthreadCalls& operator=(const PthreadCalls&) = delete;

  // Answers the next call of that name, without its argument. Answers queue up.
  void AnswerNext(const std::string& call, Answer answer);
  // Makes the next `times` calls of that name return `error` and do nothing.
  void FailNext(const std::string& call, int error, int times = 1);

  // Makes the monotonic clock of the layer stand still.
  void StopClockAt(timespec now);

  // Wakes whoever waits, without the layer's doing.
  void WakeSpuriously();

  // Adds a line to the calls noted.
  void Note(const std::string& line);
  // The calls since the last Take().
  std::vector<std::string> Take();
};
