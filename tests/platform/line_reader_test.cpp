#include "platform/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/support/descriptor_count.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"

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
    EXPECT_FALSE(reader.Read(line)) << "a line after the end";
    return lines;
  }

  const ScratchDirectory m_oScratch;
};

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
  const auto failing = calls::read.Fail(EIO);
  EXPECT_FALSE(reader.Read(line));
  EXPECT_EQ(line, "");
}

TEST_F(LineReaderTest, RepeatsAReadThatASignalInterrupts) {
  const auto interrupted = calls::read.Fail(EINTR, 0, 1);
  EXPECT_EQ(Lines("one\n"), "[one]");
}

TEST_F(LineReaderTest, KeepsItsDescriptorFromOtherProgramsAndClosesIt) {
  const ptrdiff_t before = CountDescriptors();
  int descriptor = -1;
  const auto reads = calls::read.Answer([&](int file, void* buffer, size_t size) {
    descriptor = file;
    return calls::read.Real(file, buffer, size);
  });
  {
    CLineReader reader(Make("line").c_str());
    std::string line;
    EXPECT_TRUE(reader.Read(line));
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(CountDescriptors(), before);
}

}  // namespace
