// The job that creates the archive: it runs the collector once, on the worker.

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <optional>
#include <string>

#include "archive_module/collector_files.h"
#include "archive_module/em_talvor.h"
#include "archive_module/names.h"
#include "frame/status.h"
#include "platform/process/process_control.h"
#include "platform/process/process_table.h"
#include "trace/debug_client.h"

namespace {

// An exit code with this bit stands for a child that a signal ended, its number in the other bits.
constexpr int32_t SIGNAL_FLAG = 0x80;

// One run of the collector and what came of it.
class CCollectorRun {
 public:
  // The collector is to leave the archive at `archive`. `pid` and `runs` are the module's, for
  // Stop() on another thread: the process id, and whether the process may be running.
  CCollectorRun(const std::string& archive, int64_t startTime, std::atomic<int32_t>& pid,
                std::atomic<bool>& runs)
      : m_strArchive(archive),
        m_oPrevious(ExamineArchive(archive).value_or(ArchiveState{})),
        m_nStartTime(startTime),
        m_pidCollector(pid),
        m_bRuns(runs) {}

  // Runs the collector and waits for its end. Returns the final status of the job.
  uint32_t Run(const std::string& commandLine);

 private:
  uint32_t Judge(int32_t exitCode) const;
  uint32_t JudgeArchive() const;

  const std::string& m_strArchive;
  const ArchiveState m_oPrevious;  // before the run; all zeros, which no file has: no archive
  const int64_t m_nStartTime;      // of the job, in seconds
  std::atomic<int32_t>& m_pidCollector;
  std::atomic<bool>& m_bRuns;
};

uint32_t CCollectorRun::Run(const std::string& commandLine) {
  m_pidCollector = 0;
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Create Talvor process; command line: %s",
              commandLine.c_str());
  int32_t exitCode = 0;
  bool isDone = false;
  {
    const CFlagGuard running(m_bRuns);
    isDone = RunProgram(commandLine.c_str(), m_pidCollector, exitCode, nullptr, false, false);
  }
  if (!isDone) {
    return STATUS_FAILED;  // m_pidCollector deliberately keeps the id
  }
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Talvor process exit");
  m_pidCollector = 0;
  return Judge(exitCode);
}

// The first two outcomes are deliberately kept: they need a launcher that reports success with an
// exit code other than 0.
uint32_t CCollectorRun::Judge(int32_t exitCode) const {
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
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  :     file path: \"%s\"", m_strArchive.c_str());
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  :     duration:  %d seconds",
              static_cast<int32_t>(std::time(nullptr) - m_nStartTime));
  return JudgeArchive();
}

// A previous archive that is still there, unchanged, was not created by this run.
uint32_t CCollectorRun::JudgeArchive() const {
  const std::optional<ArchiveState> state = ExamineArchive(m_strArchive);
  if (!state || *state == m_oPrevious) {
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Create)  : ## FATAL ERROR! Talvor archive process finished successfully, but archive not created!\n");
    DEBUG_TRACE(2, "\n");
    return STATUS_FAILED;
  }
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  :     file size: %d kBytes", KilobytesOf(m_strArchive));
  DEBUG_TRACE(2, "\n");
  return STATUS_DONE;
}

bool IsForeignCollectorRunning() {
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Checking whether another Talvor is already running...");
  DEBUG_TRACE(4, "\n");
  int32_t pid = 0;
  if (FindProcessByName(pid, COLLECTOR_NAME)) {
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Create)  : ## ERROR! Foreign Talvor process already running - cannot start another Talvor instance!");
    return true;
  }
  DEBUG_TRACE(4, "\n");
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : No other Talvor process is running; can run Talvor...");
  return false;
}

}  // namespace

bool EM_TALVOR::CreateArchive(SipJson& request) {
  DEBUG_TRACE(3, "\n");
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  : Task serializer job - create Talvor archive...");
  const int64_t startTime = std::time(nullptr);
  if (IsSwitchShutdown()) {
    DEBUG_TRACE(
        2,
        "\n\nEM_TALVOR (Create)  : ## NOTE: SWITCH shutdown in progress - do not create archive");
    return FinishJob(request, STATUS_FAILED);
  }
  const Paths paths = GetPaths();
  // The time-out is only traced. The collector is deliberately waited for without a limit; only
  // Stop() cuts it short.
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  : Archive creation request, timeout=%d sec.",
              static_cast<int32_t>(request.GetCmdUInt(request.m_nCmdIndex, "TO", 0) & 0xFFFF));
  DEBUG_TRACE(2, "\nEM_TALVOR (Create)  : Start Talvor archive creation...");
  DEBUG_TRACE(3, "\nEM_TALVOR (Create)  :   archive path: \"%s\"", paths.archive.c_str());
  if (IsForeignCollectorRunning()) {
    return FinishJob(request, STATUS_FOREIGN_RUNS);
  }
  DeletePreviousArchive(paths.archive);
  CCollectorRun run(paths.archive, startTime, m_pidCollector, m_bCollectorRuns);
  return FinishJob(request, run.Run(paths.commandLine));
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
