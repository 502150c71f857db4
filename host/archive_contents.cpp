#include "host/archive_contents.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <memory>

#include "host/host_error.h"

namespace {

constexpr size_t BLOCK_SIZE = 65'536;

struct ReaderFreer {
  void operator()(archive* reader) const { archive_read_free(reader); }
};

[[noreturn]] void ThrowDamaged(const std::string& path, archive* reader) {
  const char* reason = archive_error_string(reader);
  throw CHostError(EX_SOFTWARE, "The archive " + path + " cannot be read (" +
                                    (reason != nullptr ? reason : "unknown reason") +
                                    "): look at what the collector wrote.");
}

// A zip file is read through its central directory: libarchive's streaming reader accepts a file
// whose directory was cut off.
void SupportFormats(const std::string& path, archive* reader) {
  std::string begin(2, '\0');
  std::ifstream(path, std::ios::binary)
      .read(begin.data(), static_cast<std::streamsize>(begin.size()));
  if (begin == "PK") {
    archive_read_support_format_zip_seekable(reader);
  } else {
    archive_read_support_format_all(reader);
  }
}

// Returns the number of bytes.
int64_t ReadMember(const std::string& path, archive* reader) {
  std::array<char, BLOCK_SIZE> block;
  int64_t size = 0;
  for (;;) {
    const la_ssize_t count = archive_read_data(reader, block.data(), block.size());
    if (count < 0) {
      ThrowDamaged(path, reader);
    }
    if (count == 0) {
      return size;
    }
    size += count;
  }
}

}  // namespace

std::vector<ArchiveMember> ListArchive(const std::string& path) {
  const std::unique_ptr<archive, ReaderFreer> reader(archive_read_new());
  SupportFormats(path, reader.get());
  archive_read_support_filter_all(reader.get());
  if (archive_read_open_filename(reader.get(), path.c_str(), BLOCK_SIZE) != ARCHIVE_OK) {
    ThrowDamaged(path, reader.get());
  }
  std::vector<ArchiveMember> members;
  for (;;) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(reader.get(), &entry);
    if (result == ARCHIVE_EOF) {
      return members;
    }
    if (result != ARCHIVE_OK) {
      ThrowDamaged(path, reader.get());
    }
    const char* name = archive_entry_pathname(entry);
    members.push_back({name != nullptr ? name : "", 0});
    members.back().size = ReadMember(path, reader.get());
  }
}

bool HaveSameContent(const std::string& first, const std::string& second) {
  using Bytes = std::istreambuf_iterator<char>;
  std::ifstream firstFile(first, std::ios::binary);
  std::ifstream secondFile(second, std::ios::binary);
  return firstFile && secondFile &&
         std::equal(Bytes(firstFile), Bytes(), Bytes(secondFile), Bytes());
}
