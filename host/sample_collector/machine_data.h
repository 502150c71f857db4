#pragma once

#include <string>

// What the collector determines about the machine, beyond the files that it copies.

// A table of the processes, one line each: id, parent, state, threads, memory in use and name.
// Command lines are left out, because they may hold passwords.
std::string ListProcesses();

// Stores the kernel's messages. False when this user may not read them.
bool ReadKernelLog(std::string& text);
