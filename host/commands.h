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

// "em_host demo": walks the whole path of an archive and tells what happens. For a program that
// runs in a private machine.
int ShowDemo(const HostOptions& options);
