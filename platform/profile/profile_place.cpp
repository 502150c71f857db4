#include "platform/profile/profile_place.h"

#include "platform/profile/profile_lines.h"

namespace {

std::string_view NameOf(std::string_view line, size_t equals) {
  const std::string_view name = line.substr(0, equals);
  return name.substr(0, name.find_last_not_of(" \t") + 1);
}

ProfileChange Replace(off_t from, off_t to, bool leadingLineEnd) {
  return {ProfileChange::Kind::REPLACE, from, to, leadingLineEnd};
}

}  // namespace

CProfilePlace::CProfilePlace(const char* section, const char* key, const char* value)
    : m_strSection(section),
      m_strKey(key != nullptr ? key : ""),
      m_bRemoveSection(key == nullptr),
      m_bRemove(key == nullptr || value == nullptr) {}

std::optional<ProfileChange> CProfilePlace::TakeLine(std::string_view line, off_t end) {
  if (line.size() <= 1 || line.front() == ';') {
    return std::nullopt;
  }
  line.remove_suffix(1);
  const off_t from = m_nSignificantEnd;
  m_nSignificantEnd = end;
  if (line.front() == '[') {
    return TakeHeader(line, from);
  }
  return m_bInSection ? TakeEntry(line, from, end) : std::nullopt;
}

std::optional<ProfileChange> CProfilePlace::TakeHeader(std::string_view line, off_t from) {
  if (!m_bInSection) {
    m_bInSection = IsProfileHeader(line, m_strSection);
    m_nSectionStart = from;
    return std::nullopt;
  }
  if (m_bRemoveSection) {
    return Replace(m_nSectionStart, from, false);
  }
  return m_bRemove ? ProfileChange() : Replace(from, from, false);
}

// A line that does not begin with the key cannot be its entry: most lines end there, unparsed.
std::optional<ProfileChange> CProfilePlace::TakeEntry(std::string_view line, off_t from,
                                                      off_t end) {
  const bool isFirst = m_bFirstEntry;
  m_bFirstEntry = false;
  if (m_bRemoveSection || !line.starts_with(m_strKey)) {
    return std::nullopt;
  }
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos || NameOf(line, equals) != m_strKey) {
    return std::nullopt;
  }
  return Replace(from, end, isFirst);  // the line end keeps the empty line after the header
}

ProfileChange CProfilePlace::TakeEndOfFile(off_t end) const {
  if (m_bRemoveSection && m_bInSection) {
    return Replace(m_nSectionStart, end, false);
  }
  if (m_bRemove) {
    return {};
  }
  if (m_bInSection) {
    return Replace(end, end, false);
  }
  return {ProfileChange::Kind::APPEND_SECTION};
}
