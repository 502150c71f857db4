#pragma once

#include <cstdint>

// The system log of the machine, which stands in for an event log.
//
// Thread safety: every operation may be called from any thread. The connection belongs to the whole
// process: closing it also closes it for the host, whose next message opens it again.

// Connects at once, under the program's short name, with the process id in each message and the
// console as the fallback when the log cannot be reached; facility LOG_LOCAL1.
void OpenSystemLog();

// Writes a message, printf-style, with a priority such as LOG_ERR. Callers pass up to four
// arguments. A null `format` writes nothing.
void WriteSystemLog(int32_t priority, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

void CloseSystemLog();
