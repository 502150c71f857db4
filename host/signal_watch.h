#pragma once

#include <csignal>

#include "base/descriptor.h"

// Takes the signals that ask a program to end (SIGINT, SIGTERM, SIGHUP), so that it can end in
// order. Only the first one: the next has its usual effect. Meanwhile a closed pipe is an error of
// the write and not the end of the program.
//
// To be made before the first thread, because threads inherit what it blocks; one at a time. Used
// by the thread that made it.
class CSignalWatch {
 public:
  // Throws CHostError.
  CSignalWatch();
  ~CSignalWatch();
  CSignalWatch(const CSignalWatch&) = delete;
  CSignalWatch& operator=(const CSignalWatch&) = delete;

  // The signal that has come, now or before; 0 while there is none.
  int Take();

  // Readable when a signal has come; for poll().
  int GetDescriptor() const { return m_oDescriptor.Get(); }

 private:
  sigset_t m_oWatched;
  sigset_t m_oOriginalMask;
  CDescriptor m_oDescriptor;
  struct sigaction m_oOriginalPipeAction = {};
  int m_nSignal = 0;
};
