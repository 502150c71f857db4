#include "platform/file_range.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "tests/platform/profile_test_file.h"

namespace {

// Called before a system call of the product; a result other than 0 is an errno and its failure.
using Hook = std::function<int()>;
Hook g_onFstat;
Hook g_onRead;
Hook g_onWrite;
Hook g_onTruncate;
size_t g_nTransferLimit = SIZE_MAX;  // bytes of one read or write
off_t g_nFileLimit = INT64_MAX;      // where the disk is full
std::vector<off_t> g_oWrites;        // offsets
bool g_bMemoryIsShort = false;

bool FailsBy(const Hook& hook) {
  const int error = hook ? hook() : 0;
  errno = error != 0 ? error : errno;
  return error != 0;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" int __real_fstat(int descriptor, struct stat* status);
extern "C" ssize_t __real_pread(int descriptor, void* buffer, size_t size, off_t offset);
extern "C" ssize_t __real_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);
extern "C" int __real_ftruncate(int descriptor, off_t size);

extern "C" int __wrap_fstat(int descriptor, struct stat* status) {
  return FailsBy(g_onFstat) ? -1 : __real_fstat(descriptor, status);
}

extern "C" ssize_t __wrap_pread(int descriptor, void* buffer, size_t size, off_t offset) {
  return FailsBy(g_onRead)
             ? -1
             : __real_pread(descriptor, buffer, std::min(size, g_nTransferLimit), offset);
}

extern "C" ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
  g_oWrites.push_back(offset);
  if (FailsBy(g_onWrite)) {
    return -1;
  }
  if (offset >= g_nFileLimit) {
    errno = ENOSPC;
    return -1;
  }
  size = std::min({size, g_nTransferLimit, static_cast<size_t>(g_nFileLimit - offset)});
  return __real_pwrite(descriptor, buffer, size, offset);
}

extern "C" int __wrap_ftruncate(int descriptor, off_t size) {
  return FailsBy(g_onTruncate) ? -1 : __real_ftruncate(descriptor, size);
}
// NOLINTEND(bugprone-reserved-identifier)

// Not inlined, lest the compiler takes memory of the one and free() in the other for a mismatch.
[[gnu::noinline]] void* operator new(size_t size) {
  void* const memory = g_bMemoryIsShort ? nullptr : std::malloc(size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t /*size*/) noexcept {
  std::free(memory);
}

namespace {

constexpr char TEXT[] = "0123456789";
constexpr char LONG[] = "a value that is longer than the file";

class FileRangeTest : public testing::Test {
 protected:
  FileRangeTest() : m_oFile(TEXT), m_nDescriptor(open(m_oFile.Name(), O_RDWR | O_CLOEXEC)) {
    g_oWrites.clear();
  }

  ~FileRangeTest() override {
    g_onFstat = g_onRead = g_onWrite = g_onTruncate = nullptr;
    g_nTransferLimit = SIZE_MAX;
    g_nFileLimit = INT64_MAX;
    close(m_nDescriptor);
  }

  bool Grow() const { return ReplaceFileRange(m_nDescriptor, 3, 5, "key", LONG, false); }
  bool Shrink() const { return ReplaceFileRange(m_nDescriptor, 2, 9, nullptr, nullptr, true); }
  bool Append() const { return AppendFileSection(m_nDescriptor, "s", "key", LONG); }

  // Each change reports a failure and leaves the file as it was. `prepare` comes before each.
  void ExpectAllFail(const std::function<void()>& prepare) const {
    for (const auto change :
         {&FileRangeTest::Grow, &FileRangeTest::Shrink, &FileRangeTest::Append}) {
      prepare();
      EXPECT_FALSE((this->*change)());
      EXPECT_EQ(m_oFile.Text(), TEXT);
    }
  }

  std::string Text() const { return m_oFile.Text(); }

  const ProfileTestFile m_oFile;
  const int m_nDescriptor;
};

// Fails with that errno at the call of that number, counted from 1, and at none after it.
Hook FailOnceAt(int call, int error) {
  return [call, error, count = 0]() mutable { return ++count == call ? error : 0; };
}

Hook FailAlways(int error) {
  return [error] { return error; };
}

}  // namespace

TEST_F(FileRangeTest, ReplacesAStretchByALongerLine) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 3, 5, "key", "value", false));
  EXPECT_EQ(Text(), "012key=value\n56789");
}

TEST_F(FileRangeTest, ReplacesAStretchByAShorterLine) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 1, 9, "k", "v", false));
  EXPECT_EQ(Text(), "0k=v\n9");
}

TEST_F(FileRangeTest, ReplacesAStretchByALineOfItsLength) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 1, 5, "k", "v", false));
  EXPECT_EQ(Text(), "0k=v\n56789");
}

TEST_F(FileRangeTest, WritesTheLineEndFirst) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 1, 9, "k", "v", true));
  EXPECT_EQ(Text(), "0\nk=v\n9");
}

TEST_F(FileRangeTest, RemovesAStretch) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 1, 9, nullptr, nullptr, false));
  EXPECT_EQ(Text(), "09");
}

TEST_F(FileRangeTest, KeyAndValueAreWrittenTogetherOrNotAtAll) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 0, 2, "key", nullptr, true));
  EXPECT_EQ(Text(), "\n23456789");
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 0, 2, nullptr, "value", true));
  EXPECT_EQ(Text(), "\n3456789");
}

