#pragma once

#include <cstdint>
#include <string>

// With separators: "1,234,567 bytes".
std::string BytesText(uintmax_t size);

// Of all files in a directory together; one that vanishes meanwhile counts nothing.
uintmax_t SizeOfFiles(const std::string& directory);
