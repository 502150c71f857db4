#include "platform/registry/registry_path.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Components(std::string_view path) {
  CRegistryPath walk(path);
  std::vector<std::string> components;
  for (std::string_view name = walk.Next(); !name.empty(); name = walk.Next()) {
    components.emplace_back(name);
  }
  return components;
}

TEST(RegistryPathTest, BothSeparatorsSeparateEverywhere) {
  for (const char* path : {"a b\\c", "a b/c", "a b\\/c", "\\a b\\\\c\\", "//a b//c//"}) {
    EXPECT_THAT(Components(path), ElementsAre("a b", "c")) << path;
  }
}

TEST(RegistryPathTest, EmptyPathAndBareSeparatorsHaveNoComponents) {
  for (const char* path : {"", "\\", "/", "\\//\\"}) {
    EXPECT_THAT(Components(path), IsEmpty()) << path;
  }
}

TEST(RegistryPathTest, OneNameIsOneComponent) {
  EXPECT_THAT(Components("name.with=[any] %bytes%"), ElementsAre("name.with=[any] %bytes%"));
}

TEST(RegistryPathTest, EndIsAnsweredAgain) {
  CRegistryPath walk("a");
  walk.Next();
  EXPECT_EQ(walk.Next(), "");
  EXPECT_EQ(walk.Next(), "");
}

TEST(RegistryPathTest, FindsTheFirstSeparatorOfEitherKind) {
  EXPECT_EQ(FindRegistrySeparator("ab\\c/d"), 2U);
  EXPECT_EQ(FindRegistrySeparator("ab/c\\d"), 2U);
  EXPECT_EQ(FindRegistrySeparator("\\"), 0U);
  EXPECT_EQ(FindRegistrySeparator("abc"), std::string_view::npos);
  EXPECT_EQ(FindRegistrySeparator(""), std::string_view::npos);
}

TEST(RegistryPathTest, UpperCaseIsThatOfTheLettersAToZ) {
  EXPECT_EQ(ToUpperRegistryName("abyz AZ_09 `{@[ \xC3\xA4\xFF"), "ABYZ AZ_09 `{@[ \xC3\xA4\xFF");
  EXPECT_EQ(ToUpperRegistryName(""), "");
}

}  // namespace
