#include "platform/profile/profile.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/platform/profile/profile_test_file.h"

namespace {

using std::string_literals::operator""s;
using Names = std::vector<std::string>;

int32_t Integer(const std::string& value) {
  const ProfileTestFile file("[s]\nkey=" + value + "\n");
  return CProfile(file.Name()).ReadInteger("s", "key", 77);
}

TEST(ProfileTest, IsBoundToOneFileName) {
  EXPECT_EQ(CProfile("name.ini").GetFileName(), "name.ini");
}

TEST(ProfileTest, ReadsAString) {
  const ProfileTestFile file("[s]\nkey= a b ; c\nempty=\n");
  const CProfile profile(file.Name());
  EXPECT_EQ(profile.ReadString("s", "key"), "a b");
  EXPECT_EQ(profile.ReadString("s", "key", "default"), "a b");
  EXPECT_EQ(profile.ReadString("s", "empty", "default"), "");
}

TEST(ProfileTest, ReadsTheLongestString) {
  const std::string value(1020, 'x');
  const ProfileTestFile file("[s]\nk=" + value + "\n");
  EXPECT_EQ(CProfile(file.Name()).ReadString("s", "k"), value);
}

TEST(ProfileTest, AMissingStringIsTheWholeDefault) {
  const ProfileTestFile file("[s]\n");
  const std::string text(3000, 'x');
  EXPECT_EQ(CProfile(file.Name()).ReadString("s", "key", text), text);
  EXPECT_EQ(CProfile(file.NameOf("missing")).ReadString("s", "key", text), text);
  EXPECT_EQ(CProfile(file.Name()).ReadString("s", "key"), "");
}

TEST(ProfileTest, ReadsAnInteger) {
  EXPECT_EQ(Integer("5"), 5);
  EXPECT_EQ(Integer("-5"), -5);
  EXPECT_EQ(Integer("0"), 0);
  EXPECT_EQ(Integer("0x1F"), 31);
  EXPECT_EQ(Integer("010"), 8);
  EXPECT_EQ(Integer("12 apples"), 12);
}

TEST(ProfileTest, AnIntegerIsCutTo32Bits) {
  EXPECT_EQ(Integer("2147483647"), INT32_MAX);
  EXPECT_EQ(Integer("-2147483648"), INT32_MIN);
  EXPECT_EQ(Integer("4294967295"), -1);
  EXPECT_EQ(Integer("0x100000005"), 5);
}

TEST(ProfileTest, AnIntegerIsReadFrom31Characters) {
  EXPECT_EQ(Integer(std::string(30, '0') + "7"), 7);
  EXPECT_EQ(Integer(std::string(30, '0') + "71"), 7);
}

TEST(ProfileTest, WithoutANumberTheIntegerIsTheDefault) {
  EXPECT_EQ(Integer(""), 77);
  EXPECT_EQ(Integer("apples"), 77);
  const ProfileTestFile file;
  EXPECT_EQ(CProfile(file.Name()).ReadInteger("s", "key", -3), -3);
  EXPECT_EQ(CProfile(file.Name()).ReadInteger("s", "key"), 0);
}

TEST(ProfileTest, ReadsTheSections) {
  const ProfileTestFile file("[one]\na=1\n[two]\n");
  EXPECT_EQ(CProfile(file.Name()).ReadSectionList(), "one\0two\0"s);
  EXPECT_EQ(CProfile(file.Name()).ReadSections(), (Names{"one", "two"}));
}

TEST(ProfileTest, ReadsTheKeysOfASection) {
  const ProfileTestFile file("[one]\na=1\n[two]\nb=1\n=2\nc=3\n");
  EXPECT_EQ(CProfile(file.Name()).ReadKeyList("two"), "b\0\0c\0"s);
  EXPECT_EQ(CProfile(file.Name()).ReadKeys("two"), (Names{"b", "", "c"}));
}

TEST(ProfileTest, ListsOfAMissingFileOrSectionAreEmpty) {
  const ProfileTestFile file("a=1\n");
  for (const std::string& name : {std::string(file.Name()), file.NameOf("missing")}) {
    EXPECT_EQ(CProfile(name).ReadSectionList(), "");
    EXPECT_EQ(CProfile(name).ReadSections(), Names());
    EXPECT_EQ(CProfile(name).ReadKeyList("s"), "");
    EXPECT_EQ(CProfile(name).ReadKeys("s"), Names());
  }
}

TEST(ProfileTest, ListsMayHaveAnyLength) {
  std::string text = "[s]\n";
  Names names;
  for (int i = 0; i < 2000; ++i) {
    names.push_back("key" + std::to_string(i));
    text += names.back() + "=1\n";
  }
  const ProfileTestFile file(text);
  EXPECT_EQ(CProfile(file.Name()).ReadKeys("s"), names);
}

TEST(ProfileTest, AListThatJustFillsTheBufferIsWhole) {
  for (size_t length = 2040; length <= 2050; ++length) {
    const Names names = {std::string(900, 'a'), std::string(900, 'b'),
                         std::string(length - 1803, 'c')};
    const ProfileTestFile file("[" + names[0] + "]\n[" + names[1] + "]\n[" + names[2] + "]\n");
    EXPECT_EQ(CProfile(file.Name()).ReadSectionList().size(), length);
    EXPECT_EQ(CProfile(file.Name()).ReadSections(), names);
  }
}

TEST(ProfileTest, WritesAString) {
  const ProfileTestFile file;
  EXPECT_TRUE(CProfile(file.Name()).WriteString("s", "key", "a b"));
  EXPECT_EQ(file.Text(), "\n[s]\n\nkey=a b\n");
}

TEST(ProfileTest, WritesIntegersInDecimal) {
  const ProfileTestFile file("[s]\na=1\n");
  const CProfile profile(file.Name());
  EXPECT_TRUE(profile.WriteInteger("s", "i", INT32_MIN));
  EXPECT_TRUE(profile.WriteUnsigned("s", "u", UINT32_MAX));
  EXPECT_EQ(file.Text(), "[s]\na=1\ni=-2147483648\nu=4294967295\n");
  EXPECT_EQ(profile.ReadInteger("s", "i"), INT32_MIN);
  EXPECT_EQ(static_cast<uint32_t>(profile.ReadInteger("s", "u")), UINT32_MAX);
}

TEST(ProfileTest, DeletesAKey) {
  const ProfileTestFile file("[s]\na=1\nb=2\n");
  EXPECT_TRUE(CProfile(file.Name()).DeleteKey("s", "b"));
  EXPECT_EQ(file.Text(), "[s]\na=1\n");
  EXPECT_FALSE(CProfile(file.Name()).DeleteKey("s", "b"));
}

TEST(ProfileTest, DeletesASection) {
  const ProfileTestFile file("[a]\n[s]\nb=2\n");
  EXPECT_TRUE(CProfile(file.Name()).DeleteSection("s"));
  EXPECT_EQ(file.Text(), "[a]\n");
  EXPECT_FALSE(CProfile(file.Name()).DeleteSection("s"));
}

TEST(ProfileTest, AWriteThatFailsIsReported) {
  const ProfileTestFile file;
  const CProfile profile(file.NameOf("missing/file"));
  EXPECT_FALSE(profile.WriteString("s", "key", "value"));
  EXPECT_FALSE(profile.WriteInteger("s", "key", 1));
  EXPECT_FALSE(profile.WriteUnsigned("s", "key", 1));
  EXPECT_FALSE(profile.DeleteKey("s", "key"));
  EXPECT_FALSE(profile.DeleteSection("s"));
}

}  // namespace
