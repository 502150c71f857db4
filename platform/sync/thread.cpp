#include "platform/sync/thread.h"

#include <sched.h>

#include <cerrno>
#include <ctime>
#include <mutex>
#include <new>
#include <utility>

#include "trace/debug_client.h"

namespace {

constexpr std::chrono::milliseconds JOIN_SLICE(10);

// The part of a thread id that trace lines show.
uint32_t Shown(pthread_t handle) { return static_cast<uint32_t>(handle); }

bool IsKnownToSystem(pthread_t handle) {
  int policy = 0;
  sched_param parameter = {};
  return pthread_getschedparam(handle, &policy, &parameter) == 0;
}

bool IsSelf(pthread_t handle) { return pthread_equal(handle, pthread_self()) != 0; }

// A thread that joins itself gets the system's answer without the call: after a failed join the
// thread sanitizer loses track of the thread.
int Join(pthread_t handle, void*& exitValue) {
  return IsSelf(handle) ? EDEADLK : pthread_join(handle, &exitValue);
}

// The thread sanitizer does not know pthread_clockjoin_np() and would report a thread that was
// never joined.
#ifdef __SANITIZE_THREAD__
using JoinClock = std::chrono::system_clock;
int JoinUntil(pthread_t handle, void*& exitValue, const timespec& end) {
  return pthread_timedjoin_np(handle, &exitValue, &end);
}
#else
using JoinClock = std::chrono::steady_clock;
int JoinUntil(pthread_t handle, void*& exitValue, const timespec& end) {
  return pthread_clockjoin_np(handle, &exitValue, CLOCK_MONOTONIC, &end);
}
#endif

// Returns ETIMEDOUT while the thread still runs.
int JoinWithin(std::chrono::nanoseconds time, pthread_t handle, void*& exitValue) {
  if (IsSelf(handle)) {
    return EDEADLK;
  }
  const auto end = (JoinClock::now() + time).time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(end);
  return JoinUntil(handle, exitValue, {seconds.count(), (end - seconds).count()});
}

class ThreadAttribute {
 public:
  ThreadAttribute() : m_nResult(pthread_attr_init(&m_oAttribute)) {}
  ~ThreadAttribute() {
    if (m_nResult == 0) {
      pthread_attr_destroy(&m_oAttribute);
    }
  }
  ThreadAttribute(const ThreadAttribute&) = delete;
  ThreadAttribute& operator=(const ThreadAttribute&) = delete;

  // The result of pthread_attr_init().
  int GetResult() const { return m_nResult; }
  pthread_attr_t& Get() { return m_oAttribute; }

 private:
  pthread_attr_t m_oAttribute = {};
  const int m_nResult;
};

bool SetDetached(pthread_attr_t& attribute) {
  const int error = pthread_attr_setdetachstate(&attribute, PTHREAD_CREATE_DETACHED);
  if (error != 0) {
    DEBUG_TRACE(2, "\npthread_attr_setdetachstate failed: %d", error);
  }
  return error == 0;
}

bool SetRoundRobin(pthread_attr_t& attribute, int32_t priority) {
  int error = pthread_attr_setschedpolicy(&attribute, SCHED_RR);
  if (error != 0) {
    DEBUG_TRACE(2, "\npthread_attr_setschedpolicy failed: %d", error);
    return false;
  }
  sched_param parameter = {};
  error = pthread_attr_getschedparam(&attribute, &parameter);
  if (error != 0) {
    DEBUG_TRACE(2, "\npthread_attr_getschedparam failed: %d", error);
    return false;
  }
  parameter.sched_priority = priority;
  error = pthread_attr_setschedparam(&attribute, &parameter);
  if (error != 0) {
    DEBUG_TRACE(2, "\npthread_attr_setschedparam failed: error=%d priority=%d", error, priority);
    return false;
  }
  return true;
}

}  // namespace

