#include "frame/json_text.h"

#include <gtest/gtest.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <string>

namespace {

using rapidjson::Document;
using rapidjson::Value;

constexpr size_t DEEPEST = 1000;

// The text as the library's own writer makes it.
std::string ExpectedText(const Value& value) {
  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(text);
  writer.SetIndent(' ', 4);
  value.Accept(writer);
  return text.GetString();
}

std::string Arrays(size_t count, const std::string& innermost) {
  return std::string(count, '[') + innermost + std::string(count, ']');
}

std::optional<std::string> Build(const std::string& source, size_t deepest) {
  Document document;
  document.Parse(source.c_str());
  return BuildJsonText(document, deepest);
}

}  // namespace

TEST(JsonTextTest, IsWhatTheLibraryWrites) {
  for (const char* source :
       {"7", "-1.5", "18446744073709551615", "null", "true", R"("a \"b\"\n\u0001ü")", "{}", "[]",
        "[[],{},[{}]]", R"({"a":{},"b":[],"c":[1,[2,{"d":3}],4],"e \t":"f"})",
        R"([{"a":1,"a":2},[[[[false]]]],"",{"":{"":[]}}])"}) {
    SCOPED_TRACE(source);
    Document document;
    ASSERT_FALSE(document.Parse(source).HasParseError());
    EXPECT_EQ(BuildJsonText(document, DEEPEST), ExpectedText(document));
  }
}

TEST(JsonTextTest, KeepsZerosWithinTexts) {
  Document document;
  document.SetArray().PushBack(Value("a\0b", 3), document.GetAllocator());
  EXPECT_EQ(BuildJsonText(document, DEEPEST), "[\n    \"a\\u0000b\"\n]");
}

TEST(JsonTextTest, ANumberThatJsonCannotExpressIsNull) {
  EXPECT_EQ(BuildJsonText(Value(std::numeric_limits<double>::infinity()), DEEPEST), "null");
  EXPECT_EQ(BuildJsonText(Value(std::numeric_limits<double>::quiet_NaN()), DEEPEST), "null");
}

TEST(JsonTextTest, HasNoMoreLevelsThanAsked) {
  EXPECT_EQ(Build("1", 1), "1");
  EXPECT_EQ(Build("[]", 1), "[]");
  EXPECT_EQ(Build("[1]", 1), std::nullopt);
  EXPECT_EQ(Build("[[1],2]", 3), "[\n    [\n        1\n    ],\n    2\n]");
  EXPECT_EQ(Build(R"([1,{"a":[2]}])", 3), std::nullopt);
  EXPECT_TRUE(Build(Arrays(DEEPEST - 1, "1"), DEEPEST));
  EXPECT_TRUE(Build(Arrays(DEEPEST, ""), DEEPEST));
  EXPECT_FALSE(Build(Arrays(DEEPEST, "1"), DEEPEST));
}
