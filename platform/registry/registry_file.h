#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

#include "platform/registry/registry_text.h"

// The files of the registry, and the one that processes lock while they save it.
constexpr char REGISTRY_DIRECTORY[] = "/etc/qamrel";
constexpr char REGISTRY_FILE[] = "/etc/qamrel/registry";
constexpr char REGISTRY_BACKUP_FILE[] = "/etc/qamrel/registry.old";
constexpr char REGISTRY_TEMPORARY_FILE[] = "/etc/qamrel/registry.new";
constexpr char REGISTRY_LOCK_FILE[] = "/etc/qamrel/registry.lock";
constexpr char REGISTRY_DEFAULT_FILE[] = "/etc/qamrel/registry.default";

// Registry files longer than this, in bytes, are neither loaded nor written.
constexpr size_t LONGEST_REGISTRY_FILE = size_t{64} << 20;

// What the lock is taken for.
enum class RegistryUse { LOAD, SAVE };

// How long an agent waits for other processes.
constexpr std::chrono::seconds REGISTRY_LOCK_WAIT(2);

// Lets one process at a time save the registry: an exclusive lock on a file beside it, which only
// root may open, so that nobody else can block a save.
//
// A process that has the lock gets it again at once; its last object frees it. On a file system
// without locks everybody gets it. A load does not make the lock file when it is missing.
//
// Thread safety: objects may be made and destroyed on any thread. They exclude other processes, not
// threads.
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

// What became of a save.
enum class RegistrySave {
  DONE,
  NOT_FLUSHED,  // the content is in place, but a crash of the machine may bring the old one back
  FAILED        // the current file is as before, and the temporary file gone
};

// Hands the content of a file to the sink, piece by piece.
using RegistryFileContent = std::function<void(const RegistryTextSink& sink)>;

// Makes `content` the current registry file: writes it to the temporary file, flushes it to the
// disk, moves the current file to the backup (unless it is missing, empty or no regular file) and
// the temporary file to the current one. A crash at any instant leaves the old or the new content,
// whole, as current file or backup. Other processes that save meanwhile are waited for, two seconds
// at most; then the save fails. Failures are traced, with the reason. What `content` throws ends
// the save, and all files are as before.
RegistrySave SaveRegistryFile(const RegistryFileContent& content);

// Repeats the flush that a save lacked (RegistrySave::NOT_FLUSHED). False, with the reason traced,
// when it fails again.
bool FlushRegistryDirectory();
