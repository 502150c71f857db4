#pragma once

enum class ProfileUpdate {
  DONE,
  NOT_DONE,     // nothing to change, or the change failed
  CANNOT_OPEN,  // the file exists and cannot be opened, or cannot be made
};

// Changes one entry of a profile file: stores the key's value; with a null value removes the key,
// with a null key the section. What is missing is made when there is a value to store. Unless the
// result is DONE, the file is as it was.
//
// Must not be called by two threads at a time for one file.
ProfileUpdate UpdateProfileFile(const char* section, const char* key, const char* value,
                                const char* fileName);