struct CThread::Control {
  Control(Function threadFunction, void* threadArgument)
      : function(threadFunction), argument(threadArgument) {}

  const Function function;
  void* const argument;

  std::mutex
      lock;  // held until the handle is stored, and while the id of a detached thread is used
  bool hasEnded = false;
};

bool CThread::Start(Function function, void* argument, int32_t priority, bool suspend,
                    uint32_t stackSize, uintptr_t /*reserved*/, bool waitable) {
  DEBUG_TRACE(
      5,
      "\nCThread::Start: Start a thread, Prio=%d, Suspend=%d, StackSize=0x%08x, Waitable=%d, KillAliveThread=%d",
      priority, suspend, stackSize, waitable, KillAliveThread);
  if (KillAliveThread) {
    Kill();
  }
  Waitable = waitable;
  ThreadAttribute attribute;
  if (attribute.GetResult() != 0) {
    DEBUG_TRACE(2, "\npthread_attr_init failed: %d", attribute.GetResult());
    return false;
  }
  DEBUG_TRACE(4, "\npthread_attr_init: %d", attribute.GetResult());
  if (!waitable && !SetDetached(attribute.Get())) {
    return false;
  }
  DEBUG_TRACE(2, "\nThreadPrio=%d", priority);
  if (priority != 0 && !SetRoundRobin(attribute.Get(), priority)) {
    return false;
  }
  if (!Create(attribute.Get(), function, argument)) {
    return false;
  }
  DEBUG_TRACE(2, "\nCThread::Start: thread=0x%08X created, Prio=%d, Waitable=%d, StackSize=0x%x",
              Shown(m_nHandle), priority, waitable, stackSize);
  sched_yield();
  return true;
}

bool CThread::Create(const pthread_attr_t& attribute, Function function, void* argument) {
  int error = ENOMEM;
  try {
    const auto control = std::make_shared<Control>(function, argument);
    auto forThread = std::make_unique<std::shared_ptr<Control>>(control);
    const std::lock_guard guard(control->lock);  // the function begins when the handle is stored
    pthread_t handle = 0;
    error = pthread_create(&handle, &attribute, &CThread::Run, forThread.get());
    if (error == 0) {
      static_cast<void>(forThread.release());  // now owned by Run()
      m_pControl = control;
      m_nHandle = handle;
    }
  } catch (const std::bad_alloc&) {
    // Reported as an error of pthread_create().
  }
  if (error != 0) {
    m_nHandle = 0;
    DEBUG_TRACE(2, "\npthread_create failed: %d", error);
  }
  return error == 0;
}

void* CThread::Run(void* control) {
  const std::unique_ptr<std::shared_ptr<Control>> owned(
      static_cast<std::shared_ptr<Control>*>(control));
  { const std::lock_guard guard((*owned)->lock); }

  // Also runs when the thread is cancelled.
  struct EndMark {
    Control& control;
    ~EndMark() {
      const std::lock_guard guard(control.lock);
      control.hasEnded = true;
    }
  };
  const EndMark mark{**owned};
  return (*owned)->function((*owned)->argument);
}

bool CThread::WaitForTermination(int32_t milliseconds) {
  const pthread_t handle = m_nHandle;
  if (!CanJoin(handle, milliseconds)) {
    return handle == 0;
  }
  void* exitValue = nullptr;
  const int error = Join(handle, exitValue);
  return NoteJoin(handle, error, exitValue);
}

bool CThread::WaitForTermination(int32_t milliseconds, const WaitsOn& waitsOn) {
  const pthread_t handle = m_nHandle;
  if (!CanJoin(handle, milliseconds)) {
    return handle == 0;
  }
  const auto begin = std::chrono::steady_clock::now();
  void* exitValue = nullptr;
  int error = ETIMEDOUT;
  while ((error = JoinWithin(JOIN_SLICE, handle, exitValue)) == ETIMEDOUT) {
    if (!waitsOn(std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - begin))) {
      return false;
    }
  }
  return NoteJoin(handle, error, exitValue);
}

