#include "host/commands.h"

#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/collector_check.h"
#include "host/output.h"
#include "host/trace_settings.h"
#include "trace/config_files.h"

namespace {

constexpr size_t SUBJECT_WIDTH = 16;

const char* Mark(Finding::Verdict verdict) {
  switch (verdict) {
    case Finding::Verdict::RIGHT:
      return "ok     ";
    case Finding::Verdict::WRONG:
      return "WRONG  ";
    default:
      return "?      ";
  }
}

void Print(const Finding& finding) {
  std::string subject = finding.subject;
  subject.resize(std::max(SUBJECT_WIDTH, subject.size() + 1), ' ');
  WriteLine(Mark(finding.verdict) + subject + finding.text);
}

// Tracing does not decide about archives.
Finding CheckTrace() {
  for (const std::string& file : ListTraceConfigFiles()) {
    if (access(file.c_str(), R_OK) != 0) {
      return {Finding::Verdict::WRONG, "trace",
              file + " cannot be read (" + strerror(errno) +
                  "): run em_host as root, or repair the file."};
    }
  }
  const TraceSettings settings = ReadTraceSettings();
  return {Finding::Verdict::RIGHT, "trace",
          settings.level == 0
              ? "Off; \"em_host trace set 2\" switches it on."
              : "Level " + std::to_string(settings.level) + " in " + settings.levelFile + "."};
}

}  // namespace

int RunDoctor() {
  CCollectorCheck check;
  check.CheckInstallation();
  check.CheckCreation();
  for (const Finding& finding : check.GetFindings()) {
    Print(finding);
  }
  Print(CheckTrace());
  const bool isRight = std::all_of(
      check.GetFindings().begin(), check.GetFindings().end(),
      [](const Finding& finding) { return finding.verdict == Finding::Verdict::RIGHT; });
  WriteLine(isRight ? "An archive could be created now."
                    : "No archive could be created now; begin with the first WRONG line.");
  if (geteuid() != 0) {
    WriteMessage("You are not root, as the agent is: it may do more than was seen here.");
  }
  return isRight ? EXIT_SUCCESS : EX_UNAVAILABLE;
}
