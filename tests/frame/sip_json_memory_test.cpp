// Writers of a record whose document has no memory left, nor gets any.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "frame/sip_json.h"
#include "tests/frame/records.h"

namespace {

bool g_isOutOfMemory = false;

// `count` members, which are none of a command's own.
std::string Members(int count) {
  std::string text;
  for (int index = 0; index < count; ++index) {
    text += (index > 0 ? "," : "") + ("\"m" + std::to_string(index)) + "\":0";
  }
  return text;
}

// Takes what is left of the memory that the document has.
void FillUp(SipJson& record) {
  g_isOutOfMemory = true;
  while (record.m_oDocument.GetAllocator().Malloc(8) != nullptr) {
  }
  g_isOutOfMemory = false;
}

// The record changes when there is memory, and stays as it is when there is none.
void ExpectAllOrNothing(const SipJson& original, const std::function<void(SipJson&)>& write) {
  SipJson record = original;
  FillUp(record);
  g_isOutOfMemory = true;
  write(record);
  g_isOutOfMemory = false;
  EXPECT_EQ(TextOf(record), TextOf(original));

  write(record);
  SipJson expected = original;
  write(expected);
  EXPECT_EQ(TextOf(record), TextOf(expected));
  EXPECT_NE(TextOf(record), TextOf(original));
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);  // NOLINT(bugprone-reserved-identifier)

void* __wrap_malloc(size_t size) {  // NOLINT(bugprone-reserved-identifier)
  return g_isOutOfMemory ? nullptr : __real_malloc(size);
}
}

// Member arrays of copies have room for 16, 24, 36... members, those of a document that was read
// for none more than it has.
TEST(SipJsonMemoryTest, AMemberIsAddedOrNot) {
  for (const int count : {0, 16, 24, 36}) {
    SCOPED_TRACE(count);
    ExpectAllOrNothing(MakeCommands("{" + Members(count) + "}"),
                       [](SipJson& record) { record.SetCmdUInt("ST", 6); });
  }
}

TEST(SipJsonMemoryTest, AMemberOfSipIsAddedOrNot) {
  ExpectAllOrNothing(MakeRecord(R"({"SIP":{"CMD":[{}],)" + Members(15) + "}}"),
                     [](SipJson& record) { record.SetSipBool("C", true); });
}

TEST(SipJsonMemoryTest, AMemberWithALongNameIsAddedOrNot) {
  ExpectAllOrNothing(MakeCommands("{}"), [](SipJson& record) {
    record.SetCmdUInt("a name that is not kept within its value", 6);
  });
}

TEST(SipJsonMemoryTest, CommandsAreAddedOrNot) {
  ExpectAllOrNothing(MakeCommands("{}", 100), [](SipJson& record) { record.SetCmdUInt("ST", 6); });
}

TEST(SipJsonMemoryTest, WhatHasRoomIsWrittenWithoutMemory) {
  SipJson record = MakeCommands(R"({"ST":22})");
  FillUp(record);
  g_isOutOfMemory = true;
  record.SetCmdUInt("ST", 6);
  g_isOutOfMemory = false;
  EXPECT_EQ(CommandsOf(record), R"([{"ST":6}])");
}

TEST(SipJsonMemoryTest, ADocumentThatWasReadTakesAMemberOrNot) {
  SipJson record = MakeCommands(R"({"OC":1})");
  FillUp(record);
  for (const bool isOutOfMemory : {true, false}) {
    g_isOutOfMemory = isOutOfMemory;
    record.SetCmdUInt("ST", 6);
    g_isOutOfMemory = false;
    EXPECT_EQ(CommandsOf(record), isOutOfMemory ? R"([{"OC":1}])" : R"([{"OC":1,"ST":6}])");
  }
}

TEST(SipJsonMemoryTest, ACommandThatFindsNoMemoryForItsNumberStaysEmpty) {
  SipJson record = MakeCommands("");
  FillUp(record);
  rapidjson::Value& commands = record.m_oDocument["SIP"]["CMD"];
  commands.Reserve(1, record.m_oDocument.GetAllocator());
  FillUp(record);
  g_isOutOfMemory = true;
  record.SetCmdUInt("ST", 6);
  g_isOutOfMemory = false;
  EXPECT_EQ(CommandsOf(record), "[{}]");
}

TEST(SipJsonMemoryTest, JsonDataIsCopiedOrNot) {
  const SipJson record =
      MakeData(R"([{"a member with a long name":[1,"a text that is long enough"]}])");
  SipJson target = MakeCommands("{}");
  rapidjson::Value copy("untouched");
  FillUp(target);
  g_isOutOfMemory = true;
  EXPECT_THROW(record.GetJsonData(0, copy, target.m_oDocument.GetAllocator()), std::bad_alloc);
  g_isOutOfMemory = false;
  EXPECT_EQ(TextOf(copy), R"("untouched")");
  EXPECT_TRUE(record.GetJsonData(0, copy, target.m_oDocument.GetAllocator()));
  EXPECT_EQ(TextOf(copy), TextOf(*record.FindCmdMember(0, "DA")));
}

TEST(SipJsonMemoryTest, CommandsThatAreAddedOneByOneTakeLittleMemory) {
  constexpr uint32_t COMMANDS = 1000;
  SipJson record = MakeCommands("");
  const size_t before = record.m_oDocument.GetAllocator().Size();
  for (record.m_nCmdIndex = 0; record.m_nCmdIndex < COMMANDS; ++record.m_nCmdIndex) {
    record.SetCmdUInt("ST", 6);
  }
  const size_t forMembers = COMMANDS * 16 * sizeof(rapidjson::Value::Member);
  const size_t taken = record.m_oDocument.GetAllocator().Size() - before;
  EXPECT_LT(taken, 2 * (forMembers + COMMANDS * sizeof(rapidjson::Value)));
}
