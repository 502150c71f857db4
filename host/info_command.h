#pragma once

#include "host/host_options.h"

// "em_host info": prints the module's name and its identification record. Returns the exit code;
// throws CHostError.
int ShowInfo(const HostOptions& options);
