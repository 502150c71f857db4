#include "platform/sync/critical_section.h"

CCriticalSection::CCriticalSection() noexcept
    : m_bReady(pthread_mutex_init(&m_oMutex, nullptr) == 0) {}

CCriticalSection::~CCriticalSection() {
  if (!m_bReady) {
    return;
  }
  if (m_nDepth > 0) {
    m_nDepth = 1;
    Release();
  }
  pthread_mutex_destroy(&m_oMutex);
}

void CCriticalSection::Acquire() noexcept {
  if (!m_bReady) {
    return;
  }
  if (!IsOwnedByCaller()) {
    pthread_mutex_lock(&m_oMutex);
    m_nOwner.store(pthread_self(), std::memory_order_relaxed);
  }
  ++m_nDepth;
}

void CCriticalSection::Release() noexcept {
  if (!m_bReady || !IsOwnedByCaller()) {
    return;
  }
  if (--m_nDepth == 0) {
    m_nOwner.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_oMutex);
  }
}

// Another thread's id can never be read as the caller's, so no ordering is needed.
bool CCriticalSection::IsOwnedByCaller() const noexcept {
  return m_nOwner.load(std::memory_order_relaxed) == pthread_self();
}
