// The job that transfers the archive to the BMC: it sends a request to the module HTI and waits for
// the answer, on the worker.

#include "archive_module/archive_transfer.h"

#include <functional>
#include <string>
#include <utility>

#include "archive_module/collector_files.h"
#include "archive_module/em_talvor.h"
#include "frame/json_value.h"
#include "frame/opcode.h"
#include "frame/status.h"
#include "trace/debug_client.h"

namespace {

using Value = SipJson::Value;

// Bytes for the values of the request without its paths; the first member of an object allocates
// 512.
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

constexpr uint32_t HTI_WAIT = 5000;  // the switch defines its unit; AsyncRequest() ignores it

// HTI gives up one second before the caller does, deliberately.
uint32_t EffectiveTimeout(uint32_t seconds) { return seconds < 2 ? seconds : seconds - 1; }

// One transfer of the archive, as the caller's request asks for it.
class CArchiveTransfer {
 public:
  // Delivers a request to HTI and returns when it has been answered in place.
  using Deliver = std::function<void(SipJson&)>;

  // `fileType` is the number by which HTI knows the archive.
  CArchiveTransfer(const SipJson& request, std::string archive, uint32_t fileType)
      : m_nTimeout(request.GetCmdUInt(request.m_nCmdIndex, "TO", 0) & 0xFFFF),
        m_oTransfer{fileType, std::move(archive), ReadBmcName(request),
                    EffectiveTimeout(m_nTimeout)} {}

  bool FindArchive() const;
  // Returns the status that HTI left in its command; one that it did not write counts as pending.
  uint32_t Run(const Deliver& deliver) const;

 private:
  const uint32_t m_nTimeout;  // the caller's, in seconds
  const HtiTransfer m_oTransfer;
};

bool CArchiveTransfer::FindArchive() const {
  const std::string& archive = m_oTransfer.localPath;
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer): Transfer archive to BMC, timeout=%d sec.",
              static_cast<int32_t>(m_nTimeout));
  DEBUG_TRACE(2, "\nEM_TALVOR (Transfer):   archive path: \"%s\"", archive.c_str());
  if (!m_oTransfer.bmcPath.empty()) {
    DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   BMC local name = \"%s\"",
                m_oTransfer.bmcPath.c_str());
  }
  if (!ExamineArchive(archive)) {
    DEBUG_TRACE(
        1,
        "\n\nEM_TALVOR (Transfer): ## ERROR! Talvor archive \"%s\" does not exist - cannot transfer file!\n",
        archive.c_str());
    return false;
  }
  return true;
}

uint32_t CArchiveTransfer::Run(const Deliver& deliver) const {
  SipJson hti = BuildHtiRequest(m_oTransfer);
  DEBUG_TRACE(
      3,
      "\nEM_TALVOR (Transfer): Sending Talvor archive transfer down to HTI module (AsyncRequest)...");
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   file type: %d (Talvor)",
              static_cast<int32_t>(m_oTransfer.fileType));
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   file size: %d kBytes",
              KilobytesOf(m_oTransfer.localPath));
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer):   timeout:   %d sec.",
              static_cast<int32_t>(m_oTransfer.timeout));
  deliver(hti);
  const uint32_t status = hti.GetCmdUInt(hti.m_nCmdIndex, "ST", STATUS_PENDING);
  DEBUG_TRACE(3, "\nEM_TALVOR (Transfer): Talvor archive transfer finished, cmd status = 0x%02X",
              status);
  return status;
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

bool EM_TALVOR::TransferArchive(SipJson& request) {
  DEBUG_TRACE(3, "\n");
  DEBUG_TRACE(2,
              "\nEM_TALVOR (Transfer): Task serializer job - transfer the Talvor archive to BMC");
  if (IsSwitchShutdown()) {
    DEBUG_TRACE(
        2,
        "\n\nEM_TALVOR (Transfer): ## ERROR: SWITCH shutdown in progress - do not transfer archive");
    return FinishJob(request, STATUS_FAILED);
  }
  const CArchiveTransfer transfer(request, GetPaths().archive, m_nHtiFileType);
  if (!transfer.FindArchive()) {
    return FinishJob(request, STATUS_NOT_AVAILABLE);
  }
  const uint32_t status = transfer.Run([this](SipJson& hti) { AsyncRequest(hti, HTI_WAIT); });
  request.RemoveCmdMember("DA");  // the final answer does not echo the name
  return FinishJob(request, status);
}
