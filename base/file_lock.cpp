#include "base/file_lock.h"

#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace {

constexpr std::chrono::milliseconds BETWEEN_TRIES(1);

}  // namespace

CFileLock::CFileLock(int descriptor, Kind kind, Time until) : m_nDescriptor(descriptor) {
  const int operation = (kind == Kind::SHARED ? LOCK_SH : LOCK_EX) | LOCK_NB;
  while (flock(m_nDescriptor, operation) != 0 && errno == EWOULDBLOCK) {
    if (std::chrono::steady_clock::now() >= until) {
      m_bRefused = true;
      return;
    }
    std::this_thread::sleep_for(BETWEEN_TRIES);
  }
}

// Closing the descriptor is not enough: the copy in a child that has not executed its program yet
// would keep the lock.
CFileLock::~CFileLock() {
  if (!m_bRefused) {
    flock(m_nDescriptor, LOCK_UN);
  }
}
