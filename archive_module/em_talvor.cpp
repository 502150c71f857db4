#include "archive_module/em_talvor.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "archive_module/collector_files.h"
#include "archive_module/names.h"
#include "frame/status.h"
#include "platform/process/process_control.h"
#include "trace/debug_client.h"

namespace {

constexpr int32_t TASK_LEVELS = 1;
constexpr uint32_t HTI_FILE_TYPE_TALVOR = 2;

// How long a job may continue when the module stops: the settling time and the termination time of
// its worker.
constexpr std::chrono::milliseconds STOP_GRACE(100 + 2000);
constexpr uint32_t KILL_WAIT_TIME = 2000;  // milliseconds
// How much longer the worker may wait for its switch, or for a collector that survives its kill.
constexpr std::chrono::milliseconds LAST_WAIT(5000);

constexpr char OPENING_LINE[] =
    "\n\n------------------------------------------------------------------------------------------";
constexpr char CLOSING_LINE[] =
    "\n------------------------------------------------------------------------------------------\n";

// Returns the path of the collector, or nothing when it is not installed.
std::optional<std::string> FindExecutable() {
  std::string path;
  if (!GetBinDir(path)) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!");
    return std::nullopt;
  }
  path += COLLECTOR_NAME;
  DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : Talvor executable: \"%s\"", path.c_str());
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Check for Talvor executable file existing...");
  if (!FileExists(path)) {
    DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : -> Talvor not installed - module not started!");
    return std::nullopt;
  }
  DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : -> Talvor is installed - module will be started");
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Talvor executable: %s", path.c_str());
  return path;
}

// Returns the path of the archive, or nothing when the registry names no directory for it.
std::optional<std::string> FindArchivePath() {
  std::string directory;
  if (!GetDataDir(directory)) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor archive data dir - module not started!");
    return std::nullopt;
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Talvor archive dir: \"%s\"\n", directory.c_str());
  std::string archive = directory + ARCHIVE_FILE;
  DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : Talvor archive path: \"%s\"\n", archive.c_str());
  return archive;
}

void TerminateCollector(int32_t pid) {
  const CTraceShield shield;
  if (pid < 1) {
    DEBUG_TRACE(4,
                "\nEM_TALVOR (Stop)    : Talvor process not running, can stop module immediately");
    return;
  }
  DEBUG_TRACE(
      1,
      "\nEM_TALVOR (Stop)    : -> Talvor archive creation in progress - terminate process (#%d) and wait for exit...",
      pid);
  if (!KillProcess(pid, true)) {
    const auto error = static_cast<uint32_t>(errno);
    DEBUG_TRACE(
        1, "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated (0x%08X)!\n",
        error);
    return;
  }
  int32_t exitCode = 0;
  if (WaitForProcessEnd(pid, KILL_WAIT_TIME) && WaitProcess(pid, exitCode, KILL_WAIT_TIME)) {
    DEBUG_TRACE(1, "\nEM_TALVOR (Stop)    : Talvor process exit");
  } else {
    // This line follows every kill: a death by signal is no normal exit, or the worker has reaped
    // the child before. A child in an uninterruptible system call has not even ended.
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated in time or WaitForExit() failed!\n");
  }
}

// How long Stop() and the destruction wait for the end of the worker. A collector may start at any
// time during the wait.
class CWorkerEnd {
 public:
  // Without `isLimited` the wait goes on until the worker has ended. The others are the module's:
  // the collector's process id, whether one runs, and whether a request is being handed back.
  CWorkerEnd(bool isLimited, const std::atomic<int32_t>& pid, const std::atomic<bool>& runs,
             const std::atomic<bool>& handsBack)
      : m_bLimited(isLimited), m_pidCollector(pid), m_bRuns(runs), m_bHandsBack(handsBack) {}

  bool WaitsOn(std::chrono::milliseconds waited) {
    if (waited < STOP_GRACE) {
      return true;
    }
    if (!m_bTerminated && m_bRuns && m_pidCollector >= 1) {
      TerminateCollector(m_pidCollector);
      m_bTerminated = true;
    }
    if (!m_oEnd && (m_bTerminated || m_bHandsBack)) {
      m_oEnd = waited + LAST_WAIT;
    }
    return !m_bLimited || !m_oEnd || waited < *m_oEnd;
  }

  // True when a collector was running, which was then killed.
  bool HasTerminated() const { return m_bTerminated; }

