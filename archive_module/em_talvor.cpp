#include "archive_module/em_talvor.h"

#include <cerrno>
#include <chrono>
#include <exception>

#include "archive_module/archive_file.h"
#include "archive_module/collector_paths.h"
#include "archive_module/collector_watch.h"
#include "archive_module/module_info.h"
#include "platform/process_control.h"
#include "trace/debug_client.h"

namespace {

constexpr int32_t TASK_LEVELS = 1;
constexpr char EXECUTABLE[] = "Talvor";
constexpr uint32_t HTI_FILE_TYPE_TALVOR = 2;

// What a job has left when the module stops: the settling time and the termination time of its
// worker.
constexpr std::chrono::milliseconds STOP_GRACE(100 + 2000);
constexpr uint32_t KILL_WAIT_TIME = 2000;  // milliseconds

constexpr char OPENING_LINE[] =
    "\n\n------------------------------------------------------------------------------------------";
constexpr char CLOSING_LINE[] =
    "\n------------------------------------------------------------------------------------------\n";

}  // namespace

EM_TALVOR::EM_TALVOR() : CTaskSerializer(TASK_LEVELS), m_hStopEvent(false, true) {
  DEBUG_TRACE(3, "\nEM_TALVOR           : CLASS CREATED!");
}

EM_TALVOR::~EM_TALVOR() noexcept {
  const CTraceShield shield;
  if (IsWorkerAlive()) {
    EndWorker();
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
  m_pidCollector = 0;
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

bool EM_TALVOR::FindExecutable() {
  std::string path;
  if (!GetBinDir(path)) {
    DEBUG_TRACE(
        1,
        "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!");
    return false;
  }
  path += EXECUTABLE;
  DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : Talvor executable: \"%s\"", path.c_str());
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Check for Talvor executable file existing...");
  if (!FileExists(path)) {
    DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : -> Talvor not installed - module not started!");
    return false;
  }
  DEBUG_TRACE(1, "\nEM_TALVOR (Start)   : -> Talvor is installed - module will be started");
  m_strCommandLine = path;
  DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : Talvor executable: %s", m_strCommandLine.c_str());
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
  m_strArchivePath = directory + ARCHIVE_FILE;
  DEBUG_TRACE(2, "\nEM_TALVOR (Start)   : Talvor archive path: \"%s\"\n", m_strArchivePath.c_str());
  return true;
}

uint32_t EM_TALVOR::Stop() {
  const CTraceShield shield;
  DEBUG_TRACE(1, OPENING_LINE);
  DEBUG_TRACE(1, "\n### Stopping module %s ###\n", GetModuleName());
  CExtensionModule::Stop();
  m_hStopEvent.Set();
  EndWorker();
  DEBUG_TRACE(1, "\n\n### Stop of module %s completed successfully ###", GetModuleName());
  DEBUG_TRACE(1, CLOSING_LINE);
  return 1;
}

void EM_TALVOR::EndWorker() {
  CCollectorWatch watch(
      STOP_GRACE, [this] { return m_bCollectorRuns && m_pidCollector >= 1; },
      [this] { TerminateCollector(); });
  TerminateSerialization();
  if (!watch.End()) {
    TerminateCollector();
  }
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
  if (WaitProcess(pid, exitCode, KILL_WAIT_TIME)) {
    DEBUG_TRACE(1, "\nEM_TALVOR (Stop)    : Talvor process exit");
  } else {
    // Follows every kill: a child that ends by a signal is no normal exit, or the worker reaped it
    // first.
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated in time or WaitForExit() failed!\n");
  }
}
