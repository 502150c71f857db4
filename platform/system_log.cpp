#include "platform/system_log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>

void OpenSystemLog() {
  openlog(program_invocation_short_name, LOG_PID | LOG_CONS | LOG_NDELAY, LOG_LOCAL1);
}

void WriteSystemLog(int32_t priority, const char* format, ...) {
  if (format == nullptr) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}

void CloseSystemLog() { closelog(); }
