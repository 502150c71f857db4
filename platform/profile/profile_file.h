#pragma once

#include <sys/types.h>

#include "base/descriptor.h"

// A regular file that a profile call works on, closed with the object. Links are followed. A pipe,
// device or directory of that name cannot be opened, and no attempt blocks on one.
class CProfileFile {
 public:
  enum class Mode {
    READ,
    UPDATE,  // reading and writing
    APPEND,  // writing at the end only; makes a missing file
    CREATE,  // reading and writing; the file must not exist
    MAKE     // reading and writing; makes a missing file
  };

  // When the file cannot be opened, the object is not open and errno says why (0: no regular file).
  CProfileFile(const char* fileName, Mode mode);

  bool IsOpen() const { return m_oFile.IsOpen(); }

  // True when that name now belongs to another file, or to none. The object must be open.
  bool IsReplaced(const char* fileName) const;

  // The descriptor, owned by the object; -1 when it is not open.
  int GetDescriptor() const { return m_oFile.Get(); }

 private:
  CDescriptor m_oFile;
};

// Changes of an open profile file in its place, so that its links, owner and mode stay. The
// descriptor must be open for writing, and for reading too unless the change is at the end.
//
// Each operation returns true, or false and the file has its old length and content: its size
// cannot be read, memory is short, or a read, a write or the truncation failed. What was written is
// undone then; bytes beyond the old end are written first, because only they need space on the
// disk.

// Replaces the bytes from offset `from` to before offset `to` by an optional line end and, unless
// key or value is null, a line of key, "=" and value. The rest of the file follows. False, too,
// when the range is not in the file.
bool ReplaceFileRange(int descriptor, off_t from, off_t to, const char* key, const char* value,
                      bool leadingLineEnd);

// Appends a section with one key, with an empty line before and after its header.
bool AppendFileSection(int descriptor, const char* section, const char* key, const char* value);
