#include "platform/process/close_descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "tests/support/descriptor_limit.h"
#include "tests/support/system_calls.h"

namespace {

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

void Open(int descriptor) { ASSERT_EQ(dup2(STDIN_FILENO, descriptor), descriptor); }

// Closes from 100 up, with a limit of 150, while all from 99 to 200 are open.
void ExpectToCloseAllBelow(int end) {
  for (int descriptor = 99; descriptor <= 200; ++descriptor) {
    Open(descriptor);
  }
  CloseDescriptors(100, 150);
  EXPECT_TRUE(IsOpen(STDERR_FILENO));
  EXPECT_TRUE(IsOpen(99));
  for (int descriptor = 100; descriptor <= 200; ++descriptor) {
    EXPECT_EQ(IsOpen(descriptor), descriptor >= end) << descriptor;
  }
}

}  // namespace

TEST(CloseDescriptorsTest, ClosesFromTheFirstUpAlsoAboveTheLimit) {
  const auto closes = calls::close.Watch();
  ExpectToCloseAllBelow(201);
  EXPECT_EQ(closes.GetCount(), 0);
}

TEST(CloseDescriptorsTest, ClosesThemOneByOneOnAKernelWithoutTheCall) {
  const auto noCall = calls::close_range.Fail(ENOSYS);
  ExpectToCloseAllBelow(201);
}

TEST(CloseDescriptorsTest, ClosesThoseBelowTheLimitWithoutTheCallAndWithoutAListing) {
  const auto noCall = calls::close_range.Fail(ENOSYS);
  const auto noListing = calls::getdents64.Fail(ENOTDIR);
  ExpectToCloseAllBelow(150);
}

TEST(CloseDescriptorsTest, ClosesMoreThanOneBlockOfAListing) {
  const auto noCall = calls::close_range.Fail(ENOSYS);
  for (int descriptor = 300; descriptor < 900; ++descriptor) {
    Open(descriptor);
  }
  const auto closes = calls::close.Watch();
  CloseDescriptors(300, 900);
  EXPECT_EQ(closes.GetCount(), 600 + 1) << "one for the listing";
  for (int descriptor = 300; descriptor < 900; ++descriptor) {
    EXPECT_FALSE(IsOpen(descriptor)) << descriptor;
  }
}

TEST(CloseDescriptorsTest, KeepsItsListingWhileItReads) {
  const auto noCall = calls::close_range.Fail(ENOSYS);
  const int listing = dup(STDIN_FILENO);  // the number that the listing gets
  ASSERT_GE(listing, 3);
  close(listing);
  for (int descriptor = 300; descriptor < 900; ++descriptor) {
    Open(descriptor);
  }
  CloseDescriptors(3, 900);
  EXPECT_FALSE(IsOpen(listing));
  EXPECT_FALSE(IsOpen(899));
  EXPECT_TRUE(IsOpen(STDERR_FILENO));
}

TEST(CloseDescriptorsTest, CostsNothingForAHugeLimit) {
  for (const bool hasCloseRange : {true, false}) {
    const auto noCall = calls::close_range.Fail(ENOSYS, 0, hasCloseRange ? 0 : INT_MAX);
    Open(150);
    const auto closes = calls::close.Watch();
    CloseDescriptors(100, 1U << 30);
    EXPECT_FALSE(IsOpen(150));
    EXPECT_LE(closes.GetCount(), 2);
  }
}

TEST(CloseDescriptorsTest, TakesTheLimitOfTheProcess) {
  const DescriptorLimit limit(345);
  EXPECT_EQ(GetDescriptorLimit(), 345U);
}

TEST(CloseDescriptorsTest, TakesALimitBelow256AndNoneAs1024) {
  const auto limitFor = [](long limit) {
    const auto answer = calls::sysconf.Answer([limit](int) { return limit; });
    return GetDescriptorLimit();
  };
  EXPECT_EQ(limitFor(-1), 1024U);
  EXPECT_EQ(limitFor(1), 1024U);
  EXPECT_EQ(limitFor(255), 1024U);
  EXPECT_EQ(limitFor(256), 256U);
  EXPECT_EQ(limitFor(257), 257U);
  EXPECT_EQ(limitFor(1L << 30), 1U << 30);
  EXPECT_EQ(limitFor(LONG_MAX), static_cast<uint32_t>(INT_MAX));
}
