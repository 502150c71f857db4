#pragma once

#include <sys/stat.h>

// chmod(), except that a symbolic link is left alone with its target, and that is no failure. True
// when done; false, with errno set, when it failed.
bool ChangeModeUnlessLink(const char* path, mode_t mode);
