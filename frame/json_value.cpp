#include "frame/json_value.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <functional>
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

size_t Aligned(size_t size) { return RAPIDJSON_ALIGN(size); }

// The library's growth rule for a member array or an array that is full.
SizeType EnlargedCapacity(SizeType capacity) {
  return capacity == 0 ? 16 : capacity + (capacity + 1) / 2;
}

// An object or array as the library lays it out; it has no accessors for the capacity, nor for the
// values of either kind. The pointer's upper bits hold the kind.
struct ContainerLayout {
  SizeType size;
  SizeType capacity;
  Value* values;
};
static_assert(sizeof(ContainerLayout) <= sizeof(Value));

ContainerLayout LayoutOf(const Value& container) {
  ContainerLayout layout;
  std::memcpy(&layout, static_cast<const void*>(&container), sizeof(layout));
  return layout;
}

// The bytes allocated for the member array when one more member is added; 0 when it has a free
// slot.
size_t MeasureGrowth(const Value& object) {
  const SizeType slots = LayoutOf(object).capacity;
  return object.MemberCount() < slots ? 0 : EnlargedCapacity(slots) * sizeof(Value::Member);
}

bool IsContainer(const Value& value) { return value.IsObject() || value.IsArray(); }

struct ValueRange {
  size_t Bytes() const { return static_cast<size_t>(end - next) * sizeof(Value); }

  Value* next;
  Value* end;
};

// The elements of an array, or the name and value of each member of an object in turn.
ValueRange ValuesIn(const Value& container) {
  static_assert(sizeof(Value::Member) == 2 * sizeof(Value));
  const ContainerLayout layout = LayoutOf(container);
  Value* const first = RAPIDJSON_GETPOINTER(Value, layout.values);
  return {first, first + size_t{layout.size} * (container.IsObject() ? 2 : 1)};
}

// The ranges around the one that is being walked: those of the usual depth in place.
class RangeStack {
 public:
  void Push(ValueRange range) {
    if (m_nUsual < m_oUsual.size()) {
      m_oUsual[m_nUsual++] = range;
    } else {
      m_oDeeper.push_back(range);
    }
  }

  bool IsEmpty() const { return m_nUsual == 0; }

  ValueRange Pop() {
    if (m_oDeeper.empty()) {
      return m_oUsual[--m_nUsual];
    }
    const ValueRange range = m_oDeeper.back();
    m_oDeeper.pop_back();
    return range;
  }

 private:
  std::array<ValueRange, 16> m_oUsual;
  size_t m_nUsual = 0;
  std::vector<ValueRange> m_oDeeper;
};

// Hands a value and all that it holds to `visitor`, one by one: String(), names included, and
// Container() before what that holds. Without recursion: values may be nested deeper than the
// stack.
template <typename Visitor>
void Visit(Value& top, Visitor& visitor) {
  RangeStack outer;
  ValueRange range = {&top, &top + 1};
  for (;;) {
    while (range.next != range.end) {
      Value& value = *range.next++;
      if (value.IsString()) {
        visitor.String(value);
      } else if (IsContainer(value)) {
        visitor.Container(value);
        outer.Push(range);
        range = ValuesIn(value);
      }
    }
    if (outer.IsEmpty()) {
      return;
    }
    range = outer.Pop();
  }
}

// Adds up the memory of a copy.
struct Measurer {
  void String(const Value& string) { size += Aligned(string.GetStringLength() + 1U); }
  void Container(const Value& container) { size += ValuesIn(container).Bytes(); }

  size_t size = 0;
};

// Makes values that are bitwise copies of others own what they hold.
struct Copier {
  void String(Value& string) {
    if (!OwnsItsBytes(string)) {
      string.SetString(string.GetString(), string.GetStringLength(), allocator);
    }
  }

  // The values of the container are bitwise copies then. Nothing in the library makes an array for
  // just these values at once.
  void Container(Value& container) {
    const ValueRange source = ValuesIn(container);
    ContainerLayout layout = LayoutOf(container);
    layout.capacity = layout.size;
    void* const values = allocator.Malloc(source.Bytes());  // null for 0
    if (values != nullptr) {
      std::memcpy(values, static_cast<const void*>(source.next), source.Bytes());
    }
    RAPIDJSON_SETPOINTER(Value, layout.values, static_cast<Value*>(values));
    std::memcpy(static_cast<void*>(&container), &layout, sizeof(layout));
  }

  // Short strings lie within the value itself.
  static bool OwnsItsBytes(const Value& string) {
    const auto* const bytes = string.GetString();
    const auto* const begin = reinterpret_cast<const char*>(&string);
    return std::less_equal<>()(begin, bytes) && std::less<>()(bytes, begin + sizeof(string));
  }

  Allocator& allocator;
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
  Measurer measurer;
  Visit(const_cast<Value&>(source), measurer);
  return measurer.size;
}

void CopyJson(const Value& source, Value& target, Allocator& allocator) {
  Value copy;
  std::memcpy(static_cast<void*>(&copy), static_cast<const void*>(&source), sizeof(copy));
  Copier copier = {allocator};
  Visit(copy, copier);
  target = copy;
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
