// Writers of a record whose document has no memory left and cannot get any.

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <new>
#include <string>

#include "frame/sip_json.h"
#include "tests/frame/records.h"
#include "tests/support/system_calls.h"

namespace {

// `count` members with names that no command uses.
std::string Members(int count) {
  std::string text;
  for (int index = 0; index < count; ++index) {
    text += (index > 0 ? "," : "") + ("\"m" + std::to_string(index)) + "\":0";
  }
  return text;
}

// Uses up the memory that the document has left.
void FillUp(SipJson& record) {
  const auto failing = calls::malloc.Fail(ENOMEM);
  while (record.m_oDocument.GetAllocator().Malloc(8) != nullptr) {
  }
}

// Writes while every allocation fails.
void WriteWithoutMemory(SipJson& record, const std::function<void(SipJson&)>& write) {
  const auto failing = calls::malloc.Fail(ENOMEM);
  write(record);
}

void SetStatus(SipJson& record) { record.SetCmdUInt("ST", 6); }

// Checks that `write` changes the record when there is memory, and leaves it alone when there is
// none.
void ExpectAllOrNothing(const SipJson& original, const std::function<void(SipJson&)>& write) {
  SipJson record = original;
  FillUp(record);
  WriteWithoutMemory(record, write);
  EXPECT_EQ(TextOf(record), TextOf(original));

  write(record);
  SipJson expected = original;
  write(expected);
  EXPECT_EQ(TextOf(record), TextOf(expected));
  EXPECT_NE(TextOf(record), TextOf(original));
}

}  // namespace

// The member array of a copy has room for 16, 24, 36... members; that of a parsed document is full.
TEST(SipJsonMemoryTest, AMemberIsAddedOrNot) {
  for (const int count : {0, 16, 24, 36}) {
    SCOPED_TRACE(count);
    ExpectAllOrNothing(MakeCommands("{" + Members(count) + "}"), SetStatus);
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
  ExpectAllOrNothing(MakeCommands("{}", 100), SetStatus);
}

TEST(SipJsonMemoryTest, WhatHasRoomIsWrittenWithoutMemory) {
  SipJson record = MakeCommands(R"({"ST":22})");
  FillUp(record);
  WriteWithoutMemory(record, SetStatus);
  EXPECT_EQ(CommandsOf(record), R"([{"ST":6}])");
}

TEST(SipJsonMemoryTest, ADocumentThatWasReadTakesAMemberOrNot) {
  SipJson record = MakeCommands(R"({"OC":1})");
  FillUp(record);
  WriteWithoutMemory(record, SetStatus);
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1}])");
  SetStatus(record);
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1,"ST":6}])");
}

TEST(SipJsonMemoryTest, ACommandThatFindsNoMemoryForItsNumberStaysEmpty) {
  SipJson record = MakeCommands("");
  FillUp(record);
  rapidjson::Value& commands = record.m_oDocument["SIP"]["CMD"];
  commands.Reserve(1, record.m_oDocument.GetAllocator());
  FillUp(record);
  WriteWithoutMemory(record, SetStatus);
  EXPECT_EQ(CommandsOf(record), "[{}]");
}

TEST(SipJsonMemoryTest, JsonDataIsCopiedOrNot) {
  const SipJson record =
      MakeData(R"([{"a member with a long name":[1,"a text that is long enough"]}])");
  SipJson target = MakeCommands("{}");
  rapidjson::Value copy("untouched");
  FillUp(target);
  {
    const auto failing = calls::malloc.Fail(ENOMEM);
    EXPECT_THROW(record.GetJsonData(0, copy, target.m_oDocument.GetAllocator()), std::bad_alloc);
  }
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
