#include "frame/request_trace.h"

#include <rapidjson/prettywriter.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>
#include <vector>

#include "frame/extension_module_interface.h"
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

// The length of the byte data. A boolean counts as one byte there, and is shown as none.
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

using rapidjson::Value;

// Ends the process when memory is exhausted: the library would write through the null pointer.
class EndingAllocator : public rapidjson::CrtAllocator {
 public:
  void* Realloc(void* memory, size_t oldSize, size_t size) noexcept {
    void* moved = CrtAllocator::Realloc(memory, oldSize, size);
    if (moved == nullptr && size > 0) {
      std::terminate();
    }
    return moved;
  }
};

// An output stream for the library's writer that keeps the first bytes and drops the rest.
class LimitedText {
 public:
  using Ch = char;

  explicit LimitedText(size_t longest) : m_nLongest(longest) {}

  void Put(char character) {
    if (!IsFull()) {
      m_strText.push_back(character);
    }
  }
  void Flush() {}

  bool IsFull() const { return m_strText.size() == m_nLongest; }
  // The bytes of a string of `length` that the writer gets: the stream would drop the rest.
  rapidjson::SizeType GetUsefulLength(rapidjson::SizeType length) const {
    return static_cast<rapidjson::SizeType>(
        std::min<size_t>(length, m_nLongest - m_strText.size()));
  }
  std::string Take() { return std::move(m_strText); }

 private:
  const size_t m_nLongest;
  std::string m_strText;
};

class JsonTextWriter : public rapidjson::PrettyWriter<LimitedText, rapidjson::UTF8<>,
                                                      rapidjson::UTF8<>, EndingAllocator> {
 public:
  explicit JsonTextWriter(LimitedText& text) : PrettyWriter(text), m_oText(text) {
    SetIndent(' ', 4);
  }

  // The library's writer fails on a number that JSON cannot express.
  bool Double(double value) { return std::isfinite(value) ? PrettyWriter::Double(value) : Null(); }
  bool String(const char* text, rapidjson::SizeType length, bool /*copy*/ = false) {
    return PrettyWriter::String(text, m_oText.GetUsefulLength(length));
  }

 private:
  const LimitedText& m_oText;
};

// An object or array whose beginning is written, and the index of its next member or element.
struct OpenStructure {
  const Value* value;
  rapidjson::SizeType next;
};

using OpenStructures = std::vector<OpenStructure>;

// Writes a scalar, or opens an object or array.
void Begin(const Value& value, OpenStructures& open, JsonTextWriter& writer) {
  if (value.IsObject()) {
    writer.StartObject();
    open.push_back({&value, 0});
  } else if (value.IsArray()) {
    writer.StartArray();
    open.push_back({&value, 0});
  } else {
    value.Accept(writer);
  }
}

// Closes the objects and arrays that are complete, and returns the next value to write; null after
// the last.
const Value* FindNext(OpenStructures& open, JsonTextWriter& writer) {
  while (!open.empty()) {
    auto& [value, next] = open.back();
    if (value->IsObject()) {
      if (next < value->MemberCount()) {
        const auto member = value->MemberBegin() + next++;
        writer.String(member->name.GetString(), member->name.GetStringLength());
        return &member->value;
      }
      writer.EndObject(next);
    } else {
      if (next < value->Size()) {
        return &(*value)[next++];
      }
      writer.EndArray(next);
    }
    open.pop_back();
  }
  return nullptr;
}

}  // namespace

std::string BuildJsonText(const Value& value, size_t longest) noexcept {
  LimitedText text(longest);
  JsonTextWriter writer(text);
  OpenStructures open;
  for (const Value* next = &value; next != nullptr && !text.IsFull();
       next = FindNext(open, writer)) {
    Begin(*next, open, writer);
  }
  return text.Take();
}

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
