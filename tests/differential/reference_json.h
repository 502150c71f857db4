#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A JSON value of our own, to read records without the JSON library.
struct ReferenceField;

struct ReferenceJson {
  enum Kind { NOTHING, FALSE, TRUE, UNSIGNED, NEGATIVE, FRACTION, TEXT, ARRAY, OBJECT };

  const ReferenceJson* Find(const std::string& name) const;

  Kind kind = NOTHING;
  uint64_t number = 0;  // two's complement when negative
  double fraction = 0;
  std::string text;
  std::vector<ReferenceJson> elements;
  std::vector<ReferenceField> members;
};

struct ReferenceField {
  std::string name;
  ReferenceJson value;
};

inline const ReferenceJson* ReferenceJson::Find(const std::string& name) const {
  for (const ReferenceField& member : members) {
    if (member.name == name) {
      return &member.value;
    }
  }
  return nullptr;
}

inline ReferenceJson ReferenceNumberOf(uint64_t number) {
  ReferenceJson json;
  json.kind = ReferenceJson::UNSIGNED;
  json.number = number;
  return json;
}

inline ReferenceJson ReferenceObject(std::vector<ReferenceField> members) {
  ReferenceJson json;
  json.kind = ReferenceJson::OBJECT;
  json.members = std::move(members);
  return json;
}

inline ReferenceJson ReferenceArray(std::vector<ReferenceJson> elements) {
  ReferenceJson json;
  json.kind = ReferenceJson::ARRAY;
  json.elements = std::move(elements);
  return json;
}

inline ReferenceJson ReferenceTextOf(std::string text) {
  ReferenceJson json;
  json.kind = ReferenceJson::TEXT;
  json.text = std::move(text);
  return json;
}

// The value of the JSON library that holds the same.
inline rapidjson::Value ToLibrary(const ReferenceJson& json,
                                  rapidjson::Document::AllocatorType& allocator) {
  const auto textOf = [&](const std::string& text) {
    return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
  };
  rapidjson::Value value;
  switch (json.kind) {
    case ReferenceJson::NOTHING:
      break;
    case ReferenceJson::FALSE:
    case ReferenceJson::TRUE:
      value.SetBool(json.kind == ReferenceJson::TRUE);
      break;
    case ReferenceJson::UNSIGNED:
      value.SetUint64(json.number);
      break;
    case ReferenceJson::NEGATIVE:
      value.SetInt64(static_cast<int64_t>(json.number));
      break;
    case ReferenceJson::FRACTION:
      value.SetDouble(json.fraction);
      break;
    case ReferenceJson::TEXT:
      value = textOf(json.text);
      break;
    case ReferenceJson::ARRAY:
      value.SetArray();
      for (const ReferenceJson& element : json.elements) {
        value.PushBack(ToLibrary(element, allocator), allocator);
      }
      break;
    case ReferenceJson::OBJECT:
      value.SetObject();
      for (const auto& [name, member] : json.members) {
        value.AddMember(textOf(name), ToLibrary(member, allocator), allocator);
      }
      break;
  }
  return value;
}
