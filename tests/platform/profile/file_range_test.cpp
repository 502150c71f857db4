#include "platform/profile/profile_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/failing_new.h"
#include "tests/support/system_calls.h"

namespace {

constexpr char DIGITS[] = "0123456789";
constexpr char LONG_VALUE[] = "a value that is longer than the file";

class FileRangeTest : public testing::Test {
 protected:
  bool Grow() const { return ReplaceFileRange(m_oOpen.Get(), 3, 5, "key", LONG_VALUE, false); }
  bool Shrink() const { return ReplaceFileRange(m_oOpen.Get(), 2, 9, nullptr, nullptr, true); }
  bool Append() const { return AppendFileSection(m_oOpen.Get(), "s", "key", LONG_VALUE); }
  bool Replace(off_t from, off_t to, const char* key, const char* value,
               bool leadingLineEnd = false) const {
    return ReplaceFileRange(m_oOpen.Get(), from, to, key, value, leadingLineEnd);
  }

  // Each change reports a failure and leaves the file as it was.
  void ExpectAllFail(const std::function<ScopedAnswer()>& fail) const {
    for (const auto change :
         {&FileRangeTest::Grow, &FileRangeTest::Shrink, &FileRangeTest::Append}) {
      const ScopedAnswer failing = fail();
      EXPECT_FALSE((this->*change)());
      EXPECT_EQ(m_oFile.Text(), DIGITS);
    }
  }

  std::string Text() const { return m_oFile.Text(); }

