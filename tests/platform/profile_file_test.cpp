#include "platform/profile_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/platform/profile_test_file.h"

namespace {

using Mode = CProfileFile::Mode;

bool g_bFstatFails = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" int __real_fstat(int descriptor, struct stat* status);

extern "C" int __wrap_fstat(int descriptor, struct stat* status) {
  if (g_bFstatFails) {
    status->st_mode = S_IFREG;
    errno = EIO;
    return -1;
  }
  return __real_fstat(descriptor, status);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

constexpr Mode ALL_MODES[] = {Mode::READ, Mode::UPDATE, Mode::APPEND, Mode::CREATE, Mode::MAKE};

ptrdiff_t CountDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

// No mode opens that name, waits or keeps a descriptor.
void ExpectRefused(const std::string& name) {
  const ptrdiff_t before = CountDescriptors();
  for (const Mode mode : ALL_MODES) {
    const CProfileFile file(name.c_str(), mode);
    EXPECT_NE(errno, ENOENT);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetDescriptor(), -1);
    EXPECT_EQ(CountDescriptors(), before);
  }
}

int AccessOf(const CProfileFile& file) {
  return fcntl(file.GetDescriptor(), F_GETFL) & (O_ACCMODE | O_APPEND);
}

}  // namespace

TEST(ProfileFileTest, OpensARegularFileForTheModesUse) {
  const ProfileTestFile file("text");
  EXPECT_EQ(AccessOf(CProfileFile(file.Name(), Mode::READ)), O_RDONLY);
  EXPECT_EQ(AccessOf(CProfileFile(file.Name(), Mode::UPDATE)), O_RDWR);
  EXPECT_EQ(AccessOf(CProfileFile(file.Name(), Mode::APPEND)), O_WRONLY | O_APPEND);
  EXPECT_EQ(AccessOf(CProfileFile(file.Name(), Mode::MAKE)), O_RDWR);
  EXPECT_EQ(AccessOf(CProfileFile(file.NameOf("new").c_str(), Mode::CREATE)), O_RDWR);
  EXPECT_EQ(file.Text(), "text");
}

TEST(ProfileFileTest, FollowsALink) {
  const ProfileTestFile file("text");
  std::filesystem::create_symlink(file.Name(), file.NameOf("link"));
  EXPECT_TRUE(CProfileFile(file.NameOf("link").c_str(), Mode::UPDATE).IsOpen());
}

TEST(ProfileFileTest, ChildrenDoNotInheritTheDescriptor) {
  for (const Mode mode : ALL_MODES) {
    const ProfileTestFile name;
    if (mode != Mode::CREATE) {
      name.SetText("");
    }
    const CProfileFile file(name.Name(), mode);
    EXPECT_EQ(fcntl(file.GetDescriptor(), F_GETFD), FD_CLOEXEC);
  }
}

TEST(ProfileFileTest, ClosesItsDescriptor) {
  const ProfileTestFile name("text");
  const ptrdiff_t before = CountDescriptors();
  {
    const CProfileFile file(name.Name(), Mode::READ);
    EXPECT_EQ(CountDescriptors(), before + 1);
  }
  EXPECT_EQ(CountDescriptors(), before);
}

TEST(ProfileFileTest, AMissingFileIsReportedByErrno) {
  const ProfileTestFile name;
  for (const Mode mode : {Mode::READ, Mode::UPDATE}) {
    const CProfileFile file(name.Name(), mode);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(file.IsOpen());
  }
  EXPECT_FALSE(name.Exists());
}

TEST(ProfileFileTest, CreateAppendAndMakeMakeAFileThatOnlyItsOwnerWrites) {
  umask(0);
  for (const Mode mode : {Mode::CREATE, Mode::APPEND, Mode::MAKE}) {
    const ProfileTestFile name;
    EXPECT_TRUE(CProfileFile(name.Name(), mode).IsOpen());
    EXPECT_EQ(std::filesystem::status(name.Name()).permissions(),
              static_cast<std::filesystem::perms>(0644));
  }
}

TEST(ProfileFileTest, CreateRefusesAFileThatExists) {
  const ProfileTestFile name("text");
  EXPECT_FALSE(CProfileFile(name.Name(), Mode::CREATE).IsOpen());
  EXPECT_EQ(name.Text(), "text");
}

TEST(ProfileFileTest, RefusesAPipeWithoutWaiting) {
  const ProfileTestFile name;
  ASSERT_EQ(mkfifo(name.Name(), 0600), 0);
  ExpectRefused(name.Name());
  const int reader = open(name.Name(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ExpectRefused(name.Name());
  close(reader);
}

TEST(ProfileFileTest, RefusesADirectory) {
  const ProfileTestFile name;
  ASSERT_TRUE(std::filesystem::create_directory(name.Name()));
  ExpectRefused(name.Name());
}

TEST(ProfileFileTest, RefusesADevice) { ExpectRefused("/dev/null"); }

TEST(ProfileFileTest, ATerminalDoesNotBecomeTheControllingOne) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  setsid();
  ExpectRefused(ptsname(terminal));
  EXPECT_LT(open("/dev/tty", O_RDWR | O_CLOEXEC), 0);
  close(terminal);
}

TEST(ProfileFileTest, RefusesAFileWhoseKindIsUnknown) {
  const ProfileTestFile name("text");
  g_bFstatFails = true;
  for (const Mode mode : {Mode::READ, Mode::UPDATE, Mode::APPEND, Mode::MAKE}) {
    const CProfileFile file(name.Name(), mode);
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(file.IsOpen());
  }
  EXPECT_TRUE(CProfileFile(name.NameOf("new").c_str(), Mode::CREATE).IsOpen());
  g_bFstatFails = false;
}
