#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "frame/sip_json.h"

// Plays the module "HTI": takes the request for the transfer of a file to the BMC and copies the
// file into a directory that stands for the BMC.
//
// Thread safety: Answer() and GetLastFile() may be called from any thread.
class CFileTransfer {
 public:
  using Report = std::function<void(const std::string& sentence)>;

  // The directory may be empty: then there is no BMC, and transfers fail. `report` is called on the
  // thread of the request: why a transfer failed, or that a copy got another name than was asked
  // for.
  CFileTransfer(std::string directory, Report report);

  // Answers the current command in place: status 0 when the file has been copied, 6 when it could
  // not be, 1 for another request. A copy appears under its name only when it is complete.
  void Answer(SipJson& request);

  // Where the last copy lies; empty when there is none.
  std::string GetLastFile();

 private:
  bool Copy(const std::string& localPath, const std::string& bmcPath);

  const std::string m_strDirectory;
  const Report m_fnReport;
  std::mutex m_oLock;
  std::string m_strLastFile;
};
