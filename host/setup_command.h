#pragma once

#include "host/host_options.h"

// "em_host setup": has the module run an installer's action and prints its result. Returns the exit
// code; throws CHostError.
int RunSetupAction(const HostOptions& options);
