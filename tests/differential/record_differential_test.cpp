// The accessors of a record, against the rules spelled out.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "frame/sip_json.h"
#include "tests/differential/random_case.h"
#include "tests/differential/reference_json.h"
#include "tests/differential/reference_record.h"
#include "tests/frame/records.h"

namespace {

const std::vector<const char*> MEMBERS = {"OC", "OE", "OI", "CA", "MI", "ST", "DA"};

// --- The cases

uint64_t RandomBits(Random& random) { return random.Bits() >> random.Number(64); }

ReferenceJson RandomScalar(Random& random) {
  static const std::vector<double> FRACTIONS = {0.0,  2.5,   -2.5, 1e10, -1e10,
                                                1e18, -1e18, 1e19, 1e20, -1e300};
  ReferenceJson json;
  json.kind = static_cast<ReferenceJson::Kind>(random.Number(ReferenceJson::ARRAY));
  json.number = RandomBits(random);
  if (json.kind == ReferenceJson::NEGATIVE) {
    json.number = 0 - (json.number >> 1) - 1;
  }
  if (json.kind == ReferenceJson::FRACTION) {
    json.fraction = random.PickFrom(FRACTIONS);
  }
  if (json.kind == ReferenceJson::TEXT) {
    json.text = random.Text(std::string("0x17aF \0\xFF", 9), 6);
  }
  return json;
}

ReferenceJson RandomRaw(Random& random) {
  ReferenceJson raw = ReferenceArray({});
  for (uint32_t count = random.Number(7); count > 0; --count) {
    raw.elements.push_back(ReferenceNumberOf(random.Number(256)));
  }
  return ReferenceObject({{"x", {}}, {"RAW", raw}});
}

// A list of one kind.
ReferenceJson RandomArray(Random& random) {
  ReferenceJson array = ReferenceArray({});
  const uint32_t kind = random.Number(4);
  for (uint32_t count = random.Number(5); count > 0; --count) {
    switch (kind) {
      case 0:
        array.elements.push_back(ReferenceNumberOf(RandomBits(random)));
        break;
      case 1:
        array.elements.push_back(ReferenceTextOf(random.Text("ab", 3)));
        break;
      case 2:
        array.elements.push_back(random.Once(2) ? RandomRaw(random) : ReferenceObject({}));
        break;
      default:
        array.elements.push_back({});
        break;
    }
  }
  return array;
}

ReferenceJson RandomData(Random& random) {
  switch (random.Number(4)) {
    case 0:
      return RandomRaw(random);
    case 1:
      return RandomArray(random);
    case 2:
      return ReferenceObject({{"a", RandomArray(random)}, {"raw", RandomScalar(random)}});
    default:
      return RandomScalar(random);
  }
}

ReferenceJson RandomCommand(Random& random) {
  if (random.Once(8)) {
    return RandomData(random);
  }
  ReferenceJson command = ReferenceObject({});
  for (const char* key : MEMBERS) {
    // A hostile sender may give a member twice.
    for (bool isWanted = !random.Once(3); isWanted; isWanted = random.Once(8)) {
      command.members.push_back(
          {key, key == std::string("DA") ? RandomData(random) : RandomScalar(random)});
    }
  }
  return command;
}

// Mostly of the right shape.
ReferenceJson RandomRoot(Random& random) {
  ReferenceJson commands = ReferenceArray({});
  for (uint32_t count = random.Number(4); count > 0; --count) {
    commands.elements.push_back(RandomCommand(random));
  }
  switch (random.Number(20)) {
    case 0:
      return commands;
    case 1:
      return ReferenceObject({{"SIP", commands}});
    case 2:
      return ReferenceObject({{"SIP", ReferenceObject({{"CMD", RandomCommand(random)}})}});
    case 3:
      return ReferenceObject({{"sip", ReferenceObject({{"CMD", commands}})}});
    default:
      return ReferenceObject(
          {{"SIP", ReferenceObject({{"V", ReferenceNumberOf(1)}, {"CMD", commands}})}});
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
  ReferenceJson root;
  SipJson record;
  uint32_t index = 0;
};

class RecordDifferentialTest : public DifferentialTest {};

rapidjson::Type LibraryTypeOf(const ReferenceJson* data) {
  rapidjson::Document document;
  return data != nullptr ? ToLibrary(*data, document.GetAllocator()).GetType()
                         : rapidjson::kNullType;
}

// The numbers in texts have a test of their own.
TEST_P(RecordDifferentialTest, HasTheSameMembersAndNumbers) {
  ForEachSeed([](uint32_t seed) {
    const RecordCase one(seed);
    for (const char* key : MEMBERS) {
      const ReferenceJson* member = ReferenceMember(one.root, one.index, key);
      EXPECT_EQ(one.record.HasCmdMember(one.index, key), member != nullptr) << TextOf(one.record);
      if (member == nullptr || member->kind != ReferenceJson::TEXT) {
        const auto bits = member != nullptr ? ReferenceBits(*member) : std::nullopt;
        EXPECT_EQ(one.record.GetCmdUInt(one.index, key, 7), static_cast<uint32_t>(bits.value_or(7)))
            << key << " of " << one.index << " in " << TextOf(one.record);
      }
    }
  });
}

TEST_P(RecordDifferentialTest, HasTheSameKindAndLengthOfData) {
  ForEachSeed([](uint32_t seed) {
    const RecordCase one(seed);
    const ReferenceJson* data = ReferenceMember(one.root, one.index, "DA");
    EXPECT_EQ(one.record.GetDataType(one.index), LibraryTypeOf(data)) << TextOf(one.record);
    EXPECT_EQ(one.record.GetDataLength(one.index), ReferenceLength(data)) << TextOf(one.record);
    EXPECT_EQ(one.record.IsJsonStructure(), IsReferenceStructure(data)) << TextOf(one.record);
  });
}

TEST_P(RecordDifferentialTest, HasTheSameData) {
  ForEachSeed([](uint32_t seed) {
    const RecordCase one(seed);
    const ReferenceJson* data = ReferenceMember(one.root, one.index, "DA");
    uint32_t integer = 7;
    EXPECT_EQ(one.record.GetIntegerData(one.index, integer), ReferenceInteger(data).has_value());
    EXPECT_EQ(integer, ReferenceInteger(data).value_or(7)) << TextOf(one.record);

    std::vector<uint8_t> bytes;
    EXPECT_EQ(one.record.GetByteData(one.index, bytes), ReferenceBytes(data).has_value());
    EXPECT_EQ(bytes, ReferenceBytes(data).value_or(std::vector<uint8_t>())) << TextOf(one.record);

    rapidjson::Document copy;
    const bool isStructured = data != nullptr && (data->kind == ReferenceJson::ARRAY ||
                                                  data->kind == ReferenceJson::OBJECT);
    EXPECT_EQ(one.record.GetJsonData(one.index, copy, copy.GetAllocator()), isStructured);
    if (isStructured) {
      EXPECT_TRUE(copy == ToLibrary(*data, copy.GetAllocator())) << TextOf(one.record);
    }
  });
}

TEST_P(RecordDifferentialTest, TakesTheSameStatus) {
  ForEachSeed([](uint32_t seed) {
    RecordCase one(seed);
    const std::string key = one.random.PickFrom(MEMBERS);
    const uint32_t number = static_cast<uint32_t>(RandomBits(one.random));
    const std::string before = TextOf(one.record);
    one.record.SetCmdUInt(key.c_str(), number);
    SetReferenceMember(one.root, one.index, key, number);
    rapidjson::Document expected;
    EXPECT_EQ(TextOf(one.record), TextOf(ToLibrary(one.root, expected.GetAllocator())))
        << key << " of " << one.index << " in " << before;
  });
}

INSTANTIATE_DIFFERENTIAL_TEST(RecordDifferentialTest);

}  // namespace
