// Calls every accessor of a record, with every key and every index that matters.
//
// Input: see json_input.h.

#include <array>
#include <cstdint>
#include <vector>

#include "frame/sip_json.h"
#include "fuzz/check.h"
#include "fuzz/json_input.h"

namespace {

constexpr std::array KEYS = {"OC", "OE", "OI", "CA", "MI", "ST", "DA", "TO", "C", ""};

// A value that no input holds, to recognise a returned default.
constexpr uint32_t DEFAULT = 0xDEADBEEF;

void ReadMembers(const SipJson& record, uint32_t index) {
  const SipJson::Value* command = record.FindCommand(index);
  for (const char* key : KEYS) {
    const SipJson::Value* member = record.FindCmdMember(index, key);
    FUZZ_CHECK(record.HasCmdMember(index, key) == (member != nullptr));
    FUZZ_CHECK(command != nullptr || member == nullptr);
    const uint32_t number = record.GetCmdUInt(index, key, DEFAULT);
    if (member == nullptr || (!member->IsNumber() && !member->IsString())) {
      FUZZ_CHECK(number == DEFAULT);
    } else if (member->IsUint64()) {
      FUZZ_CHECK(number == static_cast<uint32_t>(member->GetUint64()));
    }
  }
}

void ReadBytes(const SipJson& record, uint32_t index) {
  std::vector<uint8_t> bytes = {1, 2};
  const bool isDone = record.GetByteData(index, bytes);
  FUZZ_CHECK(bytes.size() >= 2 && bytes[0] == 1 && bytes[1] == 2);
  FUZZ_CHECK(isDone || bytes.size() == 2);
  const rapidjson::Type type = record.GetDataType(index);
  const bool hasLengthOfItsOwn = type == rapidjson::kNumberType || type == rapidjson::kTrueType ||
                                 type == rapidjson::kFalseType;
  FUZZ_CHECK(hasLengthOfItsOwn || record.GetDataLength(index) == bytes.size() - 2);
}

void ReadData(const SipJson& record, uint32_t index) {
  const SipJson::Value* data = record.FindCmdMember(index, "DA");
  FUZZ_CHECK(record.GetDataType(index) ==
             (data != nullptr ? data->GetType() : rapidjson::kNullType));
  ReadBytes(record, index);

  uint32_t integer = DEFAULT;
  FUZZ_CHECK(record.GetIntegerData(index, integer) || integer == DEFAULT);

  rapidjson::Document target;
  if (record.GetJsonData(index, target, target.GetAllocator())) {
    FUZZ_CHECK(IsSameJson(*data, target));
  } else {
    FUZZ_CHECK(data == nullptr || (!data->IsObject() && !data->IsArray()));
  }
}

void Read(const SipJson& record, uint32_t index) {
  ReadMembers(record, index);
  ReadData(record, index);
}

// Of the indices after the last command, only the ends of their range are read.
void ReadAll(const SipJson& record) {
  uint32_t index = 0;
  while (record.FindCommand(index) != nullptr && index < 16) {
    Read(record, index++);
  }
  Read(record, index);
  Read(record, record.m_nCmdIndex);
  Read(record, 65'536);
  Read(record, UINT32_MAX);
  record.IsJsonStructure();
}

void Write(SipJson& record) {
  for (const char* key : KEYS) {
    const uint32_t index = record.m_nCmdIndex;
    record.SetCmdUInt(key, 7);
    FUZZ_CHECK(record.GetCmdUInt(index, key, 7) == 7);
    FUZZ_CHECK(record.HasCmdMember(index, key) == (record.FindCommand(index) != nullptr));
    record.SetSipBool(key, true);
  }
  ReadAll(record);
  for (const char* key : KEYS) {
    record.RemoveCmdMember(key);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  SipJson record = ParseRecord(data, size);
  ReadAll(record);
  const SipJson copy = record;
  FUZZ_CHECK(copy.m_nCmdIndex == record.m_nCmdIndex);
  FUZZ_CHECK(IsSameJson(copy.m_oDocument, record.m_oDocument));
  Write(record);
  record = copy;
  FUZZ_CHECK(IsSameJson(copy.m_oDocument, record.m_oDocument));
  return 0;
}
