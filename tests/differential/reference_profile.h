#pragma once

#include <cstdint>
#include <string>

// The rules of profile files, spelled out line by line as fgets() gives the lines.

struct ReferenceAnswer {
  uint32_t result = 0;
  std::string bytes;  // of the buffer, up to and with the NUL behind the result
};

// The answer to a read from a file of that content; null texts as in GetPrivateProfileString().
ReferenceAnswer ReadReferenceProfile(const std::string& content, const char* section,
                                     const char* key, const char* defaultValue, uint32_t size);

struct ReferenceUpdate {
  uint32_t result = 0;
  std::string content;  // of the file afterwards
};

// What a write makes of a file of that content; null texts as in WritePrivateProfileString().
ReferenceUpdate WriteReferenceProfile(const std::string& content, const char* section,
                                      const char* key, const char* value);
