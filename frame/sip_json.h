#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <vector>

// The request and reply record that the switch and its modules exchange: a JSON document
//
//   {"SIP": {"CMD": [{"OC": 13312, "OE": 0, "OI": 0, "CA": 0, "MI": 0, "ST": 0, "DA": ...}, ...]}}
//
// and the index of the command that the current call is about. A command's members are the
// operation code and its extension, object id, cabinet id, message id, status and data. All but
// "DA" are unsigned numbers or strings that hold one.
//
// The record crosses the binary interface to the host: no virtual operations, and the layout
// asserted below. It owns its document; copies are deep and share nothing with their source.
//
// When the document does not have the shape above, the index is out of range, or a member is
// missing or of another type, readers return their default (false or 0 unless the caller gives
// another) and writers change nothing. Writers also change nothing when memory is exhausted. Only
// the readers that say so throw.
//
// Thread safety: one thread at a time, unless all of them only read.
class SipJson {
 public:
  using Value = rapidjson::Value;
  using Allocator = rapidjson::Document::AllocatorType;

  SipJson() = default;
  // An empty record whose allocator already holds `room` bytes for values: the library crashes when
  // memory runs out while it adds one. Throws std::bad_alloc.
  explicit SipJson(size_t room);
  // A deep copy. Throws std::bad_alloc.
  SipJson(const SipJson& other);
  // A deep copy; changes nothing when it throws.
  SipJson& operator=(const SipJson& other);

  // The command object at `index`, or null.
  const Value* FindCommand(uint32_t index) const;
  // The member `key` of the command object at `index`, or null.
  const Value* FindCmdMember(uint32_t index, const char* key) const;
  bool HasCmdMember(uint32_t index, const char* key) const;

  // The number in member `key`, truncated to its low 32 bits, without a fraction. A string is
  // parsed up to the first character that does not fit, with the prefixes 0x (hexadecimal) and 0
  // (octal).
  uint32_t GetCmdUInt(uint32_t index, const char* key, uint32_t defaultValue) const;
  // The same for a member that has been found.
  static uint32_t ToUInt(const Value& member, uint32_t defaultValue);

  // The type of "DA"; kNullType when absent.
  rapidjson::Type GetDataType(uint32_t index) const;

  // The length of "DA" in bytes, by kind:
  //   integer                 8
  //   boolean                 1
  //   string                  its length and a terminator
  //   array of strings        their lengths, a terminator each and one for the list
  //   array of numbers        1, 2, 4 or 8 each, whatever the number needs; negative ones 8
  //   object with "RAW"       the number of elements of "RAW"
  //   anything else           0
  // The first element decides the kind of an array; elements of another kind do not count.
  uint64_t GetDataLength(uint32_t index) const;

  // "DA" as a 32-bit integer: a number that fits (signed or unsigned), a boolean, or the first four
  // bytes of "RAW", least significant first, missing ones read as 0.
  bool GetIntegerData(uint32_t index, uint32_t& value) const;

  // True when "DA" of the current command is an object without "RAW", or an array that begins with
  // an object.
  bool IsJsonStructure() const;

  // Appends the bytes of "DA" to `bytes`: numbers least significant byte first, strings with the
  // terminators that GetDataLength() counts. A single number takes the narrowest of 1, 2, 4 and 8
  // bytes, deliberately not the 8 of its data length. False, and nothing appended, for a negative
  // or fractional number, a boolean and null. Throws std::bad_alloc.
  bool GetByteData(uint32_t index, std::vector<uint8_t>& bytes) const;

  // Stores a deep copy of "DA" in `value` when it is an object or an array; `allocator` is that of
  // the document of `value`. Throws std::bad_alloc and then leaves `value` as it is.
  bool GetJsonData(uint32_t index, Value& value, Allocator& allocator) const;

  // Sets the member `key` of the current command to an unsigned number. The command array grows
  // with empty objects up to the current index, and stays grown when memory runs out after that.
  // Changes nothing without "SIP" or "CMD", on an element that is no object, or when the index is
  // above 65,535.
  void SetCmdUInt(const char* key, uint32_t value);

  // Removes the member `key` of the current command, when there is one.
  void RemoveCmdMember(const char* key);

  // Sets the member `key` of "SIP" to a boolean. Changes nothing without "SIP".
  void SetSipBool(const char* key, bool value);

  rapidjson::Document m_oDocument;
  uint32_t m_nCmdIndex = 0;  // the current command
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#if defined(__x86_64__)
static_assert(sizeof(SipJson::Value) == 16);
static_assert(sizeof(rapidjson::Document) == 96);
static_assert(offsetof(SipJson, m_nCmdIndex) == 96);
static_assert(sizeof(SipJson) == 104);
#elif defined(__aarch64__)
static_assert(sizeof(SipJson::Value) == 24);
static_assert(sizeof(rapidjson::Document) == 104);
static_assert(offsetof(SipJson, m_nCmdIndex) == 104);
static_assert(sizeof(SipJson) == 112);
#else
#error "No layout of the record has been agreed on for this processor."
#endif
#pragma GCC diagnostic pop
