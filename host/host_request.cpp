#include "host/host_request.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "frame/opcode.h"
#include "host/host_error.h"

namespace {

using Value = SipJson::Value;

constexpr char TRANSFER_TO[] = "transfer=";

// A record with one command.
SipJson MakeRecord(uint32_t operationCode) {
  SipJson record;
  record.m_oDocument.Parse(R"({"SIP":{"V":1,"CMD":[{}]}})");
  record.SetCmdUInt("OC", operationCode);
  record.SetCmdUInt("OE", 0);
  record.SetCmdUInt("OI", 0);
  return record;
}

void SetData(SipJson& record, const std::string& text) {
  SipJson::Allocator& allocator = record.m_oDocument.GetAllocator();
  Value data(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
  record.m_oDocument["SIP"]["CMD"][0].AddMember("DA", data, allocator);
}

std::string ReadRecordFile(const std::string& path) {
  std::error_code ignored;
  const bool isDirectory = std::filesystem::is_directory(path, ignored);
  std::ifstream file(path, std::ios::binary);
  if (isDirectory || !file.is_open()) {
    throw CHostError(EX_NOINPUT, "The record " + path + " cannot be read (" +
                                     strerror(isDirectory ? EISDIR : errno) +
                                     "): name a file that holds one, as @FILE.");
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

[[noreturn]] void ThrowNoRecord(const std::string& path, const std::string& reason) {
  throw CHostError(EX_DATAERR, path + " holds no request (" + reason +
                                   R"(): write a record such as {"SIP":{"CMD":[{"OC":13312}]}}.)");
}

// Serializing a record takes stack for each level.
class DepthLimit : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DepthLimit> {
 public:
  bool StartObject() { return Enter(); }
  bool EndObject(rapidjson::SizeType /*members*/) { return Leave(); }
  bool StartArray() { return Enter(); }
  bool EndArray(rapidjson::SizeType /*elements*/) { return Leave(); }

 private:
  static constexpr int DEEPEST = 1000;

  bool Enter() { return ++m_nDepth <= DEEPEST; }
  bool Leave() {
    --m_nDepth;
    return true;
  }

  int m_nDepth = 0;
};

bool IsTooDeep(const std::string& text) {
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  DepthLimit limit;
  return reader.Parse<rapidjson::kParseIterativeFlag>(stream, limit).Code() ==
         rapidjson::kParseErrorTermination;
}

SipJson ReadRecord(const std::string& path) {
  SipJson record;
  const std::string text = ReadRecordFile(path);
  if (IsTooDeep(text)) {
    ThrowNoRecord(path, "its JSON is nested too deeply");
  }
  record.m_oDocument.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
  if (record.m_oDocument.HasParseError()) {
    ThrowNoRecord(path,
                  std::string(rapidjson::GetParseError_En(record.m_oDocument.GetParseError())) +
                      " at byte " + std::to_string(record.m_oDocument.GetErrorOffset()));
  }
  return record;
}

std::vector<HostRequest> RequestsOfFile(const std::string& path) {
  SipJson record = ReadRecord(path);
  std::vector<HostRequest> requests;
  for (; record.FindCommand(record.m_nCmdIndex) != nullptr; ++record.m_nCmdIndex) {
    requests.push_back({"@" + path, record});
  }
  if (requests.empty()) {
    ThrowNoRecord(path, R"(no objects in the array "CMD" of the object "SIP")");
  }
  if (requests.size() > 1) {
    for (HostRequest& request : requests) {
      request.name += "[" + std::to_string(request.record.m_nCmdIndex) + "]";
    }
  }
  return requests;
}

std::vector<HostRequest> RequestsOfWord(const std::string& word) {
  for (const RequestName& request : REQUEST_NAMES) {
    if (word == request.word) {
      return {{word, MakeRecord(request.opcode)}};
    }
  }
  if (word.rfind(TRANSFER_TO, 0) == 0) {
    HostRequest request = {"transfer", MakeRecord(OC_TRANSFER_ARCHIVE)};
    SetData(request.record, word.substr(strlen(TRANSFER_TO)));
    return {request};
  }
  if (word.size() > 1 && word[0] == '@') {
    return RequestsOfFile(word.substr(1));
  }
  throw CHostError(EX_USAGE, "\"" + word + "\" is no request: give " + RequestWords() +
                                 ", transfer=NAME, or @FILE with a JSON record.");
}

void SetDefault(SipJson& record, const char* key, const std::optional<uint32_t>& value) {
  if (value && !record.HasCmdMember(record.m_nCmdIndex, key)) {
    record.SetCmdUInt(key, *value);
  }
}

}  // namespace

std::vector<HostRequest> MakeRequests(const std::string& word, const RequestDefaults& defaults,
                                      uint32_t firstMessageId) {
  std::vector<HostRequest> requests = RequestsOfWord(word);
  for (HostRequest& request : requests) {
    if (word[0] != '@') {
      SetDefault(request.record, "CA", defaults.cabinet);
    }
    request.record.RemoveCmdMember("ST");
    SetDefault(request.record, "MI", firstMessageId++);
    SetDefault(request.record, "TO", defaults.timeout);
  }
  return requests;
}

std::string RequestWords() {
  std::string words;
  for (const RequestName& request : REQUEST_NAMES) {
    words += (words.empty() ? "" : ", ") + std::string(request.word);
  }
  return words;
}

uint32_t OperationCode(const SipJson& record) {
  return record.GetCmdUInt(record.m_nCmdIndex, "OC", 0);
}
