#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

// The way in which the C library reads numbers, spelled out: blanks, a sign, a prefix, digits up to
// the first character that is none, and the nearest number of the type when the digits are too
// many.

struct ReferenceNumber {
  uint64_t magnitude = 0;  // the largest number when the digits exceed it
  bool isTooLarge = false;
  bool isNegative = false;
  size_t end = 0;  // where the digits end in the text
};

inline uint32_t ReferenceDigit(char letter) {
  const std::string digits = "0123456789abcdef";
  const std::string capitals = "0123456789ABCDEF";
  const size_t position = digits.find(letter);
  return static_cast<uint32_t>(position != std::string::npos ? position : capitals.find(letter));
}

// Nothing when there is no digit. Base 0: by prefix.
inline std::optional<ReferenceNumber> ReadReferenceNumber(const std::string& whole, size_t begin,
                                                          uint32_t base) {
  const std::string text = whole.substr(0, whole.find('\0'));
  ReferenceNumber number;
  size_t position = begin;
  while (position < text.size() &&
         std::string(" \t\n\v\f\r").find(text[position]) != std::string::npos) {
    ++position;
  }
  if (position < text.size() && (text[position] == '-' || text[position] == '+')) {
    number.isNegative = text[position++] == '-';
  }
  const bool hasPrefix = text.size() > position + 2 && text[position] == '0' &&
                         (text[position + 1] == 'x' || text[position + 1] == 'X') &&
                         ReferenceDigit(text[position + 2]) < 16;
  if (hasPrefix && (base == 0 || base == 16)) {
    base = 16;
    position += 2;
  } else if (base == 0) {
    base = position < text.size() && text[position] == '0' ? 8 : 10;
  }
  constexpr auto LARGEST = std::numeric_limits<uint64_t>::max();
  const size_t first = position;
  for (; position < text.size() && ReferenceDigit(text[position]) < base; ++position) {
    const uint64_t digit = ReferenceDigit(text[position]);
    number.isTooLarge = number.isTooLarge || number.magnitude > (LARGEST - digit) / base;
    number.magnitude = number.isTooLarge ? LARGEST : number.magnitude * base + digit;
  }
  if (position == first) {
    return std::nullopt;
  }
  number.end = position;
  return number;
}

// As a signed number of 64 bits.
inline int64_t ReferenceSigned(const ReferenceNumber& number) {
  constexpr auto LARGEST = std::numeric_limits<int64_t>::max();
  constexpr auto LEAST = std::numeric_limits<int64_t>::min();
  if (number.magnitude > static_cast<uint64_t>(LARGEST)) {
    return number.isNegative ? LEAST : LARGEST;
  }
  const auto value = static_cast<int64_t>(number.magnitude);
  return number.isNegative ? -value : value;
}
