#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>

// An instant since the epoch; a later one is larger.
struct ModificationTime {
  int64_t seconds = 0;
  int64_t nanoseconds = 0;  // below a second

  // NOLINTNEXTLINE(modernize-use-nullptr): false positive on the generated operator
  auto operator<=>(const ModificationTime&) const = default;
};

// What is remembered of a file, to see later whether it has changed.
struct FileStamp {
  uint64_t size = 0;  // bytes
  ModificationTime modificationTime;
};

// Both operations see regular files only (links are followed): a pipe, device or directory of that
// name counts as missing, and neither ever blocks on one.

// Stores the stamp of the file. False, and `stamp` untouched, when there is no such file.
bool StatRegularFile(const std::string& path, FileStamp& stamp);

// Stores the whole content of the file. False, and `text` untouched, when it cannot be read or is
// longer than `longest` bytes. A file that fstat() cannot examine is read too. Throws
// std::bad_alloc.
//
// With `isHeld` it tries once to lock the file (shared). When a writer holds it, it stores true and
// reads without the lock: the text may then be half changed.
bool ReadRegularFile(const std::string& path, std::string& text, size_t longest = SIZE_MAX,
                     bool* isHeld = nullptr);
