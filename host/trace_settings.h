#pragma once

#include <cstdint>
#include <string>

// The trace settings of the module EM_TALVOR in the files of the trace configuration, as the module
// reads them; the environment, which holds over the files, is left out.
struct TraceSettings {
  uint32_t level = 0;
  std::string levelFile;  // where the module's section is; empty: nowhere
  uint32_t interval = 0;  // seconds after which changes are looked for; 0: never
  bool isIntervalSet = false;
};

// Throws CHostError when a file may not be read.
TraceSettings ReadTraceSettings();

// Store a setting: the level where the module's section is, else in global_trace.ini; the interval
// there. What is missing is made. They change nothing and throw CHostError when the file cannot be
// written, or would not be read as meant.
void StoreTraceLevel(uint32_t level);
void StoreTraceInterval(uint32_t seconds);
