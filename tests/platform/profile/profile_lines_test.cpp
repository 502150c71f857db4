#include "platform/profile/profile_lines.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/failing_new.h"
#include "tests/support/system_calls.h"

namespace {

using std::string_literals::operator""s;

class OpenProfile {
 public:
  explicit OpenProfile(const std::string& text)
      : m_oFile(text), m_oOpen(open(m_oFile.Name(), O_RDONLY | O_CLOEXEC, 0)) {}

  int Descriptor() const { return m_oOpen.Get(); }

 private:
  const ProfileTestFile m_oFile;
  const CDescriptor m_oOpen;
};

using Lines = std::vector<std::string>;

Lines LinesOf(const std::string& text) {
  const OpenProfile file(text);
  CProfileLines lines(file.Descriptor());
  Lines result;
  std::string_view line;
  while (lines.Next(line)) {
    result.emplace_back(line);
  }
  EXPECT_FALSE(lines.HasFailed());
  EXPECT_EQ(lines.GetOffset(), static_cast<off_t>(text.size()));
  return result;
}

using Next = bool (CProfileLines::*)(std::string_view& line, std::string_view start);

Lines LinesWith(const std::string& text, Next next, std::string_view start) {
  const OpenProfile file(text);
  CProfileLines lines(file.Descriptor());
  Lines result;
  std::string_view line;
  while ((lines.*next)(line, start)) {
    result.emplace_back(line);
  }
  EXPECT_FALSE(lines.HasFailed());
  EXPECT_EQ(lines.GetOffset(), static_cast<off_t>(text.size()));
  return result;
}

Lines HeadersOf(const std::string& text, std::string_view name = {}) {
  return LinesWith(text, &CProfileLines::NextHeader, name);
}

Lines EntriesOf(const std::string& text, std::string_view key) {
  return LinesWith(text, &CProfileLines::NextEntry, key);
}

TEST(ProfileLinesTest, GivesEachLineWithItsLineEnd) {
  EXPECT_EQ(LinesOf("a\n\nbc\n"), (Lines{"a\n", "\n", "bc\n"}));
}

TEST(ProfileLinesTest, AnEmptyFileHasNoLine) { EXPECT_EQ(LinesOf(""), Lines()); }

TEST(ProfileLinesTest, TheLastLineMayHaveNoLineEnd) {
  EXPECT_EQ(LinesOf("a\nb"), (Lines{"a\n", "b"}));
}

TEST(ProfileLinesTest, CutsLongLinesIntoPiecesOf1023Characters) {
  const std::string piece(1023, 'x');
  EXPECT_EQ(LinesOf(piece + piece + "y\n"), (Lines{piece, piece, "y\n"}));
  EXPECT_EQ(LinesOf(piece + "\n"), (Lines{piece, "\n"}));
  EXPECT_EQ(LinesOf(piece), Lines{piece});
  EXPECT_EQ(LinesOf(piece.substr(1) + "\ny"), (Lines{piece.substr(1) + "\n", "y"}));
}

TEST(ProfileLinesTest, ALineEndsAtItsFirstNul) {
  EXPECT_EQ(LinesOf("a\0b\0c\n\0d\ne\n"s), (Lines{"a", "", "e\n"}));
  EXPECT_EQ(LinesOf("\0"s + std::string(1022, 'x') + "y\n"), (Lines{"", "y\n"}));
}

TEST(ProfileLinesTest, LinesMayLieAnywhereInALargeFile) {
  Lines expected;
  std::string text;
  for (size_t i = 0; text.size() < 500'000; ++i) {
    expected.push_back(std::string(i % 1023, 'x') + "\n");
    text += expected.back();
  }
  for (int i = 0; i < 100; ++i) {
    expected.emplace_back(1023, 'y');
    text += expected.back();
  }
  expected.emplace_back("z");
  text += "z";
  EXPECT_EQ(LinesOf(text), expected);
  size_t limit = 700;  // bytes for one read
  const auto reads = calls::read.Answer([&limit](int descriptor, void* buffer, size_t size) {
    return calls::read.Real(descriptor, buffer, std::min(size, limit));
  });
  EXPECT_EQ(LinesOf(text), expected);
  limit = 1;
  EXPECT_EQ(LinesOf(text.substr(0, 5000)).size(), 100U);
}

TEST(ProfileLinesTest, ANulInAnEarlierBlockStillEndsItsLine) {
  const std::string block = std::string(32765, '\n') + "a\0b"s;
  ASSERT_EQ(block.size(), 32768U);
  EXPECT_EQ(LinesOf(block + "c\n").back(), "a");
}

TEST(ProfileLinesTest, ANulInALaterBlockEndsItsLine) {
  EXPECT_EQ(LinesOf(std::string(32768, '\n') + "a\0b\n"s + std::string(32768, '\n'))[32768], "a");
}

TEST(ProfileLinesTest, ANulThatNextHeaderHasReadEndsALaterLine) {
  const OpenProfile file(std::string(32761, '\n') + "[s]\na\0bc\n"s);
  CProfileLines lines(file.Descriptor());
  std::string_view line;
  ASSERT_TRUE(lines.NextHeader(line, "s"));
  EXPECT_EQ(line, "[s]\n");
  ASSERT_TRUE(lines.Next(line));
  EXPECT_EQ(line, "a");
}

TEST(ProfileLinesTest, NextHeaderSkipsLinesThatBeginWithAnythingButABracket) {
  EXPECT_EQ(HeadersOf("a\n[b]\n \t[c]\nx[d]\n;[e]\n\n[f"), (Lines{"[b]\n", " \t[c]\n", "[f"}));
  EXPECT_EQ(HeadersOf("x\0[a]\n[b]\n\0[c]\n"s), Lines{"[b]\n"});
  EXPECT_EQ(HeadersOf("a\nb"), Lines());
}

TEST(ProfileLinesTest, NextHeaderSeesTheSamePieces) {
  const std::string piece(1023, 'x');
  EXPECT_EQ(HeadersOf(piece + "[a]\n[b]\n"), (Lines{"[a]\n", "[b]\n"}));
  EXPECT_EQ(HeadersOf("y\n" + piece + piece + " [a]\n"), Lines{" [a]\n"});
  EXPECT_EQ(HeadersOf(piece.substr(1) + "[a]\n[b]"), Lines{"[b]"});
  EXPECT_EQ(HeadersOf("\n" + piece.substr(1) + "[[a]\n", "a"), Lines{"[a]\n"});
  EXPECT_EQ(HeadersOf("\n\ny\n" + piece + "[a]\n", "a"), Lines{"[a]\n"});
  EXPECT_EQ(HeadersOf("\n" + piece + piece + "x[a]1\n" + piece + piece + "[a]2\n", "a"),
            Lines{"[a]2\n"});
  EXPECT_EQ(HeadersOf("\n" + piece.substr(1)), Lines());
}

TEST(ProfileLinesTest, HeadersMayLieAnywhereInALargeFile) {
  Lines expected;
  std::string text;
  for (size_t i = 0; text.size() < 200'000; ++i) {
    text += std::string(i % 1023, 'x') + "\n" + (i % 3 == 0 ? "x[\n" : "");
    if (i % 7 == 0) {
      expected.push_back("[" + std::to_string(i) + "]\n");
      text += expected.back();
    }
  }
  EXPECT_EQ(HeadersOf(text), expected);
  const auto reads = calls::read.Answer([](int descriptor, void* buffer, size_t size) {
    return calls::read.Real(descriptor, buffer, std::min<size_t>(size, 700));
  });
  EXPECT_EQ(HeadersOf(text), expected);
}

TEST(ProfileLinesTest, NextHeaderSkipsHeadersOfOtherNames) {
  EXPECT_EQ(HeadersOf("[a]\n[ab]\n [ab\nx[ab]\n[ [ab]\n[AB]\n", "ab"), (Lines{"[ab]\n", " [ab\n"}));
  EXPECT_EQ(HeadersOf("[a]\n[a", "ab"), Lines());
  EXPECT_EQ(HeadersOf("[a\0b]\n[ab\0]\n"s, "ab"), Lines{"[ab"});
}

TEST(ProfileLinesTest, NextEntrySkipsLinesThatBeginWithNeitherTheKeyNorABracket) {
  EXPECT_EQ(EntriesOf("k\nkey=1\n \tkey\nx=key\nkeys=2\n\n;key\n [a]\nx[b]\nkey", "key"),
            (Lines{"key=1\n", " \tkey\n", "keys=2\n", " [a]\n", "key"}));
  EXPECT_EQ(EntriesOf("x\0key=1\nk\0ey=2\nkey\0=3\n\0[a]\n"s, "key"), Lines{"key"});
  EXPECT_EQ(EntriesOf("a\nb\n", "key"), Lines());
  EXPECT_EQ(EntriesOf("a\n\nb", ""), (Lines{"a\n", "\n", "b"}));
}

TEST(ProfileLinesTest, NextEntrySeesTheSamePieces) {
  const std::string piece(1023, 'x');
  EXPECT_EQ(EntriesOf(piece + "key\nkey\n", "key"), (Lines{"key\n", "key\n"}));
  EXPECT_EQ(EntriesOf("y\n" + piece + piece + " key\n", "key"), Lines{" key\n"});
  EXPECT_EQ(EntriesOf(piece.substr(1) + "key\nkey", "key"), Lines{"key"});
  EXPECT_EQ(EntriesOf(piece.substr(2) + "\nkey", "key"), Lines{"key"});
  EXPECT_EQ(EntriesOf("\n" + piece + "key", "key"), Lines{"key"});
}

TEST(ProfileLinesTest, EntriesMayLieAnywhereInALargeFile) {
  Lines entries;
  Lines headers;
  std::string text;
  for (size_t i = 0; text.size() < 200'000; ++i) {
    text += std::string(i % 1021, i % 2 == 0 ? 'x' : 'k') + "\n" + (i % 3 == 0 ? "x[key\n" : "");
    if (i % 7 == 0) {
      headers.push_back("[name" + std::to_string(i) + "]\n");
      text += headers.back();
      entries.push_back(headers.back());
    }
    if (i % 5 == 0) {
      entries.push_back("key" + std::to_string(i) + "\n");
      text += entries.back();
    }
  }
  size_t limit = 32'768;  // bytes for one read
  const auto reads = calls::read.Answer([&limit](int descriptor, void* buffer, size_t size) {
    return calls::read.Real(descriptor, buffer, std::min(size, limit));
  });
  for (const size_t next : {size_t{32'768}, size_t{700}, size_t{7}}) {
    limit = next;
    EXPECT_EQ(EntriesOf(text, "key"), entries);
    EXPECT_EQ(HeadersOf(text, "name"), headers);
  }
}

TEST(ProfileLinesTest, TellsTheOffsetBehindEachLine) {
  const OpenProfile file("ab\nc\0d\ne"s);
  CProfileLines lines(file.Descriptor());
  std::string_view line;
  std::vector<off_t> offsets = {lines.GetOffset()};
  while (lines.Next(line)) {
    offsets.push_back(lines.GetOffset());
  }
  EXPECT_EQ(offsets, (std::vector<off_t>{0, 3, 7, 8}));
}

TEST(ProfileLinesTest, AnInterruptedReadIsRepeated) {
  const auto interrupted = calls::read.Fail(EINTR, 0, 1);
  EXPECT_EQ(LinesOf("a\nb\n"), (Lines{"a\n", "b\n"}));
  EXPECT_EQ(interrupted.GetCount(), 3);
}

TEST(ProfileLinesTest, AReadThatFailsIsAFailure) {
  const OpenProfile file("a\nb");
  CProfileLines lines(file.Descriptor());
  std::string_view line;
  EXPECT_TRUE(lines.Next(line));
  const auto failing = calls::read.Fail(EIO, 0, 1);
  EXPECT_FALSE(lines.Next(line));
  EXPECT_TRUE(lines.HasFailed());
  EXPECT_FALSE(lines.Next(line));
}

TEST(ProfileLinesTest, MissingMemoryIsAFailure) {
  const OpenProfile file("a\n");
  FailingNew memory(0);
  CProfileLines lines(file.Descriptor());
  memory.Stop();
  EXPECT_TRUE(lines.HasFailed());
  std::string_view line;
  EXPECT_FALSE(lines.Next(line));
  EXPECT_TRUE(lines.HasFailed());
}

TEST(ProfileLinesTest, RecognisesTheHeaderOfASection) {
  EXPECT_TRUE(IsProfileHeader("[s]", "s"));
  EXPECT_TRUE(IsProfileHeader("[s] text", "s"));
  EXPECT_TRUE(IsProfileHeader("[]", ""));
  for (const std::string_view line : {"", "[", "[s", "s]", "[S]", "[st]", " [s]", "[]", "(s]"}) {
    EXPECT_FALSE(IsProfileHeader(line, "s")) << line;
  }
}

}  // namespace
