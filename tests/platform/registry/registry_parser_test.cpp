#include "platform/registry/registry_text.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/registry/registry_node.h"
#include "tests/support/trace_session.h"

namespace {

using std::string_literals::operator""s;

// What a text makes of an empty node, as it is written.
std::string Parsed(std::string_view text) {
  CRegistryNode node;
  ParseRegistryText(text, node);
  return WriteRegistryText(node);
}

bool HoldsSomething(std::string_view text) {
  CRegistryNode node;
  return ParseRegistryText(text, node);
}

TEST(RegistryParserTest, ReadsEveryValueForm) {
  const struct {
    const char* line;
    const char* written;
  } cases[] = {
      {"a=s=text", "a=s=text\n\n"},
      {"a=s=", "a=s=\n\n"},
      {"a=s= blank ", "a=s= blank \n\n"},
      {"a=s=b=s=c", "a=s=b=s=c\n\n"},
      {"a=s=[b]", "a=s=[b]\n\n"},
      {"a=s=%B%", "a=s=%B%\n\n"},
      {"a=s=\ttab\r", "a=s=\ttab\r\n\n"},
      {"a=s=\xC3\xA4\xFF\x01", "a=s=\xC3\xA4\xFF\x01\n\n"},
      {"a=es=%B%", "a=es=%B%\n\n"},
      {"a=es=", "a=es=\n\n"},
      {"a=d=0", "a=d=0\n\n"},
      {"a=d=-2147483648", "a=d=-2147483648\n\n"},
      {"a=d=2147483647", "a=d=2147483647\n\n"},
      {"a=d=4294967295", "a=d=-1\n\n"},
      {"a=d=  +12 rest", "a=d=12\n\n"},
      {"a=d=0x10", "a=d=0\n\n"},
      {"a=d=010", "a=d=10\n\n"},
      {"a=b=01 ff", "a=b=01 ff \n\n"},
      {"a=b=01 ff ", "a=b=01 ff \n\n"},
      {"a=b=", "a=b=\n\n"},
      {"a=b=xyz", "a=b=\n\n"},
      {"a=b=1 2 3 4 5 6 7 8 9 a", "a=b=01 02 03 04 05 06 07 08 09 0a \n\n"},
      {"a=b= \t1  FF\v2", "a=b=01 ff 02 \n\n"},
      {"a=b=1ff 0x10 -1", "a=b=ff 10 ff \n\n"},
      {"a=b=01 02 zz 03", "a=b=01 02 \n\n"},
      {"=s=nameless", "=s=nameless\n\n"},
      {"two words=s=text", "two words=s=text\n\n"},
      {" a =s=text", " a =s=text\n\n"},
      {"[a=s=text", "[a=s=text\n\n"},
      {"a]=s=text", "a]=s=text\n\n"},
      {" [a]=s=text", " [a]=s=text\n\n"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Parsed(test.line), test.written) << test.line;
    EXPECT_EQ(Parsed(test.line + "\n"s), test.written) << test.line;
    EXPECT_TRUE(HoldsSomething(test.line)) << test.line;
  }
}

TEST(RegistryParserTest, IgnoresLinesOfAnyOtherForm) {
  for (const char* line :
       {"no marker", "a", "[a", "a=", "a==", "a=x=b", "a=S=b", "a=s", "a=es", "a=e=b", "a=D=1",
        "a=d", "a=b", "a= s=b", "a=ss=b", "a=b =1", "# comment", " ", "\r"}) {
    EXPECT_FALSE(HoldsSomething(line)) << line;
    EXPECT_EQ(Parsed(line + "\nb=d=1\n"s), "b=d=1\n\n") << line;
  }
}

TEST(RegistryParserTest, NameEndsAtTheFirstEqualsSign) {
  EXPECT_EQ(Parsed("a=b=s=text"), "a=b=\n\n");
  EXPECT_EQ(Parsed("a=s=s=text"), "a=s=s=text\n\n");
  EXPECT_EQ(Parsed("a=c=s=text"), "\n");
}

TEST(RegistryParserTest, IntegerLineWithoutDigitsStoresNothingButCountsAsRead) {
  for (const char* line : {"a=d=", "a=d=x", "a=d=-", "a=d= "}) {
    EXPECT_TRUE(HoldsSomething(line)) << line;
    EXPECT_EQ(Parsed(line), "\n") << line;
  }
}

TEST(RegistryParserTest, KeyHeaderCountsAsRead) {
  EXPECT_TRUE(HoldsSomething("[a]"));
  EXPECT_TRUE(HoldsSomething("[a]\nignored\n\n"));
}

TEST(RegistryParserTest, NothingIsReadFromNothing) {
  for (const std::string& text : {""s, "\n"s, "\n\n\na=s=b"s, "\0a=s=b"s, "ignored\n\n[a]\n"s}) {
    EXPECT_FALSE(HoldsSomething(text));
    EXPECT_EQ(Parsed(text), "\n");
  }
}

TEST(RegistryParserTest, KeyNameEndsAtTheFirstBracket) {
  EXPECT_EQ(Parsed("[a]rest\n"), "[a]\n\n\n");
  EXPECT_EQ(Parsed("[a]b]\n"), "[a]\n\n\n");
  EXPECT_EQ(Parsed("[a b=s=c]\n"), "[a b=s=c]\n\n\n");
  EXPECT_EQ(Parsed("[[a]\n"), "[[a]\n\n\n");
  EXPECT_EQ(Parsed("[]\n"), "[]\n\n\n");
  EXPECT_EQ(Parsed("[a\\b/c]\n"), "[a\\b/c]\n\n\n");
}

TEST(RegistryParserTest, EmptyLinesCloseNodes) {
  EXPECT_EQ(Parsed("[a]\n[b]\nx=d=1\n\ny=d=2\n\nz=d=3\n\n"),
            "z=d=3\n[a]\ny=d=2\n[b]\nx=d=1\n\n\n\n");
}

TEST(RegistryParserTest, EmptyLineOfTheOutermostNodeEndsTheText) {
  EXPECT_EQ(Parsed("[a]\n\n\nx=d=1\n"), "[a]\n\n\n");
}

TEST(RegistryParserTest, EndOfTheTextClosesEveryNode) {
  for (const char* end : {"", "\n", "\n\n", "\n\n\n"}) {
    EXPECT_EQ(Parsed("[a]\n[b]\n[c]\nx=d=1"s + end), "[a]\n[b]\n[c]\nx=d=1\n\n\n\n\n");
  }
}

TEST(RegistryParserTest, ValuesMayFollowSubkeys) {
  EXPECT_EQ(Parsed("[b]\n\na=d=1\n"), "a=d=1\n[b]\n\n\n");
}

TEST(RegistryParserTest, EntriesAreSortedByName) {
  EXPECT_EQ(Parsed("b=d=1\na=d=2\nB=d=3\n\n"), "B=d=3\na=d=2\nb=d=1\n\n");
  EXPECT_EQ(Parsed("[b]\n\n[a]\nd=d=1\nc=d=2\n\n\n"), "[a]\nc=d=2\nd=d=1\n\n[b]\n\n\n");
}

TEST(RegistryParserTest, LastEntryOfANameStays) {
  EXPECT_EQ(Parsed("a=d=1\na=s=two\n"), "a=s=two\n\n");
  EXPECT_EQ(Parsed("a=d=1\n[a]\nb=d=2\n\n"), "[a]\nb=d=2\n\n\n");
  EXPECT_EQ(Parsed("[a]\nb=d=2\n\na=d=1\n"), "a=d=1\n\n");
  EXPECT_EQ(Parsed("[a]\nb=d=1\n\n[a]\nc=d=2\n\n"), "[a]\nc=d=2\n\n\n");
}

TEST(RegistryParserTest, RepeatedKeyIsTracedAsFreed) {
  CRegistryNode node;
  const TraceSession session(2);
  ParseRegistryText("[a]\nb=s=1\n\n[a]\n\n", node);
  EXPECT_EQ(session.Texts(), std::vector<std::string>{"CRegistryNode::deleteNode \"b\"\n"});
}

TEST(RegistryParserTest, EntriesReplaceThoseOfTheNodeAndKillTheirKeys) {
  CRegistryNode node;
  ParseRegistryText("keep=d=1\nvalue=d=1\n[key]\n[inner]\n\n\n", node);
  const auto key = node.OpenKey("key");
  const auto inner = key->OpenKey("inner");
  ParseRegistryText("value=d=2\n[key]\nnew=d=3\n\n", node);
  EXPECT_EQ(WriteRegistryText(node), "keep=d=1\nvalue=d=2\n[key]\nnew=d=3\n\n\n");
  EXPECT_EQ(key->CreateKey("x"), nullptr);
  EXPECT_EQ(inner->CreateKey("x"), nullptr);
}

TEST(RegistryParserTest, LineOf1023BytesIsReadWithItsLineEnd) {
  for (const size_t length : {1022U, 1023U}) {
    const std::string text(length - 4, 'x');
    EXPECT_EQ(Parsed("[k]\na=s=" + text + "\nb=d=1\n"), "[k]\na=s=" + text + "\nb=d=1\n\n\n");
    EXPECT_EQ(Parsed("[k]\na=s=" + text + "\n\nb=d=1\n"), "b=d=1\n[k]\na=s=" + text + "\n\n\n");
  }
}

TEST(RegistryParserTest, LineEndAfterTheLastPieceOfALongLineBelongsToIt) {
  const std::string text(1023 - 4, 'x');
  EXPECT_EQ(Parsed("[k]\na=s=" + text + "b=s=" + text + "\nc=d=1\n"),
            "[k]\na=s=" + text + "\nb=s=" + text + "\nc=d=1\n\n\n");
}

TEST(RegistryParserTest, LongerLineIsReadAsTwo) {
  const std::string text(1023 - 4, 'x');
  EXPECT_EQ(Parsed("a=s=" + text + "b=d=1\n"), "a=s=" + text + "\nb=d=1\n\n");
  EXPECT_EQ(Parsed("a=s=" + text + "[b]\nc=d=1\n"), "a=s=" + text + "\n[b]\nc=d=1\n\n\n");
  EXPECT_EQ(Parsed("a=s=" + text + "ignored\n"), "a=s=" + text + "\n\n");
}

TEST(RegistryParserTest, EachPieceOfALongLineCountsItsOwnBytes) {
  const std::string ignored(1023, 'x');
  EXPECT_EQ(Parsed(ignored + ignored + "b=d=1\n"), "b=d=1\n\n");
}

TEST(RegistryParserTest, LineIsSeenUpToItsFirstNul) {
  EXPECT_EQ(Parsed("a=s=te\0xt\nb=d=1\n"s), "a=s=te\nb=d=1\n\n");
  EXPECT_EQ(Parsed("a\0=s=text\nb=d=1\n"s), "b=d=1\n\n");
  EXPECT_EQ(Parsed("[a\0]\nb=d=1\n"s), "b=d=1\n\n");
  EXPECT_EQ(Parsed("a=b=01 \0 02\n"s), "a=b=01 \n\n");
}

TEST(RegistryParserTest, LineThatBeginsWithANulEndsTheNode) {
  EXPECT_EQ(Parsed("[a]\n\0x=d=1\nb=d=2\n"s), "b=d=2\n[a]\n\n\n");
}

TEST(RegistryParserTest, NulDoesNotLengthenThePiece) {
  const std::string nuls(1022, '\0');
  EXPECT_EQ(Parsed("x" + nuls + "b=d=1\n"), "b=d=1\n\n");
}

}  // namespace
