#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// What is remembered of a file, to see later whether it has changed.
struct FileStamp {
  uint64_t size = 0;             // bytes
  int64_t modificationTime = 0;  // nanoseconds since the epoch
};

// Both operations see regular files only (links are followed): a pipe, device or directory of that
// name counts as missing, and neither ever blocks on one.

// Stores the stamp of the file. False, and `stamp` untouched, when there is no such file.
bool StatRegularFile(const std::string& path, FileStamp& stamp);

// Stores the whole content of the file. False, and `text` untouched, when it cannot be read or is
// longer than `longest` bytes. What the system does not tell the kind and size of is read all the
// same. Throws std::bad_alloc.
bool ReadRegularFile(const std::string& path, std::string& text, size_t longest = SIZE_MAX);
