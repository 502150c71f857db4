#include "frame/json_value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/frame/records.h"

namespace {

using rapidjson::Document;
using rapidjson::Value;

constexpr int VERY_DEEP = 100'000;

// Too long to be kept within a value.
constexpr char LONG_TEXT[] = "a text of considerable length";

void ExpectInteger(const Value& value, uint64_t bits) {
  EXPECT_EQ(ToJsonInteger(value), std::optional(bits));
}

void ExpectNothing(const Value& value) { EXPECT_EQ(ToJsonInteger(value), std::nullopt); }

void ExpectNothingShared(const Value& copy, const Value& source) {
  if (copy.IsString()) {
    EXPECT_NE(copy.GetString(), source.GetString());
  } else if (copy.IsArray()) {
    for (rapidjson::SizeType index = 0; index < copy.Size(); ++index) {
      EXPECT_NE(&copy[index], &source[index]);
      ExpectNothingShared(copy[index], source[index]);
    }
  } else if (copy.IsObject()) {
    auto original = source.MemberBegin();
    for (const auto& member : copy.GetObject()) {
      EXPECT_NE(&member.name, &original->name);
      ExpectNothingShared(member.name, original->name);
      ExpectNothingShared(member.value, original->value);
      ++original;
    }
  }
}

// Copies the value and checks that the copy looks like its source, shares nothing with it and stays
// within the measure.
void ExpectCopied(const Value& source) {
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  ASSERT_EQ(TextOf(copy), TextOf(source));
  ExpectNothingShared(copy, source);
  EXPECT_LE(copy.GetAllocator().Size(), MeasureJsonCopy(source));
}

void ExpectCopied(const std::string& text) {
  SCOPED_TRACE(text);
  Document source;
  ASSERT_FALSE(source.Parse(text.c_str()).HasParseError());
  ExpectCopied(source);
}

// Wraps the document in `levels` arrays, each with an element before and two after it.
void WrapInArrays(Document& document, int levels) {
  for (int level = 0; level < levels; ++level) {
    Value outer(rapidjson::kArrayType);
    outer.PushBack(level, document.GetAllocator());
    outer.PushBack(static_cast<Value&>(document), document.GetAllocator());
    outer.PushBack(-level, document.GetAllocator());
    outer.PushBack(LONG_TEXT, document.GetAllocator());
    static_cast<Value&>(document) = outer;
  }
}

void WrapInObjects(Document& document, int levels) {
  for (int level = 0; level < levels; ++level) {
    Value outer(rapidjson::kObjectType);
    outer.AddMember("before", level, document.GetAllocator());
    outer.AddMember("inner", static_cast<Value&>(document), document.GetAllocator());
    outer.AddMember("after", -level, document.GetAllocator());
    outer.AddMember(LONG_TEXT, LONG_TEXT, document.GetAllocator());
    static_cast<Value&>(document) = outer;
  }
}

}  // namespace

TEST(JsonIntegerTest, TakesAnIntegerThatIsNotNegative) {
  ExpectInteger(Value(0), 0);
  ExpectInteger(Value(7), 7);
  ExpectInteger(Value(0xFFFFFFFFU), 0xFFFFFFFF);
  ExpectInteger(Value(uint64_t{0xFFFFFFFFFFFFFFFF}), 0xFFFFFFFFFFFFFFFF);
}

TEST(JsonIntegerTest, TakesANegativeIntegerAsTwosComplement) {
  ExpectInteger(Value(-1), 0xFFFFFFFFFFFFFFFF);
  ExpectInteger(Value(std::numeric_limits<int64_t>::min()), 0x8000000000000000);
}

TEST(JsonIntegerTest, TruncatesAFraction) {
  ExpectInteger(Value(2.9), 2);
  ExpectInteger(Value(-2.9), static_cast<uint64_t>(-2));
  ExpectInteger(Value(-0.9), 0);
  ExpectInteger(Value(0.0), 0);
}

TEST(JsonIntegerTest, TakesAFractionUpToTheEndsOf64Bits) {
  const double twoTo63 = std::ldexp(1.0, 63);
  const double twoTo64 = std::ldexp(1.0, 64);
  ExpectInteger(Value(std::nextafter(twoTo64, 0.0)), 0xFFFFFFFFFFFFF800);
  ExpectInteger(Value(-twoTo63), 0x8000000000000000);
  ExpectNothing(Value(twoTo64));
  ExpectNothing(Value(std::nextafter(-twoTo63, -twoTo64)));
}

