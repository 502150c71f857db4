#pragma once

#include <cstdint>
#include <string>

// An availability request as the switch hands it over, with room for its answer.
constexpr char REQUEST_TEXT[] =
    R"({"SIP":{"V":"4.1.0-21, agentless","CMD":[{"OC":13312,"OE":0,"OI":0,"CA":0,"MI":1179700,"ST":0,"DA":0}]}})";
constexpr unsigned REQUEST_OPCODE = 0x3400;

// A request of that many commands, of which the last one is the query.
inline std::string RequestText(int64_t commands) {
  std::string text = R"({"SIP":{"V":"4.1.0-21, agentless","CMD":[)";
  for (int64_t command = 1; command < commands; ++command) {
    text += R"({"OC":1,"OE":0,"OI":0,"CA":0,"MI":0,"ST":0,"DA":0},)";
  }
  return text + R"({"OC":13312,"OE":0,"OI":0,"CA":0,"MI":1179700,"ST":0,"DA":0}]}})";
}
