// Reading values through CRegistry.

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <string>

#include "platform/registry/registry.h"
#include "tests/support/level_lines.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char NULL_COUNT_LINE[] =
    "CRegistry::QueryValue: ** ERROR **  pdwCount is a NULL pointer\n";

class RegistryQueryTest : public RegistryFilesTest {
 protected:
  RegistryQueryTest() {
    setenv("REGISTRY_TEST", "expanded", 1);
    WriteTree(
        "Bytes=b=00 ff 41 \n"
        "Empty=s=\n"
        "Expand=es=x%REGISTRY_TEST%y\n"
        "NoBytes=b=\n"
        "Number=d=-2\n"
        "Text=s=text\n"
        "Unexpanded=s=%REGISTRY_TEST%\n"
        "[Key]\nText=s=inner\n\n");
  }

  // The bytes that GetValue() gives.
  static std::string Get(CRegistry& registry, const char* name, const HKEY& key = nullptr) {
    const void* bytes = registry.GetValue(name, key);
    EXPECT_NE(bytes, nullptr) << name;
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK) << name;
    return bytes == nullptr
               ? std::string()
               : std::string(static_cast<const char*>(bytes), registry.GetValueLength());
  }

  template <size_t SIZE>
  static std::string Bytes(const char (&bytes)[SIZE]) {
    return {bytes, SIZE - 1};
  }
};

TEST_F(RegistryQueryTest, GetValueGivesEveryTypeWithItsBytes) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  const int32_t number = -2;
  const struct {
    const char* name;
    uint32_t type;
    std::string bytes;
  } cases[] = {
      {"Text", 1, Bytes("text\0")},
      {"Empty", 1, Bytes("\0")},
      {"Unexpanded", 1, Bytes("%REGISTRY_TEST%\0")},
      {"Expand", 2, Bytes("xexpandedy\0")},
      {"Bytes", 3, Bytes("\0\xFF\x41")},
      {"NoBytes", 3, ""},
      {"Number", 4, std::string(reinterpret_cast<const char*>(&number), sizeof(number))},
  };
  for (const auto& value : cases) {
    EXPECT_EQ(Get(registry, value.name), value.bytes) << value.name;
    EXPECT_EQ(registry.GetValueType(), value.type) << value.name;
  }
}

TEST_F(RegistryQueryTest, GetValueFindsNothingUnderOtherNames) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  for (const char* name :
       {"Absent", "text", "Tex", "Text2", "", "Key", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(registry.GetValue(name), nullptr);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_NO_DATA);
  }
}

TEST_F(RegistryQueryTest, GetValueWithoutAKeyFails) {
  CRegistry registry;
  EXPECT_EQ(registry.GetValue("Text"), nullptr);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
}

TEST_F(RegistryQueryTest, GetValueReadsTheKeyGivenOrElseTheCurrentOne) {
  CRegistry registry("Key", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(Get(registry, "Text"), Bytes("inner\0"));
  EXPECT_EQ(Get(registry, "Text", HKEY_LOCAL_MACHINE), Bytes("text\0"));
  EXPECT_EQ(Get(registry, "Text", registry.GetKey()), Bytes("inner\0"));
  EXPECT_EQ(registry.GetPath(), "Key");
}

TEST_F(RegistryQueryTest, GetValueStaysValidWhileTheValueChanges) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  const void* bytes = registry.GetValue("Text");
  registry.SetValue("Text", "changed");
  registry.DeleteValue("Text");
  EXPECT_STREQ(static_cast<const char*>(bytes), "text");
}

TEST_F(RegistryQueryTest, FailedReadKeepsTypeAndLengthOfTheLastValue) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  registry.GetValue("Bytes");
  registry.GetValue("Absent");
  EXPECT_EQ(registry.GetValueType(), REG_BINARY);
  EXPECT_EQ(registry.GetValueLength(), 3U);
}

TEST_F(RegistryQueryTest, ExpansionCanBeSwitchedOff) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  registry.SetExpand(false);
  EXPECT_EQ(Get(registry, "Expand"), Bytes("x%REGISTRY_TEST%y\0"));
  EXPECT_EQ(registry.GetValueType(), REG_EXPAND_SZ);
  std::string text;
  EXPECT_EQ(registry.QueryValue(text, "Expand"), REGISTRY_OK);
  EXPECT_EQ(text, "x%REGISTRY_TEST%y");
  registry.SetExpand(true);
  EXPECT_EQ(Get(registry, "Expand"), Bytes("xexpandedy\0"));
}

TEST_F(RegistryQueryTest, ExpansionReadsTheEnvironmentOfTheMoment) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  setenv("REGISTRY_TEST", "", 1);
  EXPECT_EQ(Get(registry, "Expand"), Bytes("xy\0"));
}

TEST_F(RegistryQueryTest, ReadingIsTracedAtLevel4WithNameAndLength) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  ExpectLines({{4, "CRegistry::GetValue \"Expand\" --> len 11\n"},
               {4, "CRegistry::GetValue \"Bytes\" --> len 3\n"},
               {4, "CRegistry::GetValue \"Number\" --> len 4\n"},
               {4, "CRegistry::GetValue \"Text\" --> len 5\n"},
               {4, "CRegistry::GetValue \"Expand\" --> len 11\n"},
               {4, "CRegistry::GetValue \"Bytes\" --> len 3\n"},
               {4, "CRegistry::GetValue \"Number\" --> len 4\n"}},
              [&] {
                registry.GetValue("Expand");
                registry.GetValue("Bytes");
                registry.GetValue("Number");
                registry.GetValue("Absent");
                std::string text;
                for (const char* name : {"Text", "Expand", "Bytes", "Number", "Absent"}) {
                  registry.QueryValue(text, name);
                }
              });
}

