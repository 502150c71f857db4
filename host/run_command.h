#pragma once

#include "host/host_options.h"

// "em_host run": asks the module and prints each answer. Returns the exit code; throws CHostError.
int RunRequests(const HostOptions& options);
