#pragma once

#include <chrono>

// An advisory lock (flock) on an open file, released with the object. Whoever opens the file anew,
// in this process or another, cannot take a lock that the held one excludes.
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

  // True when the lock is not held, because another one excluded it all the time.
  bool IsRefused() const { return m_bRefused; }

 private:
  const int m_nDescriptor;
  bool m_bRefused = false;
};
