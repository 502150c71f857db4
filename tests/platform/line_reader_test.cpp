#include "platform/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/scratch_directory.h"

namespace {

int g_nReadErrno = 0;         // a read fails with it,
int g_nReadsThatSucceed = 0;  // after so many that do not

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names.
extern "C" {

ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  if (g_nReadErrno != 0 && g_nReadsThatSucceed-- == 0) {
    errno = g_nReadErrno;
    g_nReadErrno = 0;
    return -1;
  }
  return __real_read(descriptor, buffer, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

class LineReaderTest : public testing::Test {
 protected:
  std::string Make(const std::string& content) const { return m_oScratch.Write("file", content); }

  // The lines as one string, each in brackets.
  std::string Lines(const std::string& content) const {
    CLineReader reader(Make(content).c_str());
    std::string lines;
    std::string line = "before";
    while (reader.Read(line)) {
      lines += "[" + line + "]";
    }
    EXPECT_EQ(line, "");
    EXPECT_FALSE(reader.Read(line)) << "a line behind the end";
    return lines;
  }

  const ScratchDirectory m_oScratch;
};

}  // namespace

TEST_F(LineReaderTest, GivesLinesWithoutTheirEnd) {
  EXPECT_EQ(Lines("one\n two \r\n\nfour\n"), "[one][ two \r][][four]");
}

TEST_F(LineReaderTest, GivesALastLineThatHasNoEnd) { EXPECT_EQ(Lines("one\ntwo"), "[one][two]"); }

TEST_F(LineReaderTest, FindsNoLineInAnEmptyFile) { EXPECT_EQ(Lines(""), ""); }

TEST_F(LineReaderTest, GivesAnyByte) {
  const std::string bytes("\0\x01\x7f\x80\xff", 5);
  EXPECT_EQ(Lines(bytes + "\nx"), "[" + bytes + "][x]");
}

TEST_F(LineReaderTest, GivesLinesOfAnyLength) {
  for (const size_t length : {4094U, 4095U, 4096U, 4097U, 1'000'000U}) {
    const std::string line(length, 'x');
    EXPECT_EQ(Lines(line + "\n" + line), "[" + line + "][" + line + "]") << length;
  }
}

TEST_F(LineReaderTest, HasNoLinesOfAFileThatCannotBeOpened) {
  CLineReader reader(m_oScratch.Path("missing").c_str());
  std::string line = "before";
  EXPECT_FALSE(reader.Read(line));
  EXPECT_EQ(line, "");
}

TEST_F(LineReaderTest, DropsALineInWhichReadingFails) {
  const std::string file = Make("one\n" + std::string(5000, 'x') + "\n");
  CLineReader reader(file.c_str());
  std::string line;
  ASSERT_TRUE(reader.Read(line));
  g_nReadErrno = EIO;
  EXPECT_FALSE(reader.Read(line));
  EXPECT_EQ(line, "");
}

TEST_F(LineReaderTest, RepeatsAReadThatASignalInterrupts) {
  g_nReadErrno = EINTR;
  EXPECT_EQ(Lines("one\n"), "[one]");
}

TEST_F(LineReaderTest, KeepsItsDescriptorFromOtherPrograms) {
  const int next = dup(0);
  ASSERT_GE(next, 0);
  close(next);
  {
    const CLineReader reader(Make("").c_str());
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(fcntl(next, F_GETFD), -1) << "still open";
}
