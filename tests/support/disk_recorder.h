#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string>

#include "tests/support/lossy_disk.h"
#include "tests/support/stepped_child.h"

// Runs actions in child processes and follows, system call by system call, what they do to the
// files below one directory on a LossyDisk: what would be left of it had the machine lost power.
//
// The real calls are recorded, so that nothing that a library does on its own is missed. A change
// that the model does not know shows as a difference to the real files, and throws.
class DiskRecorder {
 public:
  using Survivors = std::set<LossyDisk::Files>;

  // What is below the directory, which may be missing, counts as flushed, and so do the
  // directories around it.
  explicit DiskRecorder(const std::string& directory);

  // Runs `action`, which calls SteppedChild::Begin(), to its end, or kills it before the system
  // call of that number. Gives all that a loss of power at any moment of it may leave. The disk
  // keeps what was done: a second run goes on there.
  Survivors Run(const std::function<void()>& action, int limit = std::numeric_limits<int>::max());

  // How many system calls the last run made, and its exit code when it was not killed.
  int GetCallCount() const { return m_nCalls; }
  int GetExitCode() const { return m_nExitCode; }

  // What a loss of power after the last run may leave.
  Survivors GetSurvivors() const { return m_oDisk.GetSurvivors(); }

  // Puts these files, and nothing else, below the directory.
  void Restore(const LossyDisk::Files& files) const;

 private:
  // What a system call that has returned this, no error, does to the model.
  using Effect = std::function<void(int64_t result)>;

  struct OpenFile {
    LossyDisk::Node node;
    size_t offset;
    bool isAppending;
  };

  bool IsFollowed(const std::string& path) const;
  LossyDisk::Files ReadFiles() const;
  Effect EffectOf(const SteppedChild& child);
  Effect EffectOnNames(const SteppedChild& child);
  Effect EffectOnBytes(const SteppedChild& child);
  Effect Open(const std::string& path, uint64_t flags);
  Effect MakeDirectory(const std::string& path);
  Effect Remove(const std::string& path);
  Effect Rename(const std::string& from, const std::string& to, bool isExchange);
  Effect Write(const SteppedChild& child, bool isAtOffset);

  const std::string m_strDirectory;
  LossyDisk m_oDisk;
  std::map<uint64_t, OpenFile> m_oOpen;  // of the running child, by descriptor
  int m_nCalls = 0;
  int m_nExitCode = 0;
};
