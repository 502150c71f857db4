#pragma once

#include <cerrno>

// Makes a system call, and repeats it while a signal interrupts it (-1 with EINTR). Returns the
// last result, with its errno.
template <typename Call>
auto RetryInterrupted(const Call& call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}
