#include "archive_module/archive_file.h"

#include <sys/stat.h>

namespace {

constexpr int64_t BYTES_PER_KILOBYTE = 1024;

}  // namespace

bool FileExists(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0;
}

int32_t KilobytesOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0
             ? static_cast<int32_t>(status.st_size / BYTES_PER_KILOBYTE)
             : 0;
}
