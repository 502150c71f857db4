#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/system_calls.h"

namespace {

// The system may report an error of an earlier write at last.
TEST(DescriptorTest, AnErrorOfTheCloseIsReportedAndTheDescriptorGone) {
  CDescriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC, 0));
  const auto failing = calls::close.Fail(EIO);
  EXPECT_FALSE(descriptor.Close());
  EXPECT_EQ(errno, EIO);
  EXPECT_FALSE(descriptor.IsOpen());
}

}  // namespace
