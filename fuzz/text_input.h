#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The input of the targets for files of lines. Byte 1 stands for 250 letters, sixteen times at
// most: so inputs stay short, and quick to run, although their lines are too long for one piece.
inline std::string ReadText(const uint8_t* data, size_t size) {
  constexpr size_t RUN_LENGTH = 250;
  constexpr int MOST_RUNS = 16;
  std::string text(reinterpret_cast<const char*>(data), size);
  size_t position = text.find('\1');
  for (int runs = 0; runs < MOST_RUNS && position != std::string::npos; ++runs) {
    text.replace(position, 1, RUN_LENGTH, 'x');
    position = text.find('\1', position + RUN_LENGTH);
  }
  return text;
}

// Removes everything up to the first `separator` from `text` and returns what came before it;
// without a separator, everything.
inline std::string_view TakePiece(std::string_view& text, std::string_view separator) {
  const size_t end = text.find(separator);
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + separator.size());
  return piece;
}
