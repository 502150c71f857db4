#include "platform/profile/profile_string.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/profile/profile_test_file.h"

namespace {

using std::string_literals::operator""s;

// The text of the file after an update that succeeds.
std::string Updated(const std::string& text, const char* key, const char* value) {
  const ProfileTestFile file(text);
  EXPECT_EQ(WritePrivateProfileString("s", key, value, file.Name()), 1U);
  return file.Text();
}

std::string Written(const std::string& text) { return Updated(text, "key", "new"); }
std::string KeyRemoved(const std::string& text) { return Updated(text, "key", nullptr); }
std::string SectionRemoved(const std::string& text) { return Updated(text, nullptr, nullptr); }

bool IsUnchangedBy(const std::string& text, const char* key, const char* value) {
  const ProfileTestFile file(text);
  return WritePrivateProfileString("s", key, value, file.Name()) == 0 && file.Text() == text;
}

// What a missing section adds at the end of the file.
constexpr char SECTION[] = "\n[s]\n\nkey=new\n";

TEST(ProfilePlaceTest, ReplacesTheLineOfAKey) {
  EXPECT_EQ(Written("[s]\na=1\nkey=old\nb=2\n"), "[s]\na=1\nkey=new\nb=2\n");
}

TEST(ProfilePlaceTest, ReplacesTheCommentsOfAKeyToo) {
  EXPECT_EQ(Written("[s]\na=1\n\n; of key\nkey=old ; text\n; of b\nb=2\n"),
            "[s]\na=1\nkey=new\n; of b\nb=2\n");
}

TEST(ProfilePlaceTest, AFirstKeyIsReplacedBehindAnEmptyLine) {
  EXPECT_EQ(Written("[s]\n\nkey=old\nb=2\n"), "[s]\n\nkey=new\nb=2\n");
  EXPECT_EQ(Written("[s]\nkey=old\nb=2\n"), "[s]\n\nkey=new\nb=2\n");
  EXPECT_EQ(Written("[s]\n\n; a\n\nkey=old\n"), "[s]\n\nkey=new\n");
}

TEST(ProfilePlaceTest, ALineWithoutEqualsSignCountsAsAnEntry) {
  EXPECT_EQ(Written("[s]\ntext\nkey=old\n"), "[s]\ntext\nkey=new\n");
  EXPECT_EQ(Written("[s]\nkey\nkey=old\n"), "[s]\nkey\nkey=new\n");
  EXPECT_EQ(Written("[s]\n \nkey=old\n"), "[s]\n \nkey=new\n");
}

TEST(ProfilePlaceTest, EntriesOfOtherSectionsDoNotCount) {
  EXPECT_EQ(Written("[a]\nb=1\n[s]\nkey=old\n"), "[a]\nb=1\n[s]\n\nkey=new\n");
}

TEST(ProfilePlaceTest, RemovesAKeyWithItsComments) {
  EXPECT_EQ(KeyRemoved("[s]\na=1\n\n; of key\nkey=old\n; of b\nb=2\n"), "[s]\na=1\n; of b\nb=2\n");
  EXPECT_EQ(KeyRemoved("[s]\na=1\nkey=old"), "[s]\na=1\n");
}

TEST(ProfilePlaceTest, AFirstKeyIsRemovedAndLeavesAnEmptyLine) {
  EXPECT_EQ(KeyRemoved("[s]\n\n; of key\nkey=old\nb=2\n"), "[s]\n\nb=2\n");
  EXPECT_EQ(KeyRemoved("[s]\nkey=old\n"), "[s]\n\n");
}

TEST(ProfilePlaceTest, ChangesTheFirstOfEqualKeysOnly) {
  EXPECT_EQ(Written("[s]\na=1\nkey=1\nkey=2\n"), "[s]\na=1\nkey=new\nkey=2\n");
  EXPECT_EQ(KeyRemoved("[s]\na=1\nkey=1\nkey=2\n"), "[s]\na=1\nkey=2\n");
}

TEST(ProfilePlaceTest, MatchesKeysExactly) {
  EXPECT_EQ(Written("[s]\nKey=1\nkeys=2\n key=3\n;key=4\n"),
            "[s]\nKey=1\nkeys=2\n key=3\n;key=4\nkey=new\n");
}

TEST(ProfilePlaceTest, IgnoresBlanksBeforeTheEqualsSign) {
  EXPECT_EQ(Written("[s]\na=1\nkey \t =old\n"), "[s]\na=1\nkey=new\n");
  EXPECT_EQ(Written("[s]\na=1\nkey\v=old\n"), "[s]\na=1\nkey\v=old\nkey=new\n");
}

TEST(ProfilePlaceTest, InsertsANewKeyBeforeTheCommentsOfTheNextSection) {
  EXPECT_EQ(Written("[s]\n\na=1\n\n; of b\n[b]\n; of c\n[c]\n"),
            "[s]\n\na=1\nkey=new\n\n; of b\n[b]\n; of c\n[c]\n");
  EXPECT_EQ(Written("[s]\n\n[b]\n"), "[s]\nkey=new\n\n[b]\n");
}

TEST(ProfilePlaceTest, AnyLineWithABracketEndsTheSection) {
  EXPECT_EQ(Written("[s]\na=1\n[s]\nkey=old\n"), "[s]\na=1\nkey=new\n[s]\nkey=old\n");
  EXPECT_EQ(Written("[s]\na=1\n[b\n"), "[s]\na=1\nkey=new\n[b\n");
}

TEST(ProfilePlaceTest, AppendsANewKeyOfTheLastSection) {
  EXPECT_EQ(Written("[a]\n[s]\nb=1\n\n; end\n"), "[a]\n[s]\nb=1\n\n; end\nkey=new\n");
}

TEST(ProfilePlaceTest, AppendsANewSection) {
  EXPECT_EQ(Written("[a]\nkey=1\n"), "[a]\nkey=1\n"s + SECTION);
  EXPECT_EQ(Written(""), SECTION);
}

TEST(ProfilePlaceTest, MatchesSectionsExactly) {
  for (const std::string text : {"[S]\n", "[s1]\n", "[s\n", " [s]\n", ";[s]\n", "s]\n", "[ s]\n"}) {
    EXPECT_EQ(Written(text), text + SECTION);
  }
  EXPECT_EQ(Written("[s]; text\r\na=1\n[b]\n"), "[s]; text\r\na=1\nkey=new\n[b]\n");
}

TEST(ProfilePlaceTest, RemovesASectionWithTheCommentsBeforeIt) {
  EXPECT_EQ(SectionRemoved("[a]\nb=1\n\n; of s\n[s]\nkey=1\n\nc=2\n\n; of d\n[d]\n; of e\n[e]\n"),
            "[a]\nb=1\n\n; of d\n[d]\n; of e\n[e]\n");
  EXPECT_EQ(SectionRemoved("; of s\n[s]\n[s]\n"), "[s]\n");
}

TEST(ProfilePlaceTest, RemovesTheLastSectionToTheEndOfTheFile) {
  EXPECT_EQ(SectionRemoved("[a]\nb=1\n\n[s]\nkey=1\n; end\n\n"), "[a]\nb=1\n");
  EXPECT_EQ(SectionRemoved("[s]\n"), "");
}

TEST(ProfilePlaceTest, ANullKeyRemovesTheSectionWhateverTheValue) {
  EXPECT_EQ(Updated("[s]\n=1\na=1\n[b]\n", nullptr, "value"), "[b]\n");
  EXPECT_EQ(Updated("[s]\n=1\na=1\n", nullptr, "value"), "");
}

TEST(ProfilePlaceTest, AnEmptyKeyIsAKey) {
  EXPECT_EQ(Updated("[s]\na=1\n=1\n", "", "2"), "[s]\na=1\n=2\n");
}

TEST(ProfilePlaceTest, NothingToRemoveIsAFailureAndMakesNoSection) {
  EXPECT_TRUE(IsUnchangedBy("[s]\na=1\n[b]\nkey=1\n", "key", nullptr));
  EXPECT_TRUE(IsUnchangedBy("[s]\na=1\n", "key", nullptr));
  EXPECT_TRUE(IsUnchangedBy("[a]\nkey=1\n", "key", nullptr));
  EXPECT_TRUE(IsUnchangedBy("[a]\nkey=1\n", nullptr, nullptr));
  EXPECT_TRUE(IsUnchangedBy("[a]\nkey=1\n", nullptr, "value"));
  EXPECT_TRUE(IsUnchangedBy("", nullptr, nullptr));
}

TEST(ProfilePlaceTest, TheLastCharacterOfTheFileCountsAsALineEnd) {
  EXPECT_EQ(Written("[s]\na=1\nkey=old"), "[s]\na=1\nkey=new\n");
  EXPECT_EQ(Written("[s]\na=1\nkey="), "[s]\na=1\nkey=key=new\n");
  EXPECT_EQ(Written("[s]"), "[s]"s + SECTION);
  EXPECT_EQ(KeyRemoved("[s]\na=1\nkey=x"), "[s]\na=1\n");
}

TEST(ProfilePlaceTest, ALastLineWithoutLineEndIsExtendedByANewKey) {
  EXPECT_EQ(Written("[s]\na=1"), "[s]\na=1key=new\n");
}

TEST(ProfilePlaceTest, SeesALineInPiecesOf1023Characters) {
  const std::string filler = "[s]\na=" + std::string(1021, 'x');
  EXPECT_EQ(Written(filler + "key=old\n"), filler + "key=new\n");
  const std::string shorter = "[s]\na=" + std::string(1020, 'x');
  EXPECT_EQ(Written(shorter + "key=old\n"), shorter + "key=old\nkey=new\n");
}

TEST(ProfilePlaceTest, ALineEndsAtANul) {
  EXPECT_EQ(Written("[s]\na=1\nkey=old\0text\nb=2\n"s), "[s]\na=1\nkey=new\nb=2\n");
  EXPECT_EQ(Written("[s]\0\nkey=old\n"s), "[s]\0\nkey=old\n"s + SECTION);
  EXPECT_EQ(Written("[s]\na=1\n\0b\nkey=old\n"s), "[s]\na=1\nkey=new\n");
}

TEST(ProfilePlaceTest, WritesTheTextsAsTheyAre) {
  EXPECT_EQ(Updated("[s]\na=1\n", " k ", " \"v\" ; c "), "[s]\na=1\n k = \"v\" ; c \n");
}

}  // namespace
