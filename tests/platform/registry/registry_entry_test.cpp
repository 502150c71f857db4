#include "platform/registry/registry_entry.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/registry/registry_node.h"

namespace {

using std::string_literals::operator""s;

TEST(RegistryEntryTest, TextHoldsNameTypeAndText) {
  const CRegistryEntry entry = CRegistryEntry::MakeString("name", REG_EXPAND_SZ, "text");
  EXPECT_EQ(entry.GetName(), "name");
  EXPECT_EQ(entry.GetType(), REG_EXPAND_SZ);
  EXPECT_EQ(entry.GetData(), "text");
  EXPECT_FALSE(entry.IsKey());
  EXPECT_EQ(entry.GetKey(), nullptr);
}

TEST(RegistryEntryTest, TextEndsAtItsFirstNul) {
  EXPECT_EQ(CRegistryEntry::MakeString("", REG_SZ, "ab\0cd"s).GetData(), "ab");
  EXPECT_EQ(CRegistryEntry::MakeString("", REG_SZ, "\0ab"s).GetData(), "");
}

TEST(RegistryEntryTest, NameAndDataAreFollowedByANul) {
  const CRegistryEntry entry = CRegistryEntry::MakeString("name", REG_SZ, "text");
  EXPECT_STREQ(entry.GetName().data(), "name");
  EXPECT_STREQ(entry.GetData().data(), "text");
}

TEST(RegistryEntryTest, BinaryHoldsEveryByte) {
  const CRegistryEntry entry = CRegistryEntry::MakeBinary("name", "\0a\xFF\0"s);
  EXPECT_EQ(entry.GetType(), REG_BINARY);
  EXPECT_EQ(entry.GetData(), "\0a\xFF\0"s);
  EXPECT_EQ(CRegistryEntry::MakeBinary("name", "").GetData(), "");
}

TEST(RegistryEntryTest, IntegerHoldsItsValue) {
  const CRegistryEntry entry = CRegistryEntry::MakeInteger("name", INT32_MIN);
  EXPECT_EQ(entry.GetType(), REG_DWORD);
  EXPECT_EQ(entry.GetInteger(), INT32_MIN);
  EXPECT_EQ(entry.GetName(), "name");
}

TEST(RegistryEntryTest, KeyHoldsItsNodeUntilItIsTaken) {
  const auto node = std::make_shared<CRegistryNode>();
  CRegistryEntry entry = CRegistryEntry::MakeKey("name", node);
  EXPECT_TRUE(entry.IsKey());
  EXPECT_EQ(entry.GetType(), 666U);
  EXPECT_EQ(entry.GetKey(), node);
  EXPECT_EQ(entry.TakeKey(), node);
  EXPECT_EQ(entry.GetKey(), nullptr);
  EXPECT_TRUE(entry.IsKey());
  entry.SetKey(node);
  EXPECT_EQ(entry.GetKey(), node);
}

TEST(RegistryEntryTest, MovesKeepEverything) {
  CRegistryEntry source = CRegistryEntry::MakeString("name", REG_SZ, "text");
  const CRegistryEntry entry = std::move(source);
  EXPECT_EQ(entry.GetName(), "name");
  EXPECT_EQ(entry.GetData(), "text");
}

TEST(RegistryEntryTest, EntriesOutliveTheArenaThatTheyWereMadeIn) {
  constexpr int ENTRIES = 1000;
  const auto node = std::make_shared<CRegistryNode>();
  std::vector<CRegistryEntry> entries;
  {
    CRegistryArena arena(10'000);
    for (int index = 0; index < ENTRIES; ++index) {
      const std::string name = std::to_string(index);
      entries.push_back(CRegistryEntry::MakeString(name, REG_SZ, name + " text", &arena));
      entries.push_back(CRegistryEntry::MakeInteger(name, index, &arena));
      entries.push_back(CRegistryEntry::MakeKey(name, node, &arena));
    }
  }
  for (int index = 0; index < ENTRIES; ++index) {
    const CRegistryEntry* entry = &entries[3 * static_cast<size_t>(index)];
    const std::string name = std::to_string(index);
    EXPECT_EQ(entry[0].GetName(), name);
    EXPECT_EQ(entry[0].GetData(), name + " text");
    EXPECT_EQ(entry[1].GetInteger(), index);
    EXPECT_EQ(entry[2].GetKey(), node);
  }
  entries.clear();
  EXPECT_EQ(node.use_count(), 1);
}

TEST(RegistryEntryTest, AnArenaTakesEntriesOfAnySize) {
  CRegistryArena arena(0);
  const std::string large(100'000, 'x');
  const CRegistryEntry first = CRegistryEntry::MakeBinary("first", large, &arena);
  const CRegistryEntry second = CRegistryEntry::MakeBinary("second", "", &arena);
  EXPECT_EQ(first.GetData(), large);
  EXPECT_EQ(second.GetName(), "second");
  EXPECT_EQ(second.GetData(), "");
}

TEST(RegistryEntryTest, TypesHaveTheNumbersThatFilesAndCallersUse) {
  EXPECT_EQ(REG_SZ, 1U);
  EXPECT_EQ(REG_EXPAND_SZ, 2U);
  EXPECT_EQ(REG_BINARY, 3U);
  EXPECT_EQ(REG_DWORD, 4U);
  EXPECT_EQ(REG_KEY, 666U);
}

}  // namespace
