#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Questions to the profile strings. Each works on a file of its own, in a directory of its own.

using Answer = std::function<std::string()>;

// The file that most questions are asked of.
constexpr char PROFILE_TEXT[] =
    "[section1]\nname1=val1\nname2=\"val2\"\nname3\nname4=a\n[section2]\n";

// What GetPrivateProfileString() is asked; a null text: there is no file.
struct Reading {
  const char* section = "section1";
  const char* key = "name1";
  const char* defaultValue = "default";
  unsigned size = 260;  // of the buffer, bytes
};

// The count and the characters stored, as in `4, "val1"`; NULs show as \0.
Answer Read(Reading reading, const std::optional<std::string>& text = PROFILE_TEXT);

// `text` with other line ends.
std::string WithLineEnds(const std::string& text, const std::string& lineEnd);

// One WritePrivateProfileString().
struct Update {
  const char* section;
  const char* key;
  const char* value;
};

// The file after the updates, with "⏎" for each line end, or what is wrong with it: "no file", "0"
// when an update failed.
Answer FileAfter(const std::optional<std::string>& text, const std::vector<Update>& updates);

// The results of the updates, as in "1, 0".
Answer ResultsOf(const std::optional<std::string>& text, const std::vector<Update>& updates);

// What a reading gives after the updates, which succeed.
Answer ReadAfter(const std::optional<std::string>& text, const std::vector<Update>& updates,
                 Reading reading);
