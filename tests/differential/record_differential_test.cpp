// The accessors of a record, against the rules spelled out.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "frame/sip_json.h"
#include "tests/differential/plain_json.h"
#include "tests/differential/plain_record.h"
#include "tests/differential/random_case.h"
#include "tests/frame/records.h"

namespace {

const std::vector<const char*> KEYS = {"OC", "OE", "OI", "CA", "MI", "ST", "DA"};

// --- The cases

uint64_t RandomBits(Random& random) { return random.Bits() >> random.Number(64); }

PlainJson RandomScalar(Random& random) {
  static const std::vector<double> FRACTIONS = {0.0,  2.5,   -2.5, 1e10, -1e10,
                                                1e18, -1e18, 1e19, 1e20, -1e300};
  PlainJson json;
  json.kind = static_cast<PlainJson::Kind>(random.Number(PlainJson::ARRAY));
  json.number = RandomBits(random);
  if (json.kind == PlainJson::NEGATIVE) {
    json.number = 0 - (json.number >> 1) - 1;
  }
  if (json.kind == PlainJson::FRACTION) {
    json.fraction = random.PickFrom(FRACTIONS);
  }
  if (json.kind == PlainJson::TEXT) {
    json.text = random.Text(std::string("0x17aF \0\xFF", 9), 6);
  }
  return json;
}

PlainJson RandomRaw(Random& random) {
  PlainJson raw = PlainArray({});
  for (uint32_t count = random.Number(7); count > 0; --count) {
    raw.elements.push_back(PlainNumberOf(random.Number(256)));
  }
  return PlainObject({{"x", {}}, {"RAW", raw}});
}

// A list of one kind.
PlainJson RandomArray(Random& random) {
  PlainJson array = PlainArray({});
  const uint32_t kind = random.Number(4);
  for (uint32_t count = random.Number(5); count > 0; --count) {
    switch (kind) {
      case 0:
        array.elements.push_back(PlainNumberOf(RandomBits(random)));
        break;
      case 1:
        array.elements.push_back(PlainTextOf(random.Text("ab", 3)));
        break;
      case 2:
        array.elements.push_back(random.Once(2) ? RandomRaw(random) : PlainObject({}));
        break;
      default:
        array.elements.push_back({});
        break;
    }
  }
  return array;
}

PlainJson RandomData(Random& random) {
  switch (random.Number(4)) {
    case 0:
      return RandomRaw(random);
    case 1:
      return RandomArray(random);
    case 2:
      return PlainObject({{"a", RandomArray(random)}, {"raw", RandomScalar(random)}});
    default:
      return RandomScalar(random);
  }
}

PlainJson RandomCommand(Random& random) {
  if (random.Once(8)) {
    return RandomData(random);
  }
  PlainJson command = PlainObject({});
  for (const char* key : KEYS) {
    // A hostile sender may give a member twice.
    for (bool isWanted = !random.Once(3); isWanted; isWanted = random.Once(8)) {
      command.members.push_back(
          {key, key == std::string("DA") ? RandomData(random) : RandomScalar(random)});
    }
  }
  return command;
}

// Mostly of the right shape.
PlainJson RandomRoot(Random& random) {
  PlainJson commands = PlainArray({});
  for (uint32_t count = random.Number(4); count > 0; --count) {
    commands.elements.push_back(RandomCommand(random));
  }
  switch (random.Number(20)) {
    case 0:
      return commands;
    case 1:
      return PlainObject({{"SIP", commands}});
    case 2:
      return PlainObject({{"SIP", PlainObject({{"CMD", RandomCommand(random)}})}});
    case 3:
      return PlainObject({{"sip", PlainObject({{"CMD", commands}})}});
    default:
      return PlainObject({{"SIP", PlainObject({{"V", PlainNumberOf(1)}, {"CMD", commands}})}});
  }
}

// The same record for both.
struct RecordCase {
  explicit RecordCase(uint32_t seed) : random(seed), root(RandomRoot(random)) {
    ToLibrary(root, record.m_oDocument.GetAllocator()).Swap(record.m_oDocument);
    index = random.Number(5);
    record.m_nCmdIndex = index;
  }

