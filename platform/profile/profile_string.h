#pragma once

#include <cstdint>

// The profile-string calls of Windows over text files of sections:
//
//   [section]
//
//   ; a comment, which belongs to the next line
//   key=value
//
// Names are matched exactly, case counts. Nothing is cached: each call reads the file anew. Only
// regular files are read or written; a pipe, device or directory counts as a file that cannot be
// opened. Lines above 1023 characters are seen in pieces of 1023.
//
// Thread safety: both may be called from any thread, and no call, of this process or another, sees
// an update half done: an update holds an exclusive lock (flock) on the file, a read a shared one.
// Each waits at most a second for that lock; then an update fails, and a read goes on without it.
// Where the file system has no locks, only the calls of one process exclude each other. Thread
// cancellation is held back until the file is closed.

// Reads the value of a key, or a list of names: of the sections when `section` is null, else of the
// keys of the section when `key` is null. A value ends before the first ";" and has no white space
// around it; quotes stay. In a list each name is followed by a NUL, and the list by one more.
//
// Stores the answer, or `defaultValue` when there is none or the file cannot be read, in the
// caller's buffer of `size` bytes, cut to what fits and NUL-terminated; a list has no default.
// Returns the number of characters stored without the final NUL: 0 when nothing was found and there
// is no default (null) or a list was asked for, size - 1 for a value that was cut, size - 2 for a
// list that was cut. A buffer of 0 bytes is not touched.
uint32_t GetPrivateProfileString(const char* section, const char* key, const char* defaultValue,
                                 char* buffer, uint32_t size, const char* fileName);

// Stores the value of a key; with a null value removes the key, with a null key the section. What
// is missing is made, the file (mode 0644, less the umask) included. A key keeps its place; with it
// go the comments and empty lines before it. A new key comes after the last line of its section,
// a new section at the end of the file. The strings are written as they are.
//
// Returns 1, or 0 when section or file name is null, there is nothing to remove, the file cannot be
// opened, read or written, or its lock is not free within a second; the file is then as it was.
uint32_t WritePrivateProfileString(const char* section, const char* key, const char* value,
                                   const char* fileName);
