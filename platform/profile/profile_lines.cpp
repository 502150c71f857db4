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
  if (m_bHasNul) {
    line = line.substr(0, line.find('\0'));
  }
  return true;
}

// Most of a file is other sections, and "[" is rare: from there it goes back to where its line
// begins, or in its absence to where the last line of the block does.
bool CProfileLines::NextHeader(std::string_view& line) {
  while (Next(line)) {
    if (TrimProfileStart(line).starts_with('[')) {
      return true;
    }
    const std::string_view rest(m_pBlock.get() + m_nBegin, m_nEnd - m_nBegin);
    m_nBegin += rest.substr(0, rest.find('[')).rfind('\n') + 1;  // none is the position before 0
  }
  return false;
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
  m_bHasNul =
      m_bHasNul || std::memchr(m_pBlock.get() + rest, '\0', static_cast<size_t>(length)) != nullptr;
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
