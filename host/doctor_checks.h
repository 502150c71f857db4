#pragma once

#include "host/finding.h"
#include "host/host_options.h"

// The checks of "em_host doctor". Each looks at one part of the machine and changes nothing; its
// findings are printed in their order. doctor_command.cpp lists the checks.
using DoctorCheck = Findings (*)(const HostOptions& options);

// The module: the file is there, can be loaded, exports what a module exports, and has the name of
// this one.
Findings CheckModule(const HostOptions& options);

// What a creation needs, from the registry to free space.
Findings CheckCollector(const HostOptions& options);

// The guard: whether it is on, and then each of its protections; and whether an archive like the
// last one still fits on the disk, and the last runs into the time that BMCs wait.
Findings CheckGuard(const HostOptions& options);

// The trace configuration can be read. Archives do not depend on it.
Findings CheckTrace(const HostOptions& options);
