#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/differential/reference_json.h"

// The rules of the record, spelled out over data of our own.

// The commands, or null when the root has not the shape {"SIP": {"CMD": [...]}}.
inline const std::vector<ReferenceJson>* ReferenceCommands(const ReferenceJson& root) {
  const ReferenceJson* sip = root.Find("SIP");
  const ReferenceJson* commands = sip != nullptr ? sip->Find("CMD") : nullptr;
  return commands != nullptr && commands->kind == ReferenceJson::ARRAY ? &commands->elements
                                                                       : nullptr;
}

inline const ReferenceJson* ReferenceMember(const ReferenceJson& root, uint32_t index,
                                            const char* key) {
  const std::vector<ReferenceJson>* commands = ReferenceCommands(root);
  return commands != nullptr && index < commands->size() ? (*commands)[index].Find(key) : nullptr;
}

// The 64 bits of a number; nothing for what is no number, or a fraction beyond 64 bits.
inline std::optional<uint64_t> ReferenceBits(const ReferenceJson& json) {
  if (json.kind == ReferenceJson::UNSIGNED || json.kind == ReferenceJson::NEGATIVE) {
    return json.number;
  }
  if (json.kind != ReferenceJson::FRACTION) {
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
inline std::vector<uint8_t> ReferencePacked(uint64_t number) {
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
inline std::vector<uint8_t> ReferenceRaw(const ReferenceJson& raw) {
  std::vector<uint8_t> bytes;
  for (const ReferenceJson& element : raw.elements) {
    bytes.push_back(static_cast<uint8_t>(element.number));
  }
  return bytes;
}

inline void AppendReferenceText(std::vector<uint8_t>& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.push_back(0);
}

// An array holds elements of one kind.
inline std::vector<uint8_t> ReferenceArrayBytes(const std::vector<ReferenceJson>& elements) {
  std::vector<uint8_t> bytes;
  for (const ReferenceJson& element : elements) {
    if (element.kind == ReferenceJson::TEXT) {
      AppendReferenceText(bytes, element.text);
    } else if (element.kind == ReferenceJson::UNSIGNED) {
      const std::vector<uint8_t> packed = ReferencePacked(element.number);
      bytes.insert(bytes.end(), packed.begin(), packed.end());
    }
  }
  if (!elements.empty() && elements[0].kind == ReferenceJson::TEXT) {
    bytes.push_back(0);
  }
  return bytes;
}

// Nothing when the data have no bytes.
inline std::optional<std::vector<uint8_t>> ReferenceBytes(const ReferenceJson* data) {
  std::vector<uint8_t> bytes;
  if (data == nullptr) {
    return std::nullopt;
  }
  switch (data->kind) {
    case ReferenceJson::OBJECT:
      return data->Find("RAW") != nullptr ? ReferenceRaw(*data->Find("RAW")) : bytes;
    case ReferenceJson::TEXT:
      AppendReferenceText(bytes, data->text);
      return bytes;
    case ReferenceJson::ARRAY:
      return ReferenceArrayBytes(data->elements);
    case ReferenceJson::UNSIGNED:
      return ReferencePacked(data->number);
    default:
      return std::nullopt;
  }
}

inline uint64_t ReferenceLength(const ReferenceJson* data) {
  if (data == nullptr) {
    return 0;
  }
  switch (data->kind) {
    case ReferenceJson::UNSIGNED:
    case ReferenceJson::NEGATIVE:
      return 8;
    case ReferenceJson::FALSE:
    case ReferenceJson::TRUE:
      return 1;
    case ReferenceJson::FRACTION:
    case ReferenceJson::NOTHING:
      return 0;
    default:
      return ReferenceBytes(data)->size();
  }
}

inline std::optional<uint32_t> ReferenceInteger(const ReferenceJson* data) {
  if (data == nullptr) {
    return std::nullopt;
  }
  const auto low = static_cast<uint32_t>(data->number);
  switch (data->kind) {
    case ReferenceJson::UNSIGNED:
      return data->number == low ? std::optional(low) : std::nullopt;
    case ReferenceJson::NEGATIVE:
      return static_cast<int64_t>(data->number) == static_cast<int32_t>(low) ? std::optional(low)
                                                                             : std::nullopt;
    case ReferenceJson::FALSE:
      return 0;
    case ReferenceJson::TRUE:
      return 1;
    default:
      break;
  }
  const ReferenceJson* raw = data->Find("RAW");
  if (raw == nullptr || raw->elements.empty()) {
    return std::nullopt;
  }
  std::vector<uint8_t> bytes = ReferenceRaw(*raw);
  bytes.resize(4);
  return bytes[0] + bytes[1] * 0x100U + bytes[2] * 0x10000U + bytes[3] * 0x1000000U;
}

inline bool IsReferenceStructure(const ReferenceJson* data) {
  if (data == nullptr) {
    return false;
  }
  return data->kind == ReferenceJson::OBJECT
             ? data->Find("RAW") == nullptr
             : !data->elements.empty() && data->elements[0].kind == ReferenceJson::OBJECT;
}

// Stores a number in the member `key` of a command, for which the array grows.
inline void SetReferenceMember(ReferenceJson& root, uint32_t index, const std::string& key,
                               uint32_t number) {
  auto* commands = const_cast<std::vector<ReferenceJson>*>(ReferenceCommands(root));
  if (commands == nullptr) {
    return;
  }
  while (commands->size() <= index) {
    commands->push_back(ReferenceObject({}));
  }
  ReferenceJson& command = (*commands)[index];
  if (command.kind != ReferenceJson::OBJECT) {
    return;
  }
  if (auto* member = const_cast<ReferenceJson*>(command.Find(key))) {
    *member = ReferenceNumberOf(number);
  } else {
    command.members.push_back({key, ReferenceNumberOf(number)});
  }
}
