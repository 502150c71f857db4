// Changes of profile files.

#include <filesystem>

#include "platform/profile/profile_string.h"
#include "tests/conformance/conformance.h"
#include "tests/conformance/profile_answers.h"
#include "tests/platform/profile/profile_test_file.h"

namespace {

constexpr char NEW_SECTION[] =
    "a new section begins after an empty line and has an empty line after its header";
constexpr char EMPTY_LINE_STAYS[] =
    "a first entry that is changed leaves an empty line after the header";
constexpr char EXACT_WRITE[] = "sections and keys are matched exactly, case counts";
constexpr char NOTHING_REMOVED[] = "an update that finds nothing to remove has failed";
constexpr char COMMENT_GOES[] = "comments and empty lines belong to the line that follows them";
constexpr char LAST_CHARACTER[] = "the last character of a line counts as its line end";
constexpr char AT_THE_END[] = "a new key of the last section is appended to the file";
constexpr char LF_IS_WRITTEN[] = "a line ends with LF";
constexpr char COMMENT_CUT_AGAIN[] = "a \";\" anywhere begins a comment";
constexpr char QUOTES_STAY_TOO[] = "a value is read as it stands in the file, quotation marks too";
constexpr char CURRENT_DIRECTORY[] = "there is no directory of the system for profile files";

constexpr char ONE[] = "[s]\na=1\n";
constexpr char TWO[] = "[s]\na=1\nb=2\n";
constexpr char SECTIONS_TEXT[] = "[s]\na=1\n[t]\nb=2\n";

constexpr Reading A = {.section = "s", .key = "a"};
constexpr Reading B = {.section = "s", .key = "b"};

Answer ResultOf(const std::optional<std::string>& text, const Update& update) {
  return ResultsOf(text, {update});
}

Answer ValueAfter(const std::string& text, const Update& update, const Reading& reading) {
  return ReadAfter(text, {update}, reading);
}

std::string WriteInto(const std::string& path) {
  return std::to_string(WritePrivateProfileString("s", "a", "1", path.c_str()));
}

std::string FileOfNoSection() {
  const ProfileTestFile file;
  WritePrivateProfileString(nullptr, "a", "1", file.Name());
  return file.Exists() ? "a file" : "no file";
}

std::string LineEndWritten() {
  const ProfileTestFile file("[s]\r\na=1\r\n");
  WritePrivateProfileString("s", "b", "2", file.Name());
  return file.Text().ends_with("\r\n") ? "CR LF" : "LF";
}

std::string DirectoryOfARelativeName() {
  const ScratchDirectory scratch;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(scratch.Path());
  WriteInto("relative.ini");
  std::filesystem::current_path(before);
  return scratch.Read("relative.ini").empty() ? "elsewhere" : "the current directory";
}

std::string NulBytes() {
  const std::string nuls(3, '\0');
  const ProfileTestFile file(nuls + "\n[s]\na=1\n");
  const uint32_t result = WritePrivateProfileString("s", "b", "2", file.Name());
  return result == 1 && file.Text().starts_with(nuls) ? "stay" : "go";
}

}  // namespace