TEST_F(FileRangeTest, InsertsAndAppends) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 1, 1, "k", "v", false));
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 14, 14, "k", "v", false));
  EXPECT_EQ(Text(), "0k=v\n123456789k=v\n");
}

TEST_F(FileRangeTest, ReplacesTheWholeFile) {
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 0, 10, nullptr, nullptr, false));
  EXPECT_EQ(Text(), "");
}

TEST_F(FileRangeTest, RefusesAStretchThatIsNotInTheFile) {
  EXPECT_FALSE(ReplaceFileRange(m_nDescriptor, 1, 11, "k", "v", false));
  EXPECT_FALSE(ReplaceFileRange(m_nDescriptor, 11, 11, "k", "v", false));
  EXPECT_FALSE(ReplaceFileRange(m_nDescriptor, 5, 4, "k", "v", false));
  EXPECT_EQ(Text(), TEXT);
}

TEST_F(FileRangeTest, AppendsASectionBehindAnEmptyLine) {
  EXPECT_TRUE(AppendFileSection(m_nDescriptor, "s", "k", "v"));
  EXPECT_EQ(Text(), "0123456789\n[s]\n\nk=v\n");
}

TEST_F(FileRangeTest, AppendsThroughADescriptorThatCannotRead) {
  const int descriptor = open(m_oFile.Name(), O_WRONLY | O_APPEND | O_CLOEXEC);
  EXPECT_TRUE(AppendFileSection(descriptor, "s", "k", "v"));
  close(descriptor);
  EXPECT_EQ(Text(), "0123456789\n[s]\n\nk=v\n");
}

TEST_F(FileRangeTest, AnUnknownSizeChangesNothing) {
  ExpectAllFail([] { g_onFstat = FailAlways(EIO); });
  EXPECT_TRUE(g_oWrites.empty());
}

TEST_F(FileRangeTest, MissingMemoryChangesNothing) {
  g_bMemoryIsShort = true;
  const bool isGrown = Grow();
  const bool isAppended = Append();
  g_bMemoryIsShort = false;
  EXPECT_FALSE(isGrown);
  EXPECT_FALSE(isAppended);
  EXPECT_EQ(Text(), TEXT);
}

TEST_F(FileRangeTest, AReadThatFailsChangesNothing) {
  g_onRead = FailAlways(EIO);
  EXPECT_FALSE(Grow());
  EXPECT_FALSE(Shrink());
  EXPECT_TRUE(g_oWrites.empty());
  EXPECT_EQ(Text(), TEXT);
}

TEST_F(FileRangeTest, AFileThatBecameShorterIsNotChanged) {
  g_onRead = [this] {
    EXPECT_EQ(truncate(m_oFile.Name(), 4), 0);
    return 0;
  };
  EXPECT_FALSE(Grow());
  EXPECT_TRUE(g_oWrites.empty());
  EXPECT_EQ(Text(), "0123");
}

TEST_F(FileRangeTest, AWriteThatFailsIsTakenBack) {
  for (int call = 1; call <= 2; ++call) {
    g_onWrite = FailOnceAt(call, EIO);
    EXPECT_FALSE(Grow());
    EXPECT_EQ(Text(), TEXT);
  }
  ExpectAllFail([] { g_onWrite = FailOnceAt(1, EIO); });
}

TEST_F(FileRangeTest, AWriteThatStopsHalfWayIsTakenBack) {
  g_nTransferLimit = 3;
  for (int call = 2; call <= 14; ++call) {
    g_onWrite = FailOnceAt(call, EIO);
    EXPECT_FALSE(Grow());
    EXPECT_EQ(Text(), TEXT);
  }
}

TEST_F(FileRangeTest, ATruncationThatFailsIsTakenBack) {
  g_onTruncate = FailAlways(EIO);
  EXPECT_FALSE(Shrink());
  EXPECT_EQ(Text(), TEXT);
}

TEST_F(FileRangeTest, OnlyAFileThatGetsShorterIsTruncated) {
  g_onTruncate = FailAlways(EIO);
  EXPECT_TRUE(Grow());
}

TEST_F(FileRangeTest, AFullDiskNeverTouchesWhatIsThere) {
  for (off_t limit = 10; limit < 20; ++limit) {
    g_nFileLimit = limit;
    g_oWrites.clear();
    EXPECT_FALSE(Grow());
    EXPECT_EQ(g_oWrites.front(), 10);
    EXPECT_EQ(Text(), TEXT);
    EXPECT_FALSE(Append());
    EXPECT_EQ(Text(), TEXT);
  }
}

TEST_F(FileRangeTest, AFullDiskWithoutAnyFurtherWriteChangesNothing) {
  g_onWrite = FailAlways(ENOSPC);
  ExpectAllFail([] {});
}

TEST_F(FileRangeTest, AFileSizeLimitChangesNothing) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  const rlimit limit = {20, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(Grow());
  EXPECT_EQ(Text(), TEXT);
  EXPECT_FALSE(Append());
  EXPECT_EQ(Text(), TEXT);
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
}

TEST_F(FileRangeTest, ShortTransfersGoOn) {
  g_nTransferLimit = 1;
  EXPECT_TRUE(ReplaceFileRange(m_nDescriptor, 3, 5, "key", "value", false));
  EXPECT_EQ(Text(), "012key=value\n56789");
}

TEST_F(FileRangeTest, InterruptedCallsAreRepeated) {
  g_onRead = FailOnceAt(1, EINTR);
  g_onWrite = FailOnceAt(1, EINTR);
  g_onTruncate = FailOnceAt(1, EINTR);
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
