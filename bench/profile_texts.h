#pragma once

#include <string>

constexpr int PROFILE_LINES = 1000;
constexpr int PROFILE_KEYS_IN_SECTION = 50;

inline std::string ProfileKey(int line) { return "Key" + std::to_string(line); }

inline std::string ProfileSection(int line) {
  return "Section" + std::to_string(line / PROFILE_KEYS_IN_SECTION);
}

inline std::string LastProfileSection(int lines) { return ProfileSection(lines - 1); }

// A profile file with that many keys.
inline std::string ProfileText(int lines) {
  std::string text;
  for (int line = 0; line < lines; ++line) {
    if (line % PROFILE_KEYS_IN_SECTION == 0) {
      text += "\n[" + ProfileSection(line) + "]\n\n";
    }
    text += ProfileKey(line) + "=value of the key " + std::to_string(line) + "\n";
  }
  return text;
}
