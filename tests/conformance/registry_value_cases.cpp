// Values of the registry.

#include <cstdlib>

#include "tests/conformance/conformance.h"
#include "tests/conformance/registry_answers.h"

namespace {

constexpr char EXACT_VALUES[] = "names are matched exactly, case counts";
constexpr char TERMINATED[] = "a string ends at its first NUL, and is kept with one";
constexpr char FOUR_TYPES[] = "strings, bytes and integers of 32 bits are all there is";
constexpr char INTEGER_SIZE[] = "an integer has 4 bytes";
constexpr char NO_NULL_NAME[] = "a null name is none: nothing is stored, found or deleted";
constexpr char SHARED_SPACE[] = "values and subkeys of a key share one name space";
constexpr char LENGTH_OF_TEXT[] = "the count is the length of the string, without its terminator";
constexpr char COUNT_STAYS[] = "the count is changed by success only";
constexpr char COUNT_WANTED[] = "a count is wanted";
constexpr char EXPANDED[] = "an expandable string is expanded as it is read";
constexpr char UNSET_IS_EMPTY[] = "a variable that is not set expands to nothing";
constexpr char EXACT_VARIABLES[] = "names of environment variables are matched exactly";
constexpr char ONLY_STRINGS[] = "for a string a value of another type counts as missing";
constexpr char MISSING_IS_DONE[] = "what is not there is deleted already";
constexpr char ERRNO_AGAIN[] = "values fail with numbers of errno";
constexpr char ONE_IS_SUCCESS[] =
    "the form with length and type tells 1 for success and 0 for failure";

// The string "text" in "value", queried with a buffer of that size.
std::function<std::string()> Query(uint32_t size) {
  return AskRegistry([size](CRegistry& key) {
    key.SetValue("value", "text");
    std::string buffer(size, '#');
    uint32_t count = size;
    const int32_t result = key.QueryValue(buffer.data(), "value", &count);
    return ResultWord(result) + ", " + std::to_string(count);
  });
}

std::function<std::string()> QueryWithoutCount(bool hasBuffer) {
  return AskRegistry([hasBuffer](CRegistry& key) {
    key.SetValue("value", "text");
    std::string buffer(16, '#');
    return ResultWord(key.QueryValue(hasBuffer ? buffer.data() : nullptr, "value", nullptr));
  });
}

// What a value of that type and those bytes is read back as.
std::function<std::string()> SizeAfterSet(uint32_t type, const std::string& bytes) {
  return AskRegistry([=](CRegistry& key) {
    return Store(key, "value", bytes, type) == "stored" ? SizeOf(key, "value") : "refused";
  });
}

// The text of an expandable string.
std::function<std::string()> Expanded(const char* text, bool isExpanded = true) {
  return AskRegistry([=](CRegistry& key) {
    setenv("CONFORMANCE", "value", 1);
    unsetenv("NOT_SET");
    Store(key, "value", text, REG_EXPAND_SZ);
    key.SetExpand(isExpanded);
    return TextOf(key, "value");
  });
}

// Sets "value" after `before` has changed the key, and asks.
std::function<std::string()> AfterText(const char* name, const RegistrySteps& steps) {
  return AskRegistry([=](CRegistry& key) {
    key.SetValue(name, "text");
    return steps(key);
  });
}

std::string WithoutKey(const RegistrySteps& steps) {
  CRegistry none;
  return steps(none);
}

const std::string NUL(1, '\0');

}  // namespace

