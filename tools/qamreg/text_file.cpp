#include "tools/qamreg/text_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/qamreg/failure.h"
#include "trace/regular_file.h"

std::string ReadTextFile(const std::string& path, const std::string& advice) {
  std::string text;
  if (ReadRegularFile(path, text)) {
    return text;
  }
  const int error = access(path.c_str(), R_OK) == 0 ? 0 : errno;
  throw CFailure(EXIT_FAILED, path + " cannot be read (" +
                                  (error == 0 ? "no regular file" : strerror(error)) +
                                  "): " + (error == EACCES ? "run qamreg as root" : advice) + ".");
}
