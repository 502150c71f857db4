#pragma once

#include <chrono>

// What the lock is taken for.
enum class RegistryUse { LOAD, SAVE };

// How long an agent waits for other processes.
constexpr std::chrono::seconds REGISTRY_LOCK_WAIT(2);

// Keeps the processes that save the registry apart: an exclusive lock on a file beside the
// registry, which only root may open, so that nobody else can hold a saver up.
//
// A process that has the lock gets it again at once; its last object frees it. Where the file
// system knows no locks, everybody gets it. A load does not make the lock file when it is missing.
//
// Thread safety: objects may be made and destroyed on any thread. They keep processes apart, not
// the threads of one.
class CRegistryLock {
 public:
  // Waits for other processes for `limit` at most.
  explicit CRegistryLock(RegistryUse use, std::chrono::milliseconds limit = REGISTRY_LOCK_WAIT);
  ~CRegistryLock();
  CRegistryLock(const CRegistryLock&) = delete;
  CRegistryLock& operator=(const CRegistryLock&) = delete;

  bool IsHeld() const { return m_nError == 0; }
  // Why it is not held, an errno value: EWOULDBLOCK when another process held it all the time.
  int GetError() const { return m_nError; }

 private:
  int m_nError = 0;
};