TEST(JsonIntegerTest, TakesNoNumberThatIsNone) {
  ExpectNothing(Value(std::numeric_limits<double>::infinity()));
  ExpectNothing(Value(-std::numeric_limits<double>::infinity()));
  ExpectNothing(Value(std::numeric_limits<double>::quiet_NaN()));
}

TEST(JsonIntegerTest, TakesNothingButNumbers) {
  ExpectNothing(Value());
  ExpectNothing(Value(true));
  ExpectNothing(Value(false));
  ExpectNothing(Value("7"));
  ExpectNothing(Value(rapidjson::kArrayType));
  ExpectNothing(Value(rapidjson::kObjectType));
}

TEST(JsonCopyTest, CopiesEveryKindOfValue) {
  for (const char* text : {"null", "true", "false", "0", "-1", "4294967295", "-9223372036854775808",
                           "18446744073709551615", "1.5", "\"\"", "\"short\"",
                           "\"a text that is too long to be kept within the value\"", "[]", "{}",
                           "[[],{},[{}]]", R"([null,true,-7,1.5,"x",[1,2],{"a":{"b":[]}}])",
                           R"({"z":1,"a":{"y":null},"m":[{}]})", R"({"twice":1,"twice":2})"}) {
    ExpectCopied(std::string(text));
  }
}

TEST(JsonCopyTest, KeepsTextsAndNamesWithZeroBytesWhole) {
  ExpectCopied(std::string(R"({"na\u0000me":"te\u0000xt"})"));
}

TEST(JsonCopyTest, StaysWithinTheMeasureForAnyNumberOfMembers) {
  Document source(rapidjson::kObjectType);
  for (int count = 1; count <= 200; ++count) {
    // Too long to be kept within the name: otherwise the measure has room to spare.
    const std::string name = "a member of considerable length " + std::to_string(count);
    source.AddMember(Value(name.c_str(), source.GetAllocator()), Value(count),
                     source.GetAllocator());
    ExpectCopied(source);
  }
}

TEST(JsonCopyTest, StaysWithinTheMeasureForAnyLengthOfText) {
  for (size_t length = 0; length < 70; ++length) {
    const std::string text(length, 'x');
    ExpectCopied("[\"" + text + "\",{\"" + text + "\":\"" + text + "\"}]");
  }
}

TEST(JsonCopyTest, ReplacesWhatTheTargetHeld) {
  Document source;
  source.Parse("[1]");
  Document target;
  target.Parse(R"({"old":true})");
  CopyJson(source, target, target.GetAllocator());
  EXPECT_EQ(TextOf(target), "[1]");
}

TEST(JsonCopyTest, DuplicatesInSituTextsAndNames) {
  std::string buffer =
      R"({"name":"text","a name of considerable length":["a text of such length"]})";
  const std::string original = buffer;
  Document source;
  source.ParseInsitu(buffer.data());
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  std::fill(buffer.begin(), buffer.end(), '#');
  EXPECT_EQ(TextOf(copy), original);
}

TEST(JsonCopyTest, DuplicatesConstantTextsAndNames) {
  std::vector<std::string> constants = {"name", "text", "a name of considerable length",
                                        "a text of considerable length"};
  const auto reference = [&](size_t index) {
    return Value(rapidjson::StringRef(constants[index].data(), constants[index].size()));
  };
  Document source(rapidjson::kObjectType);
  source.AddMember(reference(0), reference(1), source.GetAllocator());
  source.AddMember(reference(2), reference(3), source.GetAllocator());
  const std::string original = TextOf(source);
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  for (std::string& constant : constants) {
    std::fill(constant.begin(), constant.end(), '#');
  }
  EXPECT_EQ(TextOf(copy), original);
}