 private:
  const bool m_bLimited;
  const std::atomic<int32_t>& m_pidCollector;
  const std::atomic<bool>& m_bRuns;
  const std::atomic<bool>& m_bHandsBack;
  bool m_bTerminated = false;
  std::optional<std::chrono::milliseconds> m_oEnd = std::nullopt;
};

}  // namespace

EM_TALVOR::EM_TALVOR() : CTaskSerializer(TASK_LEVELS), m_hStopEvent(false, true) {
  if (!CanWakeWorker()) {
    throw std::runtime_error("no event for the worker");
  }
  DEBUG_TRACE(3, "\nEM_TALVOR           : CLASS CREATED!");
}

EM_TALVOR::~EM_TALVOR() noexcept {
  const CTraceShield shield;
  if (IsWorkerAlive()) {
    EndWorker(false);
  }
  DEBUG_TRACE(1, "\nEM_TALVOR           : CLASS DESTROYED!");
  m_hStopEvent.Close();
}

const char* EM_TALVOR::GetModuleName() { return MODULE_NAME; }

uint32_t EM_TALVOR::Start(CISwitch* pSwitch, uint32_t moduleId) {
  const CTraceShield shield;
  DEBUG_TRACE(1, OPENING_LINE);
  DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : ### Starting module %s ###\n", GetModuleName());
  CExtensionModule::Start(pSwitch, moduleId);
  m_hStopEvent.Create(false, true);
  const bool isStarted = InitModule();
  DEBUG_TRACE(1, CLOSING_LINE);
  return isStarted ? 1 : 0;
}

bool EM_TALVOR::InitModule() {
  ForgetEndedCollector();
  m_bTalvorAvailable = false;
  if (!FindPaths()) {
    return false;
  }
  m_bTalvorAvailable = true;
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Start task handler");
  StartSerialization();
  DEBUG_TRACE(1, "\n\nEM_TALVOR (Start)   : Start of module completed");
  return true;
}

// Exhausted memory counts as not found.
bool EM_TALVOR::FindPaths() {
  try {
    const bool isInstalled = StorePath(m_strCommandLine, FindExecutable());
    m_nHtiFileType = HTI_FILE_TYPE_TALVOR;
    DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : HTI transfer type: Talvor");
    return isInstalled && StorePath(m_strArchivePath, FindArchivePath());
  } catch (const std::exception&) {
    return false;
  }
}

bool EM_TALVOR::StorePath(std::string& member, std::optional<std::string> path) {
  if (!path) {
    return false;
  }
  const std::lock_guard guard(m_oPathsLock);
  member = *std::move(path);
  return true;
}

// Keeps the id of a collector that is running or is just being started: Stop() needs it.
void EM_TALVOR::ForgetEndedCollector() {
  int32_t pid = m_pidCollector;
  if (!m_bCollectorRuns) {
    m_pidCollector.compare_exchange_strong(pid, 0);
  }
}

EM_TALVOR::Paths EM_TALVOR::GetPaths() {
  const std::lock_guard guard(m_oPathsLock);
  return {m_strCommandLine, m_strArchivePath};
}

bool EM_TALVOR::FinishJob(SipJson& request, uint32_t status) {
  SetCmdStatus(request, status);
  request.SetSipBool("C", true);
  return status == STATUS_DONE;
}

uint32_t EM_TALVOR::Stop() {
  const CTraceShield shield;
  std::unique_lock lock(m_oStopLock, std::defer_lock);
  if (!IsOnWorker()) {
    lock.lock();  // would deadlock on the worker: the holder waits for the worker
  }
  DEBUG_TRACE(1, OPENING_LINE);
  DEBUG_TRACE(1, "\n### Stopping module %s ###\n", GetModuleName());
  CExtensionModule::Stop();
  m_hStopEvent.Set();
  if (!EndWorker(true)) {
    TerminateCollector(m_pidCollector);
  }
  DEBUG_TRACE(1, "\n\n### Stop of module %s completed successfully ###", GetModuleName());
  DEBUG_TRACE(1, CLOSING_LINE);
  return 1;
}

// Waits for the end of the worker. True when a running collector was killed meanwhile.
bool EM_TALVOR::EndWorker(bool isLimited) {
  CWorkerEnd end(isLimited, m_pidCollector, m_bCollectorRuns, m_bHandsBack);
  TerminateSerialization([&end](std::chrono::milliseconds waited) { return end.WaitsOn(waited); });
  return end.HasTerminated();
}
