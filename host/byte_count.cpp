#include "host/byte_count.h"

#include <filesystem>
#include <system_error>

std::string BytesText(uintmax_t size) {
  std::string digits = std::to_string(size);
  for (size_t end = digits.size(); end > 3; end -= 3) {
    digits.insert(end - 3, ",");
  }
  return digits + " bytes";
}

uintmax_t SizeOfFiles(const std::string& directory) {
  uintmax_t size = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code vanished;
    const uintmax_t fileSize = entry->file_size(vanished);
    size += vanished ? 0 : fileSize;
  }
  return size;
}
