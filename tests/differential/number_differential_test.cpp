// Every place that reads a number from a text, against the rules spelled out.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/sip_json.h"
#include "platform/profile/profile.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"
#include "tests/differential/random_case.h"
#include "tests/differential/reference_number.h"
#include "tests/support/memory_file.h"
#include "trace/config_files.h"

namespace {

// A text that is a number, or nearly one.
std::string RandomNumber(Random& random) {
  static const std::vector<std::string> BEGINNINGS = {"", "", "", " ", "\t", "\v ", "x", "%"};
  static const std::vector<std::string> SIGNS = {"", "", "", "-", "+", "--", "- "};
  static const std::vector<std::string> PREFIXES = {"",   "",  "0",   "00", "0x",
                                                    "0X", "x", "0x0", "00x"};
  static const std::vector<std::string> DIGITS = {
      "0123456789", "01234567", "0123456789abcdefABCDEF", "0189afgxX-", "9", "f", "7"};
  static const std::vector<std::string> ENDS = {"", "", "", " ", "x", "g1", ".5", "e3", " 7"};
  std::string text = random.PickFrom(BEGINNINGS);
  text += random.PickFrom(SIGNS);
  text += random.PickFrom(PREFIXES);
  text += random.Text(random.PickFrom(DIGITS), random.Once(4) ? 30 : 9);
  return text + random.PickFrom(ENDS);
}

class NumberDifferentialTest : public DifferentialTest {};

// The rule for the members of a command: no blanks, no signs, and digits beyond 32 bits are cut
// off.
uint32_t ReadMember(const std::string& text) {
  uint32_t base = 10;
  size_t position = 0;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    position = 2;
  } else if (text.size() > 1 && text[0] == '0') {
    base = 8;
    position = 1;
  }
  uint64_t value = 0;
  while (position < text.size() && ReferenceDigit(text[position]) < base) {
    value = (value * base + ReferenceDigit(text[position++])) % (uint64_t{1} << 32);
  }
  return static_cast<uint32_t>(value);
}

TEST_P(NumberDifferentialTest, InAMemberOfACommand) {
  SipJson record;
  record.m_oDocument.Parse(R"({"SIP":{"CMD":[{"OC":""}]}})");
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    const std::string text = RandomNumber(random);
    record.m_oDocument["SIP"]["CMD"][0]["OC"].SetString(rapidjson::StringRef(text.c_str()));
    EXPECT_EQ(record.GetCmdUInt(0, "OC", 7), ReadMember(text)) << text;
  });
}

// Nothing for a line that stores nothing.
std::optional<RegistryValue> ParseValue(const std::string& line) {
  CRegistryNode node;
  ParseRegistryText(line, node);
  RegistryValue value;
  return node.ReadValue("a", value) ? std::optional(value) : std::nullopt;
}

TEST_P(NumberDifferentialTest, InAnIntegerOfTheRegistry) {
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    const std::string text = RandomNumber(random);
    const auto number = ReadReferenceNumber(text, 0, 10);
    const auto value = ParseValue("a=d=" + text);
    ASSERT_EQ(value.has_value(), number.has_value()) << text;
    if (value) {
      int32_t integer = 0;
      ASSERT_EQ(value->bytes.size(), sizeof(integer));
      value->bytes.copy(reinterpret_cast<char*>(&integer), sizeof(integer));
      EXPECT_EQ(integer, static_cast<int32_t>(ReferenceSigned(*number))) << text;
    }
  });
}

TEST_P(NumberDifferentialTest, InTheBytesOfTheRegistry) {
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    std::string text;
    for (uint32_t count = random.Number(6); count > 0; --count) {
      text += RandomNumber(random) + (random.Once(8) ? "" : " ");
    }
    std::string bytes;
    size_t position = 0;
    while (const auto number = ReadReferenceNumber(text, position, 16)) {
      bytes.push_back(static_cast<char>(ReferenceSigned(*number)));
      position = number->end;
    }
    const auto value = ParseValue("a=b=" + text);
    ASSERT_TRUE(value.has_value()) << text;
    EXPECT_EQ(value->bytes, bytes) << text;
  });
}

TEST_P(NumberDifferentialTest, InTheTraceConfiguration) {
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    const std::string text = RandomNumber(random);
    const std::string config = "[M]\nKey =" + text + "\n";
    const auto section = CConfigSection::Find(config, "M");
    ASSERT_TRUE(section.has_value());
    const auto number = ReadReferenceNumber(text, 0, 0);
    const int64_t value = number ? ReferenceSigned(*number) : 0;
    const bool isBeyond = value > UINT32_MAX || value < -int64_t{UINT32_MAX};
    EXPECT_EQ(section->ReadNumber("Key"), isBeyond ? UINT32_MAX : static_cast<uint32_t>(value))
        << text;
  });
}

// Of the value only what fits a buffer of 32 bytes counts.
TEST_P(NumberDifferentialTest, InAProfileFile) {
  const MemoryFile file;
  const CProfile profile(file.GetPath());
  ForEachSeed([&](uint32_t seed) {
    Random random(seed);
    const std::string text = RandomNumber(random);
    file.Fill("[A]\nkey=" + text + "\n");
    const size_t begin = std::min(text.find_first_not_of(" \t\v"), text.size());
    const auto number = ReadReferenceNumber(text.substr(begin, 31), 0, 0);
    EXPECT_EQ(profile.ReadInteger("A", "key", 7),
              number ? static_cast<int32_t>(ReferenceSigned(*number)) : 7)
        << text;
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(NumberDifferentialTest);

}  // namespace
