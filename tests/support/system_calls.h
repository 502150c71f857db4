#pragma once

#include <dirent.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

// Sits between a test program and the system: each call of the program to one of the functions
// below passes through an object of the same name, which a test can make fail it, answer it or
// count it:
//
//   const auto failing = calls::fsync.Fail(EIO);           // every one, until the end of the scope
//   const auto once = calls::open.Fail(EMFILE, 0, 1);      // the next one only
//   const auto waits = calls::waitpid.Watch();             // ... EXPECT_EQ(waits.GetCount(), 3)
//   const auto held = calls::read.Answer([&](int descriptor, void* buffer, size_t size) {
//     reached = true;
//     return calls::read.Real(descriptor, buffer, size);
//   });
//
// Calls that shared libraries make do not pass through here. To add a function, add one line to
// EM_TALVOR_SYSTEM_CALLS; the build reads the names from there.

using ThreadFunction = void* (*)(void*);
using SignalAction = struct sigaction;
using FileStatus = struct stat;
using DirectoryFilter = int (*)(const dirent*);
using DirectoryOrder = int (*)(const dirent**, const dirent**);

// How a function reports a failure.
enum class Failure {
  ERRNO,   // -1 and `errno`; null and `errno` where it returns a pointer
  RESULT,  // the error is the result
  LATE,    // as ERRNO, but the function does its work all the same
};

