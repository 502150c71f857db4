#pragma once

#include <cstdint>
#include <optional>
#include <string>

class CRegistry;

// Where the collector is installed and where it leaves its archive, according to the registry: the
// pointer "Talvor" names the collector's key, whose subkey "Setup" holds the values "FileRoot" and
// "DataRoot". The collector's key lies below HKEY_LOCAL_MACHINE unless its path begins with the
// name of a root key.
//
// Failures are traced; exhausted memory counts as not found. Any thread may call.

// Stores the installation directory, ending in "/" (an empty one becomes "/"). False when the
// collector is not installed; the string may then have changed.
bool GetBinDir(std::string& directory);

// Stores the data directory, ending in "/" unless it is empty. When "DataRoot" or its key is
// missing, does what GetBinDir() does.
bool GetDataDir(std::string& directory);

// Opens the key at `path`, which may begin with the name of a root key and lies below
// HKEY_LOCAL_MACHINE otherwise. Results as for CRegistry::Open(). Throws std::bad_alloc.
int32_t OpenCollectorSetupKey(CRegistry& registry, const std::string& path);

// What distinguishes a file that was written or replaced from one that was left alone.
struct ArchiveState {
  struct Time {
    int64_t seconds;
    int64_t nanoseconds;  // below a second

    bool operator==(const Time&) const = default;
  };

  uint64_t device;
  uint64_t inode;
  Time modificationTime;
  Time changeTime;

  bool operator==(const ArchiveState&) const = default;
};

// True when the path names anything that can be examined; links are followed.
bool FileExists(const std::string& path);

// The state of the archive, or nothing when the path names no regular file. Links are followed.
std::optional<ArchiveState> ExamineArchive(const std::string& path);

// The size of the file in kilobytes, rounded down, 2147483647 at most; 0 when it cannot be
// examined.
int32_t KilobytesOf(const std::string& path);
