#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Queries on the processes of the machine, answered from the proc file system. Nothing is cached:
// every call reads afresh.
//
// A query answers false when a file is missing or cannot be read, which is normal for a process
// that has ended; what could not be read is then empty, 0, or -1 for a pid. Nothing is logged.
//
// Thread safety: every operation may be called from any thread. Processes come and go meanwhile, so
// an answer may be out of date when it arrives.

// Stores the first line of "/proc/<pid>/<fileName>", without its line end and otherwise untouched.
// False also for an empty file.
bool ReadProcFile(int32_t pid, std::string_view fileName, std::string& line);

// Finds a process by its command name, which is compared exactly: the program's name without its
// directory. Stores the first one in the order of the directory "/proc". A name of more than 15
// characters is never found, because the kernel cuts command names to 15.
bool FindProcessByName(int32_t& pid, std::string_view name);

// Stores the command name, at most 15 characters of a program.
bool GetProcessName(std::string& name, int32_t pid);

// Stores the path of the executable as the kernel reports it: a deleted one ends in " (deleted)".
// Kernel threads have none, and reading another user's takes privileges.
bool GetProcessExecutable(std::string& executable, int32_t pid);

// Both of the above. Each is attempted and stored whatever became of the other; true when both
// succeeded.
bool GetProcessNameAndExecutable(int32_t pid, std::string& name, std::string& executable);

// Looks in "/proc/<pid>/status" for the first line that begins with `key`, a field name with its
// colon such as "VmSize:", and stores the decimal number that follows; a unit after it is not
// read. False when the field is missing or not followed by a number.
bool ReadProcStatusField(int32_t pid, uint64_t& number, std::string_view key);

// As above, and stores all that follows the key on its line, white space included.
bool ReadProcStatusField(int32_t pid, std::string& text, std::string_view key);

// Stores the size of the address space, its peak, the part of it in swap and the size of the shared
// libraries, in kilobytes. True when size and peak are known; otherwise all four are 0. A kernel
// thread has no such figures, nor has a process that has ended and is not yet waited for.
bool GetProcessMemory(int32_t pid, uint64_t& size, uint64_t& peak, uint64_t& swap,
                      uint64_t& librarySize);