// CALL(number of parameters, Failure, result, name, types of the parameters...)
// clang-format off
#define EM_TALVOR_SYSTEM_CALLS(CALL) \
  CALL(3, ERRNO, int, open, const char*, int, mode_t) \
  CALL(4, ERRNO, int, openat, int, const char*, int, mode_t) \
  CALL(1, LATE, int, close, int) \
  CALL(3, ERRNO, ssize_t, read, int, void*, size_t) \
  CALL(4, ERRNO, ssize_t, pread, int, void*, size_t, off_t) \
  CALL(3, ERRNO, ssize_t, write, int, const void*, size_t) \
  CALL(4, ERRNO, ssize_t, pwrite, int, const void*, size_t, off_t) \
  CALL(2, ERRNO, int, ftruncate, int, off_t) \
  CALL(1, ERRNO, int, fsync, int) \
  CALL(2, ERRNO, int, flock, int, int) \
  CALL(2, ERRNO, int, fchmod, int, mode_t) \
  CALL(4, ERRNO, int, fchmodat, int, const char*, mode_t, int) \
  CALL(2, ERRNO, int, stat, const char*, FileStatus*) \
  CALL(2, ERRNO, int, lstat, const char*, FileStatus*) \
  CALL(2, ERRNO, int, fstat, int, FileStatus*) \
  CALL(4, ERRNO, int, fstatat, int, const char*, FileStatus*, int) \
  CALL(2, ERRNO, int, mkdir, const char*, mode_t) \
  CALL(2, ERRNO, int, rename, const char*, const char*) \
  CALL(5, ERRNO, int, renameat2, int, const char*, int, const char*, unsigned) \
  CALL(1, ERRNO, int, unlink, const char*) \
  CALL(3, ERRNO, int, unlinkat, int, const char*, int) \
  CALL(3, ERRNO, ssize_t, readlink, const char*, char*, size_t) \
  CALL(3, ERRNO, ssize_t, getdents64, int, void*, size_t) \
  CALL(1, ERRNO, DIR*, opendir, const char*) \
  CALL(1, ERRNO, DIR*, fdopendir, int) \
  CALL(1, ERRNO, dirent*, readdir, DIR*) \
  CALL(4, ERRNO, int, scandir, const char*, dirent***, DirectoryFilter, DirectoryOrder) \
  CALL(2, ERRNO, int, mkostemp, char*, int) \
  CALL(2, ERRNO, char*, getcwd, char*, size_t) \
  CALL(1, ERRNO, int, fchdir, int) \
  CALL(3, ERRNO, int, close_range, unsigned, unsigned, int) \
  CALL(7, ERRNO, long, syscall, long, long, long, long, long, long, long) \
  CALL(1, ERRNO, long, sysconf, int) \
  CALL(0, ERRNO, pid_t, fork) \
  CALL(2, ERRNO, int, execvp, const char*, char* const*) \
  CALL(0, ERRNO, pid_t, getpid) \
  CALL(2, ERRNO, int, kill, pid_t, int) \
  CALL(3, ERRNO, pid_t, waitpid, pid_t, int*, int) \
  CALL(4, ERRNO, int, waitid, idtype_t, id_t, siginfo_t*, int) \
  CALL(3, ERRNO, int, sigaction, int, const SignalAction*, SignalAction*) \
  CALL(1, ERRNO, void*, malloc, size_t) \
  CALL(2, ERRNO, void*, realloc, void*, size_t) \
  CALL(1, ERRNO, time_t, time, time_t*) \
  CALL(2, ERRNO, int, clock_gettime, clockid_t, timespec*) \
  CALL(4, RESULT, int, clock_nanosleep, clockid_t, int, const timespec*, timespec*) \
  CALL(2, ERRNO, int, nanosleep, const timespec*, timespec*) \
  CALL(1, ERRNO, int, usleep, useconds_t) \
  CALL(1, ERRNO, unsigned, sleep, unsigned) \
  CALL(0, ERRNO, int, sched_yield) \
  CALL(1, RESULT, int, pthread_attr_init, pthread_attr_t*) \
  CALL(2, RESULT, int, pthread_attr_setdetachstate, pthread_attr_t*, int) \
  CALL(2, RESULT, int, pthread_attr_setschedpolicy, pthread_attr_t*, int) \
  CALL(2, RESULT, int, pthread_attr_getschedparam, const pthread_attr_t*, sched_param*) \
  CALL(2, RESULT, int, pthread_attr_setschedparam, pthread_attr_t*, const sched_param*) \
  CALL(4, RESULT, int, pthread_create, pthread_t*, const pthread_attr_t*, ThreadFunction, void*) \
  CALL(2, RESULT, int, pthread_join, pthread_t, void**) \
  CALL(4, RESULT, int, pthread_clockjoin_np, pthread_t, void**, clockid_t, const timespec*) \
  CALL(3, RESULT, int, pthread_getschedparam, pthread_t, int*, sched_param*) \
  CALL(1, RESULT, int, pthread_cancel, pthread_t) \
  CALL(2, RESULT, int, pthread_setcancelstate, int, int*) \
  CALL(0, ERRNO, void, pthread_testcancel) \
  CALL(1, RESULT, int, pthread_condattr_init, pthread_condattr_t*) \
  CALL(2, RESULT, int, pthread_condattr_setclock, pthread_condattr_t*, clockid_t) \
  CALL(1, RESULT, int, pthread_condattr_destroy, pthread_condattr_t*) \
  CALL(2, RESULT, int, pthread_cond_init, pthread_cond_t*, const pthread_condattr_t*) \
  CALL(1, RESULT, int, pthread_cond_destroy, pthread_cond_t*) \
  CALL(1, RESULT, int, pthread_cond_signal, pthread_cond_t*) \
  CALL(1, RESULT, int, pthread_cond_broadcast, pthread_cond_t*) \
  CALL(2, RESULT, int, pthread_cond_wait, pthread_cond_t*, pthread_mutex_t*) \
  CALL(3, RESULT, int, pthread_cond_timedwait, pthread_cond_t*, pthread_mutex_t*, const timespec*) \
  CALL(2, RESULT, int, pthread_mutex_init, pthread_mutex_t*, const pthread_mutexattr_t*) \
  CALL(1, RESULT, int, pthread_mutex_destroy, pthread_mutex_t*) \
  CALL(1, RESULT, int, pthread_mutex_lock, pthread_mutex_t*) \
  CALL(1, RESULT, int, pthread_mutex_unlock, pthread_mutex_t*)
// clang-format on

// Ends an answer that a test has set up; until then it counts the calls.
class [[nodiscard]] ScopedAnswer {
 public:
  // `end` runs once, at the end.
  ScopedAnswer(std::shared_ptr<std::atomic<int>> count, std::function<void()> end)
      : m_oCount(std::move(count)), m_fnEnd(std::move(end)) {}
  ~ScopedAnswer() { End(); }
  ScopedAnswer(const ScopedAnswer&) = delete;
  ScopedAnswer& operator=(const ScopedAnswer&) = delete;

  // How often the function was called since, by any thread.
  int GetCount() const { return *m_oCount; }

  // Ends the answer before the end of the scope.
  void End() {
    if (const auto end = std::exchange(m_fnEnd, nullptr)) {
      end();
    }
  }

 private:
  const std::shared_ptr<std::atomic<int>> m_oCount;
  std::function<void()> m_fnEnd;
};

