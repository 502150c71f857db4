// The job that creates the archive: EM_TALVOR runs the collector once, on the worker.

#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "archive_module/archive_file.h"
#include "archive_module/em_talvor.h"
#include "archive_module/flag_guard.h"
#include "archive_module/names.h"
#include "frame/status.h"
#include "platform/process/process_control.h"
#include "platform/process/process_table.h"
#include "trace/debug_client.h"

namespace {

// An exit code with this bit stands for a child that a signal ended, its number in the other bits.
constexpr int32_t SIGNAL_FLAG = 0x80;

}  // namespace

bool EM_TALVOR::CreateArchive(SipJson& request) {
  DEBUG_TRACE(3, "\n");
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  : Task serializer job - create Talvor archive...");
  return FinishJob(request, RunCreation(request, std::time(nullptr)));
}

// Returns the final status.
uint32_t EM_TALVOR::RunCreation(const SipJson& request, int64_t startTime) {
  if (IsSwitchShutdown()) {
    DEBUG_TRACE(
        2,
        "\n\nEM_TALVOR (Create)  : ## NOTE: SWITCH shutdown in progress - do not create archive");
    return STATUS_FAILED;
  }
  const Paths paths = GetPaths();
  // The time-out is only traced: the collector is waited for without a limit, deliberately; only
  // Stop() cuts it short.
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Archive creation request, timeout=%d sec.",
              static_cast<int32_t>(request.GetCmdUInt(request.m_nCmdIndex, "TO", 0) & 0xFFFF));
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  : Start Talvor archive creation...");
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  :   archive path: \"%s\"", paths.archive.c_str());
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Checking whether another Talvor is already running...");
  DEBUG_TRACE(4, "\n");
  int32_t foreignPid = 0;
  if (FindProcessByName(foreignPid, COLLECTOR_NAME)) {
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Create)  : ## ERROR! Foreign Talvor process already running - cannot start another Talvor instance!");
    return STATUS_FOREIGN_RUNS;
  }
  DEBUG_TRACE(4, "\n");
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : No other Talvor process is running; can run Talvor...");
  DeletePreviousArchive(paths.archive);
  return RunCollector(paths, ExamineArchive(paths.archive), startTime);
}

// `previous` is the archive that could not be deleted.
uint32_t EM_TALVOR::RunCollector(const Paths& paths, const std::optional<ArchiveState>& previous,
                                 int64_t startTime) {
  m_pidCollector = 0;
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Create Talvor process; command line: %s",
              paths.commandLine.c_str());
  int32_t exitCode = 0;
  bool isDone = false;
  {
    const CFlagGuard running(m_bCollectorRuns);
    isDone = RunProgram(paths.commandLine.c_str(), m_pidCollector, exitCode, nullptr, false, false);
  }
  if (!isDone) {
    return STATUS_FAILED;  // m_pidCollector deliberately keeps the id
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Talvor process exit");
  m_pidCollector = 0;
  return JudgeCollector(exitCode, paths.archive, previous, startTime);
}

// The first two outcomes are for a launcher that reports success with an exit code other than 0.
uint32_t EM_TALVOR::JudgeCollector(int32_t exitCode, const std::string& archive,
                                   const std::optional<ArchiveState>& previous, int64_t startTime) {
  if (exitCode != 0 && (exitCode & SIGNAL_FLAG) != 0) {
    DEBUG_TRACE(2, "\nEM_TALVOR (Create)  : ## Talvor archive process was killed by signal %d!",
                exitCode - SIGNAL_FLAG);
    return STATUS_FAILED;
  }
  if (exitCode != 0) {
    DEBUG_TRACE(
        2,
        "\nEM_TALVOR (Create)  : ## ERROR! Talvor archive process was terminated unsuccessfully; process exit code = %d (0x%02X)!",
        exitCode, static_cast<uint32_t>(exitCode));
    return STATUS_FAILED;
  }
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  : -> Talvor archive creation finished");
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  :     file path: \"%s\"", archive.c_str());
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  :     duration:  %d seconds",
              static_cast<int32_t>(std::time(nullptr) - startTime));
  const std::optional<ArchiveState> state = ExamineArchive(archive);
  if (!state || state == previous) {  // a previous archive that was left as it was is not reported
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Create)  : ## FATAL ERROR! Talvor archive process finished successfully, but archive not created!\n");
    DEBUG_TRACE(2, "\n");
    return STATUS_FAILED;
  }
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  :     file size: %d kBytes", KilobytesOf(archive));
  DEBUG_TRACE(2, "\n");
  return STATUS_DONE;
}

// Writes the final status and marks the request as completed.
bool EM_TALVOR::FinishJob(SipJson& request, uint32_t status) {
  SetCmdStatus(request, status);
  request.SetSipBool("C", true);
  return status == STATUS_DONE;
}

bool EM_TALVOR::DeletePreviousArchive(const std::string& archive) {
  if (archive.empty() || !FileExists(archive)) {
    DEBUG_TRACE(4, "\nEM_TALVOR           :   Talvor archive file not existing");
    return false;
  }
  DEBUG_TRACE(3, "\nEM_TALVOR           :   delete previous Talvor archive %s", archive.c_str());
  if (unlink(archive.c_str()) != 0) {
    const auto error = static_cast<uint32_t>(errno);
    DEBUG_TRACE(
        1, "\nEM_TALVOR           : ## ERROR! Old Talvor archive file cannot be deleted (0x%08X)!",
        error);
    return false;
  }
  DEBUG_TRACE(4, "\nEM_TALVOR           :   previous Talvor archive deleted");
  return true;
}
