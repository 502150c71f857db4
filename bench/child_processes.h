#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "bench/files.h"

inline pid_t Spawn(const char* program, const char* argument = nullptr) {
  char* const arguments[] = {const_cast<char*>(program), const_cast<char*>(argument), nullptr};
  pid_t child = 0;
  Require(posix_spawnp(&child, program, nullptr, nullptr, arguments, environ) == 0, program);
  return child;
}

inline void WaitFor(pid_t child) {
  int status = 0;
  Require(waitpid(child, &status, 0) == child, "waitpid");
}

// `count` processes that sleep for the life of the object.
class SleepingProcesses {
 public:
  explicit SleepingProcesses(int count) {
    for (int index = 0; index < count; ++index) {
      m_oChildren.push_back(Spawn("sleep", "1000"));
    }
  }
  ~SleepingProcesses() {
    for (const pid_t child : m_oChildren) {
      kill(child, SIGKILL);
      WaitFor(child);
    }
  }
  SleepingProcesses(const SleepingProcesses&) = delete;
  SleepingProcesses& operator=(const SleepingProcesses&) = delete;

 private:
  std::vector<pid_t> m_oChildren;
};