TEST(JsonCopyTest, DuplicatesStringsThatLieBeforeTheCopyAndAfterIt) {
  alignas(std::max_align_t) char memory[4096];
  char* const parts[] = {memory, memory + 1024, memory + 2048};
  for (char* const text : {parts[0], parts[2]}) {
    std::strcpy(text, LONG_TEXT);
    Document source;
    source.SetArray().PushBack(rapidjson::StringRef(text), source.GetAllocator());
    Document::AllocatorType allocator(parts[1], 1024);
    Value copy;
    CopyJson(source, copy, allocator);
    std::strcpy(text, "another text");
    EXPECT_STREQ(copy[0].GetString(), LONG_TEXT);
  }
}

TEST(JsonCopyTest, OutlivesItsSource) {
  auto source = std::make_unique<Document>();
  source->Parse(R"({"a":[{"b":"a text of considerable length"}],"c":{}})");
  const std::string original = TextOf(*source);
  Document copy;
  CopyJson(*source, copy, copy.GetAllocator());
  source.reset();
  EXPECT_EQ(TextOf(copy), original);
}

TEST(JsonCopyTest, LeavesItsSourceAloneWhenItChanges) {
  Document source;
  source.Parse(R"({"a":[1,2],"b":{"c":3}})");
  const std::string original = TextOf(source);
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  copy["a"][0] = 9;
  copy["b"]["c"] = 9;
  EXPECT_EQ(TextOf(source), original);
}

// Whatever room the source has set aside is its own.
TEST(JsonCopyTest, LeavesItsSourceAloneWhenContainersOfTheCopyGrow) {
  Document source;
  source.Parse(R"([[],{"a":1},[1],{}])");
  source[0].Reserve(8, source.GetAllocator());
  source[2].Reserve(8, source.GetAllocator());
  source[3].AddMember("b", 1, source.GetAllocator());
  source[3].RemoveMember("b");
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  for (Document* document : {&copy, &source}) {
    const int number = document == &copy ? 2 : 3;
    auto& allocator = document->GetAllocator();
    (*document)[0].PushBack(number, allocator);
    (*document)[1].AddMember("c", number, allocator);
    (*document)[2].PushBack(number, allocator);
    (*document)[3].AddMember("d", number, allocator);
  }
  EXPECT_EQ(TextOf(copy), R"([[2],{"a":1,"c":2},[1,2],{"d":2}])");
  EXPECT_EQ(TextOf(source), R"([[3],{"a":1,"c":3},[1,3],{"d":3}])");
}

TEST(JsonCopyTest, CopiesAnyDepth) {
  for (int levels = 1; levels <= 260; ++levels) {
    Document arrays;
    arrays.Parse(R"({"in":["side"]})");
    WrapInArrays(arrays, levels);
    ExpectCopied(arrays);
    Document objects;
    objects.Parse(R"(["in",{"side":{}}])");
    WrapInObjects(objects, levels);
    ExpectCopied(objects);
  }
}

TEST(JsonCopyTest, CopiesVeryDeepArrays) {
  Document source;
  source.SetString("innermost");
  WrapInArrays(source, VERY_DEEP);
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  const Value* value = &copy;
  for (int level = VERY_DEEP - 1; level >= 0; --level) {
    ASSERT_TRUE(value->IsArray());
    ASSERT_EQ(value->Size(), 4U);
    ASSERT_EQ((*value)[0].GetInt(), level);
    ASSERT_EQ((*value)[2].GetInt(), -level);
    value = &(*value)[1];
  }
  EXPECT_STREQ(value->GetString(), "innermost");
  EXPECT_LE(copy.GetAllocator().Size(), MeasureJsonCopy(source));
}

TEST(JsonCopyTest, CopiesVeryDeepObjects) {
  Document source;
  source.SetString("innermost");
  WrapInObjects(source, VERY_DEEP);
  Document copy;
  CopyJson(source, copy, copy.GetAllocator());
  const Value* value = &copy;
  for (int level = VERY_DEEP - 1; level >= 0; --level) {
    ASSERT_TRUE(value->IsObject());
    ASSERT_EQ(value->MemberCount(), 4U);
    ASSERT_EQ((*value)["before"].GetInt(), level);
    ASSERT_EQ((*value)["after"].GetInt(), -level);
    value = &(*value)["inner"];
  }
  EXPECT_STREQ(value->GetString(), "innermost");
  EXPECT_LE(copy.GetAllocator().Size(), MeasureJsonCopy(source));
}
