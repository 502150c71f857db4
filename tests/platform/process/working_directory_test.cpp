#include "platform/process/process_control.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/platform/process/scratch_working_directory.h"
#include "tests/support/system_calls.h"

namespace {

class WorkingDirectoryTest : public ScratchWorkingDirectory {
 protected:
  WorkingDirectoryTest() {
    std::filesystem::create_directory("old");
    std::filesystem::create_directory("new");
    std::filesystem::current_path("old");
  }
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
    const auto failing = calls::fchdir.Fail(EACCES);
    EXPECT_TRUE(directory.Leave());
  }
}

TEST_F(WorkingDirectoryTest, RefusesADirectoryThatCannotBeEntered) {
  CWorkingDirectory directory;
  EXPECT_FALSE(directory.Enter("missing"));
  EXPECT_EQ(Current(), m_oScratch.Path("old"));
  const auto failing = calls::fchdir.Fail(EACCES);
  EXPECT_TRUE(directory.Leave());
}

TEST_F(WorkingDirectoryTest, StaysWhenTheOldDirectoryCannotBeRemembered) {
  const auto failing = calls::open.Fail(EMFILE);
  CWorkingDirectory directory;
  EXPECT_FALSE(directory.Enter("../new"));
  EXPECT_EQ(Current(), m_oScratch.Path("old"));
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
  const auto failing = calls::fchdir.Fail(EACCES);
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
