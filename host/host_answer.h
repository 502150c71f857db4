#pragma once

#include <string>

#include "frame/sip_json.h"

// An answer of the module to a request.
struct HostAnswer {
  std::string name;  // of the request
  SipJson record;
  bool isFinal = true;

  // The status of the current command; STATUS_UNHANDLED when there is none.
  uint32_t GetStatus() const;
};

// The answer as a sentence without a line end: "create: queued, the final answer follows (status
// 22)".
std::string AnswerSentence(const HostAnswer& answer);

// The answer as a JSON object on one line, without a line end:
//   {"request":"query","final":true,"status":0,"text":"done","record":{"SIP":...}}
std::string AnswerJson(const HostAnswer& answer);
