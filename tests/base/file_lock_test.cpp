#include "base/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "base/descriptor.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"

namespace {

using Kind = CFileLock::Kind;

class FileLockTest : public testing::Test {
 protected:
  bool IsRefused(Kind kind, CFileLock::Time until = {}) const {
    return CFileLock(m_oOther.Get(), kind, until).IsRefused();
  }

  const ScratchDirectory m_oScratch;
  const std::string m_strFile = m_oScratch.Write("file", "");
  const CDescriptor m_oFile{open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC, 0)};
  const CDescriptor m_oOther{open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC, 0)};
};

TEST_F(FileLockTest, AnExclusiveLockRefusesEveryOtherAndASharedOneTheExclusive) {
  {
    const CFileLock lock(m_oFile.Get(), Kind::EXCLUSIVE);
    EXPECT_TRUE(IsRefused(Kind::EXCLUSIVE));
    EXPECT_TRUE(IsRefused(Kind::SHARED));
  }
  const CFileLock lock(m_oFile.Get(), Kind::SHARED);
  EXPECT_TRUE(IsRefused(Kind::EXCLUSIVE));
  EXPECT_FALSE(IsRefused(Kind::SHARED));
}

TEST_F(FileLockTest, IsReleasedWithTheObjectAlsoWhereAChildHasTheDescriptor) {
  const CDescriptor inherited(dup(m_oFile.Get()));
  { const CFileLock lock(m_oFile.Get(), Kind::EXCLUSIVE); }
  EXPECT_FALSE(IsRefused(Kind::EXCLUSIVE));
}

TEST_F(FileLockTest, TriesAgainUntilItsTimeIsOver) {
  const CFileLock lock(m_oFile.Get(), Kind::EXCLUSIVE);
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  const auto tries = calls::flock.Watch();
  EXPECT_TRUE(IsRefused(Kind::SHARED, until));
  EXPECT_GE(std::chrono::steady_clock::now(), until);
  EXPECT_GT(tries.GetCount(), 1);
}

TEST_F(FileLockTest, AFileSystemWithoutLocksGrantsEveryOne) {
  const auto failing = calls::flock.Fail(ENOLCK);
  const CFileLock lock(m_oFile.Get(), Kind::EXCLUSIVE);
  EXPECT_FALSE(lock.IsRefused());
  EXPECT_FALSE(IsRefused(Kind::EXCLUSIVE));
}

}  // namespace
