#pragma once

#include <csignal>

#include "base/descriptor.h"

// Catches the signals that ask a program to end (SIGINT, SIGTERM, SIGHUP), so that it can end in
// order. Only the first one: the next has its usual effect. While the object lives, writing to a
// closed pipe is an error and does not end the program.
//
// Must be created before the first thread, because threads inherit the blocked signals. There may
// be one object at a time, used by the thread that created it.
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
