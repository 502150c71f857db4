#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "base/descriptor.h"

// Flushes a directory to the disk: names created, changed or removed in it survive a power failure.
// False with errno.
inline bool FlushDirectory(const char* path) {
  const CDescriptor directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory.IsOpen() && fsync(directory.Get()) == 0;
}
