#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "base/descriptor.h"

// Makes what names there are in the directory survive a loss of power. False with errno.
inline bool FlushDirectory(const char* path) {
  const CDescriptor directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory.IsOpen() && fsync(directory.Get()) == 0;
}
