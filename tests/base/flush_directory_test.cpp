#include "base/flush_directory.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/system_calls.h"

namespace {

TEST(FlushDirectoryTest, OnlyADirectoryIsFlushed) {
  const auto flushes = calls::fsync.Watch();
  EXPECT_TRUE(FlushDirectory("/etc"));
  EXPECT_EQ(flushes.GetCount(), 1);
  EXPECT_FALSE(FlushDirectory("/no/such/directory"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(FlushDirectory("/dev/null"));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(flushes.GetCount(), 1);
}

TEST(FlushDirectoryTest, AFailedFlushIsReported) {
  const auto failing = calls::fsync.Fail(EIO);
  EXPECT_FALSE(FlushDirectory("/etc"));
  EXPECT_EQ(errno, EIO);
}

}  // namespace
