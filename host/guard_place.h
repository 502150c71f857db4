#pragma once

#include <string>
#include <vector>

// Whether the guard stands in front of the collector. It does when "FileRoot" in the registry names
// the guard's directory; "GuardedFileRoot" beside it then keeps what "FileRoot" named before.
// Without a "DataRoot" archives went to "FileRoot"; the guard then adds a "DataRoot" that names
// that directory.
//
// A change is one save of the registry, and so atomic. Running agents see it after a restart.

struct GuardPlace {
  bool isOn = false;
  std::string collector;  // its directory, as configured; empty: unknown
  std::string fileRoot;   // the directory from which the module starts it
};

// What follows the name of the archive in that of the checksum that the guard lays beside it.
constexpr char CHECKSUM_ENDING[] = ".sha256";

// As the registry stands. Throws CHostError when it names no collector.
GuardPlace FindGuardPlace();

// The directory of the guard that is installed with em_host. Throws CHostError.
std::string GuardDirectory();

// Return sentences about what was changed or found. Throw CHostError, and then change nothing.
std::vector<std::string> PutGuard();
std::vector<std::string> TakeGuardAway();
