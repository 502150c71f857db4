// Calls that meet at one file: of other processes, which hold its lock or update it too.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "base/descriptor.h"
#include "platform/profile/profile_string.h"
#include "platform/profile/profile_writer.h"
#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/system_calls.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr char OLD_PROFILE[] = "[s]\nkey=old\n";

// Holds the lock of a file as another process would: through an open file of its own.
class HeldLock {
 public:
  HeldLock(const ProfileTestFile& file, int operation)
      : m_oFile(open(file.Name(), O_RDONLY | O_CLOEXEC, 0)) {
    EXPECT_EQ(flock(m_oFile.Get(), operation | LOCK_NB), 0);
  }

  void Release() const { EXPECT_EQ(flock(m_oFile.Get(), LOCK_UN), 0); }

 private:
  const CDescriptor m_oFile;
};

class ProfileLockTest : public testing::Test {
 protected:
  uint32_t Write() const { return WritePrivateProfileString("s", "key", "new", m_oFile.Name()); }

  // Runs `action` once, between opening a file and asking for its lock.
  static ScopedAnswer BeforeTheLock(const std::function<void()>& action) {
    return calls::flock.Answer([action, isFirst = true](int descriptor, int operation) mutable {
      if (std::exchange(isFirst, false)) {
        action();
      }
      return calls::flock.Real(descriptor, operation);
    });
  }
  std::string Read() const { return ReadProfile(m_oFile.Name(), "s", "key", "x").text; }

  const ProfileTestFile m_oFile{OLD_PROFILE};
  const steady_clock::time_point m_oStart = steady_clock::now();
};

// Changes a key of its own 200 times, to values of other lengths, and counts what went wrong: a
// write that failed, a value that is not the one just written, a key that nobody touches missing.
int Exchange(const char* fileName, const char* key) {
  int failures = 0;
  for (int round = 1; round <= 200; ++round) {
    const std::string value(static_cast<size_t>(1 + round * 7 % 50), key[0]);
    failures += WritePrivateProfileString("s", key, value.c_str(), fileName) == 1 ? 0 : 1;
    failures += ReadProfile(fileName, "s", key, "x").text == value ? 0 : 1;
    failures += ReadProfile(fileName, "t", "untouched", "x").text == "value" ? 0 : 1;
  }
  return failures;
}

TEST_F(ProfileLockTest, AnUpdateGivesUpAfterASecondOfAnothersRead) {
  const HeldLock lock(m_oFile, LOCK_SH);
  EXPECT_EQ(Write(), 0U);
  EXPECT_GE(steady_clock::now() - m_oStart, seconds(1));
  EXPECT_EQ(m_oFile.Text(), OLD_PROFILE);
}

TEST_F(ProfileLockTest, AReadReadsAfterASecondOfAnothersUpdate) {
  const HeldLock lock(m_oFile, LOCK_EX);
  EXPECT_EQ(Read(), "old");
  EXPECT_GE(steady_clock::now() - m_oStart, seconds(1));
}

TEST_F(ProfileLockTest, AReadDoesNotWaitForAnothersRead) {
  const HeldLock lock(m_oFile, LOCK_SH);
  EXPECT_EQ(Read(), "old");
  EXPECT_LT(steady_clock::now() - m_oStart, seconds(1));
}

TEST_F(ProfileLockTest, AnUpdateGoesOnWhenTheOtherIsDone) {
  const HeldLock lock(m_oFile, LOCK_EX);
  const auto locks = calls::flock.Answer([&lock, tries = 0](int descriptor, int operation) mutable {
    if (++tries == 3) {
      lock.Release();
    }
    return calls::flock.Real(descriptor, operation);
  });
  EXPECT_EQ(Write(), 1U);
  EXPECT_EQ(Read(), "new");
}

// They wait together: the second does not begin its second when the first has given up.
TEST_F(ProfileLockTest, ThreadsThatMeetAHeldFileWaitNoLongerThanOne) {
  const HeldLock lock(m_oFile, LOCK_SH);
  const auto write = [this] { EXPECT_EQ(Write(), 0U); };
  std::thread threads[] = {std::thread(write), std::thread(write), std::thread(write),
                           std::thread(write)};
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_LT(steady_clock::now() - m_oStart, seconds(3));
}

TEST_F(ProfileLockTest, AnUpdateOfAFileThatIsReplacedMeanwhileChangesTheNewOne) {
  const auto locks = BeforeTheLock([this] {
    std::filesystem::rename(m_oFile.Name(), m_oFile.NameOf("previous"));
    m_oFile.SetText("[s]\nother=1\n");
  });
  EXPECT_EQ(Write(), 1U);
  EXPECT_EQ(m_oFile.Text(), "[s]\nother=1\nkey=new\n");
}

TEST_F(ProfileLockTest, AFileThatIsReplacedAllTheTimeIsGivenUp) {
  m_oFile.SetText("[s]\n");
  const auto names = calls::stat.Answer([](const char* path, FileStatus* status) {
    const int result = calls::stat.Real(path, status);
    ++status->st_ino;
    return result;
  });
  EXPECT_EQ(UpdateProfileFile("s", "key", "new", m_oFile.Name(), {}), ProfileUpdate::NOT_DONE);
  EXPECT_EQ(m_oFile.Text(), "[s]\n");
}

TEST_F(ProfileLockTest, AFileThatCannotBeComparedWithItsNameIsChanged) {
  m_oFile.SetText("[s]\nother=1\n");
  const auto failing = calls::fstat.Fail(EIO, 1, 1);  // the first tells that it is a regular file
  EXPECT_EQ(Write(), 1U);
  EXPECT_EQ(m_oFile.Text(), "[s]\nother=1\nkey=new\n");
}

// Two that find no file: the one that makes it comes second to its lock.
TEST_F(ProfileLockTest, AFileThatAnotherFillsBeforeItsMakerDoesIsSearchedAgain) {
  std::filesystem::remove(m_oFile.Name());
  const auto locks = BeforeTheLock([this] {
    EXPECT_EQ(UpdateProfileFile("s", "other", "1", m_oFile.Name(), {}), ProfileUpdate::DONE);
  });
  EXPECT_EQ(Write(), 1U);
  EXPECT_EQ(m_oFile.Text(), "\n[s]\n\nother=1\nkey=new\n");
}

TEST_F(ProfileLockTest, TwoProcessesLoseNothingOfEachOthersChanges) {
  m_oFile.SetText("[s]\na=\nb=\n[t]\nuntouched=value\n");
  const pid_t child = fork();
  if (child == 0) {
    _exit(Exchange(m_oFile.Name(), "a") == 0 ? 0 : 1);
  }
  ASSERT_GT(child, 0);
  EXPECT_EQ(Exchange(m_oFile.Name(), "b"), 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(m_oFile.Text(), "[s]\n\na=a\nb=b\n[t]\nuntouched=value\n");
}

}  // namespace
