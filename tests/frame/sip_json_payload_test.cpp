#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame/sip_json.h"
#include "tests/frame/records.h"

namespace {

using Bytes = std::vector<uint8_t>;

// What the readers return for one "DA".
struct Payload {
  const char* data;
  rapidjson::Type type;
  uint64_t length;
  std::optional<uint32_t> integer;
  std::optional<Bytes> bytes;
  bool isStructure = false;
};

// The command follows a decoy, so that a reader of the first command fails.
SipJson MakeSecondCommand(const std::string& command) {
  return MakeCommands(R"({"DA":"decoy"},)" + command, 1);
}

void ExpectPayload(const SipJson& record, const Payload& payload) {
  EXPECT_EQ(record.GetDataType(1), payload.type);
  EXPECT_EQ(record.GetDataLength(1), payload.length);
  EXPECT_EQ(record.IsJsonStructure(), payload.isStructure);

  uint32_t integer = 4711;
  EXPECT_EQ(record.GetIntegerData(1, integer), payload.integer.has_value());
  EXPECT_EQ(integer, payload.integer.value_or(4711));

  Bytes bytes = {0xEE};
  EXPECT_EQ(record.GetByteData(1, bytes), payload.bytes.has_value());
  Bytes expected = {0xEE};
  if (payload.bytes) {
    expected.insert(expected.end(), payload.bytes->begin(), payload.bytes->end());
  }
  EXPECT_EQ(bytes, expected);
}

void ExpectPayloads(const std::vector<Payload>& payloads) {
  for (const Payload& payload : payloads) {
    SCOPED_TRACE(payload.data);
    ExpectPayload(MakeSecondCommand(std::string(R"({"DA":)") + payload.data + "}"), payload);
  }
}

constexpr auto NUMBER = rapidjson::kNumberType;
constexpr auto TEXT = rapidjson::kStringType;
constexpr auto ARRAY = rapidjson::kArrayType;
constexpr auto OBJECT = rapidjson::kObjectType;

}  // namespace

TEST(SipJsonPayloadTest, NothingIsNoData) {
  ExpectPayload(MakeSecondCommand(R"({"OC":1})"), {"", rapidjson::kNullType, 0, {}, {}});
  ExpectPayloads({{"null", rapidjson::kNullType, 0, {}, {}}});
}

TEST(SipJsonPayloadTest, ANumberIsEightBytesLongButPackedToItsNarrowestWidth) {
  ExpectPayloads({
      {"0", NUMBER, 8, 0, Bytes{0}},
      {"7", NUMBER, 8, 7, Bytes{7}},
      {"255", NUMBER, 8, 255, Bytes{0xFF}},
      {"256", NUMBER, 8, 256, Bytes{0, 1}},
      {"65535", NUMBER, 8, 65535, Bytes{0xFF, 0xFF}},
      {"65536", NUMBER, 8, 65536, Bytes{0, 0, 1, 0}},
      {"305419896", NUMBER, 8, 0x12345678, Bytes{0x78, 0x56, 0x34, 0x12}},
      {"4294967295", NUMBER, 8, 0xFFFFFFFF, Bytes{0xFF, 0xFF, 0xFF, 0xFF}},
  });
}

TEST(SipJsonPayloadTest, ANumberBeyond32BitsIsNoIntegerData) {
  ExpectPayloads({
      {"4294967296", NUMBER, 8, {}, Bytes{0, 0, 0, 0, 1, 0, 0, 0}},
      {"18446744073709551615", NUMBER, 8, {}, Bytes(8, 0xFF)},
      {"-2147483649", NUMBER, 8, {}, {}},
  });
}

TEST(SipJsonPayloadTest, ANegativeNumberHasNoBytes) {
  ExpectPayloads({
      {"-1", NUMBER, 8, 0xFFFFFFFF, {}},
      {"-2147483648", NUMBER, 8, 0x80000000, {}},
  });
}

