#include "platform/profile_writer.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string_view>

#include "platform/file_range.h"
#include "platform/profile_file.h"
#include "platform/profile_lines.h"
#include "platform/profile_place.h"

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

ProfileUpdate ResultOf(bool isDone) {
  return isDone ? ProfileUpdate::DONE : ProfileUpdate::NOT_DONE;
}

ProfileUpdate UpdateOpenFile(int descriptor, const char* section, const char* key,
                             const char* value) {
  const std::optional<ProfileChange> change = FindChange(descriptor, section, key, value);
  if (!change || change->kind == ProfileChange::Kind::NOTHING) {
    return ProfileUpdate::NOT_DONE;
  }
  if (change->kind == ProfileChange::Kind::APPEND_SECTION) {
    return ResultOf(AppendFileSection(descriptor, section, key, value));
  }
  return ResultOf(
      ReplaceFileRange(descriptor, change->from, change->to, key, value, change->leadingLineEnd));
}

ProfileUpdate AppendToUnreadFile(const char* section, const char* key, const char* value,
                                 const char* fileName) {
  const CProfileFile file(fileName, CProfileFile::Mode::APPEND);
  if (!file.IsOpen()) {
    return ProfileUpdate::CANNOT_OPEN;
  }
  return ResultOf(AppendFileSection(file.GetDescriptor(), section, key, value));
}

// A file that could not be written is not left behind empty.
ProfileUpdate MakeFile(const char* section, const char* key, const char* value,
                       const char* fileName) {
  const CProfileFile file(fileName, CProfileFile::Mode::CREATE);
  if (!file.IsOpen()) {
    return AppendToUnreadFile(section, key, value, fileName);
  }
  if (!AppendFileSection(file.GetDescriptor(), section, key, value)) {
    unlink(fileName);
    return ProfileUpdate::NOT_DONE;
  }
  return ProfileUpdate::DONE;
}

}  // namespace

ProfileUpdate UpdateProfileFile(const char* section, const char* key, const char* value,
                                const char* fileName) {
  const CProfileFile file(fileName, CProfileFile::Mode::UPDATE);
  if (file.IsOpen()) {
    return UpdateOpenFile(file.GetDescriptor(), section, key, value);
  }
  const bool isMissing = errno == ENOENT;
  if (key == nullptr || value == nullptr) {
    return isMissing ? ProfileUpdate::NOT_DONE : ProfileUpdate::CANNOT_OPEN;
  }
  return isMissing ? MakeFile(section, key, value, fileName)
                   : AppendToUnreadFile(section, key, value, fileName);
}