// Tells whether the calling thread is running an answer at the moment.
class AnswerFrame {
 public:
  explicit AnswerFrame(const void* call) : m_pCall(call), m_pOuter(std::exchange(s_pInner, this)) {}
  ~AnswerFrame() { s_pInner = m_pOuter; }
  AnswerFrame(const AnswerFrame&) = delete;
  AnswerFrame& operator=(const AnswerFrame&) = delete;

  static bool IsWithin(const void* call);

 private:
  static thread_local AnswerFrame* s_pInner;

  const void* const m_pCall;
  AnswerFrame* const m_pOuter;
};

template <typename Signature>
class SystemCall;

// One function. Answers stack: the newest one is used. Thread safety: calls may come from any
// thread at any time; answers are set up and ended by one thread. An answer that another thread may
// still be running keeps what it captures by value until the process ends.
template <typename Result, typename... Arguments>
class SystemCall<Result(Arguments...)> {
 public:
  using Function = std::function<Result(Arguments...)>;

  constexpr SystemCall(Failure failure, Result (*real)(Arguments...))
      : m_oFailure(failure), m_fnReal(real) {}

  // The function itself.
  Result Real(Arguments... arguments) const { return m_fnReal(arguments...); }

  // `answer` runs in place of the function, on the calling thread. When it calls the function
  // itself, that call goes to the system.
  ScopedAnswer Answer(Function answer) {
    auto count = std::make_shared<std::atomic<int>>(0);
    return Install(count, [count, answer = std::move(answer)](Arguments... arguments) -> Result {
      ++*count;
      return answer(arguments...);
    });
  }

  // After `skip` calls, the next `times` fail with `error`.
  ScopedAnswer Fail(int error, int skip = 0, int times = std::numeric_limits<int>::max()) {
    const auto calls = std::make_shared<std::atomic<int>>(0);
    return Answer([this, calls, error, skip, times](Arguments... arguments) -> Result {
      const int call = (*calls)++ - skip;
      return call < 0 || call >= times ? Real(arguments...) : FailNow(error, arguments...);
    });
  }

  // Counts the calls and changes nothing.
  ScopedAnswer Watch() {
    return Answer([this](Arguments... arguments) { return Real(arguments...); });
  }

  // For an answer: the result that reports a failure to the caller.
  Result FailNow(int error, Arguments... arguments) const {
    if (m_oFailure == Failure::LATE) {
      Real(arguments...);
    }
    if constexpr (std::is_void_v<Result>) {
      errno = error;
    } else if constexpr (std::is_pointer_v<Result>) {
      errno = error;
      return nullptr;
    } else {
      if (m_oFailure == Failure::RESULT) {
        return static_cast<Result>(error);
      }
      errno = error;
      return static_cast<Result>(-1);
    }
  }

  // For the wrappers that the linker puts in: whether there is an answer to run.
  bool IsAnswered() const { return m_pAnswer != nullptr && !AnswerFrame::IsWithin(this); }

  // For the wrappers that the linker puts in: a call of the program.
  Result operator()(Arguments... arguments) {
    const Installed* const answer = m_pAnswer;
    if (answer == nullptr || AnswerFrame::IsWithin(this)) {
      return m_fnReal(arguments...);
    }
    const AnswerFrame frame(this);
    return answer->function(arguments...);
  }

 private:
  struct Installed {
    Function function;
    const Installed* next;  // the previous one, so that a leak checker reaches all of them
  };

  ScopedAnswer Install(std::shared_ptr<std::atomic<int>> count, Function function) {
    const Installed* const before = m_pAnswer;
    m_pNewest = new Installed{std::move(function), m_pNewest};
    m_pAnswer = m_pNewest;
    return {std::move(count), [this, before] { m_pAnswer = before; }};
  }

  const Failure m_oFailure;
  Result (*const m_fnReal)(Arguments...);
  std::atomic<const Installed*> m_pAnswer = nullptr;
  const Installed* m_pNewest = nullptr;
};

namespace calls {

#define EM_TALVOR_DECLARE(count, failure, Result, name, ...) \
  extern SystemCall<Result(__VA_ARGS__)> name;
EM_TALVOR_SYSTEM_CALLS(EM_TALVOR_DECLARE)
#undef EM_TALVOR_DECLARE

// openlog(), closelog(), and every form of syslog(), with the string that it writes.
extern SystemCall<void(const char* name, int options, int facility)> openlog;
extern SystemCall<void(int priority, const char* entry)> syslog;
extern SystemCall<void()> closelog;

// vfork() can only be refused: a function between a caller and the child would return twice.
ScopedAnswer RefuseVfork(int error);

}  // namespace calls
