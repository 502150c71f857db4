#include "host/commands.h"

#include <cstdlib>
#include <string>

#include "archive_module/names.h"
#include "host/output.h"
#include "host/seconds_text.h"
#include "host/trace_settings.h"
#include "trace/config_files.h"

namespace {

std::string LevelText(uint32_t level) {
  switch (level) {
    case 0:
      return "nothing";
    case 1:
      return "errors and milestones";
    case 2:
      return "requests and main events";
    case 3:
      return "details";
    case 4:
      return "calls and fine details";
    default:
      return "everything";
  }
}

std::string IntervalText(uint32_t seconds) {
  return seconds == 0 ? "never" : "every " + SecondsText(seconds);
}

void ShowEnvironment(const char* name) {
  if (const char* value = getenv(name)) {
    WriteLine(std::string("environment  ") + name + "=" + value +
              " holds over the files for what is started from here");
  }
}

void Show() {
  const TraceSettings settings = ReadTraceSettings();
  WriteLine("level        " + std::to_string(settings.level) + ", " + LevelText(settings.level) +
            (settings.levelFile.empty()
                 ? std::string("; no file has a section [") + MODULE_NAME + "]"
                 : "; set in " + settings.levelFile));
  WriteLine("looks again  " + IntervalText(settings.interval) +
            (settings.isIntervalSet ? std::string("; set in ") + TRACE_GLOBAL_FILE
                                    : "; no file has a section [GlobalDebugSettings] with "
                                      "DynamicUpdate"));
  ShowEnvironment("CV_LOG_DEBUG_LEVEL");
  ShowEnvironment("CV_LOG_DYNAMIC_UPDATE");
}

// A module that was started with level 0 never rereads the files.
void TellWhenItHolds(const TraceSettings& settings) {
  WriteLine(settings.interval == 0
                ? std::string("An agent takes it over when it starts.")
                : "An agent that traces takes it over within " + SecondsText(settings.interval) +
                      ", one that does not when it starts.");
}

void SetLevel(uint32_t level) {
  StoreTraceLevel(level);
  const TraceSettings settings = ReadTraceSettings();
  WriteLine(std::string(MODULE_NAME) + " traces " + LevelText(level) + " (level " +
            std::to_string(level) + " in " + settings.levelFile + ").");
  TellWhenItHolds(settings);
}

void SetInterval(uint32_t seconds) {
  const uint32_t before = ReadTraceSettings().interval;
  StoreTraceInterval(seconds);
  WriteLine("Agents that trace look for changes " + IntervalText(seconds) +
            (before == 0 ? std::string(", from their next start on.")
                         : "; those that look already take it over within " + SecondsText(before) +
                               ", others when they start."));
}

}  // namespace

int RunTraceAction(const HostOptions& options) {
  if (options.action == "set") {
    SetLevel(options.number);
  } else if (options.action == "off") {
    SetLevel(0);
  } else if (options.action == "dynamic") {
    SetInterval(options.number);
  } else {
    Show();
  }
  return EXIT_SUCCESS;
}
