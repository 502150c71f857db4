// Values of profile files.

#include "platform/profile/profile.h"
#include "tests/conformance/conformance.h"
#include "tests/conformance/profile_answers.h"
#include "tests/platform/profile/profile_test_file.h"

namespace {

constexpr char EXACT_READ[] = "sections and keys are matched exactly, case counts";
constexpr char QUOTES_STAY[] = "a value is read as it stands in the file, quotation marks too";
constexpr char COMMENT_CUT[] = "a \";\" anywhere begins a comment";
constexpr char DEFAULT_AS_IS[] = "the default is copied as it is";
constexpr char ONLY_LF[] = "a line ends with LF";
constexpr char PIECES[] = "a line is read in pieces of 1023 bytes";
constexpr char BYTES[] = "a file is a string of bytes without a mark of its encoding";

// A value of section1 that stands in the file after "key=".
Answer Value(const std::string& value, unsigned size = 260) {
  return Read({.key = "key", .size = size}, "[section1]\nkey=" + value + "\n");
}

// "key" of section1 in a file of that text.
Answer KeyIn(const std::string& text, unsigned size = 260) {
  return Read({.key = "key", .size = size}, text);
}

Answer WithDefault(const char* defaultValue, unsigned size = 260) {
  return Read({.key = "missing", .defaultValue = defaultValue, .size = size});
}

// The base file with other line ends.
Answer ReadWith(const char* lineEnd, Reading reading) {
  return Read(reading, WithLineEnds(PROFILE_TEXT, lineEnd));
}

Answer Integer(const char* value) {
  return [value] {
    const ScratchDirectory scratch;
    const CProfile profile(scratch.Write("file.ini", std::string("[section1]\n") + value));
    return std::to_string(profile.ReadInteger("section1", "key", 7));
  };
}

// `text` in UTF-16, little end first, with its mark.
std::string InUtf16(const std::string& text) {
  std::string wide = "\xFF\xFE";
  for (const char letter : text) {
    wide += {letter, '\0'};
  }
  return wide;
}

std::string ReadFileOf(const char* fileName) {
  const ProfileAnswer answer = ReadProfile(fileName, "section1", "name1", "default");
  return std::to_string(answer.count) + ", \"" + answer.text + "\"";
}

std::string LongAnswer() {
  const std::string answer = Value(std::string(2000, 'x'), 4096)();
  return answer.substr(0, answer.find(',')) + " characters";
}

}  // namespace

