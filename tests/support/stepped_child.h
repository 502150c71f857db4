#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>

// A child process that runs an action and stops before each system call that it makes.
//
// Needs a machine that lets a process trace its children. The process that creates the object must
// have one thread.
class SteppedChild {
 public:
  // Forks. The child runs `action`, unobserved until that calls Begin(), and exits without running
  // exit handlers. Returns when the child has reached Begin().
  explicit SteppedChild(const std::function<void()>& action);
  // Kills the child.
  ~SteppedChild();
  SteppedChild(const SteppedChild&) = delete;
  SteppedChild& operator=(const SteppedChild&) = delete;

  // Called by the action: from here on the child stops before each system call.
  static void Begin();

  // Resumes the child until it is about to make its next system call. False when it has ended.
  bool Step();

  // The system call that the child is about to make.
  uint64_t GetSystemCall() const { return m_nSystemCall; }

  // Kills the child before the system call at which it has stopped. Returns when it is gone.
  void Kill();

 private:
  bool RunToStop();

  pid_t m_nChild = -1;  // -1: gone
  uint64_t m_nSystemCall = 0;
};
