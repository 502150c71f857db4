#pragma once

#include <sys/types.h>

// Changes of an open profile file in its place, so that its links, owner and mode stay. The
// descriptor must be open for writing, and for reading too unless the change is at the end.
//
// Each operation returns true, or false and the file has its old length and content: its size
// cannot be read, memory is short, or a read, a write or the truncation failed. What was written is
// taken back then; bytes that lie beyond the old end are written first, because only they need room
// on the disk.

// Replaces the bytes from offset `from` to before offset `to` by an optional line end and, unless
// key or value is null, a line of key, "=" and value. The rest of the file follows. False, too,
// when the stretch is not in the file.
bool ReplaceFileRange(int descriptor, off_t from, off_t to, const char* key, const char* value,
                      bool leadingLineEnd);

// Appends a section with one key, with an empty line before and after its header.
bool AppendFileSection(int descriptor, const char* section, const char* key, const char* value);
