#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "trace/debug_client.h"

namespace {

constexpr mode_t FOR_ALL = 0777;

// Iterates over the entries of a directory in sorted order.
class Listing {
 public:
  explicit Listing(const char* path) {
    m_nCount = scandir(path, &m_pEntries, nullptr, alphasort);
    m_nError = m_nCount < 0 ? errno : 0;
  }
  ~Listing() {
    for (int index = 0; index < m_nCount; ++index) {
      free(m_pEntries[index]);
    }
    free(m_pEntries);
  }
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  // The errno value of a failed listing; 0 on success.
  int GetError() const { return m_nError; }

  // The next entry; null after the last one.
  const dirent* Next() { return m_nNext < m_nCount ? m_pEntries[m_nNext++] : nullptr; }

 private:
  dirent** m_pEntries = nullptr;
  int m_nCount = 0;
  int m_nError = 0;
  int m_nNext = 0;
};

// An entry as the *at() calls take it: `name` in an open directory, or a path with AT_FDCWD.
struct Place {
  int directory;
  const char* name;
};

// The type of an entry (S_IFMT), links followed; 0 when it cannot be examined.
mode_t FindKind(const Place& place) {
  struct stat status = {};
  return fstatat(place.directory, place.name, &status, 0) == 0 ? status.st_mode & S_IFMT : 0;
}

// False for a link.
bool IsFileWithOneName(const Place& place) {
  struct stat status = {};
  return fstatat(place.directory, place.name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(status.st_mode) && status.st_nlink == 1;
}

// One removal. Not recursive, because a tree may be deeper than the caller's stack.
class TreeRemoval {
 public:
  explicit TreeRemoval(const char* path) : m_strPath(path != nullptr ? path : "") {}

  bool Run(bool removeTop);

 private:
  // A directory that is being emptied.
  struct Level {
    explicit Level(const std::string& path)
        : listing(path.c_str()), prefixLength(path.size() + 1) {}

    Listing listing;
    size_t prefixLength;  // of its path and a "/" in m_strPath
  };

  bool EnterDirectory();
  bool EnterSubdirectory();
  bool HandleNext(bool removeTop);
  Place FindPlace(const dirent& entry);
  bool RemoveEntry(const dirent& entry);
  bool RemoveFile(const Place& place);
  bool Unlink(const Place& place);
  void MakeWritable(const Place& place) const;
  bool RemoveEmptied();
  void LeaveDirectory();
  void ReportWayUp();

  std::string m_strPath;                    // of the current entry, or of its directory
  std::deque<Level> m_oLevels;              // from the top of the tree down
  std::optional<CDescriptor> m_oDirectory;  // the deepest one; opened when an entry needs it
  int m_nError = 0;                         // errno of the failure that ended the removal
};

bool TreeRemoval::Run(bool removeTop) {
  m_oLevels.emplace_back(m_strPath);
  bool isFine = EnterDirectory();
  while (isFine && !m_oLevels.empty()) {
    isFine = HandleNext(removeTop);
  }
  if (!isFine) {
    ReportWayUp();
  }
  return isFine;
}

// Enters the directory m_strPath, whose level has been added.
bool TreeRemoval::EnterDirectory() {
  DEBUG_TRACE(2, "\nCDirectory          : Remove directory \"%s\"", m_strPath.c_str());
  if (m_strPath.empty()) {
    return false;
  }
  m_nError = m_oLevels.back().listing.GetError();
  if (m_nError != 0) {
    // Shows "" deliberately: no entry has been handled yet.
    DEBUG_TRACE(3, "\nCDirectory          : scandir for directory \"%s\" failed; ## ERROR: %s", "",
                strerror(m_nError));
    return false;
  }
  m_strPath += '/';
  m_oDirectory.reset();
  return true;
}

bool TreeRemoval::EnterSubdirectory() {
  const Level& level = m_oLevels.emplace_back(m_strPath);
  if (level.listing.GetError() != 0 && !FindKind({AT_FDCWD, m_strPath.c_str()})) {
    m_oLevels.pop_back();
    return true;
  }
  DEBUG_TRACE(2, "\nCDirectory          : Found dir: \"%s\"", m_strPath.c_str());
  return EnterDirectory();
}

// Handles the next entry of the deepest directory, or leaves the directory after the last one.
bool TreeRemoval::HandleNext(bool removeTop) {
  Level& level = m_oLevels.back();
  m_strPath.resize(level.prefixLength);
  if (const dirent* entry = level.listing.Next()) {
    // Hidden entries are deliberately kept, which also keeps "." and ".." out.
    return entry->d_name[0] == '.' || RemoveEntry(*entry);
  }
  const bool isTop = m_oLevels.size() == 1;
  if ((removeTop || !isTop) && !RemoveEmptied()) {
    return false;
  }
  LeaveDirectory();
  return true;
}

// A file is named relative to its directory, which saves a path lookup for each call. Everything
// else is named by its path, so that the system's limits on paths and links still apply.
Place TreeRemoval::FindPlace(const dirent& entry) {
  if (entry.d_type != DT_REG || m_strPath.size() >= PATH_MAX) {
    return {AT_FDCWD, m_strPath.c_str()};
  }
  if (!m_oDirectory) {
    const std::string prefix = m_strPath.substr(0, m_oLevels.back().prefixLength);
    m_oDirectory.emplace(open(prefix.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  const int directory = m_oDirectory->Get();
  return directory >= 0 ? Place{directory, entry.d_name} : Place{AT_FDCWD, m_strPath.c_str()};
}

bool TreeRemoval::RemoveEntry(const dirent& entry) {
  m_strPath += entry.d_name;
  const Place place = FindPlace(entry);
  const bool isKnown = entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN;
  switch (isKnown ? static_cast<mode_t>(DTTOIF(entry.d_type)) : FindKind(place)) {
    case S_IFREG:
    case S_IFLNK:  // deliberately, though links are followed and never reported
      return RemoveFile(place);
    case S_IFDIR:
      return EnterSubdirectory();
    default:
      return true;
  }
}

bool TreeRemoval::RemoveFile(const Place& place) {
  const char* path = m_strPath.c_str();
  bool isRemoved = Unlink(place);
  if (!isRemoved && FindKind(place) == 0) {
    return true;
  }
  DEBUG_TRACE(2, "\nCDirectory          : Found file: \"%s\"", path);
  // Other hard links would keep the changed mode.
  if (!isRemoved && IsFileWithOneName(place)) {
    MakeWritable(place);
    isRemoved = Unlink(place);
  }
  if (!isRemoved) {
    DEBUG_TRACE(1, "\nCDirectory          : ERROR cannot remove file \"%s\": %s", path,
                strerror(m_nError));
    return false;
  }
  DEBUG_TRACE(3, "\nCDirectory          : Remove file \"%s\" OK!", path);
  return true;
}

bool TreeRemoval::Unlink(const Place& place) {
  const bool isRemoved = unlinkat(place.directory, place.name, 0) == 0;
  m_nError = isRemoved ? 0 : errno;
  return isRemoved;
}

void TreeRemoval::MakeWritable(const Place& place) const {
  if (!ChangeModeUnlessLink(place.directory, place.name, FOR_ALL)) {
    const int error = errno;
    DEBUG_TRACE(1, "\nCDirectory          : ERROR cannot change mode of file \"%s\": %s",
                m_strPath.c_str(), strerror(error));
  }
}

// Removes the deepest directory, whose path with the "/" is in m_strPath.
bool TreeRemoval::RemoveEmptied() {
  const char* prefix = m_strPath.c_str();
  DEBUG_TRACE(3, "\nCDirectory          : Remove directory parent \"%s\"", prefix);
  if (rmdir(prefix) != 0) {
    m_nError = errno;
    DEBUG_TRACE(1, "\nCDirectory          : ERROR cannot remove parent directory \"%s\": %s\n",
                prefix, strerror(m_nError));
    return false;
  }
  DEBUG_TRACE(3, "\nCDirectory          : Remove directory parent \"%s\" OK!", prefix);
  return true;
}

// Returns to the parent directory.
void TreeRemoval::LeaveDirectory() {
  m_oLevels.pop_back();
  m_oDirectory.reset();
  if (!m_oLevels.empty()) {
    m_strPath.pop_back();
    DEBUG_TRACE(3, "\nCDirectory          : Remove directory \"%s\" OK!", m_strPath.c_str());
  }
}

// A failure also fails every directory above it. The top has no line here: its failure is the
// result.
void TreeRemoval::ReportWayUp() {
  for (; m_oLevels.size() > 1; m_oLevels.pop_back()) {
    m_strPath.resize(m_oLevels.back().prefixLength - 1);
    DEBUG_TRACE(1, "\nCDirectory          : ERROR cannot remove directory \"%s\": %s",
                m_strPath.c_str(), strerror(m_nError));
  }
}

#ifdef SYS_fchmodat2
constexpr long FCHMODAT2 = SYS_fchmodat2;
#else
constexpr long FCHMODAT2 = 452;  // on every processor but the Alpha
#endif

// One call checks and changes the entry, so that nobody can put a link in its place in between.
// Older kernels lack the call, and the system call filters of containers may refuse it; the C
// library's emulation is four times as slow.
int ChangeModeNoFollow(int directory, const char* path, mode_t mode) {
  if (syscall(FCHMODAT2, directory, path, mode, AT_SYMLINK_NOFOLLOW) == 0) {
    return 0;
  }
  const bool isLacking = errno == ENOSYS || errno == EPERM;
  return isLacking ? fchmodat(directory, path, mode, AT_SYMLINK_NOFOLLOW) : -1;
}

bool IsLink(int directory, const char* path) {
  struct stat status = {};
  return fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

int32_t CDirectory::RemoveDirectory(const char* path, bool removeParent) {
  return TreeRemoval(path).Run(removeParent) ? 1 : 0;
}

bool ChangeModeUnlessLink(int directory, const char* path, mode_t mode) {
  if (ChangeModeNoFollow(directory, path, mode) == 0) {
    return true;
  }
  const int error = errno;
  const bool isLink = error == EOPNOTSUPP && IsLink(directory, path);
  errno = error;
  return isLink;
}
