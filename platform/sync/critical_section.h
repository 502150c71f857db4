#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

// A re-entrant lock: the thread that holds it may acquire it again and frees it with the last
// release.
//
// When its mutex could not be initialised, the object deliberately protects nothing and reports no
// error. A release by a thread that does not hold the lock is ignored, which callers with
// unbalanced releases depend on.
//
// Both operations are always inlined, so that their cost does not depend on which sources a
// compiler sees together.
//
// Thread safety: Acquire() and Release() may be called from any thread.
class CCriticalSection {
 public:
  CCriticalSection() noexcept;
  // Frees the lock when the calling thread still holds it.
  ~CCriticalSection();
  CCriticalSection(const CCriticalSection&) = delete;
  CCriticalSection& operator=(const CCriticalSection&) = delete;

  void Acquire() noexcept;
  void Release() noexcept;

 private:
  static const void* GetCaller() noexcept;
  bool IsOwnedByCaller() const noexcept;

  pthread_mutex_t m_oMutex = {};
  std::atomic<const void*> m_pOwner = nullptr;  // the thread, as GetCaller() gives it; null: free
  int32_t m_nDepth = 0;                         // touched by the owner only
  bool m_bReady = false;                        // the mutex was initialised
};

[[gnu::always_inline]] inline void CCriticalSection::Acquire() noexcept {
  if (!m_bReady) {
    return;
  }
  if (!IsOwnedByCaller()) {
    pthread_mutex_lock(&m_oMutex);
    m_pOwner.store(GetCaller(), std::memory_order_relaxed);
  }
  ++m_nDepth;
}

[[gnu::always_inline]] inline void CCriticalSection::Release() noexcept {
  if (!m_bReady || !IsOwnedByCaller()) {
    return;
  }
  if (--m_nDepth == 0) {
    m_pOwner.store(nullptr, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_oMutex);
  }
}

// A value that no other living thread has. Calls of pthread_self() took a third of the time of an
// uncontended lock.
inline const void* CCriticalSection::GetCaller() noexcept {
#if __has_builtin(__builtin_thread_pointer)
  return __builtin_thread_pointer();
#else
  return reinterpret_cast<const void*>(pthread_self());
#endif
}

// Another thread's value can never be read as the caller's, so no ordering is needed.
inline bool CCriticalSection::IsOwnedByCaller() const noexcept {
  return m_pOwner.load(std::memory_order_relaxed) == GetCaller();
}

// Holds a critical section for the life of the object.
class CCriticalSectionGuard {
 public:
  [[gnu::always_inline]] explicit CCriticalSectionGuard(CCriticalSection& section) noexcept
      : m_oSection(section) {
    m_oSection.Acquire();
  }
  [[gnu::always_inline]] ~CCriticalSectionGuard() { m_oSection.Release(); }
  CCriticalSectionGuard(const CCriticalSectionGuard&) = delete;
  CCriticalSectionGuard& operator=(const CCriticalSectionGuard&) = delete;

 private:
  CCriticalSection& m_oSection;
};
