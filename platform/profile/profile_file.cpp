#include "platform/profile/profile_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "base/retry.h"

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

std::optional<off_t> SizeOf(int descriptor) {
  struct stat status = {};
  return fstat(descriptor, &status) == 0 ? std::optional(status.st_size) : std::nullopt;
}

// False when the file ends before the buffer is full.
bool ReadAt(int descriptor, off_t offset, std::string& buffer) {
  size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t length = RetryInterrupted([&] {
      return pread(descriptor, buffer.data() + done, buffer.size() - done,
                   offset + static_cast<off_t>(done));
    });
    if (length <= 0) {
      return false;
    }
    done += static_cast<size_t>(length);
  }
  return true;
}

bool WriteAt(int descriptor, off_t offset, std::string_view text) {
  while (!text.empty()) {
    const ssize_t length =
        RetryInterrupted([&] { return pwrite(descriptor, text.data(), text.size(), offset); });
    if (length <= 0) {
      return false;
    }
    text.remove_prefix(static_cast<size_t>(length));
    offset += length;
  }
  return true;
}

bool Truncate(int descriptor, off_t size) {
  return RetryInterrupted([&] { return ftruncate(descriptor, size); }) == 0;
}

// Writes `text` over everything from `from` on, which is `old`.
bool WriteEnd(int descriptor, off_t from, std::string_view old, std::string_view text) {
  const size_t common = std::min(old.size(), text.size());
  return WriteAt(descriptor, from + static_cast<off_t>(common), text.substr(common)) &&
         WriteAt(descriptor, from, text.substr(0, common)) &&
         (text.size() >= old.size() ||
          Truncate(descriptor, from + static_cast<off_t>(text.size())));
}

bool Replace(int descriptor, off_t from, off_t to, std::string text) {
  const std::optional<off_t> size = SizeOf(descriptor);
  if (!size || from > to || to > *size) {
    return false;
  }
  std::string old(static_cast<size_t>(*size - from), '\0');
  if (!ReadAt(descriptor, from, old)) {
    return false;
  }
  text.append(old, static_cast<size_t>(to - from));
  if (WriteEnd(descriptor, from, old, text)) {
    return true;
  }
  WriteAt(descriptor, from, old);
  Truncate(descriptor, *size);
  return false;
}

std::string Entry(const char* key, const char* value) {
  return std::string(key).append("=").append(value).append("\n");
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

bool ReplaceFileRange(int descriptor, off_t from, off_t to, const char* key, const char* value,
                      bool leadingLineEnd) {
  try {
    std::string text(leadingLineEnd ? "\n" : "");
    if (key != nullptr && value != nullptr) {
      text += Entry(key, value);
    }
    return Replace(descriptor, from, to, std::move(text));
  } catch (const std::exception&) {
    return false;  // no memory; nothing was written yet
  }
}

bool AppendFileSection(int descriptor, const char* section, const char* key, const char* value) {
  try {
    const std::optional<off_t> size = SizeOf(descriptor);
    if (!size) {
      return false;
    }
    const std::string header = std::string("\n[").append(section).append("]\n\n");
    return Replace(descriptor, *size, *size, header + Entry(key, value));
  } catch (const std::exception&) {
    return false;
  }
}
