#pragma once

#include <signal.h>

#include <chrono>

// Blocks the signals that ask a program to end (SIGHUP, SIGINT, SIGTERM), so that it ends at a
// point of its choice, after cleaning up. For a program with one thread.
class CStopSignals {
 public:
  CStopSignals();
  CStopSignals(const CStopSignals&) = delete;
  CStopSignals& operator=(const CStopSignals&) = delete;

  // Waits that long. Throws std::runtime_error as soon as one of the signals has come.
  void Pause(std::chrono::seconds duration) const;

 private:
  sigset_t m_oSignals;
};
