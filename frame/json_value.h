#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// What the JSON library lacks for values that somebody else built: reading a number of any kind,
// copies that own all they hold, and additions that survive exhausted memory. The library itself
// writes through the null pointer when an allocation fails.

// `value` as a 64-bit integer, in two's complement when negative; a fraction is truncated. Nothing
// when it is not a number, or fits neither a signed nor an unsigned 64-bit integer.
std::optional<uint64_t> ToJsonInteger(const rapidjson::Value& value);

// An upper bound of the bytes that CopyJson() takes from the target's allocator. Throws
// std::bad_alloc, for very deep values only.
size_t MeasureJsonCopy(const rapidjson::Value& source);

// Stores a deep copy of `source` in `target`, whose document owns `allocator`; that has room for
// MeasureJsonCopy() bytes. The library's own copy keeps constant and in-situ strings as pointers
// into somebody else's memory; this one duplicates every string and name, and its objects and
// arrays have no free slots. Nesting is limited by memory only, not by the stack. Throws
// std::bad_alloc, for very deep values only, and then leaves `target` as it is.
void CopyJson(const rapidjson::Value& source, rapidjson::Value& target,
              rapidjson::Document::AllocatorType& allocator);

// The bytes that AddJsonMember() takes from the allocator when it adds `count` members with short
// names to a copy of the object.
size_t MeasureJsonMembers(const rapidjson::Value& object, rapidjson::SizeType count);

// Adds a member to an object of the document that owns `allocator`. Changes nothing when memory is
// exhausted.
void AddJsonMember(rapidjson::Value& object, std::string_view name, rapidjson::Value value,
                   rapidjson::Document::AllocatorType& allocator);

// Appends empty objects to an array until it has `count` elements. False, and nothing changed, when
// memory is exhausted. `allocator` is that of the array's document.
bool GrowJsonArray(rapidjson::Value& array, rapidjson::SizeType count,
                   rapidjson::Document::AllocatorType& allocator);

// An upper bound of what an allocator needs for itself at the start of its buffer, in bytes.
constexpr size_t JSON_ALLOCATOR_SIZE = 128;

// Calls `use` with an allocator that already holds `size` bytes (each allocation rounded up to 8),
// taken from `owner`, which keeps them. False, and `use` is not called, when memory is exhausted.
template <typename Use>
bool WithJsonRoom(rapidjson::Document::AllocatorType& owner, size_t size, const Use& use) {
  void* const room = owner.Malloc(size + JSON_ALLOCATOR_SIZE);
  if (room == nullptr) {
    return false;
  }
  rapidjson::Document::AllocatorType allocator(room, size + JSON_ALLOCATOR_SIZE);
  use(allocator);
  return true;
}
