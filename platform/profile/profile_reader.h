#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

class CProfileLines;

// Answers one query on a profile file: the value of a key, the names of the keys of a section, or
// the names of the sections.
//
// The answer goes to the caller's buffer. A value is one NUL-terminated string; a list is its names
// one after the other, each with a NUL, and a final NUL. What does not fit is cut off.
class CProfileReader {
 public:
  // The memory of the buffer, at least 1 byte, and of the strings stays the caller's and must
  // outlive the object. A null section asks for the sections, a null key for the keys of the
  // section.
  CProfileReader(const char* section, const char* key, char* buffer, uint32_t size);

  // Takes the next line that can change the answer. False when there is none, and when no further
  // line can change it.
  bool TakeNext(CProfileLines& lines);

  // Takes a line of the file, in their order. False when no further line can change the answer.
  bool TakeLine(std::string_view line);

  // Ends the answer in the buffer and returns the number of characters stored: of a value without
  // its NUL, of a list with the NUL of each name but without the final one. Nothing when no line
  // answered the question; the buffer is untouched then.
  std::optional<uint32_t> Finish();

 private:
  bool IsList() const { return m_bListSections || m_bListKeys; }
  bool TakeHeader(std::string_view line);
  bool TakeEntry(std::string_view line);
  bool AppendName(std::string_view name);
  void Store(std::string_view text);

  const bool m_bListSections;
  const bool m_bListKeys;
  const std::string_view m_strSection;
  const std::string_view m_strKey;
  char* const m_pBuffer;
  const uint32_t m_nSize;
  uint32_t m_nCount = 0;  // characters stored; m_nSize: full
  bool m_bInSection = false;
  bool m_bFound = false;
};
