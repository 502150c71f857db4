#include "tests/support/interleaving.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "base/descriptor.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/stepped_child.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;

class InterleavingTest : public testing::Test {
 protected:
  CDescriptor OpenFile() const { return CDescriptor(open(m_strFile.c_str(), O_RDWR | O_CLOEXEC)); }

  // Adds one to the digit in the file.
  static int Count(const CDescriptor& file) {
    char digit = '?';
    pread(file.Get(), &digit, 1, 0);
    ++digit;
    return pwrite(file.Get(), &digit, 1, 0) == 1 ? 0 : 1;
  }

  int CountUnlocked() const {
    const CDescriptor file = OpenFile();
    SteppedChild::Begin();
    return Count(file);
  }

  int CountLocked() const {
    const CDescriptor file = OpenFile();
    SteppedChild::Begin();
    while (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
    }
    return Count(file);  // its end gives the lock back
  }

  // The number of runs of two that count, of which `lost` lost one of the two.
  int64_t Try(const Interleavings::Action& action, int switches, int64_t& lost) const {
    lost = 0;
    return Interleavings({action, action})
        .Try(
            switches, [this] { m_oFiles.Write("file", "0"); },
            [this, &lost](const InterleavedRun& run) {
              EXPECT_THAT(run.exitCodes, ElementsAre(0, 0));
              EXPECT_THAT(m_oFiles.Read("file"), AnyOf("1", "2"));
              lost += m_oFiles.Read("file") == "1" ? 1 : 0;
            });
  }

  const ScratchDirectory m_oFiles;
  const std::string m_strFile = m_oFiles.Write("file", "0");
};

TEST_F(InterleavingTest, EverySwitchIsTriedOnce) {
  int64_t lost = 0;
  const auto action = [this] { return CountUnlocked(); };
  // Each makes two calls; one of them begins, and may be left before its second one.
  EXPECT_EQ(Try(action, 0, lost), 2);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(Try(action, 1, lost), 4);
  EXPECT_EQ(lost, 2);
  EXPECT_EQ(Try(action, 2, lost), 6);
  EXPECT_EQ(lost, 4);
}

TEST_F(InterleavingTest, ProcessWithoutTheLockIsPassedOverUntilItCanHaveIt) {
  int64_t lost = 0;
  EXPECT_GT(Try([this] { return CountLocked(); }, 3, lost), 4);
  EXPECT_EQ(lost, 0);
}

TEST_F(InterleavingTest, ScheduleRunsAgain) {
  const auto action = [this] { return CountUnlocked(); };
  const Interleavings interleavings({action, action});
  const auto prepare = [this] { m_oFiles.Write("file", "0"); };
  interleavings.Try(1, prepare, [&](const InterleavedRun& run) {
    const std::string result = m_oFiles.Read("file");
    interleavings.Replay(run.schedule, prepare);
    EXPECT_EQ(m_oFiles.Read("file"), result) << run.schedule;
  });
}

TEST_F(InterleavingTest, ExitCodesAreThoseOfTheActions) {
  const auto exit = [](int code) {
    return [code] {
      SteppedChild::Begin();
      return code;
    };
  };
  Interleavings({exit(0), exit(7)})
      .Try(
          0, [] {},
          [](const InterleavedRun& run) { EXPECT_THAT(run.exitCodes, ElementsAre(0, 7)); });
}

TEST_F(InterleavingTest, WaitInsideASystemCallIsRefused) {
  const auto wait = [this] {
    const CDescriptor file = OpenFile();
    SteppedChild::Begin();
    return flock(file.Get(), LOCK_EX);
  };
  EXPECT_THROW(Interleavings({wait}).Try(
                   0, [] {}, [](const InterleavedRun&) {}),
               std::logic_error);
}

TEST_F(InterleavingTest, ProcessesThatWaitForEachOtherAreRefused) {
  const CDescriptor file = OpenFile();
  ASSERT_EQ(flock(file.Get(), LOCK_EX), 0);
  const auto count = [this] { return CountLocked(); };
  EXPECT_THROW(Interleavings({count, count})
                   .Try(
                       0, [] {}, [](const InterleavedRun&) {}),
               std::logic_error);
}

}  // namespace