// False when there is nothing to join: no thread, or a detached one.
bool CThread::CanJoin(pthread_t handle, int32_t milliseconds) const {
  if (handle == 0) {
    DEBUG_TRACE(1, "\nCThread::WaitForTermination: Thread = 0x0%08X doesn't exist !",
                Shown(handle));
    return false;
  }
  if (milliseconds != INFINITE_TIME) {
    DEBUG_TRACE(
        1,
        "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with timeout",
        Shown(handle));
  }
  if (!Waitable) {
    DEBUG_TRACE(1, "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0x%08X",
                Shown(handle));
  }
  return Waitable;
}

// True when the thread has been joined.
bool CThread::NoteJoin(pthread_t handle, int error, const void* exitValue) {
  if (error != 0) {
    DEBUG_TRACE(
        1,
        "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x",
        Shown(handle), static_cast<uint32_t>(error));
    return false;
  }
  m_nHandle = 0;
  DEBUG_TRACE(1,
              "\nCThread::WaitForTermination: a joinable Thread = 0x%08X has terminated, pstat=%p",
              Shown(handle), exitValue);
  return true;
}

bool CThread::Kill() {
  const pthread_t handle = m_nHandle;
  DEBUG_TRACE(1, "\nCThread::Kill: Try to kill the Thread = 0x%08X", Shown(handle));
  if (handle == 0) {
    DEBUG_TRACE(1, "\nCThread::Kill: Thread = 0x0%08X doesn't exist !", Shown(handle));
    return false;
  }
  return Waitable ? KillJoinable(handle) : KillDetached(handle);
}

bool CThread::KillJoinable(pthread_t handle) {
  DEBUG_TRACE(1, "\nCThread::Kill: Try to join a joinable Thread = 0x%08X", Shown(handle));
  void* exitValue = nullptr;
  const int error = Join(handle, exitValue);
  if (error != 0) {
    DEBUG_TRACE(1, "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x",
                Shown(handle), static_cast<uint32_t>(error));
    return false;
  }
  m_nHandle = 0;
  DEBUG_TRACE(1, "\nCThread::Kill: a joinable Thread = 0x%08X has terminated, pstat=%p",
              Shown(handle), exitValue);
  return true;
}

bool CThread::KillDetached(pthread_t handle) {
  DEBUG_TRACE(1, "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0%08X", Shown(handle));
  const std::lock_guard guard(m_pControl->lock);
  if (m_pControl->hasEnded || !IsKnownToSystem(handle)) {
    m_nHandle = 0;
    return true;
  }
  DEBUG_TRACE(2, "\nCThread::Kill: Killing a non-joinable thread 0x%08X", Shown(handle));
  const int error = pthread_cancel(handle);
  m_nHandle = 0;
  if (error != 0) {
    DEBUG_TRACE(2, "\nCThread::Kill: unable to cancel a non-joinable thread 0x%08X (err = 0x%08x)",
                Shown(handle), static_cast<uint32_t>(error));
    return false;
  }
  DEBUG_TRACE(2, "\nCThread::Kill: a non-joinable thread 0x%08X cancel invoked", Shown(handle));
  return true;
}

void CThread::SetThreadName(const char* debugName, const char* qualifier) const {
  DEBUG_TRACE(1, "CThread::SetThreadName: ThreadId = 0x%08X, DebugName = %s, Qualifier = (%s)\n",
              Shown(m_nHandle), debugName, qualifier);
}

bool CThread::IsAlive() const {
  const pthread_t handle = m_nHandle;
  if (handle == 0) {
    return false;
  }
  const std::lock_guard guard(m_pControl->lock);
  return !m_pControl->hasEnded && IsKnownToSystem(handle);
}

bool CThread::IsCurrentThread() const { return IsSelf(m_nHandle); }
