#include "base/regular_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/descriptor_count.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"

namespace {

class RegularFileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return m_oScratch.Path(name); }

  std::string Write(const std::string& name, const std::string& text) const {
    return m_oScratch.Write(name, text);
  }

  std::string MakePipe() const {
    EXPECT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    return Path("pipe");
  }

  // Neither operation finds a regular file there, changes its result or keeps a descriptor.
  static void ExpectMissing(const std::string& path) {
    SCOPED_TRACE(path);
    const ptrdiff_t descriptors = CountDescriptors();
    std::string text = "untouched";
    EXPECT_FALSE(ReadRegularFile(path, text));
    EXPECT_EQ(text, "untouched");
    FileStamp stamp = {7, {8, 9}};
    EXPECT_FALSE(StatRegularFile(path, stamp));
    EXPECT_EQ(stamp.size, 7U);
    EXPECT_EQ(stamp.modificationTime, (ModificationTime{8, 9}));
    EXPECT_EQ(CountDescriptors(), descriptors);
  }

 private:
  const ScratchDirectory m_oScratch;
};

TEST_F(RegularFileTest, ReadsTheWholeFileWhateverItsLength) {
  for (const size_t length : {0U, 1U, 16'383U, 16'384U, 16'385U, 100'000U}) {
    std::string expected(length, '\0');
    for (size_t i = 0; i < length; ++i) {
      expected[i] = static_cast<char>(i * 7 + i / 256);
    }
    std::string text = "earlier content";
    EXPECT_TRUE(ReadRegularFile(Write("file", expected), text));
    EXPECT_TRUE(text == expected) << length;
  }
}

