#pragma once

#include <cerrno>

// Makes a system call, and makes it again as long as a signal interrupts it (-1 with EINTR).
// Returns what it returned last, with its errno.
template <typename Call>
auto RetryInterrupted(const Call& call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}
