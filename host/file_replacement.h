#pragma once

#include <optional>
#include <string>

#include "base/descriptor.h"
#include "base/file_lock.h"
#include "platform/profile/profile_file.h"

// A change of a text file that is made whole or not at all, also when the machine loses power: a
// copy is changed, and then takes the place of the file with its owner and mode.
//
// While the object lives, other replacements and updates of profile strings wait for the file, and
// change the new one then. A link is followed: what it leads to is replaced. Other names of the
// file keep what it was.
class CFileReplacement {
 public:
  // Makes a missing file, empty, and the directories that lead to it. Waits a second at most for
  // others who hold the file. Throws std::system_error.
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
