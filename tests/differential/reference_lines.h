#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

// The lines of a text as fgets() with a buffer of 1024 bytes gives them: with their line end, in
// pieces of 1023 characters, and cut at their first NUL.
class ReferenceLines {
 public:
  // A stream on no memory cannot be opened.
  explicit ReferenceLines(const std::string& text)
      : m_pStream(text.empty() ? std::fopen("/dev/null", "r")
                               : fmemopen(const_cast<char*>(text.data()), text.size(), "r")) {}
  ~ReferenceLines() { std::fclose(m_pStream); }
  ReferenceLines(const ReferenceLines&) = delete;
  ReferenceLines& operator=(const ReferenceLines&) = delete;

  bool Next(std::string& line) {
    char buffer[1024];
    if (std::fgets(buffer, sizeof(buffer), m_pStream) == nullptr) {
      return false;
    }
    line = buffer;
    return true;
  }

  // Just behind the last line.
  size_t Offset() { return static_cast<size_t>(std::ftell(m_pStream)); }

 private:
  FILE* m_pStream;
};
