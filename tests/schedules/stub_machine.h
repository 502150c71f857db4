#pragma once

#include <cstdint>

// The machine as the module sees it in a schedule: where the collector is, how it is launched,
// killed and waited for. It stands in for the sources that look at the real one.
struct StubMachine {
  enum class Fork {
    EARLY,
    LATE,  // after the time that a stop gives
    NEVER
  };

  // What happens.
  Fork fork = Fork::EARLY;
  bool canBeKilled = true;
  bool outlivesKill = false;  // as inside a system call that cannot be interrupted
  bool mayEnd = false;        // the collector ends by itself and leaves an archive

  // What was seen.
  bool runs = false;  // the collector
  bool wasKilled = false;
  int launches = 0;
  int kills = 0;
  int staleKills = 0;  // of a process that did not run
  bool hasArchive = false;
};

// The one of this run; a scenario begins with a new one.
extern StubMachine g_machine;