TEST_F(RegularFileTest, StampsSizeAndModificationTime) {
  const std::string path = Write("file", "12345");
  const timespec times[2] = {{1, 2}, {1'600'000'000, 123'456'789}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  FileStamp stamp;
  ASSERT_TRUE(StatRegularFile(path, stamp));
  EXPECT_EQ(stamp.size, 5U);
  EXPECT_EQ(stamp.modificationTime, (ModificationTime{1'600'000'000, 123'456'789}));
}

TEST_F(RegularFileTest, FollowsLinks) {
  std::filesystem::create_symlink(Write("file", "text"), Path("link"));
  std::string text;
  EXPECT_TRUE(ReadRegularFile(Path("link"), text));
  EXPECT_EQ(text, "text");
  FileStamp stamp;
  EXPECT_TRUE(StatRegularFile(Path("link"), stamp));
  EXPECT_EQ(stamp.size, 4U);
}

TEST_F(RegularFileTest, PassesOverWhatIsNoRegularFileWithoutBlocking) {
  std::filesystem::create_directory(Path("directory"));
  std::filesystem::create_symlink(Path("nowhere"), Path("dangling"));
  for (const std::string& path :
       {MakePipe(), Path("directory"), Path("dangling"), Path("absent"), std::string("/dev/zero"),
        std::string("/dev/null"), std::string()}) {
    ExpectMissing(path);
  }
}

TEST_F(RegularFileTest, ReadsAFileThatItCannotLookAt) {
  const std::string path = Write("file", "text");
  const ptrdiff_t descriptors = CountDescriptors();
  std::string text;
  const auto failing = calls::fstat.Fail(EIO);
  EXPECT_TRUE(ReadRegularFile(path, text));
  EXPECT_EQ(text, "text");
  EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST_F(RegularFileTest, PassesOverAFileThatIsLongerThanAsked) {
  const std::string path = Write("file", std::string(20'000, 'x'));
  for (const bool isSizeUnknown : {false, true}) {
    const auto unknown = calls::fstat.Fail(EIO, 0, isSizeUnknown ? 2 : 0);
    std::string text = "untouched";
    EXPECT_FALSE(ReadRegularFile(path, text, 19'999));
    EXPECT_EQ(text, "untouched");
    EXPECT_TRUE(ReadRegularFile(path, text, 20'000));
    EXPECT_EQ(text.size(), 20'000U);
  }
}

// Its blocks are not even on the disk, but its content would fill the memory.
TEST_F(RegularFileTest, ReadsNothingOfAFileThatIsTooLong) {
  const std::string path = Write("file", "text");
  ASSERT_EQ(truncate(path.c_str(), off_t{1} << 40), 0);
  const auto reads = calls::read.Watch();
  std::string text;
  EXPECT_FALSE(ReadRegularFile(path, text, 1000));
  EXPECT_EQ(reads.GetCount(), 0);
}

TEST_F(RegularFileTest, GivesUpOnAReadErrorAndLeavesTheTextAlone) {
  const std::string path = Write("file", std::string(20'000, 'x'));
  const ptrdiff_t descriptors = CountDescriptors();
  for (const int failing : {1, 2, 3}) {
    const auto reads = calls::read.Fail(EIO, failing - 1);
    std::string text = "untouched";
    EXPECT_FALSE(ReadRegularFile(path, text)) << failing;
    EXPECT_EQ(text, "untouched");
    EXPECT_EQ(reads.GetCount(), failing);
  }
  EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST_F(RegularFileTest, GoesOnAfterASignal) {
  const std::string path = Write("file", std::string(20'000, 'x'));
  const auto reads =
      calls::read.Answer([call = 0](int descriptor, void* buffer, size_t size) mutable {
        return ++call % 2 == 1 ? calls::read.FailNow(EINTR, descriptor, buffer, size)
                               : calls::read.Real(descriptor, buffer, size);
      });
  std::string text;
  EXPECT_TRUE(ReadRegularFile(path, text));
  EXPECT_EQ(text, std::string(20'000, 'x'));
}

TEST_F(RegularFileTest, ReadsThroughACloseOnExecDescriptorAndClosesIt) {
  const std::string path = Write("file", "text");
  const ptrdiff_t descriptors = CountDescriptors();
  std::vector<int> flags;
  const auto reads = calls::read.Answer([&](int descriptor, void* buffer, size_t size) {
    flags.push_back(fcntl(descriptor, F_GETFD));
    return calls::read.Real(descriptor, buffer, size);
  });
  std::string text;
  EXPECT_TRUE(ReadRegularFile(path, text));
  EXPECT_EQ(flags, std::vector<int>({FD_CLOEXEC, FD_CLOEXEC}));
  EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST_F(RegularFileTest, NeverTakesATerminalAsControllingTerminal) {
  const int leader = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(leader, 0);
  ASSERT_EQ(grantpt(leader), 0);
  ASSERT_EQ(unlockpt(leader), 0);
  const std::string terminal = ptsname(leader);
  // Only a session leader without a terminal gets one by opening it.
  EXPECT_EXIT(
      {
        setsid();
        signal(SIGHUP, SIG_IGN);
        std::string text;
        const bool isRead = ReadRegularFile(terminal, text);
        const bool hasTerminal = open("/dev/tty", O_RDWR | O_CLOEXEC, 0) >= 0;
        _exit(!isRead && !hasTerminal && errno == ENXIO ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  close(leader);
}

TEST_F(RegularFileTest, SurvivesThatItsThreadIsCancelledWhenItClosesTheFile) {
  const std::string path = Write("file", "text");
  const ptrdiff_t descriptors = CountDescriptors();
  bool isRead = false;
  bool isCancelled = true;
  const auto cancelling = calls::close.Answer([](int descriptor) {
    pthread_cancel(pthread_self());
    return calls::close.Real(descriptor);
  });
  std::thread([&] {
    std::string text;
    isRead = ReadRegularFile(path, text);
    pthread_testcancel();
    isCancelled = false;
  }).join();
  EXPECT_TRUE(isRead);
  EXPECT_TRUE(isCancelled);
  EXPECT_EQ(CountDescriptors(), descriptors);
}

}  // namespace
