#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

// One thread of the system. Joinable ("waitable") threads are ended by joining them; only detached
// ones are cancelled. The thread's return value is not kept, and the object owns neither the thread
// function nor its argument; its destruction does not end the thread.
//
// Thread safety: one thread at a time uses a CThread; GetHandle() may be called from any thread.
class CThread {
 public:
  using Function = void* (*)(void* argument);

  // A time-out without limit, in milliseconds.
  static constexpr int32_t INFINITE_TIME = -1;

  explicit CThread(bool killAliveThread = false) : KillAliveThread(killAliveThread) {}
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  // Starts a thread and yields the processor. A priority other than 0 is set in the attributes,
  // with round-robin scheduling; deliberately the thread inherits the scheduling of its creator all
  // the same. `suspend` and `stackSize` are traced and deliberately have no effect; `reserved` is
  // passed as 0 and not looked at. Returns false, with the reason traced, when the thread could not
  // be started.
  bool Start(Function function, void* argument, int32_t priority, bool suspend, uint32_t stackSize,
             uintptr_t reserved, bool waitable);

  // Waits until a joinable thread has ended. A time-out other than INFINITE_TIME is not supported:
  // it is traced and the wait has no limit. True when there is no thread (any more); false for a
  // detached thread or when joining failed, which keeps the handle.
  bool WaitForTermination(int32_t milliseconds);

  // Called between the slices of a wait, with the time waited so far. False ends the wait.
  using WaitsOn = std::function<bool(std::chrono::milliseconds waited)>;

  // The same in slices of 10 ms; `waitsOn` is called after each and must not throw. False also when
  // it has ended the wait, which writes no line and keeps the handle.
  bool WaitForTermination(int32_t milliseconds, const WaitsOn& waitsOn);

  // Joins a joinable thread, without limit; asks a detached one to cancel itself and does not wait.
  // True when the thread is gone or asked to go; false when there was none or the system refused.
  bool Kill();

  // Writes a trace line. Deliberately does not rename the thread.
  void SetThreadName(const char* debugName, const char* qualifier) const;

  // True while the thread runs.
  bool IsAlive() const;

  // True on the thread itself.
  bool IsCurrentThread() const;

  // 0 when there is no thread.
  pthread_t GetHandle() const { return m_nHandle; }

  // Start() first kills a thread that the object still holds.
  const bool KillAliveThread;

  // The thread is joinable; written by Start().
  bool Waitable = false;

 private:
  struct Control;

  static void* Run(void* control);
  bool Create(const pthread_attr_t& attribute, Function function, void* argument);
  bool CanJoin(pthread_t handle, int32_t milliseconds) const;
  bool NoteJoin(pthread_t handle, int error, const void* exitValue);
  bool KillJoinable(pthread_t handle);
  bool KillDetached(pthread_t handle);

  std::atomic<pthread_t> m_nHandle = 0;

  // Shared with the running thread, which marks its end here: the system may give the id of a
  // detached thread that has ended to another thread.
  std::shared_ptr<Control> m_pControl;
};
