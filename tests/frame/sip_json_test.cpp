#include "frame/sip_json.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/frame/records.h"

namespace {

constexpr uint32_t DEFAULT = 4711;

// What GetCmdUInt() reads from a command whose member "OC" is that string.
uint32_t ReadNumber(const std::string& value) {
  return MakeCommands(R"({"OC":)" + value + "}").GetCmdUInt(0, "OC", DEFAULT);
}

uint32_t ReadDouble(double value) {
  SipJson record = MakeCommands(R"({"OC":0})");
  record.m_oDocument["SIP"]["CMD"][0]["OC"].SetDouble(value);
  return record.GetCmdUInt(0, "OC", DEFAULT);
}

// Checks that every reader gives its default for the command at `index`.
void ExpectDefaults(const SipJson& record, uint32_t index) {
  SCOPED_TRACE(TextOf(record) + " " + std::to_string(index));
  EXPECT_EQ(record.FindCommand(index), nullptr);
  EXPECT_EQ(record.FindCmdMember(index, "OC"), nullptr);
  EXPECT_FALSE(record.HasCmdMember(index, "OC"));
  EXPECT_EQ(record.GetCmdUInt(index, "OC", DEFAULT), DEFAULT);
  EXPECT_EQ(record.GetDataType(index), rapidjson::kNullType);
  EXPECT_EQ(record.GetDataLength(index), 0U);
  uint32_t integer = DEFAULT;
  EXPECT_FALSE(record.GetIntegerData(index, integer));
  EXPECT_EQ(integer, DEFAULT);
  std::vector<uint8_t> bytes;
  EXPECT_FALSE(record.GetByteData(index, bytes));
  EXPECT_TRUE(bytes.empty());
  rapidjson::Document json;
  EXPECT_FALSE(record.GetJsonData(index, json, json.GetAllocator()));
  EXPECT_TRUE(json.IsNull());
}

// Checks that the writer changes nothing.
void ExpectNotWritable(SipJson record) {
  const std::string before = TextOf(record);
  SCOPED_TRACE(before);
  record.SetCmdUInt("ST", 1);
  EXPECT_EQ(TextOf(record), before);
}

const char* const SHAPELESS_DOCUMENTS[] = {
    "null",
    "true",
    "7",
    "\"SIP\"",
    R"([{"SIP":{"CMD":[{"OC":1,"DA":{}}]}}])",
    "{}",
    R"({"sip":{"CMD":[{"OC":1,"DA":{}}]}})",
    R"({"CMD":[{"OC":1,"DA":{}}]})",
    R"({"SIP":null})",
    R"({"SIP":7})",
    R"({"SIP":[{"CMD":[{"OC":1,"DA":{}}]}]})",
    R"({"SIP":{}})",
    R"({"SIP":{"cmd":[{"OC":1,"DA":{}}]}})",
    R"({"SIP":{"CMD":null}})",
    R"({"SIP":{"CMD":"text"}})",
    R"({"SIP":{"CMD":{"OC":1,"DA":{}}}})",
};

}  // namespace

TEST(SipJsonTest, StartsWithTheFirstCommandOfAnEmptyDocument) {
  const SipJson record;
  EXPECT_EQ(record.m_nCmdIndex, 0U);
  EXPECT_TRUE(record.m_oDocument.IsNull());
}

TEST(SipJsonTest, ReadsTheMembersOfTheCommandAtAnIndex) {
  const SipJson record = MakeCommands(R"({"OC":1,"OE":2},{"OC":3,"CA":4})");
  EXPECT_EQ(TextOf(*record.FindCommand(0)), R"({"OC":1,"OE":2})");
  EXPECT_EQ(TextOf(*record.FindCommand(1)), R"({"OC":3,"CA":4})");
  EXPECT_EQ(record.FindCmdMember(1, "CA"), &record.m_oDocument["SIP"]["CMD"][1]["CA"]);
  EXPECT_TRUE(record.HasCmdMember(0, "OE"));
  EXPECT_FALSE(record.HasCmdMember(1, "OE"));
  EXPECT_EQ(record.GetCmdUInt(0, "OC", DEFAULT), 1U);
  EXPECT_EQ(record.GetCmdUInt(1, "OC", DEFAULT), 3U);
}

