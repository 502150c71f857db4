#include "platform/profile/profile_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace {

constexpr mode_t NEW_FILE_MODE = 0644;

// Without O_NONBLOCK the open of a pipe would wait for its other end.
constexpr int COMMON_FLAGS = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

int FlagsOf(CProfileFile::Mode mode) {
  switch (mode) {
    case CProfileFile::Mode::READ:
      return COMMON_FLAGS | O_RDONLY;
    case CProfileFile::Mode::UPDATE:
      return COMMON_FLAGS | O_RDWR;
    case CProfileFile::Mode::APPEND:
      return COMMON_FLAGS | O_WRONLY | O_APPEND | O_CREAT;
    case CProfileFile::Mode::CREATE:
      return COMMON_FLAGS | O_RDWR | O_CREAT | O_EXCL;
    case CProfileFile::Mode::MAKE:
      return COMMON_FLAGS | O_RDWR | O_CREAT;
  }
  return COMMON_FLAGS;
}

bool IsRegularFile(int descriptor) {
  struct stat status = {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

CProfileFile::CProfileFile(const char* fileName, Mode mode)
    : m_oFile(open(fileName, FlagsOf(mode), NEW_FILE_MODE)) {
  if (IsOpen() && mode != Mode::CREATE && !IsRegularFile(m_oFile.Get())) {
    m_oFile.Close();
    errno = 0;
  }
}

bool CProfileFile::IsReplaced(const char* fileName) const {
  struct stat open = {};
  struct stat named = {};
  if (fstat(m_oFile.Get(), &open) != 0) {
    return false;
  }
  return stat(fileName, &named) == 0 ? open.st_dev != named.st_dev || open.st_ino != named.st_ino
                                     : errno == ENOENT;
}