TEST(SipJsonPayloadTest, AFractionHasNoLength) {
  ExpectPayloads({
      {"1.5", NUMBER, 0, {}, {}},
      {"7.0", NUMBER, 0, {}, {}},
      {"1e300", NUMBER, 0, {}, {}},
  });
}

TEST(SipJsonPayloadTest, ABooleanIsOneByteOfIntegerData) {
  ExpectPayloads({
      {"true", rapidjson::kTrueType, 1, 1, {}},
      {"false", rapidjson::kFalseType, 1, 0, {}},
  });
}

TEST(SipJsonPayloadTest, ATextHasATerminator) {
  ExpectPayloads({
      {R"("abc")", TEXT, 4, {}, Bytes{'a', 'b', 'c', 0}},
      {R"("")", TEXT, 1, {}, Bytes{0}},
      {R"("a\u0000b")", TEXT, 4, {}, Bytes{'a', 0, 'b', 0}},
      {R"("7")", TEXT, 2, {}, Bytes{'7', 0}},
  });
}

TEST(SipJsonPayloadTest, AListOfTextsHasATerminatorEachAndOneForTheList) {
  ExpectPayloads({
      {R"(["a","bc"])", ARRAY, 6, {}, Bytes{'a', 0, 'b', 'c', 0, 0}},
      {R"([""])", ARRAY, 2, {}, Bytes{0, 0}},
  });
}

TEST(SipJsonPayloadTest, AnArrayOfNumbersIsPackedToWhatEachNeeds) {
  ExpectPayloads({
      {"[1,300,70000]", ARRAY, 7, {}, Bytes{1, 0x2C, 0x01, 0x70, 0x11, 0x01, 0x00}},
      {"[0]", ARRAY, 1, {}, Bytes{0}},
      {"[255,256]", ARRAY, 3, {}, Bytes{0xFF, 0, 1}},
      {"[65535,65536]", ARRAY, 6, {}, Bytes{0xFF, 0xFF, 0, 0, 1, 0}},
      {"[4294967295,4294967296]",
       ARRAY,
       12,
       {},
       Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 1, 0, 0, 0}},
      {"[18446744073709551615]", ARRAY, 8, {}, Bytes(8, 0xFF)},
  });
}

