#include "platform/registry/registry_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>

#include "base/descriptor.h"
#include "base/file_lock.h"
#include "base/retry.h"
#include "platform/sync/critical_section.h"
#include "trace/debug_client.h"

namespace {

constexpr mode_t FILE_MODE = 0644;
constexpr mode_t LOCK_FILE_MODE = 0600;

// What the lock objects of this process have in common.
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
int TakeLock(SharedLock& shared, RegistryUse use, std::chrono::milliseconds limit) {
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

void FreeLock(SharedLock& shared) {
  shared.lock.reset();
  shared.file.reset();
}

// A killed save may have left this file. It is removed, not overwritten: until the exchange by that
// save has reached the disk, it is still the current file there. Anything but a regular file stays,
// and then no file can be made.
int MakeTemporaryFile() {
  struct stat status = {};
  if (lstat(REGISTRY_TEMPORARY_FILE, &status) == 0 && S_ISREG(status.st_mode)) {
    unlink(REGISTRY_TEMPORARY_FILE);
  }
  return open(REGISTRY_TEMPORARY_FILE, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, FILE_MODE);
}

// The temporary file; it is removed again unless it has been moved away.
class TemporaryFile {
 public:
  TemporaryFile() : m_oFile(MakeTemporaryFile()), m_bRemove(m_oFile.IsOpen()) {}
  ~TemporaryFile() {
    if (m_bRemove) {
      unlink(REGISTRY_TEMPORARY_FILE);
    }
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  bool IsOpen() const { return m_oFile.IsOpen(); }

  // Writes the next piece of the content. False with errno.
  bool Write(std::string_view piece) {
    while (!piece.empty()) {
      const ssize_t written =
          RetryInterrupted([&] { return write(m_oFile.Get(), piece.data(), piece.size()); });
      if (written < 0) {
        return false;
      }
      piece.remove_prefix(static_cast<size_t>(written));
    }
    return true;
  }

  // Makes the content survive a crash of the machine. False with errno.
  bool Finish() {
    return fchmod(m_oFile.Get(), FILE_MODE) == 0 && fsync(m_oFile.Get()) == 0 && m_oFile.Close();
  }

  // Exchanges the temporary file and `path` in one step. False with errno.
  static bool ExchangeWith(const char* path) {
    return renameat2(AT_FDCWD, REGISTRY_TEMPORARY_FILE, AT_FDCWD, path, RENAME_EXCHANGE) == 0;
  }

  // False with errno.
  bool MoveTo(const char* path) {
    if (rename(REGISTRY_TEMPORARY_FILE, path) != 0) {
      return false;
    }
    m_bRemove = false;
    return true;
  }

 private:
  CDescriptor m_oFile;
  bool m_bRemove;
};

enum class Current { FILLED, NOTHING_TO_KEEP, UNKNOWN };

// A directory is nothing to keep either: it would become a backup that no file can replace.
Current ExamineCurrentFile() {
  struct stat status = {};
  if (stat(REGISTRY_FILE, &status) != 0) {
    return errno == ENOENT ? Current::NOTHING_TO_KEEP : Current::UNKNOWN;
  }
  return S_ISREG(status.st_mode) && status.st_size > 0 ? Current::FILLED : Current::NOTHING_TO_KEEP;
}

bool IsExchangeUnknown(int error) { return error == EINVAL || error == ENOSYS || error == EPERM; }

// For file systems without exchange. Between its steps there is no current file.
bool ReplaceInTurn(TemporaryFile& temporary) {
  if (rename(REGISTRY_FILE, REGISTRY_BACKUP_FILE) != 0) {
    return false;
  }
  if (temporary.MoveTo(REGISTRY_FILE)) {
    return true;
  }
  const int error = errno;
  rename(REGISTRY_BACKUP_FILE, REGISTRY_FILE);
  errno = error;
  return false;
}

// A save takes two renames. The first exchanges the temporary file, written and flushed by now,
// with the current one; the second moves what was the current file to the backup. A crash before
// the first leaves the old current file, a crash after it the new one, and there is a current file
// at every instant. This order also protects the backup: a current file that cannot be loaded
// replaces a good backup only once the new content is in place. The flush of the directory, which
// makes both renames survive a crash of the machine, follows in SaveRegistryFile().
bool ReplaceAndKeep(TemporaryFile& temporary) {
  if (!TemporaryFile::ExchangeWith(REGISTRY_FILE)) {
    return IsExchangeUnknown(errno) && ReplaceInTurn(temporary);
  }
  if (temporary.MoveTo(REGISTRY_BACKUP_FILE)) {
    return true;
  }
  const int error = errno;
  TemporaryFile::ExchangeWith(REGISTRY_FILE);
  errno = error;
  return false;
}

// Puts the filled temporary file in the place of the current one. False with errno; all files are
// then as before, but for the backup, which may be gone on file systems without exchange.
bool Replace(TemporaryFile& temporary) {
  switch (ExamineCurrentFile()) {
    case Current::FILLED:
      return ReplaceAndKeep(temporary);
    case Current::NOTHING_TO_KEEP:
      return temporary.MoveTo(REGISTRY_FILE);
    default:
      return false;
  }
}

// Writes the content to the file. The path to blame when that fails, with errno, else null.
const char* Fill(TemporaryFile& file, const RegistryFileContent& content) {
  size_t size = 0;
  int error = 0;
  content([&](std::string_view piece) {
    size += piece.size();
    if (error == 0 && size <= LONGEST_REGISTRY_FILE && !file.Write(piece)) {
      error = errno;
    }
  });
  if (size > LONGEST_REGISTRY_FILE) {
    errno = EFBIG;
    return REGISTRY_FILE;
  }
  if (error != 0) {
    errno = error;
    return REGISTRY_TEMPORARY_FILE;
  }
  return file.Finish() ? nullptr : REGISTRY_TEMPORARY_FILE;
}

RegistrySave TraceFailure(const char* path, RegistrySave result = RegistrySave::FAILED) {
  const int error = errno;
  DEBUG_TRACE(1, "CRegistry: ERROR: Cannot save \"%s\": %s\n", path, std::strerror(error));
  return result;
}

// Where no file can be made, the lock file cannot either; the failure of the temporary file then
// says so.
bool CanMakeFiles() { return access(REGISTRY_DIRECTORY, W_OK) == 0; }

CDescriptor OpenDirectory() {
  return CDescriptor(open(REGISTRY_DIRECTORY, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

RegistrySave Flush(const CDescriptor& directory) {
  return fsync(directory.Get()) == 0 ? RegistrySave::DONE
                                     : TraceFailure(REGISTRY_DIRECTORY, RegistrySave::NOT_FLUSHED);
}

}  // namespace

CRegistryLock::CRegistryLock(RegistryUse use, std::chrono::milliseconds limit) {
  SharedLock& shared = GetSharedLock();
  const CCriticalSectionGuard guard(shared.section);
  if (shared.holders == 0) {
    m_nError = TakeLock(shared, use, limit);
  }
  if (IsHeld()) {
    ++shared.holders;
  } else {
    FreeLock(shared);
  }
}

CRegistryLock::~CRegistryLock() {
  SharedLock& shared = GetSharedLock();
  const CCriticalSectionGuard guard(shared.section);
  if (IsHeld() && --shared.holders == 0) {
    FreeLock(shared);
  }
}

RegistrySave SaveRegistryFile(const RegistryFileContent& content) {
  const CRegistryLock lock(RegistryUse::SAVE);
  if (!lock.IsHeld() && CanMakeFiles()) {
    errno = lock.GetError();
    return TraceFailure(REGISTRY_LOCK_FILE);
  }
  TemporaryFile temporary;
  if (!temporary.IsOpen()) {
    DEBUG_TRACE(1, "CRegistry: ERROR: Cannot open \"%s\" for writing\n", REGISTRY_TEMPORARY_FILE);
    return RegistrySave::FAILED;
  }
  const CDescriptor directory = OpenDirectory();
  if (!directory.IsOpen()) {
    return TraceFailure(REGISTRY_DIRECTORY);
  }
  if (const char* const failed = Fill(temporary, content)) {
    return TraceFailure(failed);
  }
  if (!Replace(temporary)) {
    return TraceFailure(REGISTRY_FILE);
  }
  return Flush(directory);
}

bool FlushRegistryDirectory() {
  const CDescriptor directory = OpenDirectory();
  return (directory.IsOpen() ? Flush(directory) : TraceFailure(REGISTRY_DIRECTORY)) ==
         RegistrySave::DONE;
}
