#include "tools/qamreg/text_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "base/regular_file.h"
#include "platform/registry/registry_file.h"
#include "tools/qamreg/failure.h"

namespace {

std::string ReasonOf(const std::string& path, int error) {
  if (error != 0) {
    return strerror(error);
  }
  std::error_code ignored;
  return std::filesystem::is_regular_file(path, ignored) ? "longer than 64 MiB" : "no regular file";
}

}  // namespace

std::string ReadTextFile(const std::string& path, const std::string& advice) {
  std::string text;
  if (ReadRegularFile(path, text, LONGEST_REGISTRY_FILE)) {
    return text;
  }
  const int error = access(path.c_str(), R_OK) == 0 ? 0 : errno;
  throw CFailure(EXIT_FAILED, path + " cannot be read (" + ReasonOf(path, error) +
                                  "): " + (error == EACCES ? "run qamreg as root" : advice) + ".");
}