ConformanceCases ProfileWritingCases() {
  return {
      {"section null", ResultOf(ONE, {nullptr, "a", "1"}), "0"},
      {"section null, and no file", &FileOfNoSection, "no file"},
      {"section, key and value null", ResultOf(ONE, {nullptr, nullptr, nullptr}), "0"},
      {"key null, and no file", ResultOf(std::nullopt, {"s", nullptr, "1"}), "1",
       Deliberate{"0", NOTHING_REMOVED}},
      {"value null, and no file", ResultOf(std::nullopt, {"s", "a", nullptr}), "1",
       Deliberate{"0", NOTHING_REMOVED}},
      {"value into a new file", ResultOf(std::nullopt, {"s", "a", "1"}), "1"},
      {"text of a new file", FileAfter(std::nullopt, {{"s", "a", "1"}}), "[s]⏎a=1⏎",
       Deliberate{"⏎[s]⏎⏎a=1⏎", NEW_SECTION}},
      {"text of a new file with an empty value", FileAfter(std::nullopt, {{"s", "a", ""}}),
       "[s]⏎a=⏎", Deliberate{"⏎[s]⏎⏎a=⏎", NEW_SECTION}},
      {"empty value, read back", ReadAfter(std::nullopt, {{"s", "a", ""}}, A), R"(0, "")"},
      {"value, read back", ReadAfter(std::nullopt, {{"s", "a", "text"}}, A), R"(4, "text")"},
      {"value with blanks inside, read back", ReadAfter(ONE, {{"s", "a", "x y"}}, A),
       R"(3, "x y")"},
      {"value with equals signs, read back", ReadAfter(ONE, {{"s", "a", "x=y"}}, A), R"(3, "x=y")"},
      {"value with a semicolon, read back", ReadAfter(ONE, {{"s", "a", "x;y"}}, A), R"(3, "x;y")",
       Deliberate{R"(1, "x")", COMMENT_CUT_AGAIN}},
      {"value in quotes, read back", ReadAfter(ONE, {{"s", "a", "\"x\""}}, A), R"(1, "x")",
       Deliberate{R"(3, ""x"")", QUOTES_STAY_TOO}},
      {"value in quotes, in the file", FileAfter(TWO, {{"s", "b", "\"x\""}}), "[s]⏎a=1⏎b=\"x\"⏎"},
      {"existing key", FileAfter(TWO, {{"s", "b", "9"}}), "[s]⏎a=1⏎b=9⏎"},
      {"existing key, longer value", FileAfter(TWO, {{"s", "b", "1234"}}), "[s]⏎a=1⏎b=1234⏎"},
      {"existing key, shorter value", FileAfter("[s]\na=1\nb=1234\n", {{"s", "b", "2"}}),
       "[s]⏎a=1⏎b=2⏎"},
      {"existing key between others", FileAfter("[s]\na=1\nb=2\nc=3\n", {{"s", "b", "9"}}),
       "[s]⏎a=1⏎b=9⏎c=3⏎"},
      {"first key of a section", FileAfter(TWO, {{"s", "a", "9"}}), "[s]⏎a=9⏎b=2⏎",
       Deliberate{"[s]⏎⏎a=9⏎b=2⏎", EMPTY_LINE_STAYS}},
      {"existing key, the same value", FileAfter(TWO, {{"s", "b", "2"}}), "[s]⏎a=1⏎b=2⏎"},
      {"existing key after a comment", FileAfter("[s]\na=1\n;text\nb=2\n", {{"s", "b", "9"}}),
       "[s]⏎a=1⏎;text⏎b=9⏎", Deliberate{"[s]⏎a=1⏎b=9⏎", COMMENT_GOES}},
      {"existing key before a comment", FileAfter("[s]\na=1\nb=2\n;text\nc=3\n", {{"s", "b", "9"}}),
       "[s]⏎a=1⏎b=9⏎;text⏎c=3⏎"},
      {"key in other case", FileAfter(TWO, {{"s", "B", "9"}}), "[s]⏎a=1⏎b=9⏎",
       Deliberate{"[s]⏎a=1⏎b=2⏎B=9⏎", EXACT_WRITE}},
      {"section in other case, read back", ValueAfter(ONE, {"S", "a", "9"}, A), R"(1, "9")",
       Deliberate{R"(1, "1")", EXACT_WRITE}},
      {"key twice in a section, read back", ValueAfter("[s]\na=1\na=2\n", {"s", "a", "9"}, A),
       R"(1, "9")"},
      {"new key", FileAfter(ONE, {{"s", "b", "2"}}), "[s]⏎a=1⏎b=2⏎"},
      {"new key in a section before another", FileAfter(SECTIONS_TEXT, {{"s", "c", "3"}}),
       "[s]⏎a=1⏎c=3⏎[t]⏎b=2⏎"},
      {"new key before an empty line and another section",
       FileAfter("[s]\na=1\n\n[t]\nb=2\n", {{"s", "c", "3"}}), "[s]⏎a=1⏎c=3⏎⏎[t]⏎b=2⏎"},
      {"new key in the last section, before empty lines",
       FileAfter("[s]\na=1\n\n\n", {{"s", "b", "2"}}), "[s]⏎a=1⏎b=2⏎⏎⏎",
       Deliberate{"[s]⏎a=1⏎⏎⏎b=2⏎", AT_THE_END}},
      {"new key in a section that is empty", FileAfter("[s]\n[t]\nb=2\n", {{"s", "a", "1"}}),
       "[s]⏎a=1⏎[t]⏎b=2⏎"},
      {"new keys, one after the other", FileAfter(ONE, {{"s", "b", "2"}, {"s", "c", "3"}}),
       "[s]⏎a=1⏎b=2⏎c=3⏎"},
      {"new key in a file without a line end", FileAfter("[s]\na=1", {{"s", "b", "2"}}),
       "[s]⏎a=1⏎b=2⏎", Deliberate{"[s]⏎a=1b=2⏎", LAST_CHARACTER}},
      {"new section, where it stands",
       ReadAfter(ONE, {{"t", "b", "2"}}, {.section = nullptr, .key = nullptr}), R"(4, "s\0t\0")"},
      {"new section, its key", ReadAfter(ONE, {{"t", "b", "2"}}, {.section = "t", .key = "b"}),
       R"(1, "2")"},
      {"new section, the key of the other", ValueAfter(ONE, {"t", "b", "2"}, A), R"(1, "1")"},
      {"removal of a key, and again", ResultsOf(TWO, {{"s", "b", nullptr}, {"s", "b", nullptr}}),
       "1, 1", Deliberate{"1, 0", NOTHING_REMOVED}},
      {"removal of a key, the file", FileAfter(TWO, {{"s", "b", nullptr}}), "[s]⏎a=1⏎"},
      {"removal of a key between others", FileAfter("[s]\na=1\nb=2\nc=3\n", {{"s", "b", nullptr}}),
       "[s]⏎a=1⏎c=3⏎"},
      {"removal of the last key of a section", FileAfter(ONE, {{"s", "a", nullptr}}), "[s]⏎",
       Deliberate{"[s]⏎⏎", EMPTY_LINE_STAYS}},
      {"removal of a key after a comment",
       FileAfter("[s]\na=1\n;text\nb=2\n", {{"s", "b", nullptr}}), "[s]⏎a=1⏎;text⏎",
       Deliberate{"[s]⏎a=1⏎", COMMENT_GOES}},
      {"removal of a key in other case", FileAfter(TWO, {{"s", "B", nullptr}}), "[s]⏎a=1⏎",
       Deliberate{"0", EXACT_WRITE}},
      {"removal of a key, read back", ValueAfter(TWO, {"s", "b", nullptr}, B), R"(7, "default")"},
      {"removal of a key from a section that is missing", ResultOf(ONE, {"t", "a", nullptr}), "1",
       Deliberate{"0", NOTHING_REMOVED}},
      {"removal of a section", FileAfter(SECTIONS_TEXT, {{"s", nullptr, nullptr}}), "[t]⏎b=2⏎"},
      {"removal of a section with a value given", FileAfter(SECTIONS_TEXT, {{"s", nullptr, "x"}}),
       "[t]⏎b=2⏎"},
      {"removal of the last section", FileAfter(SECTIONS_TEXT, {{"t", nullptr, nullptr}}),
       "[s]⏎a=1⏎"},
      {"removal of a section between others",
       FileAfter("[s]\na=1\n[t]\nb=2\n[u]\nc=3\n", {{"t", nullptr, nullptr}}), "[s]⏎a=1⏎[u]⏎c=3⏎"},
      {"removal of a section that is empty",
       FileAfter("[s]\n[t]\nb=2\n", {{"s", nullptr, nullptr}}), "[t]⏎b=2⏎"},
      {"removal of a section that is missing", ResultOf(ONE, {"t", nullptr, nullptr}), "1",
       Deliberate{"0", NOTHING_REMOVED}},
      {"removal of a section, read back", ValueAfter(SECTIONS_TEXT, {"s", nullptr, nullptr}, A),
       R"(7, "default")"},
      {"line end that is written", &LineEndWritten, "CR LF", Deliberate{"LF", LF_IS_WRITTEN}},
      {"new key in a file with CR LF, read back", ValueAfter("[s]\r\na=1\r\n", {"s", "b", "2"}, B),
       R"(1, "2")"},
      {"existing key in a file with CR LF, read back",
       ValueAfter("[s]\r\na=1\r\nb=2\r\n", {"s", "b", "9"}, B), R"(1, "9")"},
      {"NUL bytes before the first section", &NulBytes, "stay"},
      {"file in a directory that is missing",
       [] { return WriteInto(ScratchDirectory().Path("missing/file.ini")); }, "0"},
      {"directory in place of a file", [] { return WriteInto(ScratchDirectory().Path()); }, "0"},
      {"file name without a directory", &DirectoryOfARelativeName, "the Windows directory",
       Deliberate{"the current directory", CURRENT_DIRECTORY}},
  };
}
