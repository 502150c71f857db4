#pragma once

#include <cstdint>
#include <string>

// The file that the collector leaves in its data directory.
constexpr char ARCHIVE_FILE[] = "Talvor_Data.zip";

// True when the path names anything that can be examined; links are followed.
bool FileExists(const std::string& path);

// The size of the file in kilobytes, rounded down; 0 when it cannot be examined.
int32_t KilobytesOf(const std::string& path);
