#include "frame/sip_json.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "frame/json_value.h"

namespace {

// Writers do not grow the command array beyond this index, whatever a hostile request asks for.
constexpr uint32_t LAST_WRITABLE_INDEX = 65'535;

// Bytes of the smallest chunk of a record.
constexpr size_t LEAST_CHUNK_SIZE = 256;

// The members that an answer may add to a command: "ST", "CA" and "MI".
constexpr rapidjson::SizeType ANSWER_MEMBERS = 3;

// Stateless, so that one serves all documents, which would each allocate their own.
rapidjson::CrtAllocator g_oHeap;

bool IsNamed(const SipJson::Value& name, std::string_view key) {
  if (name.GetStringLength() != key.size()) {
    return false;
  }
  const char* const letters = name.GetString();
  for (size_t index = 0; index < key.size(); ++index) {
    if (letters[index] != key[index]) {
      return false;
    }
  }
  return true;
}

// As the library's own search, but without a function call for each name.
const SipJson::Value* FindMember(const SipJson::Value& object, std::string_view key) {
  if (!object.IsObject()) {
    return nullptr;
  }
  for (const auto& member : object.GetObject()) {
    if (IsNamed(member.name, key)) {
      return &member.value;
    }
  }
  return nullptr;
}

// The array of commands, or null.
const SipJson::Value* FindCommands(const SipJson::Value& root) {
  const SipJson::Value* sip = FindMember(root, "SIP");
  const SipJson::Value* commands = sip != nullptr ? FindMember(*sip, "CMD") : nullptr;
  return commands != nullptr && commands->IsArray() ? commands : nullptr;
}

// The value of a hexadecimal digit, or 16.
uint32_t DigitValue(char digit) {
  if (digit >= '0' && digit <= '9') {
    return static_cast<uint32_t>(digit - '0');
  }
  if (digit >= 'a' && digit <= 'f') {
    return static_cast<uint32_t>(digit - 'a') + 10;
  }
  if (digit >= 'A' && digit <= 'F') {
    return static_cast<uint32_t>(digit - 'A') + 10;
  }
  return 16;
}

uint32_t ParseDigits(std::string_view digits, uint32_t base) {
  uint32_t value = 0;
  for (const char digit : digits) {
    if (DigitValue(digit) >= base) {
      break;
    }
    value = value * base + DigitValue(digit);
  }
  return value;
}

uint32_t ParseNumber(std::string_view string) {
  if (string.size() > 2 && (string.starts_with("0x") || string.starts_with("0X"))) {
    return ParseDigits(string.substr(2), 16);
  }
  if (string.size() >= 2 && string.starts_with('0')) {
    return ParseDigits(string.substr(1), 8);
  }
  return ParseDigits(string, 10);
}

// The bytes of a copy and of the members that its answer adds: a job can then write its status even
// when memory is exhausted.
size_t MeasureCopy(const SipJson& record) {
  const size_t size = MeasureJsonCopy(record.m_oDocument);
  const SipJson::Value* command = record.FindCommand(record.m_nCmdIndex);
  if (command == nullptr) {
    return size;
  }
  const auto present = std::count_if(
      command->MemberBegin(), command->MemberEnd(), [](const SipJson::Value::Member& member) {
        const std::string_view name(member.name.GetString(), member.name.GetStringLength());
        return name == "ST" || name == "CA" || name == "MI";
      });
  const auto missing =
      ANSWER_MEMBERS -
      std::min<rapidjson::SizeType>(static_cast<rapidjson::SizeType>(present), ANSWER_MEMBERS);
  return size + MeasureJsonMembers(*command, missing);
}

// Replaces the unused allocator of a document with one that already holds `size` bytes. That is
// done in place: the document keeps owning its allocator and can be moved and swapped like any
// other. Throws std::bad_alloc.
void ReserveAtOnce(SipJson::Allocator& allocator, size_t size) {
  const size_t probe = RAPIDJSON_ALIGN(1);
  std::destroy_at(&allocator);
  std::construct_at(&allocator, std::max(size + probe, LEAST_CHUNK_SIZE), &g_oHeap);
  if (allocator.Malloc(probe) == nullptr) {
    throw std::bad_alloc();
  }
}

}  // namespace

SipJson::SipJson(size_t room) { ReserveAtOnce(m_oDocument.GetAllocator(), room); }

SipJson::SipJson(const SipJson& other) : SipJson(MeasureCopy(other)) {
  CopyJson(other.m_oDocument, m_oDocument, m_oDocument.GetAllocator());
  m_nCmdIndex = other.m_nCmdIndex;
}

SipJson& SipJson::operator=(const SipJson& other) {
  SipJson copy(other);
  m_oDocument.Swap(copy.m_oDocument);
  std::swap(m_nCmdIndex, copy.m_nCmdIndex);
  return *this;
}

const SipJson::Value* SipJson::FindCommand(uint32_t index) const {
  const Value* commands = FindCommands(m_oDocument);
  if (commands == nullptr || index >= commands->Size() || !(*commands)[index].IsObject()) {
    return nullptr;
  }
  return &(*commands)[index];
}

const SipJson::Value* SipJson::FindCmdMember(uint32_t index, const char* key) const {
  const Value* command = FindCommand(index);
  return command != nullptr ? FindMember(*command, key) : nullptr;
}

bool SipJson::HasCmdMember(uint32_t index, const char* key) const {
  return FindCmdMember(index, key) != nullptr;
}

uint32_t SipJson::GetCmdUInt(uint32_t index, const char* key, uint32_t defaultValue) const {
  const Value* member = FindCmdMember(index, key);
  return member != nullptr ? ToUInt(*member, defaultValue) : defaultValue;
}

uint32_t SipJson::ToUInt(const Value& member, uint32_t defaultValue) {
  if (member.IsUint()) {
    return member.GetUint();
  }
  if (member.IsString()) {
    return ParseNumber({member.GetString(), member.GetStringLength()});
  }
  const auto integer = ToJsonInteger(member);
  return integer ? static_cast<uint32_t>(*integer) : defaultValue;
}

void SipJson::SetCmdUInt(const char* key, uint32_t value) {
  auto* commands = const_cast<Value*>(FindCommands(m_oDocument));  // the document is ours to change
  if (commands == nullptr || m_nCmdIndex > LAST_WRITABLE_INDEX) {
    return;
  }
  Allocator& allocator = m_oDocument.GetAllocator();
  if (m_nCmdIndex >= commands->Size() && !GrowJsonArray(*commands, m_nCmdIndex + 1, allocator)) {
    return;
  }
  Value& command = (*commands)[m_nCmdIndex];
  if (!command.IsObject()) {
    return;
  }
  if (auto* member = const_cast<Value*>(FindMember(command, key))) {
    member->SetUint(value);
  } else {
    AddJsonMember(command, key, Value(value), allocator);
  }
}

void SipJson::RemoveCmdMember(const char* key) {
  if (auto* command = const_cast<Value*>(FindCommand(m_nCmdIndex))) {
    command->RemoveMember(key);
  }
}

void SipJson::SetSipBool(const char* key, bool value) {
  auto* sip = const_cast<Value*>(FindMember(m_oDocument, "SIP"));
  if (sip == nullptr || !sip->IsObject()) {
    return;
  }
  if (auto* member = const_cast<Value*>(FindMember(*sip, key))) {
    member->SetBool(value);
  } else {
    AddJsonMember(*sip, key, Value(value), m_oDocument.GetAllocator());
  }
}
