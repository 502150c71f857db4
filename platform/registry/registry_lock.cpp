#include "platform/registry/registry_lock.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <optional>

#include "base/descriptor.h"
#include "base/file_lock.h"
#include "platform/registry/registry_file.h"
#include "platform/sync/critical_section.h"

namespace {

constexpr mode_t LOCK_FILE_MODE = 0600;

// What the objects of this process have in common.
struct SharedLock {
  CCriticalSection section;  // guards the rest
  int holders = 0;
  std::optional<CDescriptor> file;
  std::optional<CFileLock> lock;
};

// Exists after the last static object of the process, which may save the registry.
SharedLock& GetSharedLock() {
  alignas(SharedLock) static unsigned char storage[sizeof(SharedLock)];
  static SharedLock& shared = *new (storage) SharedLock;
  return shared;
}

// Returns 0 or an errno value.
int Take(SharedLock& shared, RegistryUse use, std::chrono::milliseconds limit) {
  const int creation = use == RegistryUse::LOAD ? 0 : O_CREAT;
  shared.file.emplace(
      open(REGISTRY_LOCK_FILE, O_RDWR | creation | O_NOFOLLOW | O_CLOEXEC, LOCK_FILE_MODE));
  if (!shared.file->IsOpen()) {
    return errno;
  }
  shared.lock.emplace(shared.file->Get(), CFileLock::Kind::EXCLUSIVE,
                      std::chrono::steady_clock::now() + limit);
  return shared.lock->IsRefused() ? EWOULDBLOCK : 0;
}

void GiveBack(SharedLock& shared) {
  shared.lock.reset();
  shared.file.reset();
}

}  // namespace

CRegistryLock::CRegistryLock(RegistryUse use, std::chrono::milliseconds limit) {
  SharedLock& shared = GetSharedLock();
  const CCriticalSectionGuard guard(shared.section);
  if (shared.holders == 0) {
    m_nError = Take(shared, use, limit);
  }
  if (IsHeld()) {
    ++shared.holders;
  } else {
    GiveBack(shared);
  }
}

CRegistryLock::~CRegistryLock() {
  SharedLock& shared = GetSharedLock();
  const CCriticalSectionGuard guard(shared.section);
  if (IsHeld() && --shared.holders == 0) {
    GiveBack(shared);
  }
}