ConformanceCases ProfileReadingCases() {
  return {
      {"value", Read({}), R"(4, "val1")"},
      {"value of one character", Read({.key = "name4"}), R"(1, "a")"},
      {"value of the last key of a section", Read({.key = "name4"}), R"(1, "a")"},
      {"value in the last line, which has no line end", KeyIn("[section1]\nkey=a"), R"(1, "a")"},
      {"key of another section", Read({.section = "section2"}), R"(7, "default")"},
      {"section that is missing", Read({.section = "section3"}), R"(7, "default")"},
      {"section of no name", Read({.section = ""}), R"(7, "default")"},
      {"section in other case", Read({.section = "SECTION1"}), R"(4, "val1")",
       Deliberate{R"(7, "default")", EXACT_READ}},
      {"section whose name only begins so", Read({.section = "section"}), R"(7, "default")"},
      {"key that is missing", Read({.key = "name5"}), R"(7, "default")"},
      {"key of no name", Read({.key = ""}), R"(7, "default")"},
      {"key in other case", Read({.key = "Name1"}), R"(4, "val1")",
       Deliberate{R"(7, "default")", EXACT_READ}},
      {"key whose name only begins so", Read({.key = "name"}), R"(7, "default")"},
      {"file that is missing", Read({}, std::nullopt), R"(7, "default")"},
      {"file null", [] { return ReadFileOf(nullptr); }, R"(7, "default")"},
      {"file of no name", [] { return ReadFileOf(""); }, R"(7, "default")"},
      {"file that is empty", Read({}, ""), R"(7, "default")"},
      {"file in UTF-16 with its mark", Read({}, InUtf16(PROFILE_TEXT)), R"(4, "val1")",
       Deliberate{R"(7, "default")", BYTES}},
      {"default null", WithDefault(nullptr), R"(0, "")"},
      {"default empty", WithDefault(""), R"(0, "")"},
      {"default with blanks inside", WithDefault("a b  c"), R"(6, "a b  c")"},
      {"default with trailing blanks", WithDefault("text  "), R"(4, "text")",
       Deliberate{R"(6, "text  ")", DEFAULT_AS_IS}},
      {"default of blanks", WithDefault("  "), R"(0, "")", Deliberate{R"(2, "  ")", DEFAULT_AS_IS}},
      {"default longer than the buffer", WithDefault("default", 5), R"(4, "defa")"},
      {"default that fills the buffer", WithDefault("default", 8), R"(7, "default")"},
      {"default into a buffer of 1", WithDefault("default", 1), R"(0, "")"},
      {"buffer of 0", Read({.size = 0}), "0, nothing stored"},
      {"buffer of 1", Read({.size = 1}), R"(0, "")"},
      {"buffer of 2", Read({.size = 2}), R"(1, "v")"},
      {"buffer without room for the terminator", Read({.size = 4}), R"(3, "val")"},
      {"buffer that the value fills", Read({.size = 5}), R"(4, "val1")"},
      {"value of one character into a buffer of 2", Read({.key = "name4", .size = 2}), R"(1, "a")"},
      {"value in double quotes", Read({.key = "name2"}), R"(4, "val2")",
       Deliberate{R"(6, ""val2"")", QUOTES_STAY}},
      {"value in single quotes", Value("'val2'"), R"(4, "val2")",
       Deliberate{R"(6, "'val2'")", QUOTES_STAY}},
      {"value in quotes, with blanks inside them", Value("\" x \""), R"(3, " x ")",
       Deliberate{R"(5, "" x "")", QUOTES_STAY}},
      {"value with a quotation mark at its start only", Value("\"x"), R"(2, ""x")"},
      {"value with quotation marks inside", Value("a\"b\"c"), R"(5, "a"b"c")"},
      {"value that is empty", Value(""), R"(0, "")"},
      {"value with blanks inside", Value("a b  c"), R"(6, "a b  c")"},
      {"value with blanks before and after it", Value("  a  "), R"(1, "a")"},
      {"value with equals signs", Value("a=b=c"), R"(5, "a=b=c")"},
      {"value with a semicolon", Value("a;b"), R"(3, "a;b")", Deliberate{R"(1, "a")", COMMENT_CUT}},
      {"value followed by a comment", Value("a ; text"), R"(8, "a ; text")",
       Deliberate{R"(1, "a")", COMMENT_CUT}},
      {"value with a number sign", Value("a # text"), R"(8, "a # text")"},
      {"value with brackets", Value("[section2]"), R"(10, "[section2]")"},
      {"value with percent signs, which are not expanded", Value("%PATH%"), R"(6, "%PATH%")"},
      {"value of 2000 characters", &LongAnswer, "2000 characters",
       Deliberate{"1019 characters", PIECES}},
      {"blanks between key and equals sign", KeyIn("[section1]\nkey  =a\n"), R"(1, "a")"},
      {"blanks before the key", KeyIn("[section1]\n  key=a\n"), R"(1, "a")"},
      {"blanks before the header", KeyIn("  [section1]\nkey=a\n"), R"(1, "a")"},
      {"empty lines in the section", KeyIn("[section1]\n\n\nkey=a\n"), R"(1, "a")"},
      {"line of comment in the section", KeyIn("[section1]\n;comment\nkey=a\n"), R"(1, "a")"},
      {"key that is commented out", KeyIn("[section1]\n;key=a\n"), R"(7, "default")"},
      {"key that begins with a number sign", Read({.key = "#key"}, "[section1]\n#key=a\n"),
       R"(1, "a")"},
      {"key twice in a section", KeyIn("[section1]\nkey=a\nkey=b\n"), R"(1, "a")"},
      {"section twice, key in both", KeyIn("[section1]\nkey=a\n[section1]\nkey=b\n"), R"(1, "a")"},
      {"section twice, key in the second", KeyIn("[section1]\nother=a\n[x]\n[section1]\nkey=b\n"),
       R"(7, "default")"},
      {"key before the first header", KeyIn("key=a\n[section1]\n"), R"(7, "default")"},
      {"CR LF, value", ReadWith("\r\n", {}), R"(4, "val1")"},
      {"CR LF, value of one character", ReadWith("\r\n", {.key = "name4"}), R"(1, "a")"},
      {"CR LF, key that is missing", ReadWith("\r\n", {.key = "name5"}), R"(7, "default")"},
      {"CR LF, section that is empty", ReadWith("\r\n", {.section = "section2"}),
       R"(7, "default")"},
      {"CR LF, buffer without room for the terminator", ReadWith("\r\n", {.size = 4}),
       R"(3, "val")"},
      {"CR, value", ReadWith("\r", {}), R"(4, "val1")", Deliberate{R"(7, "default")", ONLY_LF}},
      {"CR, value of one character", ReadWith("\r", {.key = "name4"}), R"(1, "a")",
       Deliberate{R"(7, "default")", ONLY_LF}},
      {"CR, key that is missing", ReadWith("\r", {.key = "name5"}), R"(7, "default")"},
      {"integer", Integer("key=1234\n"), "1234"},
      {"integer after blanks", Integer("key=  12\n"), "12"},
      {"integer in hexadecimal", Integer("key=0x1F\n"), "31"},
      {"integer followed by text", Integer("key=102abc\n"), "102"},
      {"integer of a key that is missing", Integer("other=1\n"), "7"},
  };
}
