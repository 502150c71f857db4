#pragma once

#include <sys/stat.h>

#include <cstdint>

class CDirectory {
 public:
  // Empties the directory `path` with all below it and, with `removeParent`, removes it as well.
  // Goes depth-first, the entries of a directory in the order of alphasort(), and stops at the
  // first file or directory that cannot be removed; what is gone stays gone. Each step is traced.
  //
  // A file that cannot be removed is made writable for all and tried again, unless it has other
  // names, under which it would live on with that mode.
  //
  // Deliberately left in place: everything whose name begins with ".", which also keeps the
  // directories above it; entries that are neither file nor directory; and entries that cannot be
  // examined, such as those whose path is too long for the system.
  //
  // A symbolic link to a file is removed and its target left alone. A symbolic link to a directory
  // is deliberately taken for that directory: its target is emptied, and the removal then fails at
  // the link. So `path` must lie where only its owner can write.
  //
  // Returns 1, or 0 when it stopped or `path` is null, empty or no directory that can be listed.
  // Any thread may call. The depth of the tree costs heap memory, not stack.
  static int32_t RemoveDirectory(const char* path, bool removeParent);
};

// fchmodat(), except that a symbolic link and its target are left alone, which counts as success.
// `path` is relative to the open directory, which may be AT_FDCWD. True when done; false, with
// errno set, when it failed.
bool ChangeModeUnlessLink(int directory, const char* path, mode_t mode);
