#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The directory of the trace configuration and the file in it that concerns all modules.
constexpr char TRACE_CONFIG_DIRECTORY[] = "/etc/orvane/CorvistaSuite/TraceConfig";
constexpr char TRACE_GLOBAL_FILE[] = "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini";

// The section of that file for all modules.
constexpr char TRACE_GLOBAL_SECTION[] = "GlobalDebugSettings";

// Configuration files longer than this, in bytes, count as unreadable.
constexpr size_t LONGEST_CONFIG_FILE = size_t{16} << 20;

// The paths of the configuration files, sorted: all whose names contain ".ini". Empty when the
// directory cannot be opened. Throws std::bad_alloc.
std::vector<std::string> ListTraceConfigFiles();

// The number at the start of `text`, parsed as strtoll() does in that base; 0 when there is none. A
// number beyond plus or minus 0xFFFFFFFF gives 0xFFFFFFFF, another negative one its two's
// complement.
uint32_t ReadTraceNumber(const char* text, int base);

// One section of a trace configuration: the lines between its header, which begins with the
// section's name in square brackets, and the next line that begins with "[", a line "EndOfFile", or
// the end of the text.
//
// A view: valid as long as the text in which it was found.
class CConfigSection {
 public:
  // The first section of that name (compared without regard to case), or nothing.
  static std::optional<CConfigSection> Find(std::string_view text, std::string_view name);

  // The number after the first "=" of the first line that contains `key` anywhere and has a "=";
  // nothing without such a line. Prefix 0x: hexadecimal, prefix 0: octal, else decimal; anything
  // but a number reads as 0.
  std::optional<uint32_t> ReadNumber(std::string_view key) const;

 private:
  explicit CConfigSection(std::string_view lines) : m_strLines(lines) {}

  const std::string_view m_strLines;
};
