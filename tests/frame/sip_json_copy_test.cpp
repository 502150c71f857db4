#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "frame/sip_json.h"
#include "tests/frame/records.h"
#include "tests/support/system_calls.h"

namespace {

// A record that needs far more than one default chunk of the JSON library's allocator.
SipJson MakeBigRecord() {
  SipJson record = MakeCommands(R"({"OC":1,"DA":[]})");
  auto& allocator = record.m_oDocument.GetAllocator();
  rapidjson::Value& data = record.m_oDocument["SIP"]["CMD"][0]["DA"];
  for (int index = 0; index < 5000; ++index) {
    rapidjson::Value object(rapidjson::kObjectType);
    object.AddMember("a name of considerable length", index, allocator);
    object.AddMember("text", "a text of considerable length", allocator);
    data.PushBack(object, allocator);
  }
  return record;
}

// A record whose strings are all too long to be stored inside their values: its copy needs all of
// the memory that is reserved for it.
SipJson MakeRecordOfLongTexts() {
  SipJson record;
  record.m_oDocument.SetArray();
  for (int index = 0; index < 5000; ++index) {
    record.m_oDocument.PushBack("a text of considerable length", record.m_oDocument.GetAllocator());
  }
  return record;
}

int CountAllocations(const std::function<void()>& action) {
  const auto allocations = calls::malloc.Watch();
  action();
  return allocations.GetCount();
}

}  // namespace

TEST(SipJsonCopyTest, CopiesDocumentAndIndex) {
  const SipJson record = MakeCommands(R"({"OC":1,"DA":[1,"x",{"a":null}]},{"OC":2})", 1);
  const SipJson copy(record);
  EXPECT_EQ(TextOf(copy), TextOf(record));
  EXPECT_EQ(copy.m_nCmdIndex, 1U);
}

TEST(SipJsonCopyTest, CopiesAnEmptyRecord) {
  const SipJson record;
  const SipJson copy(record);
  EXPECT_TRUE(copy.m_oDocument.IsNull());
  EXPECT_EQ(copy.m_nCmdIndex, 0U);
}

TEST(SipJsonCopyTest, OutlivesTheTextsThatItsSourceOnlyPointedTo) {
  std::string buffer = R"({"SIP":{"CMD":[{"OC":"0x3401","an additional long member":"kept"}]}})";
  const std::string original = buffer;
  auto record = std::make_unique<SipJson>();
  record->m_oDocument.ParseInsitu(buffer.data());
  const SipJson copy(*record);
  record.reset();
  buffer.assign(buffer.size(), '#');
  EXPECT_EQ(TextOf(copy), original);
}

TEST(SipJsonCopyTest, SharesNothingWithItsSource) {
  SipJson record = MakeCommands(R"({"OC":1,"ST":22})");
  SipJson copy(record);
  copy.SetCmdUInt("ST", 0);
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1,"ST":22}])");
  EXPECT_NE(&copy.m_oDocument.GetAllocator(), &record.m_oDocument.GetAllocator());
}

TEST(SipJsonCopyTest, CanBeWrittenLikeAnyRecord) {
  const SipJson record = MakeCommands(R"({"OC":1})", 2000);
  SipJson copy(record);
  copy.SetCmdUInt("ST", 5);
  EXPECT_EQ(copy.GetCmdUInt(2000, "ST", 0), 5U);
  EXPECT_EQ(copy.GetCmdUInt(0, "OC", 0), 1U);
}

TEST(SipJsonCopyTest, CopiesABigRecord) {
  const SipJson record = MakeBigRecord();
  const SipJson copy(record);
  EXPECT_EQ(TextOf(copy), TextOf(record));
}

TEST(SipJsonCopyTest, AssignsDocumentAndIndex) {
  SipJson record = MakeCommands(R"({"OC":1},{"OC":2})", 1);
  SipJson target = MakeCommands(R"({"OC":9,"DA":"an earlier content of some length"})");
  target = record;
  record.SetCmdUInt("ST", 5);
  EXPECT_EQ(CommandsOf(target), R"([{"OC":1},{"OC":2}])");
  EXPECT_EQ(target.m_nCmdIndex, 1U);
}

TEST(SipJsonCopyTest, AssignsToItself) {
  SipJson record = MakeCommands(R"({"OC":1},{"OC":2})", 1);
  const SipJson& same = record;
  record = same;
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1},{"OC":2}])");
  EXPECT_EQ(record.m_nCmdIndex, 1U);
}

TEST(SipJsonCopyTest, AssignsInAChain) {
  const SipJson record = MakeCommands(R"({"OC":1})");
  SipJson first;
  SipJson second;
  EXPECT_EQ(&(second = first = record), &second);
  EXPECT_EQ(TextOf(second), TextOf(record));
}

// A switch may answer a record by putting another document into it.
TEST(SipJsonCopyTest, TakesADocumentThatIsMovedIn) {
  const SipJson record = MakeCommands(R"({"OC":1})");
  SipJson copy(record);
  rapidjson::Document answer;
  answer.Parse(R"({"SIP":{"CMD":[{"OC":1,"ST":0}]}})");
  copy.m_oDocument = std::move(answer);
  EXPECT_EQ(CommandsOf(copy), R"([{"OC":1,"ST":0}])");
  SipJson assigned;
  assigned = copy;
  EXPECT_EQ(CommandsOf(assigned), R"([{"OC":1,"ST":0}])");
}

TEST(SipJsonCopyTest, GivesItsDocumentAway) {
  rapidjson::Document document;
  {
    const SipJson record = MakeCommands(R"({"OC":1})");
    SipJson copy(record);
    document.Swap(copy.m_oDocument);
  }
  EXPECT_EQ(TextOf(document), R"({"SIP":{"CMD":[{"OC":1}]}})");
}

TEST(SipJsonCopyTest, ThrowsBadAllocForEachAllocationThatFails) {
  for (const SipJson& record : {MakeCommands(R"({"OC":1})"), MakeBigRecord()}) {
    const int allocations = CountAllocations([&] { const SipJson copy(record); });
    for (int skip = 0; skip < allocations; ++skip) {
      const auto failing = calls::malloc.Fail(ENOMEM, skip, 1);
      EXPECT_THROW(SipJson{record}, std::bad_alloc) << skip;
    }
  }
}

TEST(SipJsonCopyTest, NeedsNoMoreAllocationsForMore) {
  const SipJson empty;
  const int allocations = CountAllocations([&] { const SipJson copy(empty); });
  for (const SipJson& record :
       {MakeCommands(R"({"OC":1})"), MakeBigRecord(), MakeRecordOfLongTexts()}) {
    EXPECT_EQ(CountAllocations([&] { const SipJson copy(record); }), allocations);
  }
}

TEST(SipJsonCopyTest, HasRoomForAnAnswer) {
  const SipJson record = MakeCommands(R"({"OC":1})");
  SipJson copy(record);
  const auto answer = [&] {
    copy.SetCmdUInt("ST", 0);
    copy.SetCmdUInt("MI", 0xFFFFFFFF);
  };
  EXPECT_EQ(CountAllocations(answer), 0);
}

TEST(SipJsonCopyTest, ChangesNothingWhenAnAssignmentThrows) {
  const SipJson record = MakeCommands(R"({"OC":1})", 1);
  SipJson target = MakeCommands(R"({"OC":9})");
  {
    const auto failing = calls::malloc.Fail(ENOMEM);
    EXPECT_THROW(target = record, std::bad_alloc);
  }
  EXPECT_EQ(CommandsOf(target), R"([{"OC":9}])");
  EXPECT_EQ(target.m_nCmdIndex, 0U);
}
