// The job that transfers the archive to the BMC: EM_TALVOR sends it down to the module HTI, on the
// worker.

#include "archive_module/archive_file.h"
#include "archive_module/em_talvor.h"
#include "archive_module/hti_request.h"
#include "frame/status.h"
#include "trace/debug_client.h"

namespace {

constexpr uint32_t HTI_WAIT = 5000;

// HTI gives up one second before the caller does, deliberately.
uint32_t EffectiveTimeout(uint32_t seconds) { return seconds < 2 ? seconds : seconds - 1; }

}  // namespace

bool EM_TALVOR::TransferArchive(SipJson& request) {
  DEBUG_TRACE(3, "\n");
  DEBUG_TRACE(2,
              "\nEM_TALVOR (Transfer): Task serializer job - transfer the Talvor archive to BMC");
  return FinishJob(request, RunTransfer(request));
}

// Returns the final status.
uint32_t EM_TALVOR::RunTransfer(SipJson& request) {
  if (IsSwitchShutdown()) {
    DEBUG_TRACE(
        2,
        "\n\nEM_TALVOR (Transfer): ## ERROR: SWITCH shutdown in progress - do not transfer archive");
    return STATUS_FAILED;
  }
  const std::string archive = GetPaths().archive;
  const std::string bmcName = ReadBmcName(request);
  const uint32_t timeout = request.GetCmdUInt(request.m_nCmdIndex, "TO", 0) & 0xFFFF;
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer): Transfer archive to BMC, timeout=%d sec.",
              static_cast<int32_t>(timeout));
  DEBUG_TRACE(2, "\nEM_TALVOR (Transfer):   archive path: \"%s\"", archive.c_str());
  if (!bmcName.empty()) {
    DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   BMC local name = \"%s\"", bmcName.c_str());
  }
  if (!ExamineArchive(archive)) {
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Transfer): ## ERROR! Talvor archive \"%s\" does not exist - cannot transfer file!\n",
        archive.c_str());
    return STATUS_NOT_AVAILABLE;
  }
  const uint32_t status = SendToHti(archive, bmcName, EffectiveTimeout(timeout));
  request.RemoveCmdMember("DA");  // the final answer does not echo the name
  return status;
}

// Returns the status that HTI left in its command; a status that HTI did not write counts as
// pending.
uint32_t EM_TALVOR::SendToHti(const std::string& archive, const std::string& bmcName,
                              uint32_t timeout) {
  SipJson hti = BuildHtiRequest({m_nHtiFileType, archive, bmcName, timeout});
  DEBUG_TRACE(
      3,
      "\nEM_TALVOR (Transfer): Sending Talvor archive transfer down to HTI module (AsyncRequest)...");
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   file type: %d (Talvor)",
              static_cast<int32_t>(m_nHtiFileType));
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   file size: %d kBytes", KilobytesOf(archive));
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   timeout:   %d sec.", static_cast<int32_t>(timeout));
  AsyncRequest(hti, HTI_WAIT);
  const uint32_t status = hti.GetCmdUInt(hti.m_nCmdIndex, "ST", STATUS_PENDING);
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer): Talvor archive transfer finished, cmd status = 0x%02X",
              status);
  return status;
}
