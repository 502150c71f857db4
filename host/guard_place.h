#pragma once

#include <string>
#include <vector>

// Whether the guard stands in the collector's place, which the registry tells: "FileRoot" then
// names the directory of the guard, and "GuardedFileRoot" beside it what it named before. Where
// there was no "DataRoot" the archive lay in "FileRoot", and the guard brings one that says so.
//
// A change is one save of the registry: it is made whole or not at all. Agents that run see it when
// they are started again.

struct GuardPlace {
  bool isOn = false;
  std::string collector;  // its directory, ending in "/"; empty: the registry does not tell
  std::string fileRoot;   // what the module takes for it
};

// As the registry stands. Throws CHostError when it names no collector.
GuardPlace FindGuardPlace();

// The directory of the guard that is installed with em_host. Throws CHostError.
std::string GuardDirectory();

// Each says in sentences what it has changed, or found. Throw CHostError, and then change nothing.
std::vector<std::string> PutGuard();
std::vector<std::string> TakeGuardAway();
