#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The directory of the trace configuration and the file in it that concerns all modules.
constexpr char TRACE_CONFIG_DIRECTORY[] = "/etc/orvane/CorvistaSuite/TraceConfig";
constexpr char TRACE_GLOBAL_FILE[] = "/etc/orvane/CorvistaSuite/TraceConfig/global_trace.ini";

// Its section for all modules.
constexpr char TRACE_GLOBAL_SECTION[] = "GlobalDebugSettings";

// Longer files, in bytes, are no configuration: they count as files that cannot be read.
constexpr size_t LONGEST_CONFIG_FILE = size_t{16} << 20;

// The paths of the configuration files, in alphabetical order, in which they are looked through for
// the section of a module. Empty when the directory cannot be opened. Throws std::bad_alloc.
std::vector<std::string> ListTraceConfigFiles();
