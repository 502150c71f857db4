#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/doctor_checks.h"
#include "host/trace_settings.h"
#include "trace/config_files.h"

Findings CheckTrace(const HostOptions& /*options*/) {
  for (const std::string& file : ListTraceConfigFiles()) {
    if (access(file.c_str(), R_OK) != 0) {
      return {{Finding::Verdict::WARNING, "trace",
               file + " cannot be read (" + strerror(errno) +
                   "): run em_host as root, or repair the file."}};
    }
  }
  const TraceSettings settings = ReadTraceSettings();
  return {{Finding::Verdict::RIGHT, "trace",
           settings.level == 0
               ? "Off; \"em_host trace set 2\" switches it on."
               : "Level " + std::to_string(settings.level) + " in " + settings.levelFile + "."}};
}
