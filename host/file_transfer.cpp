#include "host/file_transfer.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/descriptor.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "host/bmc_file_name.h"

namespace {

constexpr size_t COPY_BLOCK = 1 << 20;

// A string in the command's data; empty when there is none.
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

// 0, or the errno number of the failure.
int CopyContent(int source, int target) {
  ssize_t count = 0;
  do {
    count = TEMP_FAILURE_RETRY(sendfile(target, source, nullptr, COPY_BLOCK));
  } while (count > 0);
  return count == 0 ? 0 : errno;
}

// Copies content and mode. 0, or the errno number of the failure.
int CopyFile(const std::string& source, CDescriptor& target) {
  const CDescriptor file(open(source.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
    return errno;
  }
  if (!S_ISREG(status.st_mode)) {
    return EINVAL;
  }
  if (const int error = CopyContent(file.Get(), target.Get())) {
    return error;
  }
  return fchmod(target.Get(), status.st_mode & ACCESSPERMS) == 0 && target.Close() ? 0 : errno;
}

// Copies the file to a temporary name in the target's directory and then renames it, so that a link
// under the target's name is replaced and not followed. The owner of the directory may replace the
// temporary name meanwhile, so only the descriptor is trusted. 0, or the errno number of the
// failure.
int CopyThroughTemporary(const std::string& source, const std::filesystem::path& target) {
  std::string temporary = target.parent_path() / "em_host.XXXXXX";
  CDescriptor copy(mkostemp(temporary.data(), O_CLOEXEC));
  if (!copy.IsOpen()) {
    return errno;
  }
  int error = CopyFile(source, copy);
  if (error == 0 && rename(temporary.c_str(), target.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    unlink(temporary.c_str());
  }
  return error;
}

}  // namespace

CFileTransfer::CFileTransfer(std::string directory, Report report)
    : m_strDirectory(std::move(directory)), m_fnReport(std::move(report)) {}

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
    m_fnReport(
        "There is no BMC to transfer to: name a directory that stands for it with --bmc DIR.");
    return false;
  }
  const std::filesystem::path target =
      std::filesystem::path(m_strDirectory) / BmcFileName(bmcPath, localPath);
  if (const int error = CopyThroughTemporary(localPath, target)) {
    m_fnReport(localPath + " cannot be copied to " + target.string() + " (" + strerror(error) +
               "): check the directory given with --bmc and the space left there.");
    return false;
  }
  if (!bmcPath.empty() && target.filename() != bmcPath) {
    m_fnReport("The copy is named \"" + target.filename().string() + "\" instead of \"" + bmcPath +
               "\": it is one file in the directory given with --bmc.");
  }
  const std::lock_guard guard(m_oLock);
  m_strLastFile = target;
  return true;
}
