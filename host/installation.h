#pragma once

#include <string>

// The path of a file that is installed with em_host, from its path below the installation's
// directory: "lib/em-talvor/sandbox". The tree of a build looks the same. Throws CHostError when
// there is no such file.
std::string InstalledFile(const std::string& relativePath);

// The path of the module that is installed with em_host, or built with it; of the one that agents
// load when there is none.
std::string InstalledModule();
