#pragma once

#include <string_view>

// What isspace() takes for white space in the C locale.
inline constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";

// Whether the character is one of WHITE_SPACE.
constexpr bool IsWhiteSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}
