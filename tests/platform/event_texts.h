#pragma once

#include <regex>
#include <string>
#include <vector>

#include "tests/support/trace_session.h"

// The session's lines with the address of the first event in them written as "EVENT"; those of
// other events stay.
inline std::vector<std::string> EventTexts(const TraceSession& session) {
  std::vector<std::string> texts = session.Texts();
  std::string address;
  for (std::string& text : texts) {
    std::smatch found;
    if (address.empty() && std::regex_search(text, found, std::regex("event (0x[0-9a-f]+)"))) {
      address = found[1];
    }
    if (!address.empty()) {
      text = std::regex_replace(text, std::regex(address), "EVENT");
    }
  }
  return texts;
}
