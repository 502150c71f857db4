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

// Bytes of the first chunk of a copied record: enough for a typical one and its answer.
constexpr size_t LEAST_CHUNK_SIZE = 1024;

const SipJson::Value* FindMember(const SipJson::Value& object, const char* key) {
  if (!object.IsObject()) {
    return nullptr;
  }
  const auto member = object.FindMember(key);
  return member != object.MemberEnd() ? &member->value : nullptr;
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

// Replaces the unused allocator of a document with one that already holds `size` bytes. That is
// done in place: the document keeps owning its allocator and can be moved and swapped like any
// other. Throws std::bad_alloc.
void ReserveAtOnce(SipJson::Allocator& allocator, size_t size) {
  const size_t probe = RAPIDJSON_ALIGN(1);
  std::destroy_at(&allocator);
  std::construct_at(&allocator, std::max(size + probe, LEAST_CHUNK_SIZE));
  if (allocator.Malloc(probe) == nullptr) {
    throw std::bad_alloc();
  }
}

}  // namespace

SipJson::SipJson(size_t room) { ReserveAtOnce(m_oDocument.GetAllocator(), room); }

SipJson::SipJson(const SipJson& other) : SipJson(MeasureJsonCopy(other.m_oDocument)) {
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
  if (member != nullptr && member->IsString()) {
    return ParseNumber({member->GetString(), member->GetStringLength()});
  }
  const auto integer = member != nullptr ? ToJsonInteger(*member) : std::nullopt;
  return integer ? static_cast<uint32_t>(*integer) : defaultValue;
}

void SipJson::SetCmdUInt(const char* key, uint32_t value) {
  auto* commands = const_cast<Value*>(FindCommands(m_oDocument));  // the document is ours to change
  if (commands == nullptr || m_nCmdIndex > LAST_WRITABLE_INDEX) {
    return;
  }
  Allocator& allocator = m_oDocument.GetAllocator();
  if (!GrowJsonArray(*commands, m_nCmdIndex + 1, allocator)) {
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
