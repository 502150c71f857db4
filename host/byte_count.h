#pragma once

#include <cstdint>
#include <string>

// With thousands separators: "1,234,567 bytes".
std::string BytesText(uintmax_t size);

// The total size of the files in a directory, in bytes; one that vanishes meanwhile counts as 0.
uintmax_t SizeOfFiles(const std::string& directory);
