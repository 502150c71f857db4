#include "tests/schedules/product_hooks.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/schedules/scheduler.h"

namespace schedules {

void TouchShared(const void* object) {
  if (Scheduler* scheduler = Scheduler::Current()) {
    scheduler->SwitchPoint("touch an atomic", object);
  }
}

bool IsTold() {
  const Scheduler* scheduler = Scheduler::Current();
  return scheduler != nullptr && scheduler->IsTold();
}

TraceScope::TraceScope() : m_pScheduler(Scheduler::Current()) { QuietScope::Begin(); }
TraceScope::~TraceScope() { QuietScope::End(); }

void TraceScope::Tell(uint32_t level, const char* format, ...) {
  std::vector<char> line(1024);
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  std::string text = line.data();
  text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
  m_pScheduler->Tell(std::to_string(level) + " " + text);
}

}  // namespace schedules
