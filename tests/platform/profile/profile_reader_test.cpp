#include "platform/profile/profile_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/profile/profile_test_file.h"

namespace {

using std::string_literals::operator""s;

std::string Value(const std::string& text, const char* section = "s", const char* key = "key") {
  const ProfileTestFile file(text);
  const ProfileAnswer answer = ReadProfile(file.Name(), section, key, "default");
  EXPECT_EQ(answer.buffer[answer.count], '\0');
  return answer.text;
}

ProfileAnswer CutValue(uint32_t size) {
  const ProfileTestFile file("[s]\nkey=12345\n");
  return ReadProfile(file.Name(), "s", "key", "default", size);
}

ProfileAnswer Sections(const std::string& text, uint32_t size = 64) {
  const ProfileTestFile file(text);
  return ReadProfile(file.Name(), nullptr, "key", "default", size);
}

ProfileAnswer Keys(const std::string& text, uint32_t size = 64, const char* section = "s") {
  const ProfileTestFile file(text);
  return ReadProfile(file.Name(), section, nullptr, "default", size);
}

TEST(ProfileReaderTest, ReadsTheValueOfAKey) {
  EXPECT_EQ(Value("[a]\nkey=1\n[s]\nother=2\nkey=3\n[b]\nkey=4\n"), "3");
}

TEST(ProfileReaderTest, ReadsALastLineWithoutLineEnd) {
  EXPECT_EQ(Value("[s]\nkey=value"), "value");
}

TEST(ProfileReaderTest, TakesTheDefaultWhenSectionOrKeyIsMissing) {
  EXPECT_EQ(Value("[a]\nkey=1\n"), "default");
  EXPECT_EQ(Value("[s]\nother=1\n"), "default");
  EXPECT_EQ(Value("key=1\n"), "default");
  EXPECT_EQ(Value(""), "default");
}

TEST(ProfileReaderTest, SkipsLeadingWhiteSpace) {
  EXPECT_EQ(Value(" \t\v\f\r[s]\n \t\v\f\rkey=1\n"), "1");
}

TEST(ProfileReaderTest, RemovesTrailingWhiteSpace) {
  EXPECT_EQ(Value("[s] \r\nkey=a b \t\v\f\r\n"), "a b");
}

TEST(ProfileReaderTest, IgnoresEmptyLinesAndComments) {
  EXPECT_EQ(Value("[s]\n\n;key=1\n \n  ;key=2\nkey=3\n"), "3");
  EXPECT_EQ(Value("[s]\n;key=1\n", "s", ";key"), "default");
  EXPECT_EQ(Value(";[s]\nkey=1\n"), "default");
}

TEST(ProfileReaderTest, CutsAnInlineCommentAndTheBlanksBeforeIt) {
  EXPECT_EQ(Value("[s]\nkey=a ; b\n"), "a");
  EXPECT_EQ(Value("[s]\nkey=a;b=c\n"), "a");
  EXPECT_EQ(Value("[s]\nkey;=a\n"), "default");
}

TEST(ProfileReaderTest, CutsACommentInsideQuotesAndKeepsTheQuotes) {
  EXPECT_EQ(Value("[s]\nkey=\"a;b\"\n"), "\"a");
  EXPECT_EQ(Value("[s]\nkey= \"a b\" \n"), "\"a b\"");
}

TEST(ProfileReaderTest, MatchesSectionsWithCase) {
  EXPECT_EQ(Value("[Trace]\nkey=1\n", "trace"), "default");
  EXPECT_EQ(Value("[Trace]\nkey=1\n[trace]\nkey=2\n", "trace"), "2");
}

TEST(ProfileReaderTest, MatchesKeysWithCase) {
  EXPECT_EQ(Value("[s]\nKey=1\nKEY=2\nkey=3\n"), "3");
}

TEST(ProfileReaderTest, MatchesWholeNamesOnly) {
  EXPECT_EQ(Value("[s]\nkeys=1\nke=2\nkey s=3\n"), "default");
  EXPECT_EQ(Value("[s1]\nkey=1\n[ s]\nkey=2\n[s ]\nkey=3\n[]\nkey=4\n"), "default");
}

TEST(ProfileReaderTest, NeedsAClosingBracketBehindTheName) {
  EXPECT_EQ(Value("[s\nkey=1\n"), "default");
  EXPECT_EQ(Value("[s;]\nkey=1\n"), "default");
  EXPECT_EQ(Value("[a;b]\nkey=1\n", "a;b"), "default");
}

TEST(ProfileReaderTest, AcceptsTextBehindTheHeader) {
  EXPECT_EQ(Value("[s] text ; comment\nkey=1\n"), "1");
  EXPECT_EQ(Value("[a]b]\nkey=1\n", "a]b"), "1");
}

TEST(ProfileReaderTest, EndsAtTheNextHeader) {
  EXPECT_EQ(Value("[s]\n[s]\nkey=1\n"), "default");
  EXPECT_EQ(Value("[s]\n [\nkey=1\n"), "default");
}

TEST(ProfileReaderTest, TakesTheFirstOfEqualKeys) { EXPECT_EQ(Value("[s]\nkey=1\nkey=2\n"), "1"); }

TEST(ProfileReaderTest, IgnoresLinesWithoutEqualsSign) {
  EXPECT_EQ(Value("[s]\nkey\nkey=1\n"), "1");
  EXPECT_EQ(Keys("[s]\na\nb=1\n").text, "b\0"s);
}

TEST(ProfileReaderTest, RemovesWhiteSpaceAroundTheEqualsSign) {
  EXPECT_EQ(Value("[s]\nkey \t = \t 1\n"), "1");
}

TEST(ProfileReaderTest, SplitsAtTheFirstEqualsSign) {
  EXPECT_EQ(Value("[s]\nkey=a=b\n"), "a=b");
  EXPECT_EQ(Value("[s]\nkey=a=b\n", "s", "key=a"), "default");
}

TEST(ProfileReaderTest, AnEmptyValueIsFound) {
  EXPECT_EQ(Value("[s]\nkey=\n"), "");
  EXPECT_EQ(Value("[s]\nkey= ; none\n"), "");
}

TEST(ProfileReaderTest, EmptyNamesAreNames) {
  EXPECT_EQ(Value("[]\n=1\n", "", ""), "1");
  EXPECT_EQ(Keys("[s]\n=1\nb=2\n").text, "\0b\0"s);
  EXPECT_EQ(Sections("[]\n[b]\n").text, "\0b\0"s);
}

TEST(ProfileReaderTest, CutsAValueToTheBuffer) {
  EXPECT_EQ(CutValue(7).buffer, "12345\0#"s);
  EXPECT_EQ(CutValue(6).text, "12345");
  EXPECT_EQ(CutValue(6).buffer, "12345\0"s);
  EXPECT_EQ(CutValue(5).text, "1234");
  EXPECT_EQ(CutValue(5).buffer, "1234\0"s);
  EXPECT_EQ(CutValue(2).buffer, "1\0"s);
}

TEST(ProfileReaderTest, ListsTheSections) {
  const ProfileAnswer answer =
      Sections("x=1\n[one]\na=1\n ; [no]\n;[no]\n  [two] text\n[no\n[no;]\n[t hree ]\n[one]\n");
  EXPECT_EQ(answer.text, "one\0two\0t hree \0one\0"s);
  EXPECT_EQ(answer.buffer[answer.count], '\0');
  EXPECT_EQ(Sections("[a]b]\n").text, "a\0"s);
}

TEST(ProfileReaderTest, ListsTheKeysOfASection) {
  const ProfileAnswer answer =
      Keys("[a]\nno=1\n[s]\none=1\n;no=2\n two \t=2\nno\nthree=;\n[b]\nno=1\n[s]\nno=2\n");
  EXPECT_EQ(answer.text, "one\0two\0three\0"s);
  EXPECT_EQ(answer.buffer[answer.count], '\0');
}

TEST(ProfileReaderTest, AListHasNoDefault) {
  EXPECT_EQ(Sections("a=1\n").buffer.substr(0, 2), "\0#"s);
  EXPECT_EQ(Sections("a=1\n").count, 0U);
  EXPECT_EQ(Keys("[a]\nb=1\n").buffer.substr(0, 2), "\0#"s);
  EXPECT_EQ(Keys("[s]\n").count, 0U);
}

TEST(ProfileReaderTest, AListThatFitsHasOneMoreNul) {
  EXPECT_EQ(Keys("[s]\nab=1\nc=1\n", 7).buffer, "ab\0c\0\0#"s);
  EXPECT_EQ(Keys("[s]\nab=1\nc=1\n", 6).buffer, "ab\0c\0\0"s);
  EXPECT_EQ(Keys("[s]\nab=1\nc=1\n", 6).count, 5U);
}

TEST(ProfileReaderTest, AListThatIsCutKeepsItsFinalNul) {
  EXPECT_EQ(Keys("[s]\nab=1\ncd=1\n", 6).buffer, "ab\0c\0\0"s);
  EXPECT_EQ(Keys("[s]\nab=1\ncd=1\n", 6).count, 4U);
  EXPECT_EQ(Keys("[s]\nab=1\ncde=1\nf=1\n", 6).buffer, "ab\0c\0\0"s);
  EXPECT_EQ(Keys("[s]\nab=1\ncde=1\nf=1\n", 6).count, 4U);
  EXPECT_EQ(Sections("[abc]\n", 4).buffer, "ab\0\0"s);
  EXPECT_EQ(Sections("[abc]\n", 4).count, 2U);
  EXPECT_EQ(Sections("[abc]\n[d]\n", 4).count, 2U);
}

TEST(ProfileReaderTest, ABufferOfTwoBytesHoldsAnEmptyList) {
  EXPECT_EQ(Keys("[s]\nab=1\n", 2).buffer, "\0\0"s);
  EXPECT_EQ(Keys("[s]\nab=1\n", 2).count, 0U);
}

TEST(ProfileReaderTest, ABufferOfOneByteHoldsTheNul) {
  EXPECT_EQ(CutValue(1).count, 0U);
  EXPECT_EQ(CutValue(1).buffer, "\0"s);
  EXPECT_EQ(Sections("[abc]\n", 1).count, 0U);
  EXPECT_EQ(Sections("[abc]\n", 1).buffer, "\0"s);
  EXPECT_EQ(Keys("[s]\nab=1\n", 1).count, 0U);
  EXPECT_EQ(Keys("[s]\nab=1\n", 1).buffer, "\0"s);
}

TEST(ProfileReaderTest, SeesALineInPiecesOf1023Characters) {
  const std::string filler(1023, 'x');
  EXPECT_EQ(Value("[s]\n" + filler + "key=1\n"), "1");
  EXPECT_EQ(Value("[s]\nk=" + std::string(1020, 'x') + "key=1\n"), "default");
  EXPECT_EQ(Value("[s]\nk=" + std::string(1021, 'x') + "key=1\n"), "1");
}

TEST(ProfileReaderTest, ALineEndsAtANul) {
  EXPECT_EQ(Value("[s]\nkey=a\0b\n"s), "a");
  EXPECT_EQ(Value("[s\0]\nkey=a\n"s), "default");
}

}  // namespace
