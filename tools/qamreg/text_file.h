#pragma once

#include <string>

// The whole content of a file of at most LONGEST_REGISTRY_FILE bytes. Throws CFailure with the
// reason when it cannot be read, and with `advice`, what to do then ("name another file"), unless
// only rights are missing.
std::string ReadTextFile(const std::string& path, const std::string& advice);
