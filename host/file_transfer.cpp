#include "host/file_transfer.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "frame/opcode.h"
#include "frame/status.h"
#include "host/bmc_file_name.h"
#include "trace/descriptor.h"

namespace {

// A text of the command's data; empty when there is none.
std::string DataText(const SipJson& request, const char* name) {
  const SipJson::Value* data = request.FindCmdMember(request.m_nCmdIndex, "DA");
  if (data == nullptr || !data->IsObject()) {
    return {};
  }
  const auto member = data->FindMember(name);
  if (member == data->MemberEnd() || !member->value.IsString()) {
    return {};
  }
  return {member->value.GetString(), member->value.GetStringLength()};
}

// Copies the file to a name of its own in the target's directory and then moves it to the target,
// so that a link of that name is replaced and not followed.
std::error_code CopyThroughTemporary(const std::string& source,
                                     const std::filesystem::path& target) {
  std::string temporary = target.parent_path() / "em_host.XXXXXX";
  const CDescriptor descriptor(mkostemp(temporary.data(), O_CLOEXEC));
  if (!descriptor.IsOpen()) {
    return {errno, std::generic_category()};
  }
  std::error_code error;
  std::filesystem::copy_file(source, temporary, std::filesystem::copy_options::overwrite_existing,
                             error);
  if (!error) {
    std::filesystem::rename(temporary, target, error);
  }
  if (error) {
    std::error_code ignored;
    std::filesystem::remove(temporary, ignored);
  }
  return error;
}

}  // namespace

CFileTransfer::CFileTransfer(std::string directory, Report report)
    : m_strDirectory(std::move(directory)), m_report(std::move(report)) {}

void CFileTransfer::Answer(SipJson& request) {
  uint32_t status = STATUS_UNHANDLED;
  if (request.GetCmdUInt(request.m_nCmdIndex, "OC", 0) == OC_HTI_FILE_TRANSFER) {
    const bool isCopied =
        Copy(DataText(request, "LocalFilePath"), DataText(request, "BmcFilePath"));
    status = isCopied ? STATUS_DONE : STATUS_FAILED;
  }
  request.SetCmdUInt("ST", status);
}

std::string CFileTransfer::GetLastFile() {
  const std::lock_guard guard(m_oLock);
  return m_strLastFile;
}

bool CFileTransfer::Copy(const std::string& localPath, const std::string& bmcPath) {
  if (m_strDirectory.empty()) {
    m_report("There is no BMC to transfer to: name a directory that stands for it with --bmc DIR.");
    return false;
  }
  const std::filesystem::path target =
      std::filesystem::path(m_strDirectory) / BmcFileName(bmcPath, localPath);
  if (const std::error_code error = CopyThroughTemporary(localPath, target)) {
    m_report(localPath + " cannot be copied to " + target.string() + " (" + error.message() +
             "): check the directory given with --bmc and the space left there.");
    return false;
  }
  const std::lock_guard guard(m_oLock);
  m_strLastFile = target;
  return true;
}
