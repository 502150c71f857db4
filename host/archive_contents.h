#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ArchiveMember {
  std::string name;
  int64_t size;  // bytes, unpacked
};

// The members of an archive, in its order. Reads the archive to its end, so that a damaged one is
// noticed. Throws CHostError.
std::vector<ArchiveMember> ListArchive(const std::string& path);

// True when both files can be read and hold the same bytes.
bool HaveSameContent(const std::string& first, const std::string& second);
