#pragma once

#include <string>

// The name under which a file is stored on the BMC: the last part of the name that was asked for,
// separated by "/" or "\", or of the file's own path when that is no file name. The result never
// leads out of a directory and holds no control characters.
std::string BmcFileName(const std::string& bmcPath, const std::string& localPath);
