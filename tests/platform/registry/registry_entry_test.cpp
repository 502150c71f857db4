#include "platform/registry/registry_entry.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

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

TEST(RegistryEntryTest, TypesHaveTheNumbersThatFilesAndCallersUse) {
  EXPECT_EQ(REG_SZ, 1U);
  EXPECT_EQ(REG_EXPAND_SZ, 2U);
  EXPECT_EQ(REG_BINARY, 3U);
  EXPECT_EQ(REG_DWORD, 4U);
  EXPECT_EQ(REG_KEY, 666U);
}

}  // namespace
