#pragma once

#include <optional>
#include <string>

#include "base/descriptor.h"
#include "base/file_lock.h"
#include "platform/profile/profile_file.h"

// An atomic change of a text file, also across a power failure: a copy is changed, and then
// replaces the file, with the same owner and mode.
//
// While the object lives, other replacements and profile-string updates wait for the file, and then
// change the new one. A symbolic link is followed: its target is replaced. Other hard links keep
// the old content.
class CFileReplacement {
 public:
  // Makes a missing file, empty, and the directories that lead to it. Waits a second at most for
  // the file's lock. Throws std::system_error.
  explicit CFileReplacement(const std::string& path);
  // Without Commit() the file is as before.
  ~CFileReplacement();
  CFileReplacement(const CFileReplacement&) = delete;
  CFileReplacement& operator=(const CFileReplacement&) = delete;

  // The path of the copy, for the caller to change.
  const std::string& GetCopy() const { return m_strCopy; }

  // Puts the copy in the place of the file and flushes it to the disk. Throws std::system_error;
  // the file is then as before, or, where only the flush of its directory failed, the new one.
  void Commit();

 private:
  void OpenLocked(const std::string& path);
  void MakeCopy();
  void Undo() const;

  std::optional<CProfileFile> m_oFile;
  std::optional<CFileLock> m_oLock;  // on the file, and released before that is closed
  std::optional<CDescriptor> m_oCopy;
  std::string m_strFile;  // where links lead to
  std::string m_strCopy;
  bool m_bMade = false;  // the file was missing
  bool m_bCommitted = false;
};
