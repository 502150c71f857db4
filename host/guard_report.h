#pragma once

#include <string>
#include <vector>

// One protection of the guard on this machine, a line of "Talvor --check".
struct Protection {
  enum class State {
    ON,
    OFF,    // the machine or the rights of this user refuse it
    UNSET,  // the settings say so
    WRONG   // no run could be started
  };
  std::string name;  // a word or two
  State state;
  std::string text;  // how, or why not
};

// Runs the guard that is installed with em_host. Throws CHostError.
std::vector<Protection> ReadGuardReport();