TEST(SipJsonTest, ReadsAMemberThatIsNullAsPresent) {
  const SipJson record = MakeCommands(R"({"OC":null})");
  EXPECT_TRUE(record.HasCmdMember(0, "OC"));
  EXPECT_EQ(record.GetCmdUInt(0, "OC", DEFAULT), DEFAULT);
}

TEST(SipJsonTest, TellsKeysApartByCase) {
  const SipJson record = MakeCommands(R"({"oc":1})");
  EXPECT_FALSE(record.HasCmdMember(0, "OC"));
  EXPECT_EQ(record.GetCmdUInt(0, "OC", DEFAULT), DEFAULT);
}

TEST(SipJsonTest, AnswersWithDefaultsWithoutTheShape) {
  for (const char* document : SHAPELESS_DOCUMENTS) {
    ExpectDefaults(MakeRecord(document), 0);
  }
}

TEST(SipJsonTest, AnswersWithDefaultsOutOfRange) {
  ExpectDefaults(MakeCommands(""), 0);
  ExpectDefaults(MakeCommands(R"({"OC":1,"DA":{}})"), 1);
  ExpectDefaults(MakeCommands(R"({"OC":1,"DA":{}})"), 2);
  ExpectDefaults(MakeCommands(R"({"OC":1,"DA":{}})"), 0xFFFFFFFF);
}

TEST(SipJsonTest, AnswersWithDefaultsForAnElementThatIsNoObject) {
  for (const char* element : {"null", "true", "7", "\"OC\"", R"([{"OC":1,"DA":{}}])"}) {
    ExpectDefaults(MakeCommands(element), 0);
  }
}

TEST(SipJsonTest, AnswersWithDefaultsForAMissingMember) {
  const SipJson record = MakeCommands(R"({"XX":1})");
  EXPECT_EQ(record.FindCmdMember(0, "OC"), nullptr);
  EXPECT_EQ(record.GetCmdUInt(0, "OC", DEFAULT), DEFAULT);
}

TEST(SipJsonTest, ReadsTheLow32BitsOfANumber) {
  EXPECT_EQ(ReadNumber("0"), 0U);
  EXPECT_EQ(ReadNumber("4294967295"), 0xFFFFFFFF);
  EXPECT_EQ(ReadNumber("4294967298"), 2U);
  EXPECT_EQ(ReadNumber("18446744073709551615"), 0xFFFFFFFF);
  EXPECT_EQ(ReadNumber("-1"), 0xFFFFFFFF);
  EXPECT_EQ(ReadNumber("-9223372036854775807"), 1U);
}

TEST(SipJsonTest, TruncatesAFraction) {
  EXPECT_EQ(ReadNumber("3.99"), 3U);
  EXPECT_EQ(ReadNumber("-1.5"), 0xFFFFFFFF);
  EXPECT_EQ(ReadNumber("4294967298.5"), 2U);
}

TEST(SipJsonTest, AnswersWithTheDefaultForANumberBeyond64Bits) {
  EXPECT_EQ(ReadNumber("1e300"), DEFAULT);
  EXPECT_EQ(ReadNumber("-1e300"), DEFAULT);
  EXPECT_EQ(ReadDouble(std::numeric_limits<double>::infinity()), DEFAULT);
  EXPECT_EQ(ReadDouble(std::numeric_limits<double>::quiet_NaN()), DEFAULT);
}

TEST(SipJsonTest, AnswersWithTheDefaultForWhatHoldsNoNumber) {
  for (const char* value : {"null", "true", "false", "{}", "[]", "[1]"}) {
    EXPECT_EQ(ReadNumber(value), DEFAULT) << value;
  }
}

