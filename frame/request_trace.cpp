#include "frame/request_trace.h"

#include <cstddef>
#include <string>
#include <utility>

#include "frame/extension_module_interface.h"
#include "frame/json_text.h"
#include "frame/sip_json.h"
#include "frame/status.h"
#include "trace/debug_client.h"

namespace {

// How many bytes of a structure's JSON are shown at most.
constexpr size_t LONGEST_SHOWN = 1 << 20;

// The header fields of a line, in the order in which every form of it prints them.
struct Header {
  std::string label;
  uint32_t operation;
  uint32_t extension;
  uint32_t objectId;
  uint32_t messageIdHigh;
  uint32_t messageIdLow;
  uint32_t status;
  bool hasCabinet;
  int32_t cabinet;
};

Header ReadHeader(std::string label, const SipJson& request) {
  const uint32_t index = request.m_nCmdIndex;
  const uint32_t messageId = request.GetCmdUInt(index, "MI", 0);
  return {std::move(label),
          request.GetCmdUInt(index, "OC", 0),
          request.GetCmdUInt(index, "OE", 0),
          request.GetCmdUInt(index, "OI", 0),
          messageId >> 16,
          messageId & 0xFFFF,
          request.GetCmdUInt(index, "ST", STATUS_PENDING),
          request.HasCmdMember(index, "CA"),
          static_cast<int32_t>(request.GetCmdUInt(index, "CA", 0))};
}

void WriteInteger(uint32_t level, const Header& header, int32_t data) {
  if (header.hasCabinet) {
    DEBUG_TRACE(
        level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Data %d",
        header.label.c_str(), header.operation, header.extension, header.objectId, header.cabinet,
        header.messageIdHigh, header.messageIdLow, header.status, data);
  } else {
    DEBUG_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X Data %d",
                header.label.c_str(), header.operation, header.extension, header.objectId,
                header.messageIdHigh, header.messageIdLow, header.status, data);
  }
}

void WriteStructure(uint32_t level, const Header& header, const std::string& text) {
  if (header.hasCabinet) {
    DEBUG_TRACE(
        level,
        "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Data (JSON struct):\n%s",
        header.label.c_str(), header.operation, header.extension, header.objectId, header.cabinet,
        header.messageIdHigh, header.messageIdLow, header.status, text.c_str());
  } else {
    DEBUG_TRACE(
        level,
        "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X Data (JSON struct):\n%s",
        header.label.c_str(), header.operation, header.extension, header.objectId,
        header.messageIdHigh, header.messageIdLow, header.status, text.c_str());
  }
}

void WriteLength(uint32_t level, const Header& header, int32_t length) {
  if (header.hasCabinet) {
    DEBUG_TRACE(level,
                "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Len %d",
                header.label.c_str(), header.operation, header.extension, header.objectId,
                header.cabinet, header.messageIdHigh, header.messageIdLow, header.status, length);
  } else {
    DEBUG_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X Len %d",
                header.label.c_str(), header.operation, header.extension, header.objectId,
                header.messageIdHigh, header.messageIdLow, header.status, length);
  }
}

void WriteHeaderOnly(uint32_t level, const Header& header) {
  if (header.hasCabinet) {
    DEBUG_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X",
                header.label.c_str(), header.operation, header.extension, header.objectId,
                header.cabinet, header.messageIdHigh, header.messageIdLow, header.status);
  } else {
    DEBUG_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X",
                header.label.c_str(), header.operation, header.extension, header.objectId,
                header.messageIdHigh, header.messageIdLow, header.status);
  }
}

// The length of the byte data. Of the data that has a length and is neither a number nor a
// structure, only a boolean has no bytes.
int32_t GetByteLength(const SipJson& request, uint64_t dataLength) {
  const rapidjson::Type type = request.GetDataType(request.m_nCmdIndex);
  const bool isBoolean = type == rapidjson::kTrueType || type == rapidjson::kFalseType;
  return isBoolean ? 0 : static_cast<int32_t>(dataLength);
}

// The data as an integer; 0 for a number outside 32 bits.
int32_t ReadInteger(const SipJson& request) {
  uint32_t value = 0;
  request.GetIntegerData(request.m_nCmdIndex, value);
  return static_cast<int32_t>(value);
}

}  // namespace

void TraceRecord(CIExtensionModule& module, const char* tag, const SipJson& request,
                 uint32_t level) {
  if (!g_oDebugClient.IsEnabled() || !g_oDebugClient.Accepts(level)) {
    return;
  }
  const Header header = ReadHeader(std::string(module.GetModuleName()) + tag, request);
  // A structure comes first: an empty one has no length, yet is printed.
  if (request.IsJsonStructure()) {
    const SipJson::Value& data = *request.FindCmdMember(request.m_nCmdIndex, "DA");
    WriteStructure(level, header, BuildJsonText(data, LONGEST_SHOWN));
    return;
  }
  const uint64_t length = request.GetDataLength(request.m_nCmdIndex);
  if (length == 0) {
    WriteHeaderOnly(level, header);
  } else if (request.GetDataType(request.m_nCmdIndex) == rapidjson::kNumberType) {
    WriteInteger(level, header, ReadInteger(request));
  } else {
    WriteLength(level, header, GetByteLength(request, length));
  }
}
