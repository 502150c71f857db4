#pragma once

#include <chrono>

// An advisory lock (flock) on an open file, released with the object. It excludes conflicting locks
// on every other open of the file, in this process too.
//
// On a file system without locks every lock is granted.
class CFileLock {
 public:
  enum class Kind { SHARED, EXCLUSIVE };
  using Time = std::chrono::steady_clock::time_point;

  // Retries until `until`; by default tries once. The descriptor stays the caller's and must stay
  // open as long as the object lives.
  CFileLock(int descriptor, Kind kind, Time until = {});
  ~CFileLock();
  CFileLock(const CFileLock&) = delete;
  CFileLock& operator=(const CFileLock&) = delete;

  // True when the lock is not held: a conflicting one was still there at the last try.
  bool IsRefused() const { return m_bRefused; }

 private:
  const int m_nDescriptor;
  bool m_bRefused = false;
};
