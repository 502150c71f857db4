#pragma once

#include <cstdint>
#include <optional>
#include <string>

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
