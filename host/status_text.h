#pragma once

#include <cstdint>
#include <string>

// The status of a command in words.
std::string StatusText(uint32_t status);
