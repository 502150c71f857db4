#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "frame/extension_module.h"
#include "platform/sync/event.h"
#include "tasks/task_serializer.h"

// The module that answers the requests about the diagnostic-data collector Talvor: is it available,
// create an archive, transfer the archive to the BMC. The two jobs are answered "pending" at once;
// the worker runs them one after the other and hands each request back to the switch with its final
// status, possibly before the "pending" answer has reached the switch.
//
// The host calls Start() once, then requests and notifications from any thread, then Stop() once,
// and destroys the module from one thread. Destruction without Stop() ends the worker and a running
// collector as well. A second Start() while the worker lives looks the paths up again, for the jobs
// that begin after it.
class EM_TALVOR final : public CExtensionModule, public CTaskSerializer<SipJson> {
 public:
  // Throws when the event for the worker cannot be created.
  EM_TALVOR();
  // Waits for the worker without limit; a collector that still runs after 2.1 seconds is killed.
  ~EM_TALVOR() noexcept override;

  // Fills the host's identification record of this module, 246 bytes: the host gives the size in
  // the first 32 bits; flag bits that are not the module's keep their values. Returns 1; or 0, and
  // writes nothing, when the record is null or its size is smaller.
  uint32_t GetModuleInfo(void* record) override;

  // Finds the collector and starts the worker. Returns 0 when the collector is not installed;
  // requests for jobs are then answered with status 3.
  uint32_t Start(CISwitch* pSwitch, uint32_t moduleId) override;

  // Ends the worker. A running job gets 2.1 seconds; after that its collector is killed, while a
  // transfer is waited for. The worker gets 5 more seconds when it is handing a request back to the
  // switch, or when its collector survives the kill. Returns 1. The worker has ended then, with
  // two exceptions: those seconds were not enough, or Stop() was called on the worker. It then ends
  // after its job, and may call the switch until the destructor has returned. When two threads call
  // Stop(), the second waits for the first.
  uint32_t Stop() override;

  // Answers the current command. Returns 1, or 0 for a command that is unknown or for another
  // cabinet. An exception becomes status 13.
  uint32_t ModuleRequest(SipJson& request) override;

  const char* GetModuleName() override;

 private:
  // What a job works with, as it was when the job began.
  struct Paths {
    std::string commandLine;
    std::string archive;
  };

  // Lifecycle.
  bool InitModule();
  bool FindPaths();
  bool StorePath(std::string& member, std::optional<std::string> path);
  void ForgetEndedCollector();
  bool EndWorker(bool isLimited);

  // Requests, on the threads of the switch.
  bool AnswerCommand(SipJson& request, uint32_t opcode);
  void QueueJob(SipJson& request, bool isAvailable);

  // Jobs, on the worker. Each job writes its final status and returns true when that is 0.
  void OnTaskExecution(SipJson& request, int32_t level) override;
  bool RunJob(SipJson& request, uint32_t opcode);
  bool CreateArchive(SipJson& request);
  bool TransferArchive(SipJson& request);

  // What the jobs share.
  Paths GetPaths();
  static bool DeletePreviousArchive(const std::string& archive);
  // Writes the final status and marks the request as completed. True when the status is 0.
  static bool FinishJob(SipJson& request, uint32_t status);

  std::atomic<bool> m_bTalvorAvailable = false;
  // Written by Start(), copied by each job when it begins, under m_oPathsLock.
  std::string m_strCommandLine;  // the collector's executable
  std::string m_strArchivePath;
  // The collector's process id: 0 before a run and after a successful one. A failed run
  // deliberately leaves the id of the child that ended, and Stop() then sends SIGKILL to that id
  // all the same.
  std::atomic<int32_t> m_pidCollector = 0;
  std::atomic<uint32_t> m_nHtiFileType = 0;  // the number by which HTI knows the archive
  CEvent m_hStopEvent;                       // set by Stop(); nothing waits for it
  std::atomic<bool> m_bCollectorRuns = false;
  std::atomic<bool> m_bHandsBack = false;  // the worker is handing a request back to the switch
  std::mutex m_oPathsLock;
  std::mutex m_oStopLock;  // held by Stop(), except on the worker
};

// Keeps a flag set for the life of the object.
class CFlagGuard {
 public:
  explicit CFlagGuard(std::atomic<bool>& flag) : m_bFlag(flag) { m_bFlag = true; }
  ~CFlagGuard() { m_bFlag = false; }
  CFlagGuard(const CFlagGuard&) = delete;
  CFlagGuard& operator=(const CFlagGuard&) = delete;

 private:
  std::atomic<bool>& m_bFlag;
};
