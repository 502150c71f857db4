#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The directory of the trace configuration and the file in it that concerns all modules.
constexpr char TRACE_CONFIG_DIRECTORY[] = "/etc/orvane/CorvistaSuite/TraceConfig";
constexpr char TRACE_GLOBAL_FILE[] = "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini";

// Its section for all modules.
constexpr char TRACE_GLOBAL_SECTION[] = "GlobalDebugSettings";

// Configuration files longer than this, in bytes, count as unreadable.
constexpr size_t LONGEST_CONFIG_FILE = size_t{16} << 20;

// The paths of the configuration files, sorted. The first one with a section for the module counts.
// Empty when the directory cannot be opened. Throws std::bad_alloc.
std::vector<std::string> ListTraceConfigFiles();
