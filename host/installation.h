#pragma once

#include <string>

// The path of a file that is installed with em_host, from its path below the installation's
// directory: "lib/em-talvor/sandbox". The tree of a build looks the same. Throws CHostError when
// there is no such file.
std::string InstalledFile(const std::string& relativePath);

// True for the collector of the demo, which is installed with em_host and no use to a server.
bool IsSampleCollector(const std::string& file);

// The path of the module that is installed or built with em_host, or else of the one that agents
// load.
std::string InstalledModule();
