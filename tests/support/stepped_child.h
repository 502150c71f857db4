#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// A child process that runs an action and stops before each system call that it makes.
//
// Needs a machine that lets a process trace its children. The process that creates the object must
// have one thread.
class SteppedChild {
 public:
  // Forks. The child runs `action`, unobserved until that calls Begin(), and exits without running
  // exit handlers, with the exit code 0. Returns when the child has reached Begin().
  explicit SteppedChild(const std::function<void()>& action);
  // Kills the child.
  ~SteppedChild();
  SteppedChild(const SteppedChild&) = delete;
  SteppedChild& operator=(const SteppedChild&) = delete;

  // Called by the action: from here on the child stops before each system call.
  static void Begin();

  // Resumes the child until it is about to make its next system call. False when it has ended.
  bool Step();

  // The system call that the child is about to make, and its arguments.
  uint64_t GetSystemCall() const { return m_nSystemCall; }
  const std::array<uint64_t, 6>& GetArguments() const { return m_oArguments; }

  // What the system call before that one returned; an error is -errno.
  int64_t GetResult() const { return m_nResult; }

  // Read the child's memory while it is stopped: so many bytes, or a string.
  std::string ReadMemory(uint64_t address, size_t size) const;
  std::string ReadText(uint64_t address) const;

  // Of a child that has not ended.
  pid_t GetPid() const { return m_nChild; }

  // Of a child that has ended by itself.
  int GetExitCode() const { return m_nExitCode; }

  // Kills the child before the system call at which it has stopped. Returns when it is gone.
  void Kill();

 private:
  bool RunToStop();
  uint64_t ReadWord(uint64_t address) const;

  pid_t m_nChild = -1;  // -1: gone
  uint64_t m_nSystemCall = 0;
  std::array<uint64_t, 6> m_oArguments = {};
  int64_t m_nResult = 0;
  int m_nExitCode = 0;
};
