// Changing the mode of a file that cannot be removed.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>

#include "base/descriptor.h"
#include "platform/directory.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"

namespace {

// With the kernel's call (0), without it (ENOSYS) and with a filter that refuses it (EPERM).
class DirectoryModeTest : public testing::TestWithParam<int> {
 protected:
  DirectoryModeTest() {
    m_oScratch.Write("file", "");
    EXPECT_EQ(chmod(m_oScratch.Path("file").c_str(), 0400), 0);
  }

  bool Change(const std::string& name) const {
    return ChangeModeUnlessLink(AT_FDCWD, m_oScratch.Path(name).c_str(), 0751);
  }

  mode_t ModeOf(const std::string& name) const {
    struct stat status = {};
    EXPECT_EQ(stat(m_oScratch.Path(name).c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  const ScratchDirectory m_oScratch;
  const ScopedAnswer m_oChange = calls::syscall.Fail(GetParam(), 0, GetParam() == 0 ? 0 : INT_MAX);
};

INSTANTIATE_TEST_SUITE_P(, DirectoryModeTest, testing::Values(0, ENOSYS, EPERM),
                         [](const testing::TestParamInfo<int>& parameter) {
                           return parameter.param == 0        ? "Kernel"
                                  : parameter.param == ENOSYS ? "OldKernel"
                                                              : "Filter";
                         });

}  // namespace

TEST_P(DirectoryModeTest, ChangesTheModeOfAFile) {
  EXPECT_TRUE(Change("file"));
  EXPECT_EQ(ModeOf("file"), 0751U);
}

TEST_P(DirectoryModeTest, TakesAPathInAnOpenDirectory) {
  const CDescriptor directory(open(m_oScratch.Path().c_str(), O_PATH | O_CLOEXEC));
  std::filesystem::create_symlink("file", m_oScratch.Path("link"));
  EXPECT_TRUE(ChangeModeUnlessLink(directory.Get(), "file", 0700));
  EXPECT_EQ(ModeOf("file"), 0700U);
  EXPECT_TRUE(ChangeModeUnlessLink(directory.Get(), "link", 0751));
  EXPECT_EQ(ModeOf("file"), 0700U);
}

TEST_P(DirectoryModeTest, LeavesALinkAndItsTargetAlone) {
  std::filesystem::create_symlink("file", m_oScratch.Path("link"));
  EXPECT_TRUE(Change("link"));
  EXPECT_EQ(ModeOf("file"), 0400U);
}

TEST_P(DirectoryModeTest, ReportsAFailureWithItsError) {
  EXPECT_FALSE(Change("missing"));
  EXPECT_EQ(errno, ENOENT);
}

TEST_P(DirectoryModeTest, ReportsAFileSystemThatKnowsNoModes) {
  const auto failing = calls::syscall.Fail(EOPNOTSUPP);
  EXPECT_FALSE(Change("file"));
  EXPECT_EQ(errno, EOPNOTSUPP);
  EXPECT_FALSE(Change("missing"));
  EXPECT_EQ(errno, EOPNOTSUPP);
}
