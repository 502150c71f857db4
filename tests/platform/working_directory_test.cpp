#include "platform/working_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/scratch_directory.h"

namespace {

bool g_bCannotReturn = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names.
extern "C" {

int __real_fchdir(int descriptor);
int __wrap_fchdir(int descriptor) {
  if (g_bCannotReturn) {
    errno = EACCES;
    return -1;
  }
  return __real_fchdir(descriptor);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

class WorkingDirectoryTest : public testing::Test {
 protected:
  WorkingDirectoryTest() {
    std::filesystem::create_directories(m_oScratch.Path("old"));
    std::filesystem::create_directories(m_oScratch.Path("new"));
    std::filesystem::current_path(m_oScratch.Path("old"));
  }
  ~WorkingDirectoryTest() override { std::filesystem::current_path("/"); }

  static std::string Current() { return std::filesystem::current_path(); }

  const ScratchDirectory m_oScratch;
};

}  // namespace

TEST_F(WorkingDirectoryTest, EntersAndLeaves) {
  CWorkingDirectory directory;
  EXPECT_TRUE(directory.Enter(m_oScratch.Path("new").c_str()));
  EXPECT_EQ(Current(), m_oScratch.Path("new"));
  EXPECT_TRUE(directory.Leave());
  EXPECT_EQ(Current(), m_oScratch.Path("old"));
}

TEST_F(WorkingDirectoryTest, LeavesAtTheEndOfItsLife) {
  {
    CWorkingDirectory directory;
    EXPECT_TRUE(directory.Enter("../new"));
  }
  EXPECT_EQ(Current(), m_oScratch.Path("old"));
}

TEST_F(WorkingDirectoryTest, LeavesOnlyOnce) {
  CWorkingDirectory directory;
  EXPECT_TRUE(directory.Enter("../new"));
  EXPECT_TRUE(directory.Leave());
  std::filesystem::current_path("/");
  EXPECT_TRUE(directory.Leave());
  EXPECT_EQ(Current(), "/");
}

TEST_F(WorkingDirectoryTest, StaysForNullAndForAnEmptyPath) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    CWorkingDirectory directory;
    EXPECT_TRUE(directory.Enter(path));
    EXPECT_EQ(Current(), m_oScratch.Path("old"));
    g_bCannotReturn = true;
    EXPECT_TRUE(directory.Leave());
  }
}

TEST_F(WorkingDirectoryTest, RefusesADirectoryThatCannotBeEntered) {
  CWorkingDirectory directory;
  EXPECT_FALSE(directory.Enter("missing"));
  EXPECT_EQ(Current(), m_oScratch.Path("old"));
  g_bCannotReturn = true;
  EXPECT_TRUE(directory.Leave());
}

TEST_F(WorkingDirectoryTest, StaysWhenTheOldDirectoryCannotBeRemembered) {
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  CWorkingDirectory directory;
  EXPECT_FALSE(directory.Enter("../new"));
  EXPECT_EQ(Current(), m_oScratch.Path("old"));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(WorkingDirectoryTest, ReturnsToADirectoryThatWasRenamed) {
  CWorkingDirectory directory;
  EXPECT_TRUE(directory.Enter("../new"));
  std::filesystem::rename(m_oScratch.Path("old"), m_oScratch.Path("renamed"));
  EXPECT_TRUE(directory.Leave());
  EXPECT_EQ(Current(), m_oScratch.Path("renamed"));
}

TEST_F(WorkingDirectoryTest, ReturnsToADirectoryThatWasRemoved) {
  CWorkingDirectory directory;
  std::filesystem::remove(m_oScratch.Path("old"));
  EXPECT_TRUE(directory.Enter(m_oScratch.Path("new").c_str()));
  EXPECT_TRUE(directory.Leave());
  EXPECT_EQ(std::filesystem::read_symlink("/proc/self/cwd"), m_oScratch.Path("old") + " (deleted)");
}

TEST_F(WorkingDirectoryTest, ReportsAFailedReturn) {
  CWorkingDirectory directory;
  EXPECT_TRUE(directory.Enter("../new"));
  g_bCannotReturn = true;
  EXPECT_FALSE(directory.Leave());
  EXPECT_EQ(Current(), m_oScratch.Path("new"));
}

TEST_F(WorkingDirectoryTest, KeepsNoDescriptorAndGivesNoneToOtherPrograms) {
  const int next = dup(0);
  ASSERT_GE(next, 0);
  close(next);
  CWorkingDirectory directory;
  EXPECT_TRUE(directory.Enter("../new"));
  EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  EXPECT_TRUE(directory.Leave());
  EXPECT_EQ(fcntl(next, F_GETFD), -1) << "still open";
  EXPECT_FALSE(directory.Enter("missing"));
  EXPECT_EQ(fcntl(next, F_GETFD), -1) << "still open";
}
