#include "frame/json_text.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cmath>
#include <exception>
#include <vector>

namespace {

using rapidjson::Value;

// The library would write through the null pointer that it gets when memory is exhausted.
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

using JsonText = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, EndingAllocator>;

// The library stops at a number that JSON cannot express.
class JsonTextWriter : public rapidjson::PrettyWriter<JsonText, rapidjson::UTF8<>,
                                                      rapidjson::UTF8<>, EndingAllocator> {
 public:
  using PrettyWriter::PrettyWriter;

  bool Double(double value) { return std::isfinite(value) ? PrettyWriter::Double(value) : Null(); }
};

// A structure that has begun, and which of its members or elements comes next.
struct OpenStructure {
  const Value* value;
  rapidjson::SizeType next;
};

using OpenStructures = std::vector<OpenStructure>;

// Writes a scalar, or begins a structure.
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

// Ends the structures that are complete, and returns the value that comes next; null after the
// last.
const Value* FindNext(OpenStructures& open, JsonTextWriter& writer) {
  while (!open.empty()) {
    auto& [value, next] = open.back();
    if (value->IsObject()) {
      if (next < value->MemberCount()) {
        const auto& member = value->MemberBegin()[next++];
        writer.Key(member.name.GetString(), member.name.GetStringLength());
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

std::optional<std::string> BuildJsonText(const Value& value, size_t deepest) noexcept {
  JsonText text;
  JsonTextWriter writer(text);
  writer.SetIndent(' ', 4);
  OpenStructures open;
  for (const Value* next = &value; next != nullptr; next = FindNext(open, writer)) {
    if (open.size() >= deepest) {
      return std::nullopt;
    }
    Begin(*next, open, writer);
  }
  return std::string(text.GetString(), text.GetSize());
}
