#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// What the JSON library lacks for values from elsewhere: numbers of any kind, copies that own all
// they hold, and additions that survive exhausted memory. The library itself writes through the
// null pointer that it gets when it runs out while it adds something.

// The number in `value` as an integer of 64 bits, two's complement when negative; a fraction is
// truncated. Nothing for what is no number or does not fit 64 bits, signed or unsigned.
std::optional<uint64_t> ToJsonInteger(const rapidjson::Value& value);

// An upper bound of the bytes that CopyJson() takes from the target's allocator. Throws
// std::bad_alloc, for very deep values only.
size_t MeasureJsonCopy(const rapidjson::Value& source);

// Stores a deep copy of `source` in `target`, whose document owns `allocator`. The library's own
// copy keeps constant and in-situ strings as pointers into somebody else's memory; this one
// duplicates every string and name. Nesting is limited by memory only, not by the stack. Throws
// std::bad_alloc, for very deep values only.
void CopyJson(const rapidjson::Value& source, rapidjson::Value& target,
              rapidjson::Document::AllocatorType& allocator);

// Adds a member to an object of the document that owns `allocator`. Changes nothing when memory is
// exhausted.
void AddJsonMember(rapidjson::Value& object, std::string_view name, rapidjson::Value value,
                   rapidjson::Document::AllocatorType& allocator);

// Appends empty objects to an array until it has `count` elements. False, and nothing changed, when
// memory is exhausted. `allocator` is that of the array's document.
bool GrowJsonArray(rapidjson::Value& array, rapidjson::SizeType count,
                   rapidjson::Document::AllocatorType& allocator);

// Calls `use` with an allocator that gives out `size` bytes (in pieces of 8) of the memory of
// `owner`, which keeps them. False, and nothing called, when memory is exhausted.
template <typename Use>
bool WithJsonRoom(rapidjson::Document::AllocatorType& owner, size_t size, const Use& use) {
  constexpr size_t OWN_NEED = 128;  // what an allocator keeps of its buffer for itself, at most
  void* const room = owner.Malloc(size + OWN_NEED);
  if (room == nullptr) {
    return false;
  }
  rapidjson::Document::AllocatorType allocator(room, size + OWN_NEED);
  use(allocator);
  return true;
}