TEST(SipJsonTest, ReadsADecimalText) {
  EXPECT_EQ(ReadNumber(R"("17")"), 17U);
  EXPECT_EQ(ReadNumber(R"("0")"), 0U);
  EXPECT_EQ(ReadNumber(R"("9876543210")"), static_cast<uint32_t>(9876543210));
  EXPECT_EQ(ReadNumber(R"("4294967295")"), 0xFFFFFFFF);
}

TEST(SipJsonTest, ReadsAHexadecimalText) {
  EXPECT_EQ(ReadNumber(R"("0x1F")"), 31U);
  EXPECT_EQ(ReadNumber(R"("0X1f")"), 31U);
  EXPECT_EQ(ReadNumber(R"("0x0")"), 0U);
  EXPECT_EQ(ReadNumber(R"("0x9")"), 9U);
  EXPECT_EQ(ReadNumber(R"("0xaF09")"), 0xAF09U);
  EXPECT_EQ(ReadNumber(R"("0xAbCdEf")"), 0xABCDEFU);
  EXPECT_EQ(ReadNumber(R"("0x123456789")"), 0x23456789U);
  EXPECT_EQ(ReadNumber(R"("0x00010002")"), 65538U);
}

TEST(SipJsonTest, ReadsAnOctalText) {
  EXPECT_EQ(ReadNumber(R"("017")"), 15U);
  EXPECT_EQ(ReadNumber(R"("00")"), 0U);
  EXPECT_EQ(ReadNumber(R"("07")"), 7U);
  EXPECT_EQ(ReadNumber(R"("08")"), 0U);
  EXPECT_EQ(ReadNumber(R"("0178")"), 15U);
}

