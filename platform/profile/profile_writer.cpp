#include "platform/profile/profile_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string_view>

#include "platform/profile/file_range.h"
#include "platform/profile/profile_file.h"
#include "platform/profile/profile_lines.h"
#include "platform/profile/profile_place.h"

namespace {

// Nothing when the file cannot be read.
std::optional<ProfileChange> FindChange(int descriptor, const char* section, const char* key,
                                        const char* value) {
  CProfilePlace place(section, key, value);
  CProfileLines lines(descriptor);
  std::string_view line;
  while (lines.Next(line)) {
    if (const auto change = place.TakeLine(line, lines.GetOffset())) {
      return change;
    }
  }
  if (lines.HasFailed()) {
    return std::nullopt;
  }
  return place.TakeEndOfFile(lines.GetOffset());
}

// Finds the place and makes the change there.
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

// One call of UpdateProfileFile(). Nothing as a result: the file that was opened is not the one of
// that name any more.
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
      // Another has made it meanwhile, or it is a link to a file that does not exist.
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