ConformanceCases RegistryValueCases() {
  return {
      {"numbers of the types string, expandable, binary and integer",
       [] {
         return std::to_string(REG_SZ) + ", " + std::to_string(REG_EXPAND_SZ) + ", " +
                std::to_string(REG_BINARY) + ", " + std::to_string(REG_DWORD);
       },
       "1, 2, 3, 4"},
      {"number for success of a query",
       AfterText("value",
                 [](CRegistry& key) {
                   std::string text;
                   return std::to_string(key.QueryValue(text, "value"));
                 }),
       "0"},
      {"number for success of a set", AskRegistry([](CRegistry& key) {
         return std::to_string(key.SetValue("value", "text", 4, REG_SZ));
       }),
       "0", Deliberate{"1", ONE_IS_SUCCESS}},
      {"number for a missing value", AskRegistry([](CRegistry& key) {
         std::string text;
         return std::to_string(key.QueryValue(text, "value"));
       }),
       "2", Deliberate{"61", ERRNO_AGAIN}},
      {"number for a buffer that is too small",
       AfterText("value",
                 [](CRegistry& key) {
                   char buffer[2];
                   uint32_t count = sizeof(buffer);
                   return std::to_string(key.QueryValue(buffer, "value", &count));
                 }),
       "234", Deliberate{"34", ERRNO_AGAIN}},
      {"number for no key", AskRegistry([](CRegistry&) {
         CRegistry none;
         std::string text;
         return std::to_string(none.QueryValue(text, "value"));
       }),
       "6", Deliberate{"22", ERRNO_AGAIN}},
      {"string set and queried", AfterText("a", [](CRegistry& key) { return TextOf(key, "a"); }),
       "\"text\""},
      {"string set with its terminator", SizeAfterSet(REG_SZ, "text" + NUL), "type 1, 5 bytes"},
      {"string set without a terminator", AskRegistry([](CRegistry& key) {
         key.SetValue("value", "text and more", 4, REG_SZ);
         return SizeOf(key, "value");
       }),
       "type 1, 4 bytes", Deliberate{"type 1, 5 bytes", TERMINATED}},
      {"string set with a NUL inside", SizeAfterSet(REG_SZ, "a" + NUL + "b" + NUL),
       "type 1, 4 bytes", Deliberate{"type 1, 2 bytes", TERMINATED}},
      {"string set with no bytes", SizeAfterSet(REG_SZ, ""), "type 1, 0 bytes",
       Deliberate{"type 1, 1 bytes", TERMINATED}},
      {"bytes set", SizeAfterSet(REG_BINARY, "a" + NUL + "b"), "type 3, 3 bytes"},
      {"bytes set, their values", AskRegistry([](CRegistry& key) {
         Store(key, "value", "\x01" + NUL + "\xFF", REG_BINARY);
         return BytesOf(key, "value");
       }),
       "01 00 ff"},
      {"bytes set, none of them", SizeAfterSet(REG_BINARY, ""), "type 3, 0 bytes"},
      {"integer set", SizeAfterSet(REG_DWORD, "abcd"), "type 4, 4 bytes"},
      {"integer set, its bytes", AskRegistry([](CRegistry& key) {
         Store(key, "value", "\x01\xFF\xFF\xFF", REG_DWORD);
         return BytesOf(key, "value");
       }),
       "01 ff ff ff"},
      {"integer set with 2 bytes", SizeAfterSet(REG_DWORD, "ab"), "type 4, 2 bytes",
       Deliberate{"refused", INTEGER_SIZE}},
      {"type 0 (none) set", SizeAfterSet(0, "ab"), "type 0, 2 bytes",
       Deliberate{"refused", FOUR_TYPES}},
      {"type 7 (list of strings) set", SizeAfterSet(7, "a" + NUL + NUL), "type 7, 3 bytes",
       Deliberate{"refused", FOUR_TYPES}},
      {"type 11 (integer of 64 bits) set", SizeAfterSet(11, "abcdefgh"), "type 11, 8 bytes",
       Deliberate{"refused", FOUR_TYPES}},
      {"value set over a string, as an integer",
       AfterText("value",
                 [](CRegistry& key) {
                   key.SetValue("value", 1);
                   return SizeOf(key, "value");
                 }),
       "type 4, 4 bytes"},
      {"value set over a longer one",
       AfterText("value",
                 [](CRegistry& key) {
                   key.SetValue("value", "a");
                   return TextOf(key, "value");
                 }),
       "\"a\""},
      {"value set by its name in other case",
       AfterText("name",
                 [](CRegistry& key) {
                   key.SetValue("NAME", "new");
                   return TextOf(key, "name");
                 }),
       "\"new\"", Deliberate{"\"text\"", EXACT_VALUES}},
      {"value set with the name of a subkey, the subkey", AskRegistry([](CRegistry& key) {
         CRegistry().CreateKey(key.GetKey(), "name");
         key.SetValue("name", "text");
         return OpenWord("name", key.GetKey());
       }),
       "found", Deliberate{"not found", SHARED_SPACE}},
      {"value with a backslash in its name",
       AfterText("a\\b", [](CRegistry& key) { return TextOf(key, "a\\b"); }), "\"text\""},
      {"value set with an empty name",
       AfterText("", [](CRegistry& key) { return TextOf(key, ""); }), "\"text\""},
      {"value set with a null name, queried with an empty one", AskRegistry([](CRegistry& key) {
         Store(key, nullptr, "text", REG_SZ);
         return TextOf(key, "");
       }),
       "\"text\"", Deliberate{"not found", NO_NULL_NAME}},
      {"value set with an empty name, queried with a null one",
       AfterText("", [](CRegistry& key) { return TextOf(key, nullptr); }), "\"text\"",
       Deliberate{"not found", NO_NULL_NAME}},
      {"value set without a key", AskRegistry([](CRegistry&) {
         return WithoutKey([](CRegistry& none) { return Store(none, "a", "text", REG_SZ); });
       }),
       "refused"},
      {"query of a value that is missing",
       AskRegistry([](CRegistry& key) { return TextOf(key, "value"); }), "not found"},
      {"query by a name in other case",
       AfterText("name", [](CRegistry& key) { return TextOf(key, "NAME"); }), "\"text\"",
       Deliberate{"not found", EXACT_VALUES}},
      {"query of a subkey's name", AskRegistry([](CRegistry& key) {
         CRegistry().CreateKey(key.GetKey(), "name");
         return TextOf(key, "name");
       }),
       "not found"},
      {"query without a key", AskRegistry([](CRegistry&) {
         return WithoutKey([](CRegistry& none) { return TextOf(none, "value"); });
       }),
       "refused"},
      {"query after the handle was closed",
       AfterText("value",
                 [](CRegistry& key) {
                   key.Close();
                   return TextOf(key, "value");
                 }),
       "refused"},
      {"query without a buffer, of 4 characters",
       AfterText("value",
                 [](CRegistry& key) {
                   uint32_t count = 0;
                   const int32_t result = key.QueryValue(nullptr, "value", &count);
                   return ResultWord(result) + ", " + std::to_string(count);
                 }),
       "done, 5"},
      {"query into 3 bytes, of 4 characters", Query(3), "too small, 5",
       Deliberate{"too small, 3", COUNT_STAYS}},
      {"query into 4 bytes, of 4 characters", Query(4), "too small, 5",
       Deliberate{"too small, 4", COUNT_STAYS}},
      {"query into 5 bytes, of 4 characters", Query(5), "done, 5",
       Deliberate{"done, 4", LENGTH_OF_TEXT}},
      {"query into 16 bytes, of 4 characters", Query(16), "done, 5",
       Deliberate{"done, 4", LENGTH_OF_TEXT}},
      {"query with a buffer and no count", QueryWithoutCount(true), "refused",
       Deliberate{"too small", COUNT_WANTED}},
      {"query with neither buffer nor count", QueryWithoutCount(false), "done",
       Deliberate{"too small", COUNT_WANTED}},
      {"integer read as a string (RegGetValue)", AskRegistry([](CRegistry& key) {
         key.SetValue("value", 1);
         return TextOf(key, "value");
       }),
       "refused", Deliberate{"not found", ONLY_STRINGS}},
      {"expandable string read by RegQueryValueEx", Expanded("%CONFORMANCE%"), "\"%CONFORMANCE%\"",
       Deliberate{"\"value\"", EXPANDED}},
      {"expandable string read by RegQueryValueEx, after SetExpand(false)",
       Expanded("%CONFORMANCE%", false), "\"%CONFORMANCE%\""},
      {"expandable string read by RegGetValue", Expanded("a %CONFORMANCE% b"), "\"a value b\""},
      {"expandable string read by RegGetValue, variable not set", Expanded("a%NOT_SET%b"),
       "\"a%NOT_SET%b\"", Deliberate{"\"ab\"", UNSET_IS_EMPTY}},
      {"expandable string read by RegGetValue, variable in other case", Expanded("a%conformance%"),
       "\"avalue\"", Deliberate{"\"a\"", EXACT_VARIABLES}},
      {"expandable string read by RegGetValue, one percent sign", Expanded("50%"), "\"50%\""},
      {"plain string with a variable", AskRegistry([](CRegistry& key) {
         key.SetValue("value", "%CONFORMANCE%");
         return TextOf(key, "value");
       }),
       "\"%CONFORMANCE%\""},
      {"value deleted, then queried",
       AfterText("value",
                 [](CRegistry& key) {
                   const std::string word = ResultWord(key.DeleteValue("value"));
                   return word + ", " + TextOf(key, "value");
                 }),
       "done, not found"},
      {"value deleted that is missing",
       AskRegistry([](CRegistry& key) { return ResultWord(key.DeleteValue("value")); }),
       "not found", Deliberate{"done", MISSING_IS_DONE}},
      {"value deleted by its name in other case, then queried",
       AfterText("name",
                 [](CRegistry& key) {
                   key.DeleteValue("NAME");
                   return TextOf(key, "name");
                 }),
       "not found", Deliberate{"\"text\"", EXACT_VALUES}},
      {"value of no name deleted by a null one, then queried",
       AfterText("",
                 [](CRegistry& key) {
                   key.DeleteValue(nullptr);
                   return TextOf(key, "");
                 }),
       "not found", Deliberate{"\"text\"", NO_NULL_NAME}},
      {"value deleted by the name of a subkey, the subkey", AskRegistry([](CRegistry& key) {
         CRegistry().CreateKey(key.GetKey(), "name");
         key.DeleteValue("name");
         return OpenWord("name", key.GetKey());
       }),
       "found", Deliberate{"not found", SHARED_SPACE}},
      {"value deleted without a key", AskRegistry([](CRegistry&) {
         return WithoutKey([](CRegistry& none) { return ResultWord(none.DeleteValue("a")); });
       }),
       "refused"},
      {"values listed",
       AfterText("b",
                 [](CRegistry& key) {
                   key.SetValue("a", 1);
                   CRegistry().CreateKey(key.GetKey(), "c");
                   return ValuesOf(key);
                 }),
       "\"a\", \"b\""},
      {"values listed, one of no name", AfterText("", &ValuesOf), "\"\""},
      {"value set through one handle, queried through another", AskRegistry([](CRegistry& key) {
         CRegistry other(key);
         other.SetValue("value", "text");
         return TextOf(key, "value");
       }),
       "\"text\""},
  };
}
