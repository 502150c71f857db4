#include "archive_module/em_talvor.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include "archive_module/archive_file.h"
#include "archive_module/collector_paths.h"
#include "archive_module/module_info.h"
#include "archive_module/names.h"
#include "platform/process/process_control.h"
#include "trace/debug_client.h"

namespace {

constexpr int32_t TASK_LEVELS = 1;
constexpr uint32_t HTI_FILE_TYPE_TALVOR = 2;

// What a job has left when the module stops: the settling time and the termination time of its
// worker.
constexpr std::chrono::milliseconds STOP_GRACE(100 + 2000);
constexpr uint32_t KILL_WAIT_TIME = 2000;  // milliseconds
// What a worker has left after that which waits for its switch or for a collector that does not
// end.
constexpr std::chrono::milliseconds LAST_WAIT(5000);

constexpr char OPENING_LINE[] =
    "\n\n------------------------------------------------------------------------------------------";
constexpr char CLOSING_LINE[] =
    "\n------------------------------------------------------------------------------------------\n";

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

uint32_t EM_TALVOR::GetModuleInfo(void* record) { return WriteModuleInfo(record) ? 1 : 0; }

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
  bool isAvailable = false;
  try {
    isAvailable = FindExecutable();
    m_nHtiFileType = HTI_FILE_TYPE_TALVOR;
    DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : HTI transfer type: Talvor");
    isAvailable = isAvailable && FindArchivePath();
  } catch (const std::exception&) {
    isAvailable = false;
  }
  if (!isAvailable) {
    return false;
  }
  m_bTalvorAvailable = true;
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Start task handler");
  StartSerialization();
  DEBUG_TRACE(1, "\n\nEM_TALVOR (Start)   : Start of module completed");
  return true;
}

// The id of a collector that runs, or begins to run meanwhile, stays: Stop() needs it.
void EM_TALVOR::ForgetEndedCollector() {
  int32_t pid = m_pidCollector;
  if (!m_bCollectorRuns) {
    m_pidCollector.compare_exchange_strong(pid, 0);
  }
}

bool EM_TALVOR::FindExecutable() {
  std::string path;
  if (!GetBinDir(path)) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!");
    return false;
  }
  path += COLLECTOR_NAME;
  DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : Talvor executable: \"%s\"", path.c_str());
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Check for Talvor executable file existing...");
  if (!FileExists(path)) {
    DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : -> Talvor not installed - module not started!");
    return false;
  }
  DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : -> Talvor is installed - module will be started");
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Talvor executable: %s", path.c_str());
  const std::lock_guard guard(m_oPathsLock);
  m_strCommandLine = std::move(path);
  return true;
}

bool EM_TALVOR::FindArchivePath() {
  std::string directory;
  if (!GetDataDir(directory)) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor archive data dir - module not started!");
    return false;
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Talvor archive dir: \"%s\"\n", directory.c_str());
  std::string archive = directory + ARCHIVE_FILE;
  DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : Talvor archive path: \"%s\"\n", archive.c_str());
  const std::lock_guard guard(m_oPathsLock);
  m_strArchivePath = std::move(archive);
  return true;
}

EM_TALVOR::Paths EM_TALVOR::GetPaths() {
  const std::lock_guard guard(m_oPathsLock);
  return {m_strCommandLine, m_strArchivePath};
}

uint32_t EM_TALVOR::Stop() {
  const CTraceShield shield;
  std::unique_lock lock(m_oStopLock, std::defer_lock);
  if (!IsOnWorker()) {
    lock.lock();  // not on the worker, for which the thread that holds it waits
  }
  DEBUG_TRACE(1, OPENING_LINE);
  DEBUG_TRACE(1, "\n### Stopping module %s ###\n", GetModuleName());
  CExtensionModule::Stop();
  m_hStopEvent.Set();
  if (!EndWorker(true)) {
    TerminateCollector();
  }
  DEBUG_TRACE(1, "\n\n### Stop of module %s completed successfully ###", GetModuleName());
  DEBUG_TRACE(1, CLOSING_LINE);
  return 1;
}

// Waits for the worker, without `isLimited` until it has ended. True when that took the end of a
// collector.
bool EM_TALVOR::EndWorker(bool isLimited) {
  WorkerEnd end{isLimited};
  TerminateSerialization(
      [this, &end](std::chrono::milliseconds waited) { return WaitsOn(end, waited); });
  return end.hasTerminated;
}

// A collector may begin to run at any time of the wait.
bool EM_TALVOR::WaitsOn(WorkerEnd& end, std::chrono::milliseconds waited) {
  if (waited < STOP_GRACE) {
    return true;
  }
  if (!end.hasTerminated && IsCollectorRunning()) {
    TerminateCollector();
    end.hasTerminated = true;
  }
  if (!end.limit && (end.hasTerminated || m_bHandsBack)) {
    end.limit = waited + LAST_WAIT;
  }
  return !end.isLimited || !end.limit || waited < *end.limit;
}

void EM_TALVOR::TerminateCollector() {
  const CTraceShield shield;
  const int32_t pid = m_pidCollector;
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
    // Follows every kill: a child that ends by a signal is no normal exit, or the worker reaped it
    // first. One inside a system call that cannot be interrupted has not ended at all.
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated in time or WaitForExit() failed!\n");
  }
}
