#pragma once

#include <signal.h>

#include <chrono>

// Holds back the signals that ask a program to end (SIGHUP, SIGINT, SIGTERM), so that it ends at a
// place of its own choice and cleans up first. For a program with one thread.
class CStopSignals {
 public:
  CStopSignals();
  CStopSignals(const CStopSignals&) = delete;
  CStopSignals& operator=(const CStopSignals&) = delete;

  // Waits that long, at most; throws std::runtime_error as soon as one of the signals is there.
  void Pause(std::chrono::seconds duration) const;

 private:
  sigset_t m_oSignals;
};
