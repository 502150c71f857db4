// What is left of the registry when the process has ended and another has begun.

#include "tests/conformance/conformance.h"
#include "tests/conformance/registry_answers.h"

namespace {

constexpr char ONE_LINE[] = "a value is one line of a text file";
constexpr char FIRST_EQUALS[] = "in the file a name ends at the first \"=\"";
constexpr char FIRST_BRACKET[] = "in the file the name of a key ends at the first \"]\"";
constexpr char HEADER_LINE[] =
    "a line that begins with \"[\" and holds \"]\" is the header of a key";
constexpr char LINE_OF_1023[] = "a line of the file has 1023 characters";

// A string of that name and text, queried after a restart.
std::function<std::string()> StringAfterRestart(const char* name, const std::string& text) {
  return AskAfterRestart([=](CRegistry& key) { key.SetValue(name, text.c_str()); },
                         [=](CRegistry& key) { return TextOf(key, name); });
}

std::function<std::string()> BytesAfterRestart(const std::string& bytes, uint32_t type) {
  return AskAfterRestart([=](CRegistry& key) { Store(key, "value", bytes, type); },
                         [=](CRegistry& key) { return BytesOf(key, "value"); });
}

std::function<std::string()> KeyAfterRestart(const char* name) {
  return AskAfterRestart([=](CRegistry& key) { CRegistry().CreateKey(key.GetKey(), name); },
                         [=](CRegistry& key) { return OpenWord(name, key.GetKey()); });
}

}  // namespace

ConformanceCases RegistryStorageCases() {
  return {
      {"string", StringAfterRestart("value", "text"), "\"text\""},
      {"string that is empty", StringAfterRestart("value", ""), "\"\""},
      {"string with blanks around it", StringAfterRestart("value", "  a b "), "\"  a b \""},
      {"string with equals signs and brackets", StringAfterRestart("value", "[a]=s=b"),
       "\"[a]=s=b\""},
      {"string with a line end", StringAfterRestart("value", "a\nb"), "\"a⏎b\"",
       Deliberate{"\"a\"", ONE_LINE}},
      {"string of 2000 characters",
       AskAfterRestart(
           [](CRegistry& key) { key.SetValue("value", std::string(2000, 'x').c_str()); },
           [](CRegistry& key) { return std::to_string(TextOf(key, "value").size() - 2); }),
       "2000", Deliberate{"1015", LINE_OF_1023}},
      {"expandable string, not expanded",
       AskAfterRestart([](CRegistry& key) { Store(key, "value", "%A%", REG_EXPAND_SZ); },
                       [](CRegistry& key) {
                         key.SetExpand(false);
                         return TextOf(key, "value");
                       }),
       "\"%A%\""},
      {"integer", BytesAfterRestart("\x01\x02\x03\x04", REG_DWORD), "01 02 03 04"},
      {"integer with its highest bit", BytesAfterRestart("\xFE\xFF\xFF\xFF", REG_DWORD),
       "fe ff ff ff"},
      {"bytes", BytesAfterRestart(std::string("\0\n\xFF", 3), REG_BINARY), "00 0a ff"},
      {"value of no name", StringAfterRestart("", "text"), "\"text\""},
      {"value with an equals sign in its name", StringAfterRestart("a=b", "text"), "\"text\"",
       Deliberate{"not found", FIRST_EQUALS}},
      {"value with brackets in its name", StringAfterRestart("[a]", "text"), "\"text\"",
       Deliberate{"not found", HEADER_LINE}},
      {"value that was deleted",
       AskAfterRestart(
           [](CRegistry& key) {
             key.SetValue("value", "text");
             key.DeleteValue("value");
           },
           [](CRegistry& key) { return TextOf(key, "value"); }),
       "not found"},
      {"key that is empty", KeyAfterRestart("A"), "found"},
      {"key below a key", KeyAfterRestart("A\\B"), "found"},
      {"key with a blank in its name", KeyAfterRestart("a b"), "found"},
      {"key with an equals sign in its name", KeyAfterRestart("a=b"), "found"},
      {"key with a bracket in its name", KeyAfterRestart("a]b"), "found",
       Deliberate{"not found", FIRST_BRACKET}},
      {"key that was deleted",
       AskAfterRestart(
           [](CRegistry& key) {
             CRegistry().CreateKey(key.GetKey(), "A");
             key.DeleteKey("A");
           },
           [](CRegistry& key) { return OpenWord("A", key.GetKey()); }),
       "not found"},
      {"change that was flushed", AskRegistry([](CRegistry& key) {
         key.SetValue("value", "text");
         return ResultWord(key.Flush());
       }),
       "done"},
  };
}
