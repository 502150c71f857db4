#pragma once

#include <cstdint>
#include <string>

class CRegistry;

// Where the collector is installed and where it leaves its archive, as the registry tells: the
// pointer "Talvor" names the collector's root key, whose subkey "Setup" holds the values "FileRoot"
// and "DataRoot". The root key lies below HKEY_LOCAL_MACHINE unless it begins with the name of a
// root key.
//
// What goes wrong is traced; exhausted memory counts as not found. Any thread may call.

// Stores the installation directory, ending in "/". False when the collector is not installed; the
// text may then have changed.
bool GetBinDir(std::string& directory);

// Stores the data directory, ending in "/" unless it is empty, or else what GetBinDir() gives.
bool GetDataDir(std::string& directory);

// Opens the key at `path`, the path of a root key or of one below it. Results as for
// CRegistry::Open(). Throws std::bad_alloc.
int32_t OpenCollectorSetupKey(CRegistry& registry, const std::string& path);
