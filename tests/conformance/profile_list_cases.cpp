// Names of sections and keys.

#include "tests/conformance/conformance.h"
#include "tests/conformance/profile_answers.h"
#include "tests/platform/profile/profile_test_file.h"

namespace {

constexpr char LIST_ONLY_LF[] = "a line ends with LF";

constexpr Reading SECTIONS = {.section = nullptr, .key = nullptr};
constexpr Reading KEYS = {.key = nullptr};

constexpr Reading WithSize(Reading reading, unsigned size) {
  reading.size = size;
  return reading;
}

Answer ReadListWith(const char* lineEnd, const Reading& reading) {
  return Read(reading, WithLineEnds(PROFILE_TEXT, lineEnd));
}

// The end of the buffer of a list of sections.
Answer EndOfSections(unsigned size) {
  return [size]() -> std::string {
    const ProfileTestFile file(PROFILE_TEXT);
    const ProfileAnswer answer = ReadProfile(file.Name(), nullptr, nullptr, "default", size);
    const std::string end =
        answer.buffer.substr(answer.count == size - 2 ? answer.count : answer.count - 1);
    return end.substr(0, 2) == std::string(2, '\0') ? "two NULs" : "no two NULs";
  };
}

}  // namespace

ConformanceCases ProfileListCases() {
  return {
      {"sections", Read(SECTIONS), R"(18, "section1\0section2\0")"},
      {"sections of a file with one", Read(SECTIONS, "[a]\nkey=1\n"), R"(2, "a\0")"},
      {"sections, a key asked for all the same", Read({.section = nullptr}),
       R"(18, "section1\0section2\0")"},
      {"sections into a buffer of 16", Read(WithSize(SECTIONS, 16)), R"(14, "section1\0secti")"},
      {"end of a list that is cut", EndOfSections(16), "two NULs"},
      {"end of a list that is not cut", EndOfSections(32), "two NULs"},
      {"sections after a comment", Read(SECTIONS, ";[no]\n[a]\n[b]\n"), R"(4, "a\0b\0")"},
      {"sections after blanks", Read(SECTIONS, "  [a]\n"), R"(2, "a\0")"},
      {"keys", Read(KEYS), R"(18, "name1\0name2\0name4\0")"},
      {"keys into a buffer of 16", Read(WithSize(KEYS, 16)), R"(14, "name1\0name2\0na")"},
      {"keys around a comment", Read(KEYS, "[section1]\na=1\n;b=2\nc=3\n"), R"(4, "a\0c\0")"},
      {"keys with empty values", Read(KEYS, "[section1]\na=\nb=\n"), R"(4, "a\0b\0")"},
      {"keys in the spelling of the file", Read(KEYS, "[section1]\nMiXed=1\n"), R"(6, "MiXed\0")"},
      {"keys of the section, not of the next", Read(KEYS, "[section1]\na=1\n[section2]\nb=2\n"),
       R"(2, "a\0")"},
      {"keys with blanks around them", Read(KEYS, "[section1]\n  a  =1\n"), R"(2, "a\0")"},
      {"CR LF, sections", ReadListWith("\r\n", SECTIONS), R"(18, "section1\0section2\0")"},
      {"CR LF, keys", ReadListWith("\r\n", KEYS), R"(18, "name1\0name2\0name4\0")"},
      {"CR LF, sections into a buffer of 16", ReadListWith("\r\n", WithSize(SECTIONS, 16)),
       R"(14, "section1\0secti")"},
      {"CR, sections", ReadListWith("\r", SECTIONS), R"(18, "section1\0section2\0")",
       Deliberate{R"(9, "section1\0")", LIST_ONLY_LF}},
      {"CR, keys", ReadListWith("\r", KEYS), R"(18, "name1\0name2\0name4\0")",
       Deliberate{R"(0, "")", LIST_ONLY_LF}},
  };
}