  const ProfileTestFile m_oFile{DIGITS};
  const CDescriptor m_oOpen{open(m_oFile.Name(), O_RDWR | O_CLOEXEC, 0)};
};

TEST_F(FileRangeTest, ReplacesAStretchByALongerLine) {
  EXPECT_TRUE(Replace(3, 5, "key", "value"));
  EXPECT_EQ(Text(), "012key=value\n56789");
}

TEST_F(FileRangeTest, ReplacesAStretchByAShorterLine) {
  EXPECT_TRUE(Replace(1, 9, "k", "v"));
  EXPECT_EQ(Text(), "0k=v\n9");
}

TEST_F(FileRangeTest, ReplacesAStretchByALineOfItsLength) {
  EXPECT_TRUE(Replace(1, 5, "k", "v"));
  EXPECT_EQ(Text(), "0k=v\n56789");
}

TEST_F(FileRangeTest, WritesTheLineEndFirst) {
  EXPECT_TRUE(Replace(1, 9, "k", "v", true));
  EXPECT_EQ(Text(), "0\nk=v\n9");
}

TEST_F(FileRangeTest, RemovesAStretch) {
  EXPECT_TRUE(Replace(1, 9, nullptr, nullptr));
  EXPECT_EQ(Text(), "09");
}

TEST_F(FileRangeTest, KeyAndValueAreWrittenTogetherOrNotAtAll) {
  EXPECT_TRUE(Replace(0, 2, "key", nullptr, true));
  EXPECT_EQ(Text(), "\n23456789");
  EXPECT_TRUE(Replace(0, 2, nullptr, "value", true));
  EXPECT_EQ(Text(), "\n3456789");
}

TEST_F(FileRangeTest, InsertsAndAppends) {
  EXPECT_TRUE(Replace(1, 1, "k", "v"));
  EXPECT_TRUE(Replace(14, 14, "k", "v"));
  EXPECT_EQ(Text(), "0k=v\n123456789k=v\n");
}

TEST_F(FileRangeTest, ReplacesTheWholeFile) {
  EXPECT_TRUE(Replace(0, 10, nullptr, nullptr));
  EXPECT_EQ(Text(), "");
}

TEST_F(FileRangeTest, RefusesAStretchThatIsNotInTheFile) {
  EXPECT_FALSE(Replace(1, 11, "k", "v"));
  EXPECT_FALSE(Replace(11, 11, "k", "v"));
  EXPECT_FALSE(Replace(5, 4, "k", "v"));
  EXPECT_EQ(Text(), DIGITS);
}

TEST_F(FileRangeTest, AppendsASectionBehindAnEmptyLine) {
  EXPECT_TRUE(AppendFileSection(m_oOpen.Get(), "s", "k", "v"));
  EXPECT_EQ(Text(), "0123456789\n[s]\n\nk=v\n");
}

TEST_F(FileRangeTest, AppendsThroughADescriptorThatCannotRead) {
  const CDescriptor descriptor(open(m_oFile.Name(), O_WRONLY | O_APPEND | O_CLOEXEC, 0));
  EXPECT_TRUE(AppendFileSection(descriptor.Get(), "s", "k", "v"));
  EXPECT_EQ(Text(), "0123456789\n[s]\n\nk=v\n");
}

TEST_F(FileRangeTest, AnUnknownSizeChangesNothing) {
  const auto writes = calls::pwrite.Watch();
  ExpectAllFail([] { return calls::fstat.Fail(EIO); });
  EXPECT_EQ(writes.GetCount(), 0);
}

TEST_F(FileRangeTest, MissingMemoryChangesNothing) {
  FailingNew memory(0);
  const bool isGrown = Grow();
  const bool isAppended = Append();
  memory.Stop();
  EXPECT_FALSE(isGrown);
  EXPECT_FALSE(isAppended);
  EXPECT_EQ(Text(), DIGITS);
}

TEST_F(FileRangeTest, AReadThatFailsChangesNothing) {
  const auto writes = calls::pwrite.Watch();
  const auto failing = calls::pread.Fail(EIO);
  EXPECT_FALSE(Grow());
  EXPECT_FALSE(Shrink());
  EXPECT_EQ(writes.GetCount(), 0);
  EXPECT_EQ(Text(), DIGITS);
}

TEST_F(FileRangeTest, AFileThatBecameShorterIsNotChanged) {
  const auto writes = calls::pwrite.Watch();
  const auto shortened =
      calls::pread.Answer([this](int descriptor, void* buffer, size_t size, off_t offset) {
        EXPECT_EQ(truncate(m_oFile.Name(), 4), 0);
        return calls::pread.Real(descriptor, buffer, size, offset);
      });
  EXPECT_FALSE(Grow());
  EXPECT_EQ(writes.GetCount(), 0);
  EXPECT_EQ(Text(), "0123");
}

TEST_F(FileRangeTest, AWriteThatFailsIsTakenBack) {
  for (int call = 0; call < 2; ++call) {
    const auto failing = calls::pwrite.Fail(EIO, call, 1);
    EXPECT_FALSE(Grow());
    EXPECT_EQ(Text(), DIGITS);
  }
  ExpectAllFail([] { return calls::pwrite.Fail(EIO, 0, 1); });
}

TEST_F(FileRangeTest, AWriteThatStopsHalfWayIsTakenBack) {
  for (int failing = 2; failing <= 14; ++failing) {
    const auto writes = calls::pwrite.Answer(
        [failing, call = 0](int descriptor, const void* buffer, size_t size, off_t offset) mutable {
          return ++call == failing
                     ? calls::pwrite.FailNow(EIO, descriptor, buffer, size, offset)
                     : calls::pwrite.Real(descriptor, buffer, std::min(size, size_t{3}), offset);
        });
    EXPECT_FALSE(Grow());
    EXPECT_EQ(Text(), DIGITS);
  }
}

TEST_F(FileRangeTest, ATruncationThatFailsIsTakenBack) {
  const auto failing = calls::ftruncate.Fail(EIO);
  EXPECT_FALSE(Shrink());
  EXPECT_EQ(Text(), DIGITS);
}

TEST_F(FileRangeTest, OnlyAFileThatGetsShorterIsTruncated) {
  const auto failing = calls::ftruncate.Fail(EIO);
  EXPECT_TRUE(Grow());
}

TEST_F(FileRangeTest, AFullDiskNeverTouchesWhatIsThere) {
  for (off_t limit = 10; limit < 20; ++limit) {
    std::vector<off_t> writes;
    const auto full =
        calls::pwrite.Answer([&](int descriptor, const void* buffer, size_t size, off_t offset) {
          writes.push_back(offset);
          const off_t room = limit - offset;
          return room <= 0 ? calls::pwrite.FailNow(ENOSPC, descriptor, buffer, size, offset)
                           : calls::pwrite.Real(descriptor, buffer,
                                                std::min(size, static_cast<size_t>(room)), offset);
        });
    EXPECT_FALSE(Grow());
    EXPECT_EQ(writes.front(), 10);
    EXPECT_EQ(Text(), DIGITS);
    EXPECT_FALSE(Append());
    EXPECT_EQ(Text(), DIGITS);
  }
}

TEST_F(FileRangeTest, AFullDiskWithoutAnyFurtherWriteChangesNothing) {
  ExpectAllFail([] { return calls::pwrite.Fail(ENOSPC); });
}

TEST_F(FileRangeTest, AFileSizeLimitChangesNothing) {
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  const rlimit limit = {20, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(Grow());
  EXPECT_EQ(Text(), DIGITS);
  EXPECT_FALSE(Append());
  EXPECT_EQ(Text(), DIGITS);
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
  std::signal(SIGXFSZ, handler);
}

TEST_F(FileRangeTest, ShortTransfersGoOn) {
  const auto reads =
      calls::pread.Answer([](int descriptor, void* buffer, size_t /*size*/, off_t offset) {
        return calls::pread.Real(descriptor, buffer, 1, offset);
      });
  const auto writes =
      calls::pwrite.Answer([](int descriptor, const void* buffer, size_t /*size*/, off_t offset) {
        return calls::pwrite.Real(descriptor, buffer, 1, offset);
      });
  EXPECT_TRUE(Replace(3, 5, "key", "value"));
  EXPECT_EQ(Text(), "012key=value\n56789");
}

TEST_F(FileRangeTest, InterruptedCallsAreRepeated) {
  const auto reads = calls::pread.Fail(EINTR, 0, 1);
  const auto writes = calls::pwrite.Fail(EINTR, 0, 1);
  const auto truncations = calls::ftruncate.Fail(EINTR, 0, 1);
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(Text(), "01\n9");
}

TEST_F(FileRangeTest, LinksOwnerAndModeStay) {
  ASSERT_EQ(link(m_oFile.Name(), m_oFile.NameOf("second").c_str()), 0);
  ASSERT_EQ(chmod(m_oFile.Name(), 0604), 0);
  struct stat before = {};
  ASSERT_EQ(stat(m_oFile.Name(), &before), 0);
  EXPECT_TRUE(Grow());
  struct stat after = {};
  ASSERT_EQ(stat(m_oFile.NameOf("second").c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
}

}  // namespace
