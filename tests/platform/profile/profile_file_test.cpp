#include "platform/profile/profile_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/descriptor_count.h"
#include "tests/support/system_calls.h"

namespace {

using Mode = CProfileFile::Mode;

constexpr Mode ALL_MODES[] = {Mode::READ, Mode::UPDATE, Mode::APPEND, Mode::CREATE, Mode::MAKE};

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
  const mode_t mask = umask(0);
  for (const Mode mode : {Mode::CREATE, Mode::APPEND, Mode::MAKE}) {
    const ProfileTestFile name;
    EXPECT_TRUE(CProfileFile(name.Name(), mode).IsOpen());
    EXPECT_EQ(std::filesystem::status(name.Name()).permissions(),
              static_cast<std::filesystem::perms>(0644));
  }
  umask(mask);
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
  const int reader = open(name.Name(), O_RDWR | O_NONBLOCK | O_CLOEXEC, 0);
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
  // Only a session leader without a terminal gets one by opening it.
  EXPECT_EXIT(
      {
        setsid();
        ExpectRefused(ptsname(terminal));
        _exit(!testing::Test::HasFailure() && open("/dev/tty", O_RDWR | O_CLOEXEC, 0) < 0 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  close(terminal);
}

TEST(ProfileFileTest, RefusesAFileWhoseKindIsUnknown) {
  const ProfileTestFile name("text");
  const auto failing = calls::fstat.Answer([](int descriptor, FileStatus* status) {
    status->st_mode = S_IFREG;
    return calls::fstat.FailNow(EIO, descriptor, status);
  });
  for (const Mode mode : {Mode::READ, Mode::UPDATE, Mode::APPEND, Mode::MAKE}) {
    const CProfileFile file(name.Name(), mode);
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(file.IsOpen());
  }
  EXPECT_TRUE(CProfileFile(name.NameOf("new").c_str(), Mode::CREATE).IsOpen());
}

}  // namespace
