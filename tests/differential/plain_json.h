#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A JSON value as plain data, to read records without the JSON library.
struct PlainField;

struct PlainJson {
  enum Kind { NOTHING, FALSE, TRUE, UNSIGNED, NEGATIVE, FRACTION, TEXT, ARRAY, OBJECT };

  const PlainJson* Find(const std::string& name) const;

  Kind kind = NOTHING;
  uint64_t number = 0;  // two's complement when negative
  double fraction = 0;
  std::string text;
  std::vector<PlainJson> elements;
  std::vector<PlainField> members;
};

struct PlainField {
  std::string name;
  PlainJson value;
};

inline const PlainJson* PlainJson::Find(const std::string& name) const {
  for (const PlainField& member : members) {
    if (member.name == name) {
      return &member.value;
    }
  }
  return nullptr;
}

inline PlainJson PlainNumberOf(uint64_t number) {
  PlainJson json;
  json.kind = PlainJson::UNSIGNED;
  json.number = number;
  return json;
}

inline PlainJson PlainObject(std::vector<PlainField> members) {
  PlainJson json;
  json.kind = PlainJson::OBJECT;
  json.members = std::move(members);
  return json;
}

inline PlainJson PlainArray(std::vector<PlainJson> elements) {
  PlainJson json;
  json.kind = PlainJson::ARRAY;
  json.elements = std::move(elements);
  return json;
}

inline PlainJson PlainTextOf(std::string text) {
  PlainJson json;
  json.kind = PlainJson::TEXT;
  json.text = std::move(text);
  return json;
}

// The value of the JSON library that holds the same.
inline rapidjson::Value ToLibrary(const PlainJson& json,
                                  rapidjson::Document::AllocatorType& allocator) {
  const auto textOf = [&](const std::string& text) {
    return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
  };
  rapidjson::Value value;
  switch (json.kind) {
    case PlainJson::NOTHING:
      break;
    case PlainJson::FALSE:
    case PlainJson::TRUE:
      value.SetBool(json.kind == PlainJson::TRUE);
      break;
    case PlainJson::UNSIGNED:
      value.SetUint64(json.number);
      break;
    case PlainJson::NEGATIVE:
      value.SetInt64(static_cast<int64_t>(json.number));
      break;
    case PlainJson::FRACTION:
      value.SetDouble(json.fraction);
      break;
    case PlainJson::TEXT:
      value = textOf(json.text);
      break;
    case PlainJson::ARRAY:
      value.SetArray();
      for (const PlainJson& element : json.elements) {
        value.PushBack(ToLibrary(element, allocator), allocator);
      }
      break;
    case PlainJson::OBJECT:
      value.SetObject();
      for (const auto& [name, member] : json.members) {
        value.AddMember(textOf(name), ToLibrary(member, allocator), allocator);
      }
      break;
  }
  return value;
}
