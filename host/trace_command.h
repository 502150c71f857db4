#pragma once

#include "host/host_options.h"

// "em_host trace": shows or changes the trace configuration of the module. Returns the exit code;
// throws CHostError.
int RunTraceAction(const HostOptions& options);
