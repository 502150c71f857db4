#pragma once

#include <fcntl.h>

#include <array>
#include <string>
#include <string_view>

#include "base/descriptor.h"

// Reads a file line by line, as std::getline() on an input stream does, but without a buffer on the
// heap: a short file costs an open, a read and a close.
//
// Thread safety: one thread at a time uses a reader.
class CLineReader {
 public:
  // Opens the file; a relative path begins at `directory`, a descriptor. When that fails, there are
  // no lines.
  explicit CLineReader(const char* path, int directory = AT_FDCWD);

  // Stores the next line without its line end, which the last one may lack. False, and `line`
  // empty, at the end of the file or when it cannot be read.
  bool Read(std::string& line);

 private:
  const CDescriptor m_oFile;
  std::array<char, 4096> m_oBuffer;
  std::string_view m_strRest;  // the unread part of m_oBuffer
};
