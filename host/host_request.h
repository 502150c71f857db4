#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/sip_json.h"

// A request to the module.
struct HostRequest {
  std::string name;  // for the user
  SipJson record;
};

// What all requests of one run have in common.
struct RequestDefaults {
  std::optional<uint32_t> cabinet;
  std::optional<uint32_t> timeout;  // seconds
};

// Makes the requests that a word of the command line stands for: "query", "create", "transfer",
// "transfer=NAME" (a name for the copy on the BMC), or "@FILE": one for each command of the JSON
// record in the file. A record keeps its own message ids and time-outs, but no status. Message ids
// that it lacks are `firstMessageId` and the ones after it. Throws CHostError.
std::vector<HostRequest> MakeRequests(const std::string& word, const RequestDefaults& defaults,
                                      uint32_t firstMessageId);

// The words for the module's requests, separated by ", ".
std::string RequestWords();

// The operation code of the current command.
uint32_t OperationCode(const SipJson& record);
