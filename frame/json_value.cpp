#include "frame/json_value.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

namespace {

using rapidjson::SizeType;
using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

constexpr double BEYOND_UINT64 = 18446744073709551616.0;
constexpr double LEAST_INT64 = -9223372036854775808.0;

// The longest name that the library stores inside the value itself, without an allocation.
constexpr size_t LONGEST_NAME_WITHIN = 8;

size_t Aligned(size_t size) { return RAPIDJSON_ALIGN(size); }

// The library's growth rule for a member array or an array that is full.
SizeType EnlargedCapacity(SizeType capacity) {
  return capacity == 0 ? 16 : capacity + (capacity + 1) / 2;
}

// The slots of a member array that has grown to `count` members one by one.
size_t SlotsForMembers(SizeType count) {
  SizeType slots = 0;
  while (slots < count) {
    slots = EnlargedCapacity(slots);
  }
  return slots;
}

// The capacity of an object's member array. The library has no accessor for it: it is the word
// after the number of members.
SizeType CountMemberSlots(const Value& object) {
  std::array<SizeType, 2> counts;
  std::memcpy(counts.data(), reinterpret_cast<const char*>(&object), sizeof(counts));
  return counts[1];
}

// The bytes allocated for the member array when one more member is added; 0 when it has a free
// slot.
size_t MeasureGrowth(const Value& object) {
  const SizeType slots = CountMemberSlots(object);
  return object.MemberCount() < slots ? 0 : EnlargedCapacity(slots) * sizeof(Value::Member);
}

// A copy is made in two passes over the same tree. The measurer adds up the memory, so that the
// caller can set it aside in one piece: the library cannot report that it ran out halfway. The
// copier then takes exactly that, or less where the library keeps a short string within its value.
// Both recurse, because that is quickest for what requests hold, but only so deep: what is nested
// deeper goes on a list and is handled from the top of the stack again.

constexpr int RECURSION_LIMIT = 64;

class Measurer {
 public:
  size_t Run(const Value& source) {
    Measure(source, 0);
    while (!m_oPending.empty()) {
      const Value* next = m_oPending.back();
      m_oPending.pop_back();
      Measure(*next, 0);
    }
    return m_nSize;
  }

 private:
  void Measure(const Value& source, int depth) {
    if (source.IsString()) {
      m_nSize += Aligned(source.GetStringLength() + 1U);
    } else if (!source.IsObject() && !source.IsArray()) {
      return;
    } else if (depth == RECURSION_LIMIT) {
      m_oPending.push_back(&source);
    } else if (source.IsObject()) {
      m_nSize += SlotsForMembers(source.MemberCount()) * sizeof(Value::Member);
      for (const auto& member : source.GetObject()) {
        m_nSize += Aligned(member.name.GetStringLength() + 1U);
        Measure(member.value, depth + 1);
      }
    } else {
      m_nSize += source.Size() * sizeof(Value);
      for (const Value& element : source.GetArray()) {
        Measure(element, depth + 1);
      }
    }
  }

  size_t m_nSize = 0;
  std::vector<const Value*> m_oPending;
};

class Copier {
 public:
  explicit Copier(Allocator& allocator) : m_oAllocator(allocator) {}

  void Run(const Value& source, Value& target) {
    Copy(source, target, 0);
    while (!m_oPending.empty()) {
      const auto [nextSource, nextTarget] = m_oPending.back();
      m_oPending.pop_back();
      Copy(*nextSource, *nextTarget, 0);
    }
  }

 private:
  void Copy(const Value& source, Value& target, int depth) {
    if (source.IsString()) {
      target.SetString(source.GetString(), source.GetStringLength(), m_oAllocator);
    } else if (!source.IsObject() && !source.IsArray()) {
      target.CopyFrom(source, m_oAllocator);
    } else {
      CopyNested(source, target, depth);
    }
  }

  // Kept out of Copy(), which is called for every value, most of them scalars.
  [[gnu::noinline]] void CopyNested(const Value& source, Value& target, int depth) {
    if (depth == RECURSION_LIMIT) {
      m_oPending.emplace_back(&source, &target);
    } else if (source.IsObject()) {
      CopyObject(source, target, depth);
    } else {
      CopyArray(source, target, depth);
    }
  }

  // All slots are made before the first string is copied, so that the member array grows in place.
  void CopyObject(const Value& source, Value& target, int depth) {
    target.SetObject();
    for (SizeType count = source.MemberCount(); count > 0; --count) {
      Value name("");
      Value value;
      target.AddMember(name, value, m_oAllocator);
    }
    auto copy = target.MemberBegin();
    for (const auto& member : source.GetObject()) {
      copy->name.SetString(member.name.GetString(), member.name.GetStringLength(), m_oAllocator);
      Copy(member.value, copy->value, depth + 1);
      ++copy;
    }
  }

  void CopyArray(const Value& source, Value& target, int depth) {
    target.SetArray();
    target.Reserve(source.Size(), m_oAllocator);
    for (const Value& element : source.GetArray()) {
      Value value;
      target.PushBack(value, m_oAllocator);
      Copy(element, target[target.Size() - 1], depth + 1);
    }
  }

  Allocator& m_oAllocator;
  std::vector<std::pair<const Value*, Value*>> m_oPending;
};

}  // namespace

std::optional<uint64_t> ToJsonInteger(const Value& value) {
  if (value.IsUint64()) {
    return value.GetUint64();
  }
  if (value.IsInt64()) {
    return static_cast<uint64_t>(value.GetInt64());
  }
  if (!value.IsDouble()) {
    return std::nullopt;
  }
  const double whole = std::trunc(value.GetDouble());
  if (whole >= 0 && whole < BEYOND_UINT64) {
    return static_cast<uint64_t>(whole);
  }
  if (whole < 0 && whole >= LEAST_INT64) {
    return static_cast<uint64_t>(static_cast<int64_t>(whole));
  }
  return std::nullopt;
}

size_t MeasureJsonCopy(const Value& source) { return Measurer().Run(source); }

void CopyJson(const Value& source, Value& target, Allocator& allocator) {
  Copier(allocator).Run(source, target);
}

void AddJsonMember(Value& object, std::string_view name, Value value, Allocator& allocator) {
  const auto add = [&](Allocator& room) {
    Value key(name.data(), static_cast<SizeType>(name.size()), room);
    object.AddMember(key, value, room);
  };
  const size_t growth = MeasureGrowth(object);
  if (growth == 0 && name.size() <= LONGEST_NAME_WITHIN) {
    add(allocator);
  } else {
    WithJsonRoom(allocator, growth + Aligned(name.size() + 1), add);
  }
}

bool GrowJsonArray(Value& array, SizeType count, Allocator& allocator) {
  const SizeType capacity = array.Capacity();
  const SizeType needed = std::max(count, EnlargedCapacity(capacity));
  if (count > capacity && !WithJsonRoom(allocator, needed * sizeof(Value),
                                        [&](Allocator& room) { array.Reserve(needed, room); })) {
    return false;
  }
  while (array.Size() < count) {
    array.PushBack(Value(rapidjson::kObjectType), allocator);
  }
  return true;
}
