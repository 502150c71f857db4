#pragma once

#include "base/file_lock.h"

enum class ProfileUpdate {
  DONE,
  NOT_DONE,     // nothing to change, the change failed, or another held the file all the time
  CANNOT_OPEN,  // the file exists and cannot be opened, or cannot be made
};

// Changes one entry of a profile file: stores the key's value; with a null value removes the key,
// with a null key the section. What is missing is made when there is a value to store. Unless the
// result is DONE, the file is as it was.
//
// Holds an exclusive lock on the file from the search to the end of the change, and waits for that
// lock until `until`.
ProfileUpdate UpdateProfileFile(const char* section, const char* key, const char* value,
                                const char* fileName, CFileLock::Time until);
