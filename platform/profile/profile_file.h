#pragma once

#include "base/descriptor.h"

// A regular file that a profile call works on, closed with the object. Links are followed. A pipe,
// device or directory of that name cannot be opened, and no attempt blocks on one.
class CProfileFile {
 public:
  enum class Mode {
    READ,
    UPDATE,  // reading and writing
    APPEND,  // writing at the end only; makes a missing file
    CREATE,  // reading and writing; the file must not exist
    MAKE     // reading and writing; makes a missing file
  };

  // When the file cannot be opened, the object is not open and errno says why (0: no regular file).
  CProfileFile(const char* fileName, Mode mode);

  bool IsOpen() const { return m_oFile.IsOpen(); }

  // True when the file of that name is another one by now, or gone. It must be open.
  bool IsReplaced(const char* fileName) const;

  // The descriptor, owned by the object; -1 when it is not open.
  int GetDescriptor() const { return m_oFile.Get(); }

 private:
  CDescriptor m_oFile;
};
