#include "soak/hostile_record.h"

#include <array>
#include <string>

#include "frame/opcode.h"

namespace {

// By what is drawn of 100: mostly jobs, so that the queue is full at times.
constexpr uint32_t QUERIES = 30;
constexpr uint32_t CREATIONS = QUERIES + 20;
constexpr uint32_t TRANSFERS = CREATIONS + 30;
constexpr uint32_t UNKNOWN = TRANSFERS + 10;

// The third one follows the last that the module knows.
constexpr std::array<uint32_t, 6> UNKNOWN_OPCODES = {
    0, 1, REQUEST_NAMES.back().opcode + 1, 0x340F, 0x3410, UINT32_MAX};

// Members of a command that are drawn each by itself, or left out.
constexpr std::array<const char*, 4> TIMEOUTS = {"", R"(,"TO":60)", R"(,"TO":"0x3C")",
                                                 R"(,"TO":[1,2])"};
constexpr std::array<const char*, 8> DATA = {"",
                                             R"(,"DA":"bmc.zip")",
                                             R"(,"DA":{"RAW":[98,109,99,0,7]})",
                                             R"(,"DA":{"RAW":[]})",
                                             R"(,"DA":{"RAW":["x",-1,{}]})",
                                             R"(,"DA":[[[[[[[["deep"]]]]]]]])",
                                             R"(,"DA":null)",
                                             R"(,"DA":{"a":[1,2.5,"%s%n",{"b":"\u0000"}]})"};
constexpr std::array<const char*, 4> OTHERS = {"", R"(,"OE":1,"OI":65535)", R"(,"ST":99)",
                                               R"(,"OI":"no number")"};

constexpr std::array<const char*, 8> BROKEN_RECORDS = {"",
                                                       "{}",
                                                       "[]",
                                                       R"({"SIP":[]})",
                                                       R"({"SIP":{}})",
                                                       R"({"SIP":{"CMD":{}}})",
                                                       R"({"SIP":{"CMD":[]}})",
                                                       R"({"SIP":{"CMD":[7,"x"]}})"};

struct Drawn {
  HostileRequest kind;
  uint32_t opcode;
};

Drawn DrawKind(CDraw& draw) {
  const uint32_t number = draw.Below(100);
  if (number < QUERIES) {
    return {HostileRequest::QUERY, OC_QUERY_TALVOR};
  }
  if (number < CREATIONS) {
    return {HostileRequest::CREATION, OC_CREATE_ARCHIVE};
  }
  if (number < TRANSFERS) {
    return {HostileRequest::TRANSFER, OC_TRANSFER_ARCHIVE};
  }
  if (number < UNKNOWN) {
    return {HostileRequest::UNKNOWN, draw.Of(UNKNOWN_OPCODES)};
  }
  return {HostileRequest::BROKEN, 0};
}

// A number, or a string that holds one.
std::string DrawForm(CDraw& draw, uint32_t number) {
  const std::string digits = std::to_string(number);
  return draw.OneIn(3) ? "\"" + digits + "\"" : digits;
}

}  // namespace

void SendHostileRequest(CIExtensionModule& module, CHostileBook& book, CDraw& draw) {
  const Drawn drawn = DrawKind(draw);
  const bool isBroken = drawn.kind == HostileRequest::BROKEN;
  const bool namesCabinet = !isBroken && draw.OneIn(4);
  const uint32_t messageId = book.Open(drawn.kind, namesCabinet);
  SipJson record;
  if (isBroken) {
    record.m_oDocument.Parse(draw.Of(BROKEN_RECORDS));
  } else {
    std::string command = R"({"OC":)" + DrawForm(draw, drawn.opcode) + R"(,"MI":)" +
                          DrawForm(draw, messageId) + draw.Of(TIMEOUTS) + draw.Of(DATA);
    // A status of the host's own would be taken for an answer where the module writes none.
    command += drawn.kind == HostileRequest::UNKNOWN ? "" : draw.Of(OTHERS);
    command += namesCabinet ? R"(,"CA":)" + DrawForm(draw, draw.Below(2) * 7) : "";
    record.m_nCmdIndex = draw.Below(2);
    record.m_oDocument.Parse((R"({"SIP":{"V":1,"CMD":[)" +
                              std::string(record.m_nCmdIndex == 0 ? "" : "{},") + command + "}]}}")
                                 .c_str());
  }
  TakeSinkNotes();
  const uint32_t result = module.ModuleRequest(record);
  book.Answer(messageId, {result, ReadStatus(record), TakeSinkNotes()});
}

uint32_t ReadStatus(const SipJson& record) {
  return record.GetCmdUInt(record.m_nCmdIndex, "ST", WITHOUT_STATUS);
}
