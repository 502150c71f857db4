#pragma once

#include <sys/types.h>

#include <csignal>
#include <optional>

// How a child of the process ended.
struct ChildEnd {
  pid_t pid;
  bool isKilled;  // by a signal
  int code;       // the exit code, or the number of the signal
};

// Learns from SIGCHLD how children ended that somebody else waits for, as a module does for its
// collector. Keeps the last one. Only one object may exist at a time.
class CChildWatch {
 public:
  CChildWatch();
  ~CChildWatch();
  CChildWatch(const CChildWatch&) = delete;
  CChildWatch& operator=(const CChildWatch&) = delete;

  // The last child that has ended since the previous call.
  static std::optional<ChildEnd> Take();

 private:
  struct sigaction m_oOriginalAction = {};
};
