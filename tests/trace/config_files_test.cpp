#include "trace/config_files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/system_calls.h"

namespace {

constexpr uint32_t MISSING = 4711;

// The number of `key` in the section "Name" of `text`; nothing without such a section, MISSING
// without such a key.
std::optional<uint32_t> Read(std::string_view text, std::string_view key = "Key") {
  const auto section = CConfigSection::Find(text, "Name");
  return section ? std::optional(section->ReadNumber(key).value_or(MISSING)) : std::nullopt;
}

TEST(ConfigFilesTest, FindsASectionWhateverTheCaseOfItsName) {
  EXPECT_EQ(Read("[Name]\nKey=1\n"), 1U);
  EXPECT_EQ(Read("[nAME]\nKey=1\n"), 1U);
  EXPECT_FALSE(Read("[Names]\nKey=1\n"));
  EXPECT_FALSE(Read("[Nam]\nKey=1\n"));
  EXPECT_FALSE(Read("[Game]\nKey=1\n"));
  EXPECT_FALSE(CConfigSection::Find("[Names]", std::string_view("Names").substr(0, 4)));
}

TEST(ConfigFilesTest, TakesOnlyANameInSquareBracketsForAHeader) {
  for (const char* text : {"Name\nKey=1", "[Name\nKey=1", "Name]\nKey=1", "x[Name]\nKey=1",
                           "(Name]\nKey=1", "[ Name ]\nKey=1", "[]\nKey=1", ""}) {
    EXPECT_FALSE(Read(text)) << text;
  }
}

TEST(ConfigFilesTest, LooksPastWhiteSpaceAroundAHeaderAndTextBehindIt) {
  EXPECT_EQ(Read(" \t\v\f[Name] ; a remark [x]\r\nKey=1"), 1U);
}

TEST(ConfigFilesTest, TakesTheFirstOfTwoSectionsOfOneName) {
  EXPECT_EQ(Read("[Name]\nKey=1\n[Name]\nKey=2\n"), 1U);
  EXPECT_EQ(Read("[Name]\nOther=1\n[Name]\nKey=2\n"), MISSING);
}

TEST(ConfigFilesTest, EndsAtTheNextLineThatStartsWithASquareBracket) {
  EXPECT_EQ(Read("Key=1\n[Name]\n[Other]\nKey=2\n"), MISSING);
  EXPECT_EQ(Read("[Name]\n  [\nKey=2\n"), MISSING);
  EXPECT_EQ(Read("[Name]\nx[Other]\nKey=2\n"), 2U);
  EXPECT_EQ(Read("[Other]\nKey=1\n[Name]\nKey=2\n[Third]\nKey=3\n"), 2U);
}

TEST(ConfigFilesTest, EndsAtALineEndOfFileWhateverItsCase) {
  EXPECT_EQ(Read("[Name]\nEndOfFile\nKey=1\n"), MISSING);
  EXPECT_EQ(Read("[Name]\n\tENDOFFILE \r\nKey=1\n"), MISSING);
  EXPECT_EQ(Read("[Name]\nKey=1\nEndOfFile"), 1U);
  EXPECT_FALSE(Read("endoffile\n[Name]\nKey=1\n"));
  EXPECT_FALSE(Read("[Other]\nEndOfFile\n[Name]\nKey=1\n"));
}

TEST(ConfigFilesTest, GoesOnPastALineThatOnlyContainsEndOfFile) {
  EXPECT_EQ(Read("[Name]\nEndOfFiles\nxEndOfFile\nEnd Of File\nKey=1\n"), 1U);
  EXPECT_EQ(Read("EndOfFile=1\n[Name]\nKey=1\n"), 1U);
}

TEST(ConfigFilesTest, ReadsLinesOfEveryKind) {
  EXPECT_EQ(Read("\n\n[Name]\r\n\r\nKey=1\r\n"), 1U);
  EXPECT_EQ(Read("[Name]\n \t\r\v\f\nKey=1"), 1U);
  EXPECT_EQ(Read(std::string("[Name]\n") + '\0' + "\nKey=1"), 1U);
  EXPECT_EQ(Read("[Name]"), MISSING);
  EXPECT_EQ(Read("[Name]\n"), MISSING);
}

TEST(ConfigFilesTest, FindsAKeyAnywhereInALine) {
  EXPECT_EQ(Read("[Name]\nMyKeyToo = 1\nKey=2\n"), 1U);
  EXPECT_EQ(Read("[Name]\nOther=3 Key\nKey=2\n"), 3U);
  EXPECT_EQ(Read("[Name]\nkey=1\nKey=2\n"), 2U);
  EXPECT_EQ(Read("[Name]\nKey\nKey=2\n"), 2U);
  EXPECT_EQ(Read("[Name]\n=1\nOther=2\n"), MISSING);
}

TEST(ConfigFilesTest, ReadsTheTextBehindTheFirstEqualsSignAsANumber) {
  const struct {
    const char* text;
    uint32_t number;
  } cases[] = {{"0", 0},
               {"5", 5},
               {" \t\v\f5", 5},
               {"5 ; a remark", 5},
               {"5x", 5},
               {"5=6", 5},
               {"0x1f", 31},
               {"0X1F", 31},
               {"017", 15},
               {"08", 0},
               {"0b1", 0},
               {"+5", 5},
               {"x5", 0},
               {"", 0},
               {"4294967295", 0xFFFFFFFF},
               {"-1", 0xFFFFFFFF},
               {"-2", 0xFFFFFFFE},
               {"-4294967295", 1},
               {"-4294967296", 0xFFFFFFFF},
               {"4294967296", 0xFFFFFFFF},
               {"0x100000002", 0xFFFFFFFF},
               {"0x8000000000000002", 0xFFFFFFFF},
               {"0xFFFFFFFFFFFFFFFFFF", 0xFFFFFFFF}};
  for (const auto& [text, number] : cases) {
    EXPECT_EQ(Read("[Name]\nKey=" + std::string(text) + "\nKey=77\n"), number) << text;
  }
}

TEST(ConfigFilesTest, ReadsNoNumberFromTheLineAfterTheKey) {
  EXPECT_EQ(Read("[Name]\nKey=\n5\n"), 0U);
}

TEST(ConfigFilesTest, TellsAMissingDirectoryFromMissingMemory) {
  {
    const auto failing = calls::opendir.Fail(ENOENT);
    EXPECT_TRUE(ListTraceConfigFiles().empty());
  }
  const auto failing = calls::opendir.Fail(ENOMEM);
  EXPECT_THROW(ListTraceConfigFiles(), std::bad_alloc);
}

}  // namespace
