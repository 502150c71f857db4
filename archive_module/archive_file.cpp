#include "archive_module/archive_file.h"

#include <sys/stat.h>

#include <algorithm>

namespace {

constexpr int64_t BYTES_PER_KILOBYTE = 1024;

ArchiveState::Time TimeOf(const timespec& time) { return {time.tv_sec, time.tv_nsec}; }

}  // namespace

bool FileExists(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0;
}

std::optional<ArchiveState> ExamineArchive(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return ArchiveState{status.st_dev, status.st_ino, TimeOf(status.st_mtim), TimeOf(status.st_ctim)};
}

int32_t KilobytesOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int32_t>(std::min<int64_t>(
                                                status.st_size / BYTES_PER_KILOBYTE, INT32_MAX))
                                          : 0;
}
