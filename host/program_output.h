#pragma once

#include <string>
#include <vector>

// Runs a program to its end, without a shell: its path and its arguments. Returns what it wrote to
// standard output; what it writes to standard error goes to that of em_host. Throws CHostError when
// it cannot be run or fails.
std::string ProgramOutput(std::vector<std::string> command);
