#include "platform/close_descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace {

bool g_bHasCloseRange = true;
bool g_bHasListing = true;
int g_nCloses = 0;
long g_nLimit = 0;  // what sysconf() says; 0: the truth

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names.
extern "C" {

int __real_close_range(unsigned first, unsigned last, int flags);
int __wrap_close_range(unsigned first, unsigned last, int flags) {
  if (!g_bHasCloseRange) {
    errno = ENOSYS;
    return -1;
  }
  return __real_close_range(first, last, flags);
}

ssize_t __real_getdents64(int descriptor, void* buffer, size_t size);
ssize_t __wrap_getdents64(int descriptor, void* buffer, size_t size) {
  if (!g_bHasListing) {
    errno = ENOTDIR;
    return -1;
  }
  return __real_getdents64(descriptor, buffer, size);
}

int __real_close(int descriptor);
int __wrap_close(int descriptor) {
  ++g_nCloses;
  return __real_close(descriptor);
}

long __real_sysconf(int name);
long __wrap_sysconf(int name) {
  return name == _SC_OPEN_MAX && g_nLimit != 0 ? g_nLimit : __real_sysconf(name);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

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
  g_nCloses = 0;
  ExpectToCloseAllBelow(201);
  EXPECT_EQ(g_nCloses, 0);
}

TEST(CloseDescriptorsTest, ClosesThemOneByOneOnAKernelWithoutTheCall) {
  g_bHasCloseRange = false;
  ExpectToCloseAllBelow(201);
}

TEST(CloseDescriptorsTest, ClosesThoseBelowTheLimitWithoutTheCallAndWithoutAListing) {
  g_bHasCloseRange = false;
  g_bHasListing = false;
  ExpectToCloseAllBelow(150);
}

TEST(CloseDescriptorsTest, ClosesMoreThanOneBlockOfAListing) {
  g_bHasCloseRange = false;
  for (int descriptor = 300; descriptor < 900; ++descriptor) {
    Open(descriptor);
  }
  g_nCloses = 0;
  CloseDescriptors(300, 900);
  EXPECT_EQ(g_nCloses, 600 + 1) << "one for the listing";
  for (int descriptor = 300; descriptor < 900; ++descriptor) {
    EXPECT_FALSE(IsOpen(descriptor)) << descriptor;
  }
}

TEST(CloseDescriptorsTest, KeepsItsListingWhileItReads) {
  g_bHasCloseRange = false;
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
    g_bHasCloseRange = hasCloseRange;
    Open(150);
    g_nCloses = 0;
    CloseDescriptors(100, 1U << 30);
    EXPECT_FALSE(IsOpen(150));
    EXPECT_LE(g_nCloses, 2);
  }
}

TEST(CloseDescriptorsTest, TakesTheLimitOfTheProcess) {
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = 345;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(GetDescriptorLimit(), 345U);
}

TEST(CloseDescriptorsTest, TakesALimitBelow256AndNoneAs1024) {
  const auto limitFor = [](long limit) {
    g_nLimit = limit;
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
