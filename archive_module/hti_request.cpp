#include "archive_module/hti_request.h"

#include "frame/json_value.h"
#include "frame/opcode.h"

namespace {

using Value = SipJson::Value;

// Bytes for the values of the request without its paths: each object takes 512.
constexpr size_t ROOM = 4096;

// The record may outlive this library and its literals, so names are copied too.
void Add(Value& object, const char* name, Value value, SipJson::Allocator& allocator) {
  object.AddMember(Value(name, allocator), value, allocator);
}

Value String(const std::string& string, SipJson::Allocator& allocator) {
  return {string.data(), static_cast<rapidjson::SizeType>(string.size()), allocator};
}

// A signed number when its highest bit is set.
Value FileType(uint32_t fileType) {
  const auto asSigned = static_cast<int32_t>(fileType);
  return asSigned < 0 ? Value(asSigned) : Value(fileType);
}

}  // namespace

SipJson BuildHtiRequest(const HtiTransfer& transfer) {
  SipJson request(ROOM + transfer.localPath.size() + transfer.bmcPath.size());
  SipJson::Allocator& allocator = request.m_oDocument.GetAllocator();

  Value data(rapidjson::kObjectType);
  Add(data, "FileType", FileType(transfer.fileType), allocator);
  Add(data, "LocalFilePath", String(transfer.localPath, allocator), allocator);
  Add(data, "BmcFilePath", String(transfer.bmcPath, allocator), allocator);

  Value command(rapidjson::kObjectType);
  Add(command, "OC", Value(OC_HTI_FILE_TRANSFER), allocator);
  Add(command, "OE", Value(0U), allocator);
  Add(command, "OI", Value(0U), allocator);
  Add(command, "TO", Value(transfer.timeout), allocator);
  Add(command, "DA", std::move(data), allocator);

  Value commands(rapidjson::kArrayType);
  commands.PushBack(command, allocator);
  Value sip(rapidjson::kObjectType);
  Add(sip, "V", Value(1U), allocator);
  Add(sip, "CMD", std::move(commands), allocator);

  request.m_oDocument.SetObject();
  Add(request.m_oDocument, "SIP", std::move(sip), allocator);
  return request;
}

std::string ReadBmcName(const SipJson& request) {
  const Value* data = request.FindCmdMember(request.m_nCmdIndex, "DA");
  if (data != nullptr && data->IsString()) {
    return {data->GetString(), data->GetStringLength()};
  }
  if (data == nullptr || !data->IsObject() || !data->HasMember("RAW")) {
    return {};
  }
  const Value& raw = (*data)["RAW"];
  if (!raw.IsArray() || raw.Empty() || !raw[0].IsUint()) {
    return {};
  }
  std::string name;
  for (const Value& element : raw.GetArray()) {
    const auto integer = ToJsonInteger(element);
    const char byte = integer ? static_cast<char>(*integer) : '\0';
    if (byte == '\0') {
      break;
    }
    name.push_back(byte);
  }
  return name;
}
