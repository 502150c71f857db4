// The names in a key, and the save on demand.

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "tests/support/registry_files.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RegistryEnumerationTest : public RegistryFilesTest {
 protected:
  static std::vector<std::string> Keys(CRegistry& registry) {
    std::vector<std::string> names = {"from before"};
    EXPECT_EQ(registry.EnumKeys(names), REGISTRY_OK);
    return names;
  }

  static std::vector<std::string> Values(CRegistry& registry) {
    std::vector<std::string> names = {"from before"};
    EXPECT_EQ(registry.EnumValues(names), REGISTRY_OK);
    return names;
  }
};

TEST_F(RegistryEnumerationTest, NamesComeInOrderAndApart) {
  WriteTree("b=d=1\na=s=x\n[d]\n\n[c]\ninner=s=x\n\n");
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  EXPECT_THAT(Keys(registry), ElementsAre("c", "d"));
  EXPECT_THAT(Values(registry), ElementsAre("a", "b"));
}

TEST_F(RegistryEnumerationTest, TheTopHoldsTheRootKeys) {
  CRegistry registry("", nullptr);
  EXPECT_THAT(Keys(registry), ElementsAre("HKEY_CLASSES_ROOT", "HKEY_CURRENT_CONFIG",
                                          "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"));
  EXPECT_THAT(Values(registry), IsEmpty());
}

TEST_F(RegistryEnumerationTest, DeletedKeysAreLeftOut) {
  WriteTree("[c]\n\n[d]\n\n");
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  ASSERT_EQ(registry.DeleteKey("c"), REGISTRY_OK);
  EXPECT_THAT(Keys(registry), ElementsAre("d"));
  EXPECT_THAT(Values(registry), IsEmpty());
}

TEST_F(RegistryEnumerationTest, NothingWithoutAnOpenKey) {
  CRegistry registry("missing", HKEY_LOCAL_MACHINE);
  std::vector<std::string> names = {"from before"};
  EXPECT_EQ(registry.EnumKeys(names), REGISTRY_INVALID);
  EXPECT_EQ(registry.EnumValues(names), REGISTRY_INVALID);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
  EXPECT_THAT(names, ElementsAre("from before"));
}

TEST_F(RegistryEnumerationTest, ReadingNamesDoesNotMakeTheTreeDirty) {
  WriteTree("[c]\n\n");
  EXPECT_FALSE(Saves([] {
    CRegistry registry("", HKEY_LOCAL_MACHINE);
    Keys(registry);
    Values(registry);
    EXPECT_EQ(registry.Flush(), REGISTRY_OK);
  }));
}

TEST_F(RegistryEnumerationTest, FlushSavesAtOnce) {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  registry.SetValue("name", "text");
  EXPECT_FALSE(std::filesystem::exists(REGISTRY_FILE));
  EXPECT_EQ(registry.Flush(), REGISTRY_OK);
  EXPECT_THAT(ReadFile(REGISTRY_FILE), HasSubstr("\nname=s=text\n"));
}

TEST_F(RegistryEnumerationTest, FlushTellsThatTheTreeIsNotSaved) {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  registry.SetValue("name", "text");
  std::filesystem::create_directory(REGISTRY_TEMPORARY_FILE);
  EXPECT_EQ(registry.Flush(), REGISTRY_FAILED);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_FAILED);
  std::filesystem::remove(REGISTRY_TEMPORARY_FILE);
  EXPECT_EQ(registry.Flush(), REGISTRY_OK);
  EXPECT_THAT(ReadFile(REGISTRY_FILE), HasSubstr("\nname=s=text\n"));
}

}  // namespace