TEST_F(RegistryQueryTest, ReadingDoesNotMakeTheTreeDirty) {
  EXPECT_FALSE(Saves([] {
    CRegistry registry("Key", HKEY_LOCAL_MACHINE);
    std::string text;
    uint32_t count = 0;
    registry.GetValue("Text");
    registry.QueryValue(text, "Text");
    registry.QueryValue(nullptr, "Text", &count);
  }));
}

TEST_F(RegistryQueryTest, QueryIntoANullBufferGivesTheSizeNeeded) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  for (const auto& [name, size] : {std::pair{"Text", 5U}, {"Empty", 1U}, {"Expand", 11U}}) {
    uint32_t count = 99;
    EXPECT_EQ(registry.QueryValue(nullptr, name, &count), REGISTRY_OK) << name;
    EXPECT_EQ(count, size) << name;
  }
}

TEST_F(RegistryQueryTest, QueryFillsABufferThatIsTooSmallWithoutATerminator) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  for (const uint32_t size : {0U, 1U, 3U, 4U}) {
    std::array<char, 8> buffer = {'-', '-', '-', '-', '-', '-', '-', '\0'};
    uint32_t count = size;
    EXPECT_EQ(registry.QueryValue(buffer.data(), "Text", &count), REGISTRY_TOO_SMALL) << size;
    EXPECT_EQ(registry.GetStatus(), REGISTRY_TOO_SMALL);
    EXPECT_EQ(count, size);
    EXPECT_EQ(std::string(buffer.data()),
              std::string("text").substr(0, size) + std::string(7 - size, '-'));
  }
}

TEST_F(RegistryQueryTest, QueryCopiesTextAndTerminatorAndCountsTheText) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  for (const uint32_t size : {5U, 8U}) {
    std::array<char, 8> buffer = {'-', '-', '-', '-', '-', '-', '-', '\0'};
    uint32_t count = size;
    EXPECT_EQ(registry.QueryValue(buffer.data(), "Text", &count), REGISTRY_OK) << size;
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
    EXPECT_EQ(count, 4U);
    EXPECT_EQ(std::memcmp(buffer.data(), "text\0--\0", 8), 0);
  }
}

TEST_F(RegistryQueryTest, QueryOfAnEmptyTextNeedsRoomForTheTerminator) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  char buffer = '-';
  uint32_t count = 0;
  EXPECT_EQ(registry.QueryValue(&buffer, "Empty", &count), REGISTRY_TOO_SMALL);
  EXPECT_EQ(buffer, '-');
  count = 1;
  EXPECT_EQ(registry.QueryValue(&buffer, "Empty", &count), REGISTRY_OK);
  EXPECT_EQ(buffer, '\0');
  EXPECT_EQ(count, 0U);
}

TEST_F(RegistryQueryTest, QueryOfWhatIsNoTextFindsNoData) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  for (const char* name :
       {"Absent", "Number", "Bytes", "NoBytes", "Key", static_cast<const char*>(nullptr)}) {
    std::array<char, 8> buffer = {'-', '\0'};
    uint32_t count = 8;
    std::string text = "before";
    EXPECT_EQ(registry.QueryValue(buffer.data(), name, &count), REGISTRY_NO_DATA);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_NO_DATA);
    EXPECT_EQ(count, 8U);
    EXPECT_STREQ(buffer.data(), "-");
    EXPECT_EQ(registry.QueryValue(text, name), REGISTRY_NO_DATA);
    EXPECT_EQ(text, "before");
  }
}

TEST_F(RegistryQueryTest, QueryWithoutAKeyFails) {
  CRegistry registry;
  std::array<char, 8> buffer = {'-', '\0'};
  uint32_t count = 8;
  std::string text = "before";
  EXPECT_EQ(registry.QueryValue(buffer.data(), "Text", &count), REGISTRY_INVALID);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
  EXPECT_EQ(registry.QueryValue(text, "Text"), REGISTRY_INVALID);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
  EXPECT_STREQ(buffer.data(), "-");
  EXPECT_EQ(text, "before");
}

TEST_F(RegistryQueryTest, QueryWithoutACountIsTooSmallAndTracedAtLevel1) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  char buffer = '-';
  EXPECT_EQ(registry.QueryValue(&buffer, "Text", nullptr), REGISTRY_TOO_SMALL);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_TOO_SMALL);
  EXPECT_EQ(registry.QueryValue(nullptr, "Text", nullptr), REGISTRY_TOO_SMALL);
  EXPECT_EQ(buffer, '-');
  EXPECT_EQ(LevelOf(NULL_COUNT_LINE, [&] { registry.QueryValue(nullptr, "Text", nullptr); }), 1U);
}

TEST_F(RegistryQueryTest, QueryIntoAStringTakesTextsExpanded) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  for (const auto& [name, expected] :
       {std::pair{"Text", "text"}, {"Empty", ""}, {"Expand", "xexpandedy"}}) {
    std::string text = "before";
    EXPECT_EQ(registry.QueryValue(text, name), REGISTRY_OK) << name;
    EXPECT_EQ(text, expected);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
  }
}

TEST_F(RegistryQueryTest, QueryReadsTheKeyGivenOrElseTheCurrentOne) {
  CRegistry registry("Key", HKEY_LOCAL_MACHINE);
  std::string text;
  registry.QueryValue(text, "Text");
  EXPECT_EQ(text, "inner");
  registry.QueryValue(text, "Text", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(text, "text");
  uint32_t count = 0;
  EXPECT_EQ(CRegistry().QueryValue(nullptr, "Text", &count, registry.GetKey()), REGISTRY_OK);
  EXPECT_EQ(count, 6U);
}

}  // namespace
