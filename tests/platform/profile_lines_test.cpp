#include "platform/profile_lines.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/profile_test_file.h"

namespace {

using std::string_literals::operator""s;

// Gives the result of the next read of the product, or more than 0 to go on with the real one.
std::function<ssize_t()> g_onRead;
size_t g_nReadLimit = SIZE_MAX;  // bytes for one read
bool g_bMemoryIsShort = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" ssize_t __real_read(int descriptor, void* buffer, size_t size);

extern "C" ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  const ssize_t result = g_onRead ? g_onRead() : 1;
  return result > 0 ? __real_read(descriptor, buffer, std::min(size, g_nReadLimit)) : result;
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return g_bMemoryIsShort ? nullptr : ::operator new[](size);
}

namespace {

class ProfileLinesTest : public testing::Test {
 protected:
  ~ProfileLinesTest() override {
    g_onRead = nullptr;
    g_nReadLimit = SIZE_MAX;
    g_bMemoryIsShort = false;
  }
};

class OpenFile {
 public:
  explicit OpenFile(const std::string& text)
      : m_file(text), m_descriptor(open(m_file.Name(), O_RDONLY | O_CLOEXEC)) {}
  ~OpenFile() { close(m_descriptor); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  int Descriptor() const { return m_descriptor; }

 private:
  const ProfileTestFile m_file;
  const int m_descriptor;
};

using Lines = std::vector<std::string>;

Lines LinesOf(const std::string& text) {
  const OpenFile file(text);
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

}  // namespace

TEST_F(ProfileLinesTest, GivesEachLineWithItsLineEnd) {
  EXPECT_EQ(LinesOf("a\n\nbc\n"), (Lines{"a\n", "\n", "bc\n"}));
}

TEST_F(ProfileLinesTest, AnEmptyFileHasNoLine) { EXPECT_EQ(LinesOf(""), Lines()); }

TEST_F(ProfileLinesTest, TheLastLineMayHaveNoLineEnd) {
  EXPECT_EQ(LinesOf("a\nb"), (Lines{"a\n", "b"}));
}

TEST_F(ProfileLinesTest, CutsLongLinesIntoPiecesOf1023Characters) {
  const std::string piece(1023, 'x');
  EXPECT_EQ(LinesOf(piece + piece + "y\n"), (Lines{piece, piece, "y\n"}));
  EXPECT_EQ(LinesOf(piece + "\n"), (Lines{piece, "\n"}));
  EXPECT_EQ(LinesOf(piece), Lines{piece});
  EXPECT_EQ(LinesOf(piece.substr(1) + "\ny"), (Lines{piece.substr(1) + "\n", "y"}));
}

TEST_F(ProfileLinesTest, ALineEndsAtItsFirstNul) {
  EXPECT_EQ(LinesOf("a\0b\0c\n\0d\ne\n"s), (Lines{"a", "", "e\n"}));
  EXPECT_EQ(LinesOf("\0"s + std::string(1022, 'x') + "y\n"), (Lines{"", "y\n"}));
}

TEST_F(ProfileLinesTest, LinesMayLieAnywhereInALargeFile) {
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
  g_nReadLimit = 700;
  EXPECT_EQ(LinesOf(text), expected);
  g_nReadLimit = 1;
  EXPECT_EQ(LinesOf(text.substr(0, 5000)).size(), 100U);
}

TEST_F(ProfileLinesTest, ANulInAnEarlierBlockStillEndsItsLine) {
  const std::string block = std::string(32765, '\n') + "a\0b"s;
  ASSERT_EQ(block.size(), 32768U);
  EXPECT_EQ(LinesOf(block + "c\n").back(), "a");
}

TEST_F(ProfileLinesTest, TellsTheOffsetBehindEachLine) {
  const OpenFile file("ab\nc\0d\ne"s);
  CProfileLines lines(file.Descriptor());
  std::string_view line;
  std::vector<off_t> offsets = {lines.GetOffset()};
  while (lines.Next(line)) {
    offsets.push_back(lines.GetOffset());
  }
  EXPECT_EQ(offsets, (std::vector<off_t>{0, 3, 7, 8}));
}

TEST_F(ProfileLinesTest, AnInterruptedReadIsRepeated) {
  int count = 0;
  g_onRead = [&count] {
    errno = EINTR;
    return ++count % 2 == 0 ? 1 : -1;
  };
  EXPECT_EQ(LinesOf("a\nb\n"), (Lines{"a\n", "b\n"}));
  EXPECT_EQ(count, 4);
}

TEST_F(ProfileLinesTest, AReadThatFailsIsAFailure) {
  const OpenFile file("a\nb");
  CProfileLines lines(file.Descriptor());
  std::string_view line;
  EXPECT_TRUE(lines.Next(line));
  g_onRead = [] {
    errno = EIO;
    return -1;
  };
  EXPECT_FALSE(lines.Next(line));
  EXPECT_TRUE(lines.HasFailed());
  g_onRead = nullptr;
  EXPECT_FALSE(lines.Next(line));
}

TEST_F(ProfileLinesTest, MissingMemoryIsAFailure) {
  const OpenFile file("a\n");
  g_bMemoryIsShort = true;
  CProfileLines lines(file.Descriptor());
  g_bMemoryIsShort = false;
  EXPECT_TRUE(lines.HasFailed());
  std::string_view line;
  EXPECT_FALSE(lines.Next(line));
  EXPECT_TRUE(lines.HasFailed());
}

TEST_F(ProfileLinesTest, RecognisesTheHeaderOfASection) {
  EXPECT_TRUE(IsProfileHeader("[s]", "s"));
  EXPECT_TRUE(IsProfileHeader("[s] text", "s"));
  EXPECT_TRUE(IsProfileHeader("[]", ""));
  for (const std::string_view line : {"", "[", "[s", "s]", "[S]", "[st]", " [s]", "[]", "(s]"}) {
    EXPECT_FALSE(IsProfileHeader(line, "s")) << line;
  }
}
