#include "host/creation_failure.h"

#include <cstring>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "host/execution_probe.h"
#include "host/guard_place.h"
#include "host/host_error.h"

namespace {

constexpr int NOT_EXECUTED = 255;  // also a possible exit code of the collector

std::string CollectorProgram() {
  std::string directory;
  return GetBinDir(directory) ? directory + COLLECTOR_NAME : COLLECTOR_NAME;
}

std::string ArchivePath() {
  std::string directory;
  return GetDataDir(directory) ? directory + ARCHIVE_FILE : ARCHIVE_FILE;
}

bool IsGuarded() {
  try {
    return FindGuardPlace().isOn;
  } catch (const CHostError&) {
    return false;
  }
}

std::string ExplainEnd(const ChildEnd& collector, const std::string& program) {
  const std::string code = std::to_string(collector.code);
  if (collector.isKilled) {
    return "Talvor was killed by signal " + code + " (" + strsignal(collector.code) + ").";
  }
  if (collector.code == 0) {
    return "Talvor ended with exit code 0 but left no new archive " + ArchivePath() + ".";
  }
  const int error = collector.code == NOT_EXECUTED ? ProbeExecution(program) : 0;
  if (error != 0) {
    return "The system does not execute " + program + " (" + strerror(error) + ").";
  }
  return "Talvor ended with exit code " + code + ".";
}

}  // namespace

std::string ExplainFailedCreation(const std::optional<ChildEnd>& collector, bool isStopping) {
  if (isStopping) {
    return std::string("The creation was cut short by the stop of the module") +
           (collector && collector->isKilled ? ", which killed Talvor." : ".");
  }
  if (!collector) {
    return "Talvor was not started: look for the number of processes and the memory that are left.";
  }
  if (!collector->isKilled && collector->code != 0 && IsGuarded()) {
    return "The guard reports the run as failed, with exit code " +
           std::to_string(collector->code) +
           ", and says why above. \"em_host history\" shows the runs, and what Talvor printed last is "
           "in /var/lib/em-talvor/output.";
  }
  const std::string program = CollectorProgram();
  return ExplainEnd(*collector, program) +
         " Run it by hand, as the agent does, and look at what it says: " + program;
}
