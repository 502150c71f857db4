#include "platform/profile/profile_reader.h"

#include <algorithm>
#include <cstring>

#include "base/white_space.h"
#include "platform/profile/profile_lines.h"

namespace {

std::string_view TrimEnd(std::string_view text) {
  return text.substr(0, text.find_last_not_of(WHITE_SPACE) + 1);
}

// A ";" anywhere begins a comment, also inside quotes.
std::string_view WithoutComment(std::string_view line) {
  return TrimEnd(line.substr(0, line.find(';')));
}

std::string_view OrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

CProfileReader::CProfileReader(const char* section, const char* key, char* buffer, uint32_t size)
    : m_bListSections(section == nullptr),
      m_bListKeys(key == nullptr),
      m_strSection(OrEmpty(section)),
      m_strKey(OrEmpty(key)),
      m_pBuffer(buffer),
      m_nSize(size) {}

bool CProfileReader::TakeNext(CProfileLines& lines) {
  std::string_view line;
  return (m_bInSection ? lines.NextEntry(line, m_strKey) : lines.NextHeader(line, m_strSection)) &&
         TakeLine(line);
}

// A line that does not begin with the key cannot be its entry: most lines end there, unparsed.
bool CProfileReader::TakeLine(std::string_view line) {
  line = TrimProfileStart(line);
  if (line.starts_with('[')) {
    return TakeHeader(WithoutComment(line));
  }
  return !m_bInSection || !line.starts_with(m_strKey) || TakeEntry(WithoutComment(line));
}

bool CProfileReader::TakeHeader(std::string_view line) {
  if (m_bInSection) {
    return false;
  }
  if (m_bListSections) {
    const size_t end = line.find(']');
    return end == std::string_view::npos || AppendName(line.substr(1, end - 1));
  }
  m_bInSection = IsProfileHeader(line, m_strSection);
  return true;
}

bool CProfileReader::TakeEntry(std::string_view line) {
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    return true;
  }
  const std::string_view name = TrimEnd(line.substr(0, equals));
  if (m_bListKeys) {
    return AppendName(name);
  }
  if (name != m_strKey) {
    return true;
  }
  Store(TrimProfileStart(line.substr(equals + 1)));
  return false;
}

// Returns true while the buffer is not full.
bool CProfileReader::AppendName(std::string_view name) {
  Store(name);
  Store(std::string_view("\0", 1));
  return m_nCount < m_nSize;
}

void CProfileReader::Store(std::string_view text) {
  const size_t length = std::min<size_t>(text.size(), m_nSize - m_nCount);
  std::memcpy(m_pBuffer + m_nCount, text.data(), length);
  m_nCount += static_cast<uint32_t>(length);
  m_bFound = true;
}

std::optional<uint32_t> CProfileReader::Finish() {
  if (!m_bFound) {
    return std::nullopt;
  }
  if (m_nCount == m_nSize) {
    m_nCount = m_nSize - 1;
    if (IsList()) {
      // A list that was cut keeps two NULs at its end, and its length counts neither of them.
      m_pBuffer[m_nCount] = '\0';
      m_nCount -= std::min(m_nCount, 1U);
    }
  }
  m_pBuffer[m_nCount] = '\0';
  return m_nCount;
}
