#pragma once

#include <cstdarg>

// Writes one line to the system log with the priority "information". Newlines at the start of
// `format` are skipped; the text is cut to 1023 bytes. The first call in the process opens the log
// under the program's short name. Any thread may call.
void WriteTraceToSystemLog(const char* format, va_list arguments)
    __attribute__((format(printf, 1, 0)));