TEST(SipJsonPayloadTest, ANegativeElementTakesEightBytes) {
  ExpectPayloads({
      {"[-1]", ARRAY, 8, {}, Bytes(8, 0xFF)},
      {"[1,-2]", ARRAY, 9, {}, Bytes{1, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
  });
}

TEST(SipJsonPayloadTest, AFractionInAnArrayIsTruncated) {
  ExpectPayloads({
      {"[1.9,300.5]", ARRAY, 3, {}, Bytes{1, 0x2C, 0x01}},
      {"[1e300,1]", ARRAY, 1, {}, Bytes{1}},
  });
}

TEST(SipJsonPayloadTest, AnEmptyArrayIsNoData) { ExpectPayloads({{"[]", ARRAY, 0, {}, Bytes{}}}); }

TEST(SipJsonPayloadTest, TheFirstElementDecidesTheKindOfAnArray) {
  ExpectPayloads({
      {R"(["a",1,null,"bc"])", ARRAY, 6, {}, Bytes{'a', 0, 'b', 'c', 0, 0}},
      {R"([1,"a",null,300])", ARRAY, 3, {}, Bytes{1, 0x2C, 0x01}},
      {R"([null,1,"a"])", ARRAY, 0, {}, Bytes{}},
      {"[true,1]", ARRAY, 0, {}, Bytes{}},
      {"[[1],1]", ARRAY, 0, {}, Bytes{}},
      {R"([{},1,"a"])", ARRAY, 0, {}, Bytes{}, true},
      {"[1,{}]", ARRAY, 1, {}, Bytes{1}},
  });
}

TEST(SipJsonPayloadTest, AByteBufferGivesItsBytesAndALittleEndianInteger) {
  ExpectPayloads({
      {R"({"RAW":[]})", OBJECT, 0, {}, Bytes{}},
      {R"({"RAW":[200]})", OBJECT, 1, 200, Bytes{200}},
      {R"({"RAW":[1,2]})", OBJECT, 2, 513, Bytes{1, 2}},
      {R"({"RAW":[1,2,3]})", OBJECT, 3, 0x030201, Bytes{1, 2, 3}},
      {R"({"RAW":[1,2,3,255]})", OBJECT, 4, 0xFF030201, Bytes{1, 2, 3, 255}},
      {R"({"RAW":[1,2,3,4,5],"other":{}})", OBJECT, 5, 0x04030201, Bytes{1, 2, 3, 4, 5}},
  });
}

TEST(SipJsonPayloadTest, AHostileByteBufferGivesLowBytesAndZeros) {
  ExpectPayloads({
      {R"({"RAW":[257,-1,"a",null]})", OBJECT, 4, 0x0000FF01, Bytes{1, 0xFF, 0, 0}},
      {R"({"RAW":[{},1.9]})", OBJECT, 2, 0x0100, Bytes{0, 1}},
  });
}

TEST(SipJsonPayloadTest, ARawThatIsNoArrayIsNoBufferAndNoStructure) {
  ExpectPayloads({
      {R"({"RAW":7})", OBJECT, 0, {}, Bytes{}},
      {R"({"RAW":null})", OBJECT, 0, {}, Bytes{}},
      {R"({"RAW":{"RAW":[1]}})", OBJECT, 0, {}, Bytes{}},
      {R"({"RAW":"ab"})", OBJECT, 0, {}, Bytes{}},
  });
}

TEST(SipJsonPayloadTest, AnObjectWithoutRawIsAStructure) {
  ExpectPayloads({
      {"{}", OBJECT, 0, {}, Bytes{}, true},
      {R"({"raw":[1]})", OBJECT, 0, {}, Bytes{}, true},
      {R"([{"RAW":[1]}])", ARRAY, 0, {}, Bytes{}, true},
  });
}

TEST(SipJsonPayloadTest, TellsOfAStructureForTheCurrentCommandOnly) {
  SipJson record = MakeCommands(R"({"DA":{}},{"DA":7},{})");
  EXPECT_TRUE(record.IsJsonStructure());
  for (const uint32_t index : {1U, 2U, 3U, 0xFFFFFFFFU}) {
    record.m_nCmdIndex = index;
    EXPECT_FALSE(record.IsJsonStructure()) << index;
  }
}

TEST(SipJsonPayloadTest, CopiesJsonDataThatIsAnObjectOrAnArray) {
  for (const char* data : {"{}", "[]", R"({"RAW":[1]})", R"([{"a":["b"]}])", R"(["x",1,null])"}) {
    const SipJson record = MakeData(data);
    rapidjson::Document copy;
    EXPECT_TRUE(record.GetJsonData(0, copy, copy.GetAllocator()));
    EXPECT_EQ(TextOf(copy), data);
  }
}

TEST(SipJsonPayloadTest, CopiesNoOtherJsonData) {
  for (const char* data : {"null", "true", "false", "7", "1.5", "\"text\""}) {
    const SipJson record = MakeData(data);
    rapidjson::Document copy(rapidjson::kTrueType);
    EXPECT_FALSE(record.GetJsonData(0, copy, copy.GetAllocator())) << data;
    EXPECT_TRUE(copy.IsTrue()) << data;
  }
}

TEST(SipJsonPayloadTest, JsonDataOutlivesTheRecord) {
  rapidjson::Document copy;
  {
    std::string buffer = R"({"SIP":{"CMD":[{"DA":{"a name of some length":"text"}}]}})";
    SipJson record;
    record.m_oDocument.ParseInsitu(buffer.data());
    ASSERT_TRUE(record.GetJsonData(0, copy, copy.GetAllocator()));
    buffer.assign(buffer.size(), '#');
  }
  EXPECT_EQ(TextOf(copy), R"({"a name of some length":"text"})");
}
