#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string_view>

// The lines of an open file as fgets() with a buffer of 1024 bytes gives them: each ends with its
// line end, and a longer line comes in pieces of 1023 characters that count as lines of their own.
// So overlong lines keep the meaning that they have for programs that read with fgets().
//
// Reads in blocks from the descriptor's position on and needs the same memory for any size of file.
class CProfileLines {
 public:
  static constexpr size_t LINE_SIZE =
      1024;  // bytes, with the NUL that ends a line in such a buffer

  // The descriptor stays the caller's. Its position when the object is made is offset 0.
  explicit CProfileLines(int descriptor);

  // Gives the next line, cut at its first NUL byte; it is valid until the next call. False at the
  // end of the file, and when the file cannot be read any further.
  bool Next(std::string_view& line);

  // As Next(), but gives the next line that begins, white space aside, with "[" and `name`.
  bool NextHeader(std::string_view& line, std::string_view name);

  // As Next(), but gives the next line that begins, white space aside, with `key` or "[".
  bool NextEntry(std::string_view& line, std::string_view key);

  // The offset just after the last line that was given.
  off_t GetOffset() const { return m_nBlockOffset + static_cast<off_t>(m_nBegin); }

  // True when the lines ended before the file did: it cannot be read, or memory is short.
  bool HasFailed() const { return m_bFailed; }

 private:
  void ReadOn();
  std::string_view GetRest() const { return {m_pBlock.get() + m_nBegin, m_nEnd - m_nBegin}; }
  void SkipLines(std::string_view text);

  const int m_nDescriptor;
  const std::unique_ptr<char[]> m_pBlock;
  size_t m_nBegin = 0;  // of the unread part of the block
  size_t m_nEnd = 0;
  off_t m_nBlockOffset = 0;  // of the block's first byte in the file
  bool m_bAtEnd = false;     // nothing is left to read
  bool m_bFailed = false;
};

// The text from its first character on that is no white space.
std::string_view TrimProfileStart(std::string_view text);

// True when the line is the header of that section: "[", exactly its name (case counts), "]".
// Anything may follow.
bool IsProfileHeader(std::string_view line, std::string_view section);
