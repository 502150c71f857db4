#pragma once

#include <string>

// The name under which a file is stored on the BMC: the last part of the name that was asked for,
// separated by "/" or "\", or, when that is no file name, of the file's own path. The result never
// leads out of a directory and holds no control characters.
std::string BmcFileName(const std::string& bmcPath, const std::string& localPath);
