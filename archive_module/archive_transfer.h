#pragma once

#include <cstdint>
#include <string>

#include "frame/sip_json.h"

// What the module HTI needs to know to transfer a file to the BMC.
struct HtiTransfer {
  uint32_t fileType;
  std::string localPath;
  std::string bmcPath;  // may be empty
  uint32_t timeout;     // seconds
};

// The request that asks HTI for the transfer. Throws std::bad_alloc.
SipJson BuildHtiRequest(const HtiTransfer& transfer);

// The name that the file gets on the BMC, from the data of the current command: a string, or the
// bytes of "RAW" up to the first zero. Empty for anything else. Throws std::bad_alloc.
std::string ReadBmcName(const SipJson& request);