  Random random;
  PlainJson root;
  SipJson record;
  uint32_t index = 0;
};

class RecordDifferentialTest : public DifferentialTest {};

rapidjson::Type LibraryTypeOf(const PlainJson* data) {
  rapidjson::Document document;
  return data != nullptr ? ToLibrary(*data, document.GetAllocator()).GetType()
                         : rapidjson::kNullType;
}

// The numbers in texts have a test of their own.
TEST_P(RecordDifferentialTest, HasTheSameMembersAndNumbers) {
  ForEachSeed([](uint32_t seed) {
    const RecordCase one(seed);
    for (const char* key : KEYS) {
      const PlainJson* member = PlainMember(one.root, one.index, key);
      EXPECT_EQ(one.record.HasCmdMember(one.index, key), member != nullptr) << TextOf(one.record);
      if (member == nullptr || member->kind != PlainJson::TEXT) {
        const auto bits = member != nullptr ? PlainBits(*member) : std::nullopt;
        EXPECT_EQ(one.record.GetCmdUInt(one.index, key, 7), static_cast<uint32_t>(bits.value_or(7)))
            << key << " of " << one.index << " in " << TextOf(one.record);
      }
    }
  });
}

TEST_P(RecordDifferentialTest, HasTheSameKindAndLengthOfData) {
  ForEachSeed([](uint32_t seed) {
    const RecordCase one(seed);
    const PlainJson* data = PlainMember(one.root, one.index, "DA");
    EXPECT_EQ(one.record.GetDataType(one.index), LibraryTypeOf(data)) << TextOf(one.record);
    EXPECT_EQ(one.record.GetDataLength(one.index), PlainLength(data)) << TextOf(one.record);
    EXPECT_EQ(one.record.IsJsonStructure(), IsPlainStructure(data)) << TextOf(one.record);
  });
}

TEST_P(RecordDifferentialTest, HasTheSameData) {
  ForEachSeed([](uint32_t seed) {
    const RecordCase one(seed);
    const PlainJson* data = PlainMember(one.root, one.index, "DA");
    uint32_t integer = 7;
    EXPECT_EQ(one.record.GetIntegerData(one.index, integer), PlainInteger(data).has_value());
    EXPECT_EQ(integer, PlainInteger(data).value_or(7)) << TextOf(one.record);

    std::vector<uint8_t> bytes;
    EXPECT_EQ(one.record.GetByteData(one.index, bytes), PlainBytes(data).has_value());
    EXPECT_EQ(bytes, PlainBytes(data).value_or(std::vector<uint8_t>())) << TextOf(one.record);

    rapidjson::Document copy;
    const bool isStructured =
        data != nullptr && (data->kind == PlainJson::ARRAY || data->kind == PlainJson::OBJECT);
    EXPECT_EQ(one.record.GetJsonData(one.index, copy, copy.GetAllocator()), isStructured);
    if (isStructured) {
      EXPECT_TRUE(copy == ToLibrary(*data, copy.GetAllocator())) << TextOf(one.record);
    }
  });
}

TEST_P(RecordDifferentialTest, TakesTheSameStatus) {
  ForEachSeed([](uint32_t seed) {
    RecordCase one(seed);
    const std::string key = one.random.PickFrom(KEYS);
    const uint32_t number = static_cast<uint32_t>(RandomBits(one.random));
    const std::string before = TextOf(one.record);
    one.record.SetCmdUInt(key.c_str(), number);
    SetPlainMember(one.root, one.index, key, number);
    rapidjson::Document expected;
    EXPECT_EQ(TextOf(one.record), TextOf(ToLibrary(one.root, expected.GetAllocator())))
        << key << " of " << one.index << " in " << before;
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(RecordDifferentialTest);

}  // namespace
