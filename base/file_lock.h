#pragma once

#include <chrono>

// An advisory lock (flock) on an open file, released with the object. Whoever opens the file anew,
// in this process or another, is held off from a lock that excludes the held one.
//
// A file system without locks grants every one.
class CFileLock {
 public:
  enum class Kind { SHARED, EXCLUSIVE };
  using Time = std::chrono::steady_clock::time_point;

  // Tries once, then again until the time `until`; without one it does not wait. The descriptor
  // stays the caller's and must outlive the object.
  CFileLock(int descriptor, Kind kind, Time until = {});
  ~CFileLock();
  CFileLock(const CFileLock&) = delete;
  CFileLock& operator=(const CFileLock&) = delete;

  // True when another lock has stood in the way all the time: this one is not held then.
  bool IsRefused() const { return m_bRefused; }

 private:
  const int m_nDescriptor;
  bool m_bRefused = false;
};
