#include "frame/json_value.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <utility>
#include <vector>

namespace {

using rapidjson::SizeType;
using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

constexpr double BEYOND_UINT64 = 18446744073709551616.0;
constexpr double LEAST_INT64 = -9223372036854775808.0;

// Names up to this length are stored inside the value itself, without an allocation.
constexpr size_t LONGEST_NAME_WITHIN = 8;

// Levels of nesting for which a walk needs no further memory.
constexpr size_t USUAL_DEPTH = 16;

// Scratch memory for one operation: the buffer first, then the heap.
struct WorkingMemory {
  std::byte buffer[2048];
  std::pmr::monotonic_buffer_resource resource{buffer, sizeof(buffer)};
};

size_t Aligned(size_t size) { return RAPIDJSON_ALIGN(size); }

// The library's growth rule for a member array or an array that is full.
SizeType EnlargedCapacity(SizeType capacity) {
  return capacity == 0 ? 16 : capacity + (capacity + 1) / 2;
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

bool IsContainer(const Value& value) { return value.IsObject() || value.IsArray(); }

// Walks a value and all that it holds, without recursion: values may be nested deeper than the
// stack. The handler gets Start() before and End() after the contents of each container, and
// Scalar() for everything else, names included.
template <typename Handler>
class Walker {
 public:
  Walker(Handler& handler, std::pmr::memory_resource& memory)
      : m_oHandler(handler), m_oLevels(&memory) {
    m_oLevels.reserve(USUAL_DEPTH);
  }

  void Run(const Value& top) {
    if (!IsContainer(top)) {
      m_oHandler.Scalar(top);
      return;
    }
    Enter(top);
    while (!m_oLevels.empty()) {
      Level& level = m_oLevels.back();
      const Value* nested = level.container->IsObject() ? WalkMembers(level) : WalkElements(level);
      if (nested != nullptr) {
        Enter(*nested);
      } else {
        m_oHandler.End(*level.container);
        m_oLevels.pop_back();
      }
    }
  }

 private:
  struct Level {
    const Value* container;
    SizeType next;
  };

  void Enter(const Value& container) {
    m_oHandler.Start(container);
    m_oLevels.push_back({&container, 0});
  }

  // Both hand out scalars up to the next nested container, which they return; null at the end.
  const Value* WalkMembers(Level& level) {
    const SizeType count = level.container->MemberCount();
    auto member = level.container->MemberBegin() + level.next;
    for (SizeType index = level.next; index < count; ++index, ++member) {
      m_oHandler.Scalar(member->name);
      if (IsContainer(member->value)) {
        level.next = index + 1;
        return &member->value;
      }
      m_oHandler.Scalar(member->value);
    }
    return nullptr;
  }

  const Value* WalkElements(Level& level) {
    const SizeType count = level.container->Size();
    const Value* element = level.container->Begin() + level.next;
    for (SizeType index = level.next; index < count; ++index, ++element) {
      if (IsContainer(*element)) {
        level.next = index + 1;
        return element;
      }
      m_oHandler.Scalar(*element);
    }
    return nullptr;
  }

  Handler& m_oHandler;
  std::pmr::vector<Level> m_oLevels;
};

// Adds up the memory of a copy, so that the caller can set it aside in one piece: the library
// cannot report that it ran out halfway.
struct Measurer {
  void Start(const Value& container) {
    size += container.IsObject() ? container.MemberCount() * sizeof(Value::Member)
                                 : container.Size() * sizeof(Value);
  }
  void Scalar(const Value& value) {
    size += value.IsString() ? Aligned(value.GetStringLength() + 1U) : 0;
  }
  void End(const Value& /*container*/) {}

  size_t size = 0;
};

// The library's document, used as a SAX handler: it allocates an array of the exact size for each
// container, and keeps the values of open containers on a stack, whose memory is set aside too.
using Builder = rapidjson::GenericDocument<rapidjson::UTF8<>, Allocator, Allocator>;

struct Copier {
  void Start(const Value& container) {
    container.IsObject() ? builder.StartObject() : builder.StartArray();
  }
  void Scalar(const Value& value) {
    if (value.IsString()) {
      builder.String(value.GetString(), value.GetStringLength(), true);
    } else if (value.IsUint()) {
      builder.Uint(value.GetUint());
    } else {
      value.Accept(builder);
    }
  }
  void End(const Value& container) {
    container.IsObject() ? builder.EndObject(container.MemberCount())
                         : builder.EndArray(container.Size());
  }

  // As Builder::Populate() calls it.
  bool operator()(Builder& /*builder*/) {
    Walker(*this, memory).Run(source);
    return true;
  }

  const Value& source;
  Builder& builder;
  std::pmr::memory_resource& memory;
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

size_t MeasureJsonCopy(const Value& source) {
  WorkingMemory memory;
  Measurer measurer;
  Walker(measurer, memory.resource).Run(source);
  return measurer.size;
}

void CopyJson(const Value& source, Value& target, Allocator& allocator) {
  CopyJson(source, target, allocator, MeasureJsonCopy(source));
}

void CopyJson(const Value& source, Value& target, Allocator& allocator, size_t size) {
  WorkingMemory memory;
  // A value needs no more room on the stack than in its container, which `size` counts; the top
  // value has no container.
  const size_t stackSize = size + sizeof(Value);
  const size_t bufferSize = stackSize + JSON_ALLOCATOR_SIZE;
  Allocator stack(memory.resource.allocate(bufferSize), bufferSize);
  Builder builder(&allocator, stackSize, &stack);
  Copier copier = {source, builder, memory.resource};
  builder.Populate(copier);
  static_cast<Value&>(builder).Swap(target);
}

size_t MeasureJsonMembers(const Value& object, SizeType count) {
  const SizeType last = object.MemberCount() + count;
  size_t size = 0;
  for (SizeType slots = object.MemberCount(); slots < last;) {
    slots = EnlargedCapacity(slots);
    size += slots * sizeof(Value::Member) + Aligned(LONGEST_NAME_WITHIN + 1) + JSON_ALLOCATOR_SIZE;
  }
  return size;
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
