#pragma once

#include <string_view>

#include "base/white_space.h"

// The base in which strtol() is to read the number that `text` begins with, after white space and a
// sign: 16 when it begins with 0x, 8 when it begins with another 0, else 10. Asked to find the base
// itself, strtol() takes 0b for binary with some C libraries and not with others.
constexpr int NumberBase(std::string_view text) {
  while (!text.empty() && IsWhiteSpace(text.front())) {
    text.remove_prefix(1);
  }
  if (text.starts_with('+') || text.starts_with('-')) {
    text.remove_prefix(1);
  }
  if (text.starts_with("0x") || text.starts_with("0X")) {
    return 16;
  }
  return text.starts_with('0') ? 8 : 10;
}
