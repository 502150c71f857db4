// Two processes that write a profile file and one that reads it, in every order of their system
// calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/profile/profile_string.h"
#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/interleaving.h"
#include "tests/support/stepped_child.h"
#include "tests/support/system_calls.h"

namespace {

using testing::AnyOf;
using testing::Each;

constexpr char NEW_VALUE[] = "a value that is longer";
constexpr char OLD_TEXT[] = "[s]\n\nb=a value that goes\na=short\nc=kept\n";
constexpr char NEW_TEXT[] = "[s]\n\nb=\na=a value that is longer\nc=kept\n";
constexpr char MADE_BY_FIRST[] = "\n[s]\n\na=a value that is longer\nb=2\n";
constexpr char MADE_BY_SECOND[] = "\n[s]\n\nb=2\na=a value that is longer\n";

class ProfileProcessesTest : public testing::Test {
 protected:
  Interleavings::Action Writer(const char* key, const char* value) const {
    return [this, key, value] {
      SteppedChild::Begin();
      return WritePrivateProfileString("s", key, value, m_oFile.Name()) == 1 ? 0 : 1;
    };
  }

  // Succeeds when it finds what was there before, or the long value.
  Interleavings::Action Reader(const char* key, const std::string& before) const {
    return [this, key, before] {
      char value[64];
      SteppedChild::Begin();
      GetPrivateProfileString("s", key, "(none)", value, sizeof(value), m_oFile.Name());
      return value == before || value == std::string(NEW_VALUE) ? 0 : 1;
    };
  }

  const ProfileTestFile m_oFile;
};

TEST_F(ProfileProcessesTest, BothChangesAreInTheFileAndAReaderSeesAllOrNothingOfOne) {
  const Interleavings processes({Writer("a", NEW_VALUE), Writer("b", ""), Reader("a", "short")});
  const auto check = [this](const InterleavedRun& run) {
    EXPECT_THAT(run.exitCodes, Each(0)) << run.schedule;
    EXPECT_EQ(m_oFile.Text(), NEW_TEXT) << run.schedule;
  };
  EXPECT_GT(processes.Try(
                GetSwitches(), [this] { m_oFile.SetText(OLD_TEXT); }, check),
            10);
}

// The one that makes the file may come second to its lock.
TEST_F(ProfileProcessesTest, FileThatBothMakeHoldsBothChanges) {
  const Interleavings processes({Writer("a", NEW_VALUE), Writer("b", "2")});
  const auto check = [this](const InterleavedRun& run) {
    EXPECT_THAT(run.exitCodes, Each(0)) << run.schedule;
    EXPECT_THAT(m_oFile.Text(), AnyOf(MADE_BY_FIRST, MADE_BY_SECOND)) << run.schedule;
  };
  const auto remove = [this] { std::filesystem::remove(m_oFile.Name()); };
  EXPECT_GT(processes.Try(GetSwitches(), remove, check), 10);
}

// A fault that the tests above are to find.
TEST_F(ProfileProcessesTest, ProcessesThatTakeNoLockAreFound) {
  const auto fault = calls::flock.Answer([](int, int) { return 0; });
  int lost = 0;
  int torn = 0;
  Interleavings({Writer("a", NEW_VALUE), Writer("b", ""), Reader("a", "short")})
      .Try(
          1, [this] { m_oFile.SetText(OLD_TEXT); },
          [&](const InterleavedRun& run) {
            lost += m_oFile.Text() != NEW_TEXT ? 1 : 0;
            torn += run.exitCodes.back() != 0 ? 1 : 0;
          });
  EXPECT_GT(lost, 0);
  EXPECT_GT(torn, 0);
}

}  // namespace
