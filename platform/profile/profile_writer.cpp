#include "platform/profile/profile_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string_view>

#include "platform/profile/profile_file.h"
#include "platform/profile/profile_lines.h"

namespace {

// Where a profile file changes.
struct ProfileChange {
  enum class Kind {
    NOTHING,
    REPLACE,        // the range, by the entry; by nothing in a removal
    APPEND_SECTION  // at the end of the file
  };

  Kind kind = Kind::NOTHING;
  off_t from = 0;  // the range, as offsets in the file
  off_t to = 0;
  bool leadingLineEnd = false;  // in front of the entry
};

// Finds the place of an update: of a key with a value, of a key to be removed (null value), or of a
// section to be removed (null key).
//
// Deliberate, because programs that keep such files depend on their shape:
// - An entry or header begins at the end of the significant line before it. Comments and empty
//   lines belong to the line that follows them, and are replaced and removed with it.
// - Only a line without leading blanks is a header or the entry of a key.
// - The last character of each line counts as its line end, whatever it is. Where a file does not
//   end with a line end, its last character is not seen and goes when its line is rewritten; what
//   is appended follows it on the same line.
// - The first entry of a section leaves an empty line after the header when it is replaced or
//   removed.
class CProfilePlace {
 public:
  // The strings stay the caller's and must outlive the object.
  CProfilePlace(const char* section, const char* key, const char* value);

  // True while only the header of the section matters: whatever stands before it stays as it is.
  bool SeeksHeader() const { return !m_bInSection && !m_bRemoveSection; }

  // Takes the next line of the file that matters, which ends before the offset `end`. Gives the
  // change when it is known, and is not called again.
  std::optional<ProfileChange> TakeLine(std::string_view line, off_t end);

  // The change when no line gave one. `end` is the end of the file.
  ProfileChange TakeEndOfFile(off_t end) const;

 private:
  std::optional<ProfileChange> TakeHeader(std::string_view line, off_t from);
  std::optional<ProfileChange> TakeEntry(std::string_view line, off_t from, off_t end);

  const std::string_view m_strSection;
  const std::string_view m_strKey;
  const bool m_bRemoveSection;
  const bool m_bRemove;  // a key or the section
  off_t m_nSectionStart = 0;
  off_t m_nSignificantEnd = 0;  // of the last significant line
  bool m_bInSection = false;
  bool m_bFirstEntry = true;  // no entry of the section was taken yet
};

std::string_view NameOf(std::string_view line, size_t equals) {
  const std::string_view name = line.substr(0, equals);
  return name.substr(0, name.find_last_not_of(" \t") + 1);
}

ProfileChange Replace(off_t from, off_t to, bool leadingLineEnd) {
  return {ProfileChange::Kind::REPLACE, from, to, leadingLineEnd};
}

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

// Nothing when the file cannot be read.
std::optional<ProfileChange> FindChange(int descriptor, const char* section, const char* key,
                                        const char* value) {
  CProfilePlace place(section, key, value);
  CProfileLines lines(descriptor);
  std::string_view line;
  while (place.SeeksHeader() ? lines.NextHeader(line, section) : lines.Next(line)) {
    if (const auto change = place.TakeLine(line, lines.GetOffset())) {
      return change;
    }
  }
  if (lines.HasFailed()) {
    return std::nullopt;
  }
  return place.TakeEndOfFile(lines.GetOffset());
}

// Finds the change and makes it.
bool ChangeFile(int descriptor, const char* section, const char* key, const char* value) {
  const std::optional<ProfileChange> change = FindChange(descriptor, section, key, value);
  if (!change || change->kind == ProfileChange::Kind::NOTHING) {
    return false;
  }
  if (change->kind == ProfileChange::Kind::APPEND_SECTION) {
    return AppendFileSection(descriptor, section, key, value);
  }
  return ReplaceFileRange(descriptor, change->from, change->to, key, value, change->leadingLineEnd);
}

bool IsEmpty(int descriptor) {
  struct stat status = {};
  return fstat(descriptor, &status) == 0 && status.st_size == 0;
}

// One call of UpdateProfileFile(). Its attempts return nothing when the file was replaced after it
// was opened.
class CProfileUpdater {
 public:
  CProfileUpdater(const char* section, const char* key, const char* value, const char* fileName,
                  CFileLock::Time until)
      : m_pSection(section), m_pKey(key), m_pValue(value), m_pFileName(fileName), m_oUntil(until) {}

  std::optional<ProfileUpdate> Try() const {
    using Mode = CProfileFile::Mode;
    if (const CProfileFile file(m_pFileName, Mode::UPDATE); file.IsOpen()) {
      return UpdateLocked(file, &ChangeFile);
    }
    const bool isMissing = errno == ENOENT;
    if (m_pKey == nullptr || m_pValue == nullptr) {
      return isMissing ? ProfileUpdate::NOT_DONE : ProfileUpdate::CANNOT_OPEN;
    }
    if (isMissing) {
      if (const CProfileFile file(m_pFileName, Mode::CREATE); file.IsOpen()) {
        return UpdateLocked(file, &ChangeFile, true);
      }
      // Somebody else has just made it, or it is a link to a missing file.
      if (const CProfileFile file(m_pFileName, Mode::MAKE); file.IsOpen()) {
        return UpdateLocked(file, &ChangeFile);
      }
    }
    const CProfileFile file(m_pFileName, Mode::APPEND);
    return file.IsOpen() ? UpdateLocked(file, &AppendFileSection) : ProfileUpdate::CANNOT_OPEN;
  }

 private:
  using Change = bool (*)(int descriptor, const char* section, const char* key, const char* value);

  // Leaves no empty file that this call has made.
  std::optional<ProfileUpdate> UpdateLocked(const CProfileFile& file, Change change,
                                            bool isMade = false) const {
    const CFileLock lock(file.GetDescriptor(), CFileLock::Kind::EXCLUSIVE, m_oUntil);
    if (lock.IsRefused()) {
      return ProfileUpdate::NOT_DONE;
    }
    if (file.IsReplaced(m_pFileName)) {
      return std::nullopt;
    }
    if (change(file.GetDescriptor(), m_pSection, m_pKey, m_pValue)) {
      return ProfileUpdate::DONE;
    }
    if (isMade && IsEmpty(file.GetDescriptor())) {
      unlink(m_pFileName);
    }
    return ProfileUpdate::NOT_DONE;
  }

  const char* const m_pSection;
  const char* const m_pKey;
  const char* const m_pValue;
  const char* const m_pFileName;
  const CFileLock::Time m_oUntil;
};

}  // namespace

ProfileUpdate UpdateProfileFile(const char* section, const char* key, const char* value,
                                const char* fileName, CFileLock::Time until) {
  const CProfileUpdater updater(section, key, value, fileName, until);
  do {
    if (const std::optional<ProfileUpdate> update = updater.Try()) {
      return *update;
    }
  } while (std::chrono::steady_clock::now() < until);
  return ProfileUpdate::NOT_DONE;
}
