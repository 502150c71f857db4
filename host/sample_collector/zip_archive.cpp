#include "host/sample_collector/zip_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <new>
#include <stdexcept>

namespace {

constexpr mode_t ARCHIVE_MODE = 0600;
constexpr mode_t MEMBER_MODE = 0644;
constexpr mode_t DIRECTORY_MODE = 0755;

struct EntryFreer {
  void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

[[noreturn]] void Throw(const std::string& what, int error) {
  throw std::runtime_error(what + ": " + std::strerror(error));
}

std::string DirectoryOf(const std::string& path) {
  const std::string directory = std::filesystem::path(path).parent_path();
  return directory.empty() ? "." : directory;
}

// Links are not followed, and a pipe of that name does not block.
int OpenTemporaryFile(const std::string& path) {
  const std::string directory = DirectoryOf(path);
  if (mkdir(directory.c_str(), DIRECTORY_MODE) != 0 && errno != EEXIST) {
    Throw("cannot make the data directory \"" + directory + "\"", errno);
  }
  const int file =
      open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, ARCHIVE_MODE);
  if (file < 0) {
    Throw("cannot write \"" + path + "\"", errno);
  }
  return file;
}

// Whether the file still has that name, and nobody else can have created it.
bool IsOwnFile(int descriptor, const std::string& path) {
  struct stat file = {};
  struct stat named = {};
  return fstat(descriptor, &file) == 0 && lstat(path.c_str(), &named) == 0 &&
         file.st_dev == named.st_dev && file.st_ino == named.st_ino && S_ISREG(file.st_mode) &&
         file.st_uid == geteuid() && file.st_nlink == 1;
}

void FlushDirectory(const std::string& directory) {
  const CDescriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened.IsOpen() || fsync(opened.Get()) != 0) {
    Throw("cannot flush the directory \"" + directory + "\"", errno);
  }
}

}  // namespace

void CZipArchive::ArchiveCloser::operator()(archive* writer) const { archive_write_free(writer); }

CZipArchive::CZipArchive(const std::string& path)
    : m_strPath(path),
      m_strTemporaryPath(path + ".part"),
      m_oFile(OpenTemporaryFile(m_strTemporaryPath)),
      m_pWriter(archive_write_new()) {
  if (!m_pWriter) {
    throw std::bad_alloc();
  }
  ClaimTemporaryFile();
  // Written member by member, so that the file's size shows the progress.
  if (archive_write_set_format_zip(m_pWriter.get()) != ARCHIVE_OK ||
      archive_write_set_bytes_per_block(m_pWriter.get(), 0) != ARCHIVE_OK ||
      archive_write_open_fd(m_pWriter.get(), m_oFile.Get()) != ARCHIVE_OK) {
    ThrowWriterError();
  }
}

CZipArchive::~CZipArchive() {
  if (m_bRemove) {
    unlink(m_strTemporaryPath.c_str());
  }
}

void CZipArchive::ClaimTemporaryFile() {
  if (flock(m_oFile.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    throw std::runtime_error("another collector is writing \"" + m_strTemporaryPath + "\"");
  }
  if (!IsOwnFile(m_oFile.Get(), m_strTemporaryPath)) {
    throw std::runtime_error("\"" + m_strTemporaryPath +
                             "\" is not a file of this user; remove it");
  }
  m_bRemove = true;
  if (ftruncate(m_oFile.Get(), 0) != 0 || fchmod(m_oFile.Get(), ARCHIVE_MODE) != 0) {
    Throw("cannot write \"" + m_strTemporaryPath + "\"", errno);
  }
}

void CZipArchive::Add(const std::string& name, std::string_view content) {
  const std::unique_ptr<archive_entry, EntryFreer> entry(archive_entry_new());
  if (!entry) {
    throw std::bad_alloc();
  }
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), MEMBER_MODE);
  archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
  if (archive_write_header(m_pWriter.get(), entry.get()) != ARCHIVE_OK ||
      archive_write_data(m_pWriter.get(), content.data(), content.size()) !=
          static_cast<la_ssize_t>(content.size()) ||
      archive_write_finish_entry(m_pWriter.get()) != ARCHIVE_OK) {
    ThrowWriterError();
  }
}

void CZipArchive::Finish() {
  if (archive_write_close(m_pWriter.get()) != ARCHIVE_OK) {
    ThrowWriterError();
  }
  if (fsync(m_oFile.Get()) != 0) {
    Throw("cannot flush \"" + m_strTemporaryPath + "\"", errno);
  }
  if (rename(m_strTemporaryPath.c_str(), m_strPath.c_str()) != 0) {
    Throw("cannot move \"" + m_strTemporaryPath + "\" to \"" + m_strPath + "\"", errno);
  }
  m_bRemove = false;
  FlushDirectory(DirectoryOf(m_strPath));
}

void CZipArchive::ThrowWriterError() {
  const char* reason = archive_error_string(m_pWriter.get());
  throw std::runtime_error("cannot write \"" + m_strTemporaryPath +
                           "\": " + (reason != nullptr ? reason : "unknown reason"));
}
