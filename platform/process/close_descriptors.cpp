#include "platform/process/close_descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "base/descriptor.h"

namespace {

constexpr long SMALLEST_LIMIT = 256;
constexpr uint32_t DEFAULT_LIMIT = 1024;

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// The number that an entry of "/proc/self/fd" is named after. False for "." and "..".
bool ParseDescriptor(const char* name, uint32_t& descriptor) {
  if (!IsDigit(*name)) {
    return false;
  }
  descriptor = 0;
  for (; IsDigit(*name); ++name) {
    descriptor = descriptor * 10 + static_cast<uint32_t>(*name - '0');
  }
  return true;
}

void CloseNamed(const dirent64& entry, uint32_t first, int listing) {
  uint32_t descriptor = 0;
  if (ParseDescriptor(entry.d_name, descriptor) && descriptor >= first &&
      static_cast<int>(descriptor) != listing) {
    close(static_cast<int>(descriptor));
  }
}

// Closes what "/proc/self/fd" lists. False when it cannot be listed. readdir() would not do: it
// takes memory, which a child must not do before exec().
bool CloseListed(uint32_t first) {
  const CDescriptor listing(open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  alignas(dirent64) char block[4096];
  for (;;) {
    const ssize_t length = getdents64(listing.Get(), block, sizeof block);
    if (length <= 0) {
      return length == 0;
    }
    for (ssize_t offset = 0; offset < length;) {
      const auto& entry = *reinterpret_cast<const dirent64*>(block + offset);
      CloseNamed(entry, first, listing.Get());
      offset += entry.d_reclen;
    }
  }
}

}  // namespace

uint32_t GetDescriptorLimit() {
  const long limit = sysconf(_SC_OPEN_MAX);
  return limit < SMALLEST_LIMIT ? DEFAULT_LIMIT
                                : static_cast<uint32_t>(std::min<long>(limit, INT_MAX));
}

void CloseDescriptors(uint32_t first, uint32_t limit) noexcept {
  if (close_range(first, UINT_MAX, 0) == 0 || CloseListed(first)) {
    return;
  }
  for (uint32_t descriptor = first; descriptor < limit; ++descriptor) {
    close(static_cast<int>(descriptor));
  }
}
