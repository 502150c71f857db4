#include "base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "base/descriptor.h"
#include "base/file_lock.h"
#include "base/retry.h"

namespace {

// The most memory reserved in advance: a sparse file may claim any size.
constexpr size_t LARGEST_RESERVE = size_t{16} << 20;

// True, and `size` untouched, when fstat() fails: the read then decides.
bool IsReadable(int descriptor, size_t& size) {
  struct stat status = {};
  if (descriptor < 0) {
    return false;
  }
  if (fstat(descriptor, &status) != 0) {
    return true;
  }
  size = static_cast<size_t>(status.st_size);
  return S_ISREG(status.st_mode);
}

}  // namespace

bool StatRegularFile(const std::string& path, FileStamp& stamp) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  stamp.size = static_cast<uint64_t>(status.st_size);
  stamp.modificationTime = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  return true;
}

bool ReadRegularFile(const std::string& path, std::string& text, size_t longest, bool* isHeld) {
  // Without O_NONBLOCK the open of a pipe would wait for a writer.
  const CDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  size_t size = 0;
  if (!IsReadable(file.Get(), size) || size > longest) {
    return false;
  }
  std::optional<CFileLock> lock;
  if (isHeld != nullptr) {
    *isHeld = lock.emplace(file.Get(), CFileLock::Kind::SHARED).IsRefused();
  }
  std::string content;
  content.reserve(std::min(size, LARGEST_RESERVE));
  std::array<char, 16'384> block;
  for (;;) {
    const ssize_t length =
        RetryInterrupted([&] { return read(file.Get(), block.data(), block.size()); });
    if (length < 0) {
      return false;
    }
    if (length == 0) {
      break;
    }
    if (static_cast<size_t>(length) > longest - content.size()) {
      return false;
    }
    content.append(block.data(), static_cast<size_t>(length));
  }
  text = std::move(content);
  return true;
}
