#include "frame/json_text.h"

#include <rapidjson/prettywriter.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>
#include <vector>

namespace {

using rapidjson::Value;

// Ends the process when memory is exhausted: the library would write through the null pointer.
class EndingAllocator : public rapidjson::CrtAllocator {
 public:
  void* Realloc(void* memory, size_t oldSize, size_t size) noexcept {
    void* moved = CrtAllocator::Realloc(memory, oldSize, size);
    if (moved == nullptr && size > 0) {
      std::terminate();
    }
    return moved;
  }
};

// An output stream for the library's writer that keeps the first bytes and drops the rest.
class LimitedText {
 public:
  using Ch = char;

  explicit LimitedText(size_t longest) : m_nLongest(longest) {}

  void Put(char character) {
    if (!IsFull()) {
      m_strText.push_back(character);
    }
  }
  void Flush() {}

  bool IsFull() const { return m_strText.size() == m_nLongest; }
  // The bytes of a string of `length` that the writer gets: the stream would drop the rest.
  rapidjson::SizeType GetUsefulLength(rapidjson::SizeType length) const {
    return static_cast<rapidjson::SizeType>(
        std::min<size_t>(length, m_nLongest - m_strText.size()));
  }
  std::string Take() { return std::move(m_strText); }

 private:
  const size_t m_nLongest;
  std::string m_strText;
};

class JsonTextWriter : public rapidjson::PrettyWriter<LimitedText, rapidjson::UTF8<>,
                                                      rapidjson::UTF8<>, EndingAllocator> {
 public:
  explicit JsonTextWriter(LimitedText& text) : PrettyWriter(text), m_oText(text) {
    SetIndent(' ', 4);
  }

  // The library's writer fails on a number that JSON cannot express.
  bool Double(double value) { return std::isfinite(value) ? PrettyWriter::Double(value) : Null(); }
  bool String(const char* text, rapidjson::SizeType length, bool /*copy*/ = false) {
    return PrettyWriter::String(text, m_oText.GetUsefulLength(length));
  }

 private:
  const LimitedText& m_oText;
};

// An object or array whose beginning is written, and the index of its next member or element.
struct OpenStructure {
  const Value* value;
  rapidjson::SizeType next;
};

using OpenStructures = std::vector<OpenStructure>;

// Writes a scalar, or opens an object or array.
void Begin(const Value& value, OpenStructures& open, JsonTextWriter& writer) {
  if (value.IsObject()) {
    writer.StartObject();
    open.push_back({&value, 0});
  } else if (value.IsArray()) {
    writer.StartArray();
    open.push_back({&value, 0});
  } else {
    value.Accept(writer);
  }
}

// Closes the objects and arrays that are complete, and returns the next value to write; null after
// the last.
const Value* FindNext(OpenStructures& open, JsonTextWriter& writer) {
  while (!open.empty()) {
    auto& [value, next] = open.back();
    if (value->IsObject()) {
      if (next < value->MemberCount()) {
        const auto& member = value->MemberBegin()[next++];
        writer.String(member.name.GetString(), member.name.GetStringLength());
        return &member.value;
      }
      writer.EndObject(next);
    } else {
      if (next < value->Size()) {
        return &(*value)[next++];
      }
      writer.EndArray(next);
    }
    open.pop_back();
  }
  return nullptr;
}

}  // namespace

std::string BuildJsonText(const Value& value, size_t longest) noexcept {
  LimitedText text(longest);
  JsonTextWriter writer(text);
  OpenStructures open;
  for (const Value* next = &value; next != nullptr && !text.IsFull();
       next = FindNext(open, writer)) {
    Begin(*next, open, writer);
  }
  return text.Take();
}
