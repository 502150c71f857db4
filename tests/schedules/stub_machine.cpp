#include "tests/schedules/stub_machine.h"

#include <cerrno>

#include "archive_module/collector_files.h"
#include "platform/process/process_control.h"
#include "platform/process/process_table.h"
#include "tests/schedules/scenario.h"

StubMachine g_machine;

namespace {

constexpr int32_t COLLECTOR_PID = 4711;
constexpr int LATE_TIME = 3000;  // milliseconds
constexpr char INSTALLATION[] = "/opt/Talvor/";

}  // namespace

bool GetBinDir(std::string& directory) {
  directory = INSTALLATION;
  return true;
}

bool GetDataDir(std::string& directory) { return GetBinDir(directory); }

bool FileExists(const std::string& path) { return path == std::string(INSTALLATION) + "Talvor"; }

std::optional<ArchiveState> ExamineArchive(const std::string& /*path*/) {
  return g_machine.hasArchive ? std::optional<ArchiveState>(ArchiveState{1, 2, {3, 0}, {4, 0}})
                              : std::nullopt;
}

int32_t KilobytesOf(const std::string& /*path*/) { return 1; }

bool FindProcessByName(int32_t& /*pid*/, std::string_view /*name*/) { return false; }

bool RunProgram(const char* /*program*/, std::atomic<int32_t>& pid, int32_t& exitCode,
                const char* /*workingDirectory*/, bool /*reserved*/, bool /*keepDescriptors*/) {
  ++g_machine.launches;
  exitCode = -1;
  if (g_machine.fork == StubMachine::Fork::NEVER) {
    pid = -1;
    return false;
  }
  if (g_machine.fork == StubMachine::Fork::LATE) {
    schedules::SleepFor(LATE_TIME);
  }
  schedules::SwitchPoint("fork");
  g_machine.runs = true;
  pid = COLLECTOR_PID;
  schedules::WaitFor([] { return g_machine.wasKilled || g_machine.mayEnd; });
  g_machine.runs = false;
  if (g_machine.wasKilled) {
    return false;
  }
  g_machine.hasArchive = true;
  exitCode = 0;
  return true;
}

bool KillProcess(int32_t /*pid*/, bool /*force*/) {
  schedules::SwitchPoint("kill");
  ++g_machine.kills;
  if (!g_machine.runs) {
    ++g_machine.staleKills;
    errno = ESRCH;
    return false;
  }
  if (!g_machine.canBeKilled) {
    errno = EPERM;
    return false;
  }
  g_machine.wasKilled = !g_machine.outlivesKill;
  return true;
}

bool WaitForProcessEnd(int32_t /*pid*/, uint32_t milliseconds) {
  return schedules::WaitFor([] { return !g_machine.runs; }, static_cast<int>(milliseconds));
}

// The worker has waited for the child before.
bool WaitProcess(int32_t /*pid*/, int32_t& exitCode, uint32_t /*timeoutMilliseconds*/) {
  schedules::SwitchPoint("wait for the process");
  exitCode = -1;
  return false;
}
