#include "platform/profile/profile_lines.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "base/retry.h"
#include "base/white_space.h"

namespace {

constexpr size_t BLOCK_SIZE = 32768;
constexpr size_t LONGEST_PIECE = CProfileLines::LINE_SIZE - 1;

// As text.find(part). Names of one file often begin alike: their last characters are compared
// first.
size_t Find(std::string_view text, std::string_view part) {
  if (part.empty()) {
    return 0;
  }
  size_t position = text.find(part.front());
  while (position < text.size()) {
    const size_t last = position + part.size() - 1;
    if (last < text.size() && text[last] == part.back() &&
        text.substr(position).starts_with(part)) {
      return position;
    }
    position = text.find(part.front(), position + 1);
  }
  return std::string_view::npos;
}

}  // namespace

CProfileLines::CProfileLines(int descriptor)
    : m_nDescriptor(descriptor), m_pBlock(new (std::nothrow) char[BLOCK_SIZE]) {
  m_bFailed = m_pBlock == nullptr;
}

bool CProfileLines::Next(std::string_view& line) {
  for (;;) {
    const char* const begin = m_pBlock.get() + m_nBegin;
    const size_t length = std::min(m_nEnd - m_nBegin, LONGEST_PIECE);
    const void* const lineEnd = length > 0 ? std::memchr(begin, '\n', length) : nullptr;
    if (lineEnd != nullptr) {
      line = {begin, static_cast<const char*>(lineEnd) + 1};
      break;
    }
    if (length == LONGEST_PIECE || (m_bAtEnd && length > 0)) {
      line = {begin, length};
      break;
    }
    if (m_bAtEnd || m_bFailed) {
      return false;
    }
    ReadOn();
  }
  m_nBegin += line.size();
  line = line.substr(0, line.find('\0'));
  return true;
}

// Most of a file is other sections, and "[" is rare.
bool CProfileLines::NextHeader(std::string_view& line, std::string_view name) {
  for (;;) {
    const std::string_view rest = GetRest();
    size_t position = rest.find('[');
    while (position < rest.size() && !rest.substr(position + 1).starts_with(name)) {
      position = rest.find('[', position + 1);
    }
    SkipLines(rest.substr(0, position));
    if (!Next(line)) {
      return false;
    }
    const std::string_view start = TrimProfileStart(line);
    if (start.starts_with('[') && start.substr(1).starts_with(name)) {
      return true;
    }
  }
}

// Looks no further than a few lines at a time: what it finds may be no entry, and the next line
// would be looked at from its beginning on again.
bool CProfileLines::NextEntry(std::string_view& line, std::string_view key) {
  for (;;) {
    const std::string_view rest = GetRest().substr(0, LINE_SIZE);
    const std::string_view others = rest.substr(0, rest.find('['));
    SkipLines(others.substr(0, Find(others, key)));
    if (!Next(line)) {
      return false;
    }
    const std::string_view start = TrimProfileStart(line);
    if (start.starts_with('[') || start.starts_with(key)) {
      return true;
    }
  }
}

// Skips the lines that end in `text`, the beginning of the rest, and the whole pieces of a longer
// line: given one by one, each would be searched with all that follows it in the block.
void CProfileLines::SkipLines(std::string_view text) {
  const size_t begin = text.rfind('\n') + 1;  // none is the position before 0
  const size_t pieces = (text.size() - begin) / LONGEST_PIECE;
  m_nBegin += begin + pieces * LONGEST_PIECE;
}

// Moves the rest of the block, less than a piece, to its front and fills it up.
void CProfileLines::ReadOn() {
  const size_t rest = m_nEnd - m_nBegin;
  std::memmove(m_pBlock.get(), m_pBlock.get() + m_nBegin, rest);
  m_nBlockOffset += static_cast<off_t>(m_nBegin);
  m_nBegin = 0;
  m_nEnd = rest;
  const ssize_t length = RetryInterrupted(
      [&] { return read(m_nDescriptor, m_pBlock.get() + rest, BLOCK_SIZE - rest); });
  if (length < 0) {
    m_bFailed = true;
    return;
  }
  m_bAtEnd = length == 0;
  m_nEnd += static_cast<size_t>(length);
}

std::string_view TrimProfileStart(std::string_view text) {
  while (!text.empty() && IsWhiteSpace(text.front())) {
    text.remove_prefix(1);
  }
  return text;
}

bool IsProfileHeader(std::string_view line, std::string_view section) {
  return line.starts_with('[') && line.substr(1).starts_with(section) &&
         line.substr(1 + section.size()).starts_with(']');
}
