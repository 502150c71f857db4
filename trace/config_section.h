#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// The number that `text` begins with, after white space, in that base as strtoll() takes it; 0 when
// there is none. A number beyond 32 bits is the largest one, a negative one its two's complement.
uint32_t ReadTraceNumber(const char* text, int base);

// One section of a trace configuration text: the lines from its header, a line that begins with the
// section's name in square brackets, to the next line that begins with a square bracket, a line
// "EndOfFile", or the end of the text.
//
// A section refers to the text that it was found in and is valid as long as that text.
class CConfigSection {
 public:
  // The first section of that name (compared without regard to case), or nothing.
  static std::optional<CConfigSection> Find(std::string_view text, std::string_view name);

  // The number after the first "=" of the first line that contains `key` anywhere and has a "=";
  // nothing without such a line. Prefix 0x: hexadecimal, prefix 0: octal, else decimal; text that
  // is no number reads as 0.
  std::optional<uint32_t> ReadNumber(std::string_view key) const;

 private:
  explicit CConfigSection(std::string_view lines) : m_strLines(lines) {}

  const std::string_view m_strLines;
};
