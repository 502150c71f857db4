#pragma once

#include <cstdint>
#include <string>

// The trace settings of the module EM_TALVOR in the files of the trace configuration, as the module
// reads them; the environment, which overrides the files, is left out.
struct TraceSettings {
  uint32_t level = 0;
  std::string levelFile;  // where the module's section is; empty: nowhere
  uint32_t interval = 0;  // seconds between two looks for changes; 0: never
  bool isIntervalSet = false;
};

// Throws CHostError when this user may not read a file.
TraceSettings ReadTraceSettings();

// Store a setting: the level in the file with the module's section, or else in global_trace.ini;
// the interval always there. What is missing is created. They change nothing and throw CHostError
// when the file cannot be written or the module would not read it as intended.
void StoreTraceLevel(uint32_t level);
void StoreTraceInterval(uint32_t seconds);
