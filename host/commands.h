#pragma once

#include "host/host_options.h"

// The commands of em_host. Each returns the exit code; what goes wrong is thrown as CHostError.

// "em_host run": asks the module and prints each answer.
int RunRequests(const HostOptions& options);

// "em_host info": prints the module's name and its identification record.
int ShowInfo(const HostOptions& options);

// "em_host setup": has the module run an installer's action and prints its result.
int RunSetupAction(const HostOptions& options);

// "em_host trace": shows or changes the trace configuration of the module.
int RunTraceAction(const HostOptions& options);

// "em_host doctor": looks for what keeps this machine from creating an archive and prints a line
// for each part. The exit code is EX_UNAVAILABLE when no archive could be created now, EX_CONFIG
// when one could but something should be repaired, else 0.
int RunDoctor(const HostOptions& options);

// "em_host guard": puts the guard before the collector, takes it away or shows it. The exit code is
// EX_UNAVAILABLE when it is shown and is off.
int RunGuardAction(const HostOptions& options);

// "em_host history": prints the runs of the collector under the guard.
int ShowHistory(const HostOptions& options);

// "em_host inspect": prints what is in an archive, whether it fits into a BMC, and whether it is as
// it was created. The exit code is EX_DATAERR when it is not right.
int InspectArchive(const HostOptions& options);

// "em_host demo": walks the whole path of an archive and tells what happens. For a program that
// runs in a private machine.
int ShowDemo(const HostOptions& options);
