#pragma once

#include <cstdint>
#include <string>

class CRegistry;

// Where the collector is installed and where it leaves its archive, according to the registry: the
// pointer "Talvor" names the collector's key, whose subkey "Setup" holds the values "FileRoot" and
// "DataRoot". The collector's key lies below HKEY_LOCAL_MACHINE unless its path begins with the
// name of a root key.
//
// Failures are traced; exhausted memory counts as not found. Any thread may call.

// Stores the installation directory, ending in "/". False when the collector is not installed; the
// string may then have changed.
bool GetBinDir(std::string& directory);

// Stores the data directory, ending in "/" unless it is empty. When there is none, does what
// GetBinDir() does.
bool GetDataDir(std::string& directory);

// Opens the key at `path`, which may begin with the name of a root key and lies below
// HKEY_LOCAL_MACHINE otherwise. Results as for CRegistry::Open(). Throws std::bad_alloc.
int32_t OpenCollectorSetupKey(CRegistry& registry, const std::string& path);
