#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/differential/plain_json.h"

// The rules of the record, spelled out over plain data.

// The commands, or null when the root has not the shape {"SIP": {"CMD": [...]}}.
inline const std::vector<PlainJson>* PlainCommands(const PlainJson& root) {
  const PlainJson* sip = root.Find("SIP");
  const PlainJson* commands = sip != nullptr ? sip->Find("CMD") : nullptr;
  return commands != nullptr && commands->kind == PlainJson::ARRAY ? &commands->elements : nullptr;
}

inline const PlainJson* PlainMember(const PlainJson& root, uint32_t index, const char* key) {
  const std::vector<PlainJson>* commands = PlainCommands(root);
  return commands != nullptr && index < commands->size() ? (*commands)[index].Find(key) : nullptr;
}

// The 64 bits of a number; nothing for what is no number, or a fraction beyond 64 bits.
inline std::optional<uint64_t> PlainBits(const PlainJson& json) {
  if (json.kind == PlainJson::UNSIGNED || json.kind == PlainJson::NEGATIVE) {
    return json.number;
  }
  if (json.kind != PlainJson::FRACTION) {
    return std::nullopt;
  }
  if (json.fraction >= 0 && json.fraction < std::ldexp(1, 64)) {
    return static_cast<uint64_t>(json.fraction);
  }
  if (json.fraction < 0 && json.fraction >= -std::ldexp(1, 63)) {
    return static_cast<uint64_t>(static_cast<int64_t>(json.fraction));
  }
  return std::nullopt;
}

// The bytes that hold a number in a list.
inline std::vector<uint8_t> PlainPacked(uint64_t number) {
  size_t width = 8;
  if (number < 0x100) {
    width = 1;
  } else if (number < 0x10000) {
    width = 2;
  } else if (number <= 0xFFFFFFFF) {
    width = 4;
  }
  std::vector<uint8_t> bytes;
  for (size_t count = 0; count < width; ++count) {
    bytes.push_back(static_cast<uint8_t>(number % 256));
    number /= 256;
  }
  return bytes;
}

// The elements of "RAW", of which every sender makes numbers from 0 to 255.
inline std::vector<uint8_t> PlainRaw(const PlainJson& raw) {
  std::vector<uint8_t> bytes;
  for (const PlainJson& element : raw.elements) {
    bytes.push_back(static_cast<uint8_t>(element.number));
  }
  return bytes;
}

inline void AppendPlainText(std::vector<uint8_t>& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.push_back(0);
}

// An array holds elements of one kind.
inline std::vector<uint8_t> PlainArrayBytes(const std::vector<PlainJson>& elements) {
  std::vector<uint8_t> bytes;
  for (const PlainJson& element : elements) {
    if (element.kind == PlainJson::TEXT) {
      AppendPlainText(bytes, element.text);
    } else if (element.kind == PlainJson::UNSIGNED) {
      const std::vector<uint8_t> packed = PlainPacked(element.number);
      bytes.insert(bytes.end(), packed.begin(), packed.end());
    }
  }
  if (!elements.empty() && elements[0].kind == PlainJson::TEXT) {
    bytes.push_back(0);
  }
  return bytes;
}

// Nothing when the data have no bytes.
inline std::optional<std::vector<uint8_t>> PlainBytes(const PlainJson* data) {
  std::vector<uint8_t> bytes;
  if (data == nullptr) {
    return std::nullopt;
  }
  switch (data->kind) {
    case PlainJson::OBJECT:
      return data->Find("RAW") != nullptr ? PlainRaw(*data->Find("RAW")) : bytes;
    case PlainJson::TEXT:
      AppendPlainText(bytes, data->text);
      return bytes;
    case PlainJson::ARRAY:
      return PlainArrayBytes(data->elements);
    case PlainJson::UNSIGNED:
      return PlainPacked(data->number);
    default:
      return std::nullopt;
  }
}

inline uint64_t PlainLength(const PlainJson* data) {
  if (data == nullptr) {
    return 0;
  }
  switch (data->kind) {
    case PlainJson::UNSIGNED:
    case PlainJson::NEGATIVE:
      return 8;
    case PlainJson::FALSE:
    case PlainJson::TRUE:
      return 1;
    case PlainJson::FRACTION:
    case PlainJson::NOTHING:
      return 0;
    default:
      return PlainBytes(data)->size();
  }
}

inline std::optional<uint32_t> PlainInteger(const PlainJson* data) {
  if (data == nullptr) {
    return std::nullopt;
  }
  const auto low = static_cast<uint32_t>(data->number);
  switch (data->kind) {
    case PlainJson::UNSIGNED:
      return data->number == low ? std::optional(low) : std::nullopt;
    case PlainJson::NEGATIVE:
      return static_cast<int64_t>(data->number) == static_cast<int32_t>(low) ? std::optional(low)
                                                                             : std::nullopt;
    case PlainJson::FALSE:
      return 0;
    case PlainJson::TRUE:
      return 1;
    default:
      break;
  }
  const PlainJson* raw = data->Find("RAW");
  if (raw == nullptr || raw->elements.empty()) {
    return std::nullopt;
  }
  std::vector<uint8_t> bytes = PlainRaw(*raw);
  bytes.resize(4);
  return bytes[0] + bytes[1] * 0x100U + bytes[2] * 0x10000U + bytes[3] * 0x1000000U;
}

inline bool IsPlainStructure(const PlainJson* data) {
  if (data == nullptr) {
    return false;
  }
  return data->kind == PlainJson::OBJECT
             ? data->Find("RAW") == nullptr
             : !data->elements.empty() && data->elements[0].kind == PlainJson::OBJECT;
}

// Stores a number in the member `key` of a command, for which the array grows.
inline void SetPlainMember(PlainJson& root, uint32_t index, const std::string& key,
                           uint32_t number) {
  auto* commands = const_cast<std::vector<PlainJson>*>(PlainCommands(root));
  if (commands == nullptr) {
    return;
  }
  while (commands->size() <= index) {
    commands->push_back(PlainObject({}));
  }
  PlainJson& command = (*commands)[index];
  if (command.kind != PlainJson::OBJECT) {
    return;
  }
  if (auto* member = const_cast<PlainJson*>(command.Find(key))) {
    *member = PlainNumberOf(number);
  } else {
    command.members.push_back({key, PlainNumberOf(number)});
  }
}
