#pragma once

#include "host/host_options.h"

// "em_host demo": walks the whole road of an archive and tells what happens. For a program that
// runs in a private machine. Returns the exit code; throws CHostError.
int ShowDemo(const HostOptions& options);
