#include "host/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "base/flush_directory.h"
#include "base/regular_file.h"
#include "base/retry.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds LONGEST_WAIT(1);

// Never taken for a configuration file: whatever replaces the Xs, it does not contain ".ini".
constexpr char HIDDEN_COPY[] = ".em_host-XXXXXX";

// CProfileFile leaves errno 0 when the file is not a regular one.
void ThrowUnless(bool isDone) {
  if (!isDone) {
    throw std::system_error(errno != 0 ? errno : EINVAL, std::generic_category());
  }
}

// Flushes each new name, so that it survives a power failure.
void MakeDirectories(const fs::path& directory) {
  if (fs::exists(directory)) {
    return;
  }
  MakeDirectories(directory.parent_path());
  fs::create_directory(directory);
  ThrowUnless(FlushDirectory(directory.parent_path().c_str()));
}

void WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written =
        RetryInterrupted([&] { return write(descriptor, text.data(), text.size()); });
    ThrowUnless(written >= 0);
    text.remove_prefix(static_cast<size_t>(written));
  }
}

void GiveOwnerAndMode(int from, int to) {
  struct stat status = {};
  ThrowUnless(fstat(from, &status) == 0);
  ThrowUnless(fchown(to, status.st_uid, status.st_gid) == 0);
  ThrowUnless(fchmod(to, status.st_mode) == 0);
}

}  // namespace

CFileReplacement::CFileReplacement(const std::string& path) {
  MakeDirectories(fs::path(path).parent_path());
  OpenLocked(path);
  m_strFile = fs::canonical(path);
  try {
    MakeCopy();
  } catch (...) {
    Undo();
    throw;
  }
}

CFileReplacement::~CFileReplacement() {
  if (!m_bCommitted) {
    Undo();
  }
}

// The file may be replaced after it was opened and before it is locked: then the new one is opened.
void CFileReplacement::OpenLocked(const std::string& path) {
  using Mode = CProfileFile::Mode;
  const CFileLock::Time until = std::chrono::steady_clock::now() + LONGEST_WAIT;
  do {
    m_oLock.reset();
    m_bMade = m_oFile.emplace(path.c_str(), Mode::CREATE).IsOpen();
    ThrowUnless(m_bMade || m_oFile.emplace(path.c_str(), Mode::MAKE).IsOpen());
    errno = EWOULDBLOCK;
    ThrowUnless(
        !m_oLock.emplace(m_oFile->GetDescriptor(), CFileLock::Kind::EXCLUSIVE, until).IsRefused());
  } while (m_oFile->IsReplaced(path.c_str()));
}

void CFileReplacement::MakeCopy() {
  std::string text;
  errno = EIO;
  ThrowUnless(ReadRegularFile(m_strFile, text));
  m_strCopy = fs::path(m_strFile).parent_path() / HIDDEN_COPY;
  m_oCopy.emplace(mkostemp(m_strCopy.data(), O_CLOEXEC));
  ThrowUnless(m_oCopy->IsOpen());
  GiveOwnerAndMode(m_oFile->GetDescriptor(), m_oCopy->Get());
  WriteAll(m_oCopy->Get(), text);
}

void CFileReplacement::Undo() const {
  if (m_oCopy && m_oCopy->IsOpen()) {
    unlink(m_strCopy.c_str());
  }
  if (m_bMade) {
    unlink(m_strFile.c_str());
  }
}

void CFileReplacement::Commit() {
  ThrowUnless(fsync(m_oCopy->Get()) == 0);
  ThrowUnless(rename(m_strCopy.c_str(), m_strFile.c_str()) == 0);
  m_bCommitted = true;
  ThrowUnless(FlushDirectory(fs::path(m_strFile).parent_path().c_str()));
}
