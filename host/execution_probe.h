#pragma once

#include <string>

// Why the system does not execute a program, an errno value; 0 when it would, or when that cannot
// be found out. Nothing of the program runs: its process is stopped before the first instruction
// and killed.
int ProbeExecution(const std::string& program);
