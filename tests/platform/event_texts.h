#pragma once

#include <string>
#include <vector>

#include "tests/support/trace_session.h"

// The session's lines with the address of the first event in them written as "EVENT"; those of
// other events stay.
inline std::vector<std::string> EventTexts(const TraceSession& session) {
  const std::string before = "event ";
  std::vector<std::string> texts = session.Texts();
  std::string address;
  for (std::string& text : texts) {
    if (const size_t place = text.find(before + "0x"); address.empty() && place < text.size()) {
      const size_t start = place + before.size();
      const size_t end = text.find_first_not_of("0123456789abcdefx", start);
      address = text.substr(start, end - start);
    }
    const size_t place = address.empty() ? std::string::npos : text.find(address);
    if (place != std::string::npos) {
      text.replace(place, address.size(), "EVENT");
    }
  }
  return texts;
}
