#pragma once

#include <string>

// The whole content of a file of at most LONGEST_REGISTRY_FILE bytes. When it cannot be read,
// throws CFailure with the reason and with `advice` on what to do ("name another file"), which is
// left out when only permissions are missing.
std::string ReadTextFile(const std::string& path, const std::string& advice);
