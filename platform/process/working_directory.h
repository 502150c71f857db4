#pragma once

#include <memory>
#include <mutex>

#include "base/descriptor.h"

// Changes the current directory of the whole process for a while. Remembers the old directory by a
// descriptor, so that it is found again after it was renamed or removed.
//
// Thread safety: one thread at a time uses an object, and one object at a time has entered a
// directory; the others wait, so that each one comes back to where the process was before. The
// other threads of the process see the change.
class CWorkingDirectory {
 public:
  CWorkingDirectory() = default;
  // Leaves, when Leave() was not called.
  ~CWorkingDirectory() { Leave(); }
  CWorkingDirectory(const CWorkingDirectory&) = delete;
  CWorkingDirectory& operator=(const CWorkingDirectory&) = delete;

  // Changes to `path`; null or empty keeps the directory. False, and nothing changed, when the
  // directory cannot be entered or the old one cannot be remembered. Waits while another object has
  // entered one; so the calling thread must have none entered.
  bool Enter(const char* path);

  // Changes back, once. False when that failed: the process is still in the entered directory.
  bool Leave();

 private:
  std::unique_lock<std::mutex> m_oTurn;  // held while a directory is entered
  std::unique_ptr<CDescriptor> m_pOld;   // null while none is entered
};
