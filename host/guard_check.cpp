#include <sched.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "host/collector_check.h"
#include "host/doctor_checks.h"
#include "host/guard_place.h"
#include "host/guard_report.h"
#include "host/host_error.h"
#include "host/run_history.h"
#include "host/size_text.h"

namespace fs = std::filesystem;

namespace {

using Verdict = Finding::Verdict;

// BMCs commonly give up a request after this time.
constexpr int BMC_PATIENCE = 360;  // seconds
// How many of the last runs are looked at.
constexpr size_t RECENT_RUNS = 5;

Finding FindingOf(const Protection& protection) {
  const std::string subject = "guard, " + protection.name;
  switch (protection.state) {
    case Protection::State::ON:
      return {Verdict::RIGHT, subject, protection.text + "."};
    case Protection::State::UNSET:
      return {Verdict::RIGHT, subject, "Left out by the settings: " + protection.text + "."};
    case Protection::State::OFF:
      return {
          Verdict::WARNING, subject,
          "Left out: " + protection.text + ". Grant the agent that right, or install the program."};
    default:
      return {Verdict::WRONG, subject, protection.text + "."};
  }
}

void AddProtections(const GuardPlace& place, Findings& findings) {
  if (!place.isOn) {
    findings.push_back({Verdict::RIGHT, "guard",
                        "Off; \"em_host guard on\" keeps a collector that goes wrong from harming "
                        "this server."});
    return;
  }
  findings.push_back(
      {Verdict::RIGHT, "guard", "On, before the collector in " + place.collector + "."});
  for (const Protection& protection : ReadGuardReport()) {
    findings.push_back(FindingOf(protection));
  }
}

// A process that has loaded the module.
struct Agent {
  std::string pid;
  int priority;  // the highest of its threads in a real-time class; 0: there is none
};

bool HasLoadedModule(const fs::path& process) {
  std::ifstream maps(process / "maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with("/em_talvor") || line.ends_with("/em_talvor.so")) {
      return true;
    }
  }
  return false;
}

// 0: it is in no real-time class.
int RealTimePriority(pid_t thread) {
  const int schedulingClass = sched_getscheduler(thread) & ~SCHED_RESET_ON_FORK;
  sched_param parameter = {};
  sched_getparam(thread, &parameter);
  return schedulingClass == SCHED_FIFO || schedulingClass == SCHED_RR ? parameter.sched_priority
                                                                      : 0;
}

// Which thread starts the collector cannot be seen: the module's has no name of its own.
Agent AgentOf(const fs::path& process) {
  Agent agent = {process.filename(), 0};
  std::error_code error;
  for (const auto& task : fs::directory_iterator(process / "task", error)) {
    const pid_t thread = std::stoi(task.path().filename());
    agent.priority = std::max(agent.priority, RealTimePriority(thread));
  }
  return agent;
}

std::optional<Agent> FindAgent() {
  const std::string self = std::to_string(getpid());
  std::error_code error;
  for (const auto& process : fs::directory_iterator("/proc", error)) {
    const std::string name = process.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos && name != self &&
        HasLoadedModule(process.path())) {
      return AgentOf(process.path());
    }
  }
  return std::nullopt;
}

Finding CheckScheduling(bool isGuarded) {
  constexpr char SUBJECT[] = "scheduling";
  const std::optional<Agent> agent = FindAgent();
  if (!agent) {
    return {
        Verdict::RIGHT, SUBJECT,
        "No agent is seen that has loaded the module; a collector gets the scheduling class of its "
        "agent."};
  }
  const std::string text = "The agent, process " + agent->pid + ", has ";
  if (agent->priority == 0) {
    return {Verdict::RIGHT, SUBJECT,
            text + "no thread in a real-time class, nor is its collector."};
  }
  const std::string realTime =
      text + "threads in a real-time class, up to priority " + std::to_string(agent->priority);
  return isGuarded
             ? Finding{Verdict::RIGHT, SUBJECT,
                       realTime + "; the guard takes the collector out of it."}
             : Finding{Verdict::WARNING, SUBJECT,
                       realTime +
                           ", and a collector that these start goes before everything else on "
                           "this server: put the guard before it with \"em_host guard on\"."};
}

Finding CheckRoom(const CollectorRun& last) {
  constexpr char SUBJECT[] = "last archive";
  std::string directory;
  struct statvfs system = {};
  if (!GetDataDir(directory) || statvfs(NearestDirectory(directory).c_str(), &system) != 0) {
    return {Verdict::UNKNOWN, SUBJECT, "needs the data directory"};
  }
  const int64_t free =
      static_cast<int64_t>(system.f_bavail) * static_cast<int64_t>(system.f_frsize);
  const std::string text = "It had " + MebibytesText(*last.size) + ", and " + MebibytesText(free) +
                           " are free where the next one goes";
  return free < *last.size ? Finding{Verdict::WARNING, SUBJECT, text + ". Make room."}
                           : Finding{Verdict::RIGHT, SUBJECT, text + "."};
}

Finding CheckDurations(const std::vector<CollectorRun>& runs) {
  constexpr char SUBJECT[] = "last durations";
  double longest = 0;
  const size_t count = std::min(RECENT_RUNS, runs.size());
  for (size_t index = runs.size() - count; index < runs.size(); ++index) {
    longest = std::max(longest, runs[index].duration.value_or(0));
  }
  const std::string text = "The longest of the last " + std::to_string(count) + " took " +
                           std::to_string(static_cast<int64_t>(longest)) +
                           " seconds; BMCs commonly wait for " + std::to_string(BMC_PATIENCE);
  return longest > BMC_PATIENCE
             ? Finding{Verdict::WARNING, SUBJECT,
                       text + ". Look at \"em_host history\", and limit RUN_TIME in guard.conf."}
             : Finding{Verdict::RIGHT, SUBJECT, text + "."};
}

void AddRuns(Findings& findings) {
  const std::vector<CollectorRun> runs = ReadRunHistory();
  const auto last = std::find_if(runs.rbegin(), runs.rend(), [](const CollectorRun& run) {
    return run.ended == "done" && run.size;
  });
  if (last != runs.rend()) {
    findings.push_back(CheckRoom(*last));
  }
  if (!runs.empty()) {
    findings.push_back(CheckDurations(runs));
  }
}

}  // namespace

Findings CheckGuard(const HostOptions& /*options*/) {
  Findings findings;
  try {
    const GuardPlace place = FindGuardPlace();
    AddProtections(place, findings);
    findings.push_back(CheckScheduling(place.isOn));
    AddRuns(findings);
  } catch (const CHostError& error) {
    // Without a collector, which other lines tell of, there is nothing to guard.
    findings.push_back(error.GetExitCode() == EX_UNAVAILABLE
                           ? Finding{Verdict::UNKNOWN, "guard", "needs the Setup key"}
                           : Finding{Verdict::WARNING, "guard", error.what()});
  }
  return findings;
}
