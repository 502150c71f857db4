// The readers of a command's data, the member "DA".

#include <algorithm>
#include <new>
#include <optional>

#include "frame/json_value.h"
#include "frame/sip_json.h"

namespace {

using Value = SipJson::Value;

// The elements of "RAW" when `data` is an object with such an array, else null.
const Value* FindRaw(const Value& data) {
  if (!data.IsObject()) {
    return nullptr;
  }
  const auto raw = data.FindMember("RAW");
  return raw != data.MemberEnd() && raw->value.IsArray() ? &raw->value : nullptr;
}

// The bytes that an element of a packed array takes; 0 if it is not a number.
uint32_t PackedWidth(const std::optional<uint64_t>& integer) {
  if (!integer) {
    return 0;
  }
  if (*integer < 0x100) {
    return 1;
  }
  if (*integer < 0x10000) {
    return 2;
  }
  return *integer <= 0xFFFFFFFF ? 4 : 8;
}

void AppendPacked(const std::optional<uint64_t>& integer, std::vector<uint8_t>& bytes) {
  for (uint32_t index = 0; index < PackedWidth(integer); ++index) {
    bytes.push_back(static_cast<uint8_t>(*integer >> (8 * index)));
  }
}

void AppendString(const Value& string, std::vector<uint8_t>& bytes) {
  bytes.insert(bytes.end(), string.GetString(), string.GetString() + string.GetStringLength());
  bytes.push_back(0);
}

// An element of "RAW" as a byte: the low 8 bits of a number, 0 for anything else.
uint8_t RawByte(const Value& element) {
  const auto integer = ToJsonInteger(element);
  return integer ? static_cast<uint8_t>(*integer) : uint8_t{0};
}

uint64_t LengthOfStrings(const Value& array) {
  uint64_t length = 1;
  for (const Value& element : array.GetArray()) {
    length += element.IsString() ? element.GetStringLength() + uint64_t{1} : 0;
  }
  return length;
}

uint64_t LengthOfNumbers(const Value& array) {
  uint64_t length = 0;
  for (const Value& element : array.GetArray()) {
    length += PackedWidth(ToJsonInteger(element));
  }
  return length;
}

uint64_t LengthOfArray(const Value& array) {
  if (array.Empty()) {
    return 0;
  }
  if (array[0].IsString()) {
    return LengthOfStrings(array);
  }
  return array[0].IsNumber() ? LengthOfNumbers(array) : 0;
}

void AppendStrings(const Value& array, std::vector<uint8_t>& bytes) {
  for (const Value& element : array.GetArray()) {
    if (element.IsString()) {
      AppendString(element, bytes);
    }
  }
  bytes.push_back(0);
}

void AppendNumbers(const Value& array, std::vector<uint8_t>& bytes) {
  for (const Value& element : array.GetArray()) {
    AppendPacked(ToJsonInteger(element), bytes);
  }
}

void AppendArray(const Value& array, std::vector<uint8_t>& bytes) {
  if (array.Empty()) {
    return;
  }
  if (array[0].IsString()) {
    AppendStrings(array, bytes);
  } else if (array[0].IsNumber()) {
    AppendNumbers(array, bytes);
  }
}

}  // namespace

rapidjson::Type SipJson::GetDataType(uint32_t index) const {
  const Value* data = FindCmdMember(index, "DA");
  return data != nullptr ? data->GetType() : rapidjson::kNullType;
}

uint64_t SipJson::GetDataLength(uint32_t index) const {
  const Value* data = FindCmdMember(index, "DA");
  if (data == nullptr) {
    return 0;
  }
  if (data->IsInt64() || data->IsUint64()) {
    return 8;
  }
  if (data->IsBool()) {
    return 1;
  }
  if (data->IsString()) {
    return data->GetStringLength() + uint64_t{1};
  }
  if (data->IsArray()) {
    return LengthOfArray(*data);
  }
  const Value* raw = FindRaw(*data);
  return raw != nullptr ? raw->Size() : 0;
}

bool SipJson::GetIntegerData(uint32_t index, uint32_t& value) const {
  const Value* data = FindCmdMember(index, "DA");
  if (data == nullptr) {
    return false;
  }
  if (data->IsInt() || data->IsUint()) {
    value = static_cast<uint32_t>(data->GetInt64());
    return true;
  }
  if (data->IsBool()) {
    value = data->GetBool() ? 1 : 0;
    return true;
  }
  const Value* raw = FindRaw(*data);
  if (raw == nullptr || raw->Empty()) {
    return false;
  }
  value = 0;
  for (rapidjson::SizeType position = 0; position < std::min(raw->Size(), 4U); ++position) {
    value |= uint32_t{RawByte((*raw)[position])} << (8 * position);
  }
  return true;
}

bool SipJson::IsJsonStructure() const {
  const Value* data = FindCmdMember(m_nCmdIndex, "DA");
  if (data == nullptr) {
    return false;
  }
  if (data->IsObject()) {
    return !data->HasMember("RAW");
  }
  return data->IsArray() && !data->Empty() && (*data)[0].IsObject();
}

bool SipJson::GetByteData(uint32_t index, std::vector<uint8_t>& bytes) const {
  const Value* data = FindCmdMember(index, "DA");
  if (data == nullptr) {
    return false;
  }
  if (data->IsObject()) {
    if (const Value* raw = FindRaw(*data)) {
      for (const Value& element : raw->GetArray()) {
        bytes.push_back(RawByte(element));
      }
    }
    return true;
  }
  if (data->IsString()) {
    AppendString(*data, bytes);
    return true;
  }
  if (data->IsArray()) {
    AppendArray(*data, bytes);
    return true;
  }
  if (data->IsUint64()) {
    AppendPacked(ToJsonInteger(*data), bytes);
    return true;
  }
  return false;
}

bool SipJson::GetJsonData(uint32_t index, Value& value, Allocator& allocator) const {
  const Value* data = FindCmdMember(index, "DA");
  if (data == nullptr || (!data->IsObject() && !data->IsArray())) {
    return false;
  }
  const size_t size = MeasureJsonCopy(*data);
  const auto copy = [&](Allocator& room) { CopyJson(*data, value, room); };
  if (!WithJsonRoom(allocator, size, copy)) {
    throw std::bad_alloc();
  }
  return true;
}
