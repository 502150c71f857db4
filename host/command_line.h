#pragma once

#include <optional>

#include "host/host_options.h"

// Reads the command line into `options`. Returns an exit code when the program is to end with it:
// help has been printed, or what is wrong with the command line.
std::optional<int> ReadCommandLine(int argumentCount, char** arguments, HostOptions& options);
