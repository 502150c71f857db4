#pragma once

#include <sys/stat.h>

// fchmodat(), except that a symbolic link is left alone with its target, and that is no failure.
// `path` is relative to the open directory, which may be AT_FDCWD. True when done; false, with
// errno set, when it failed.
bool ChangeModeUnlessLink(int directory, const char* path, mode_t mode);
