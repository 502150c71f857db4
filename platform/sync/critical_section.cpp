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