TEST(SipJsonTest, ReadsATextUpToTheFirstCharacterThatDoesNotFit) {
  EXPECT_EQ(ReadNumber(R"("12a4")"), 12U);
  EXPECT_EQ(ReadNumber(R"("12/")"), 12U);
  EXPECT_EQ(ReadNumber(R"("12:")"), 12U);
  EXPECT_EQ(ReadNumber(R"("12\u00003")"), 12U);
  EXPECT_EQ(ReadNumber(R"("0x1G")"), 1U);
  EXPECT_EQ(ReadNumber(R"("0x1g2")"), 1U);
  EXPECT_EQ(ReadNumber(R"("0x1@")"), 1U);
  EXPECT_EQ(ReadNumber(R"("0x1`")"), 1U);
  EXPECT_EQ(ReadNumber(R"("0x1x2")"), 1U);
}

TEST(SipJsonTest, ReadsATextWithoutDigitsAsZero) {
  for (const char* value : {R"("")", R"("0x")", R"("0X")", R"("x")", R"("-5")", R"(" 7")",
                            R"("+7")", R"("abc")", R"("0x-1")"}) {
    EXPECT_EQ(ReadNumber(value), 0U) << value;
  }
}

TEST(SipJsonTest, ReadsTheCommandNotTheCurrentOne) {
  const SipJson record = MakeCommands(R"({"OC":1},{"OC":2})", 1);
  EXPECT_EQ(record.GetCmdUInt(0, "OC", DEFAULT), 1U);
}

TEST(SipJsonTest, WritesAMissingMember) {
  SipJson record = MakeCommands(R"({"OC":1})");
  record.SetCmdUInt("ST", 0xFFFFFFFF);
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1,"ST":4294967295}])");
}

TEST(SipJsonTest, ReplacesAMemberOfAnyType) {
  for (const char* value : {"7", "null", "\"22\"", "{\"a\":1}", "[1]", "-1", "1.5"}) {
    SipJson record = MakeCommands(R"({"OC":1,"ST":)" + std::string(value) + R"(,"OE":2})");
    record.SetCmdUInt("ST", 20);
    EXPECT_EQ(CommandsOf(record), R"([{"OC":1,"ST":20,"OE":2}])") << value;
    EXPECT_TRUE(record.FindCmdMember(0, "ST")->IsUint());
  }
}

TEST(SipJsonTest, WritesTheCurrentCommand) {
  SipJson record = MakeCommands(R"({"OC":1},{"OC":2},{"OC":3})", 1);
  record.SetCmdUInt("ST", 5);
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1},{"OC":2,"ST":5},{"OC":3}])");
}

TEST(SipJsonTest, GrowsTheCommandsWithEmptyObjects) {
  SipJson record = MakeCommands(R"({"OC":1})", 3);
  record.SetCmdUInt("ST", 5);
  EXPECT_EQ(CommandsOf(record), R"([{"OC":1},{},{},{"ST":5}])");
}

TEST(SipJsonTest, GrowsTheCommandsUpTo65536) {
  SipJson record = MakeCommands("", 65'535);
  record.SetCmdUInt("ST", 5);
  ASSERT_EQ(record.m_oDocument["SIP"]["CMD"].Size(), 65'536U);
  EXPECT_EQ(record.GetCmdUInt(65'535, "ST", DEFAULT), 5U);
}

TEST(SipJsonTest, WritesNothingAtAnIndexBeyond65535) {
  ExpectNotWritable(MakeCommands(R"({"OC":1})", 65'536));
  ExpectNotWritable(MakeCommands(R"({"OC":1})", 0xFFFFFFFF));
}

TEST(SipJsonTest, WritesNothingAtAnIndexBeyond65535ThatExists) {
  SipJson record = MakeCommands("", 65'535);
  record.SetCmdUInt("ST", 5);
  rapidjson::Value& commands = record.m_oDocument["SIP"]["CMD"];
  commands.PushBack(rapidjson::Value(rapidjson::kObjectType), record.m_oDocument.GetAllocator());
  record.m_nCmdIndex = 65'536;
  ExpectNotWritable(record);
}

TEST(SipJsonTest, WritesNothingWithoutTheShape) {
  for (const char* document : SHAPELESS_DOCUMENTS) {
    ExpectNotWritable(MakeRecord(document));
  }
}

TEST(SipJsonTest, WritesNoMemberOfSipWithoutTheObject) {
  for (const std::string document : {"{}", R"({"SIP":1})"}) {
    SipJson record = MakeRecord(document);
    record.SetSipBool("C", true);
    EXPECT_EQ(TextOf(record), document);
  }
}

TEST(SipJsonTest, RemovesAMemberOfTheCurrentCommandOnly) {
  SipJson record = MakeCommands(R"({"DA":1},{"DA":2,"ST":0})", 1);
  record.RemoveCmdMember("DA");
  EXPECT_EQ(CommandsOf(record), R"([{"DA":1},{"ST":0}])");
  record.m_nCmdIndex = 2;
  record.RemoveCmdMember("DA");
  EXPECT_EQ(CommandsOf(record), R"([{"DA":1},{"ST":0}])");
}

TEST(SipJsonTest, WritesNothingIntoAnElementThatIsNoObject) {
  for (const char* element : {"null", "true", "7", "\"ST\"", R"([{"ST":1}])"}) {
    ExpectNotWritable(MakeCommands(element));
  }
}

TEST(SipJsonTest, KeepsAWrittenNameWhenItsSourceIsGone) {
  SipJson record = MakeCommands("{}");
  std::string shortKey = "ST";
  std::string longKey = "a key of considerable length";
  record.SetCmdUInt(shortKey.c_str(), 1);
  record.SetCmdUInt(longKey.c_str(), 2);
  shortKey.assign(shortKey.size(), '#');
  longKey.assign(longKey.size(), '#');
  EXPECT_EQ(CommandsOf(record), R"([{"ST":1,"a key of considerable length":2}])");
}
