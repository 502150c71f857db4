#include "trace/trace_system_log.h"

#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <mutex>

namespace {

constexpr size_t MESSAGE_SIZE = 1024;

void OpenOnce() {
  static constinit std::mutex lock;
  static constinit bool isOpen = false;
  const std::lock_guard guard(lock);
  if (!isOpen) {
    openlog(program_invocation_short_name, LOG_CONS | LOG_PID | LOG_NDELAY, LOG_LOCAL1);
    isOpen = true;
  }
}

}  // namespace

void WriteTraceToSystemLog(const char* format, va_list arguments) {
  while (*format == '\n') {
    ++format;
  }
  OpenOnce();
  std::array<char, MESSAGE_SIZE> message = {};
  if (vsnprintf(message.data(), message.size(), format, arguments) < 0) {
    syslog(LOG_INFO, "ERROR: cann't format message");
    return;
  }
  syslog(LOG_INFO, "%s", message.data());
}
