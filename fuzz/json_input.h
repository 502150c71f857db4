#pragma once

#include <rapidjson/document.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "frame/sip_json.h"

// The input of the targets for records: one character whose distance from "0" is the index of the
// current command, then the document as JSON. What is not JSON makes an empty record. NaN and
// infinity, which a sender's library may have written, are accepted too.
inline SipJson ParseRecord(const uint8_t* data, size_t size) {
  SipJson record;
  if (size > 0) {
    record.m_nCmdIndex = static_cast<uint32_t>(data[0]) - '0';
    record.m_oDocument.Parse<rapidjson::kParseNanAndInfFlag | rapidjson::kParseTrailingCommasFlag |
                             rapidjson::kParseStopWhenDoneFlag>(
        reinterpret_cast<const char*>(data + 1), size - 1);
  }
  return record;
}

inline bool IsSameText(const rapidjson::Value& left, const rapidjson::Value& right) {
  return left.GetStringLength() == right.GetStringLength() &&
         std::memcmp(left.GetString(), right.GetString(), left.GetStringLength()) == 0;
}

// True when both hold the same values in the same order, with numbers of the same types. The
// library's own comparison ignores the order of members, and NaN equals nothing.
inline bool IsSameJson(const rapidjson::Value& left, const rapidjson::Value& right) {
  if (left.GetType() != right.GetType()) {
    return false;
  }
  switch (left.GetType()) {
    case rapidjson::kObjectType:
      return std::equal(left.MemberBegin(), left.MemberEnd(), right.MemberBegin(),
                        right.MemberEnd(), [](const auto& one, const auto& other) {
                          return IsSameText(one.name, other.name) &&
                                 IsSameJson(one.value, other.value);
                        });
    case rapidjson::kArrayType:
      return std::equal(left.Begin(), left.End(), right.Begin(), right.End(), IsSameJson);
    case rapidjson::kStringType:
      return IsSameText(left, right);
    case rapidjson::kNumberType: {
      if (!left.IsDouble() || !right.IsDouble()) {
        return left.IsDouble() == right.IsDouble() && left == right;
      }
      return std::bit_cast<uint64_t>(left.GetDouble()) ==
             std::bit_cast<uint64_t>(right.GetDouble());
    }
    default:
      return true;
  }
}
