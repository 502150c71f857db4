#include "frame/request_trace.h"

#include <gtest/gtest.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>

namespace {

using rapidjson::Document;
using rapidjson::Value;

constexpr size_t LONGEST = 1000;

// What the library's own writer makes of the value.
std::string ExpectedText(const Value& value) {
  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(text);
  writer.SetIndent(' ', 4);
  value.Accept(writer);
  return text.GetString();
}

constexpr const char* SOURCES[] = {"7",
                                   "-1.5",
                                   "18446744073709551615",
                                   "null",
                                   "true",
                                   R"("a \"b\"\n\u0001ü")",
                                   "{}",
                                   "[]",
                                   "[[],{},[{}]]",
                                   R"({"a":{},"b":[],"c":[1,[2,{"d":3}],4],"e \t":"f"})",
                                   R"([{"a":1,"a":2},[[[[false]]]],"",{"":{"":[]}}])"};

}  // namespace

TEST(RequestTraceJsonTest, IsWhatTheLibraryWritesUpToTheLimit) {
  for (const char* source : SOURCES) {
    SCOPED_TRACE(source);
    Document document;
    ASSERT_FALSE(document.Parse(source).HasParseError());
    const std::string text = ExpectedText(document);
    for (size_t longest = 0; longest <= text.size() + 1; ++longest) {
      EXPECT_EQ(BuildJsonText(document, longest), text.substr(0, longest));
    }
  }
}

TEST(RequestTraceJsonTest, KeepsZerosWithinTexts) {
  Document document;
  document.SetArray().PushBack(Value("a\0b", 3), document.GetAllocator());
  EXPECT_EQ(BuildJsonText(document, LONGEST), "[\n    \"a\\u0000b\"\n]");
}

TEST(RequestTraceJsonTest, ANumberThatJsonCannotExpressIsNull) {
  EXPECT_EQ(BuildJsonText(Value(std::numeric_limits<double>::infinity()), LONGEST), "null");
  EXPECT_EQ(BuildJsonText(Value(std::numeric_limits<double>::quiet_NaN()), LONGEST), "null");
}

TEST(RequestTraceJsonTest, ReadsNothingBehindTheLimit) {
  const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* const pages =
      mmap(nullptr, 2 * size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  auto* const text = static_cast<char*>(pages);
  std::fill_n(text, size, 'x');
  ASSERT_EQ(mprotect(text + size, size, PROT_NONE), 0);
  const Value value(rapidjson::StringRef(text, 1 << 30));
  EXPECT_EQ(BuildJsonText(value, size), '"' + std::string(size - 1, 'x'));
  munmap(pages, 2 * size);
}
