#include "frame/json_copy.h"

#include <utility>
#include <vector>

namespace {

using rapidjson::SizeType;
using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

// Values nested deeper than this are put aside and handled from the top again.
constexpr int RECURSION_LIMIT = 64;

size_t Aligned(size_t size) { return RAPIDJSON_ALIGN(size); }

// The member array grows as the library grows it: 16 slots, then by half.
size_t MemberSlots(SizeType count) {
  SizeType slots = count == 0 ? 0 : 16;
  while (slots < count) {
    slots += (slots + 1) / 2;
  }
  return slots;
}

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
      m_nSize += MemberSlots(source.MemberCount()) * sizeof(Value::Member);
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

  // Apart from the rest, which most values need: it is called for each of them.
  [[gnu::noinline]] void CopyNested(const Value& source, Value& target, int depth) {
    if (depth == RECURSION_LIMIT) {
      m_oPending.emplace_back(&source, &target);
    } else if (source.IsObject()) {
      CopyObject(source, target, depth);
    } else {
      CopyArray(source, target, depth);
    }
  }

  // All slots are made before the first text is copied, so that the member array grows in place.
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

size_t MeasureJsonCopy(const Value& source) { return Measurer().Run(source); }

void CopyJson(const Value& source, Value& target, Allocator& allocator) {
  Copier(allocator).Run(source, target);
}
