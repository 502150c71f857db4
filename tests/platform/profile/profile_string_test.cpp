#include "platform/profile/profile_string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/platform/profile/profile_test_file.h"
#include "tests/support/descriptor_count.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

using std::string_literals::operator""s;
using testing::ElementsAre;

constexpr char CANNOT_OPEN[] = "GetPrivateProfileString: Cannot open %s\n";
constexpr char CALL_LINE[] = "WritePrivateProfileString(%s, %s, %s, %s)\n";
constexpr char RESULT_LINE[] = "WritePrivateProfileString rc=0x%04x\n";
constexpr char APPEND_ERROR[] = "WritePrivateProfileString: ## WARNING: append open error: %s\n";

std::vector<std::string> TracesOf(const std::function<void()>& action, uint32_t level = 5) {
  const TraceSession session(level);
  action();
  return session.Texts();
}

// Runs `action` on a thread that is cancelled at its first call of `call`. True when the action
// went on to its end and the cancellation came after it.
template <typename Call>
bool SurvivesCancellation(Call& call, const std::function<void()>& action) {
  std::atomic<bool> isFirst = true;
  std::atomic<bool> isDone = false;
  std::atomic<bool> isBeyond = false;
  const auto cancelling = call.Answer([&](auto... arguments) {
    if (isFirst.exchange(false)) {
      pthread_cancel(pthread_self());
      pthread_testcancel();
    }
    return call.Real(arguments...);
  });
  std::thread([&] {
    action();
    isDone = true;
    pthread_testcancel();
    isBeyond = true;
  }).join();
  return !isFirst && isDone && !isBeyond;
}

// Gives other threads the chance to make that true, where nothing keeps them from it.
void YieldUntil(const std::function<bool()>& condition) {
  for (int i = 0; i < 30 && !condition(); ++i) {
    std::this_thread::yield();
  }
}

// Runs `action` before each write of the product.
ScopedAnswer BeforeEachWrite(const std::function<void()>& action) {
  return calls::pwrite.Answer(
      [action](int descriptor, const void* buffer, size_t size, off_t offset) {
        action();
        return calls::pwrite.Real(descriptor, buffer, size, offset);
      });
}

TEST(ProfileStringTest, AFileThatCannotBeOpenedGivesTheDefault) {
  const ProfileTestFile file;
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 7).text, "12345");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 7).buffer, "12345\0#"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 6).buffer, "12345\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).buffer, "1234\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).count, 4U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 1).buffer, "\0"s);
}

TEST(ProfileStringTest, AKeyThatIsNotFoundGivesTheDefault) {
  const ProfileTestFile file("[s]\n");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 6).buffer, "12345\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).buffer, "1234\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).count, 4U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "", 5).buffer, "\0####"s);
}

TEST(ProfileStringTest, WithoutSectionKeyOrDefaultThereIsNoDefault) {
  const ProfileTestFile missing;
  const ProfileTestFile empty("");
  for (const char* const name : {missing.Name(), empty.Name()}) {
    for (const ProfileAnswer& answer :
         {ReadProfile(name, nullptr, "key", "x", 2), ReadProfile(name, "s", nullptr, "x", 2),
          ReadProfile(name, "s", "key", nullptr, 2)}) {
      EXPECT_EQ(answer.count, 0U);
      EXPECT_EQ(answer.buffer, "\0#"s);
    }
  }
}

TEST(ProfileStringTest, TheValueIsFoundWithoutADefault) {
  const ProfileTestFile file("[s]\nkey=1\n");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", nullptr).text, "1");
}

TEST(ProfileStringTest, ABufferOfNoBytesIsNotTouched) {
  const ProfileTestFile file("[s]\nkey=1\n");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "default", 0).count, 0U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", nullptr, "default", 0).count, 0U);
  EXPECT_EQ(ReadProfile(file.NameOf("missing").c_str(), "s", "key", "default", 0).count, 0U);
  EXPECT_EQ(GetPrivateProfileString("s", "key", "default", nullptr, 5, file.Name()), 0U);
}

TEST(ProfileStringTest, TheDefaultMayLieInTheBuffer) {
  const ProfileTestFile file;
  std::string buffer = "#text";
  EXPECT_EQ(GetPrivateProfileString("s", "k", buffer.data() + 1, buffer.data(), 5, file.Name()),
            4U);
  EXPECT_EQ(buffer, "text\0"s);
}

TEST(ProfileStringTest, AFileThatCannotBeOpenedIsTracedAtLevel4) {
  const ProfileTestFile file;
  const auto read = [&] { ReadProfile(file.Name(), nullptr, nullptr, nullptr); };
  EXPECT_THAT(TracesOf(read, 3), ElementsAre());
  EXPECT_THAT(TracesOf(read, 4),
              ElementsAre("GetPrivateProfileString: Cannot open "s + file.Name() + "\n"));
}

TEST(ProfileStringTest, APipeOrDirectoryCannotBeOpenedAndNothingWaits) {
  const ProfileTestFile file;
  const std::string pipe = file.NameOf("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& name : {pipe, file.NameOf("")}) {
    EXPECT_EQ(TracesOf([&] { ReadProfile(name.c_str(), "s", "key", "x"); }).size(), 1U);
    EXPECT_EQ(ReadProfile(name.c_str(), "s", "key", "x").text, "x");
  }
}

TEST(ProfileStringTest, ANullFileNameCannotBeOpened) {
  EXPECT_EQ(TracesOf([] { ReadProfile(nullptr, "s", "key", "x"); }),
            std::vector{"GetPrivateProfileString: Cannot open <nil>\n"s});
  EXPECT_EQ(ReadProfile(nullptr, "s", "key", "x").text, "x");
}

TEST(ProfileStringTest, AFileThatCannotBeReadToItsEndCountsAsNotOpened) {
  const ProfileTestFile file("[a]\n" + std::string(40000, '\n') + "[b]\n");
  const std::vector<std::string> traces = TracesOf([&] {
    const auto failing = calls::read.Fail(EIO, 1);
    const ProfileAnswer answer = ReadProfile(file.Name(), nullptr, nullptr, "x");
    EXPECT_EQ(answer.count, 0U);
    EXPECT_EQ(answer.buffer.front(), '\0');
  });
  EXPECT_THAT(traces, ElementsAre("GetPrivateProfileString: Cannot open "s + file.Name() + "\n"));
  const auto failing = calls::read.Fail(EIO, 1);
  EXPECT_EQ(ReadProfile(file.Name(), "b", "key", "x").text, "x");
}

TEST(ProfileStringTest, NothingIsReadBehindTheAnswer) {
  const ProfileTestFile file("[a]\nkey=1\n[b]\n" + std::string(40000, '\n'));
  const auto reads = calls::read.Watch();
  EXPECT_EQ(ReadProfile(file.Name(), "a", "key", "x").text, "1");
  EXPECT_EQ(ReadProfile(file.Name(), "a", "other", "x").text, "x");
  EXPECT_EQ(ReadProfile(file.Name(), nullptr, nullptr, "x", 4).text, "a\0"s);
  EXPECT_EQ(reads.GetCount(), 3);
}

TEST(ProfileStringTest, ASuccessfulReadTracesNothing) {
  const ProfileTestFile file("[s]\nkey=1\n");
  EXPECT_TRUE(TracesOf([&] { ReadProfile(file.Name(), "s", "key", "x"); }).empty());
}

TEST(ProfileStringTest, ANullSectionIsRefusedAtLevel4) {
  const ProfileTestFile file;
  const auto write = [&] {
    EXPECT_EQ(WritePrivateProfileString(nullptr, "k", "v", file.Name()), 0U);
  };
  EXPECT_THAT(TracesOf(write, 3), ElementsAre());
  EXPECT_THAT(TracesOf(write, 4),
              ElementsAre("WritePrivateProfileString: ## WARNING: invalid pointer to AppName\n"));
  EXPECT_EQ(TracesOf([] { WritePrivateProfileString(nullptr, "k", "v", nullptr); }),
            TracesOf(write));
  EXPECT_FALSE(file.Exists());
}

TEST(ProfileStringTest, ANullFileNameIsRefusedAtLevel4) {
  const auto write = [] { EXPECT_EQ(WritePrivateProfileString("s", "k", "v", nullptr), 0U); };
  EXPECT_THAT(TracesOf(write, 0), ElementsAre());
  EXPECT_THAT(TracesOf(write, 3), ElementsAre());
  EXPECT_THAT(TracesOf(write, 4),
              ElementsAre("WritePrivateProfileString: ## WARNING: invalid pointer to FileName\n"));
}

TEST(ProfileStringTest, AWriteTracesItsCallAndItsResultAtLevel4) {
  const ProfileTestFile file;
  const auto write = [&] { WritePrivateProfileString("s", "k", "v", file.Name()); };
  EXPECT_THAT(TracesOf(write, 3), ElementsAre());
  EXPECT_THAT(TracesOf(write, 4),
              ElementsAre("WritePrivateProfileString(s, k, v, "s + file.Name() + ")\n",
                          "WritePrivateProfileString rc=0x0001\n"));
}

TEST(ProfileStringTest, ANullKeyOrValueIsShownAsNil) {
  const ProfileTestFile file("");
  EXPECT_EQ(
      TracesOf([&] { WritePrivateProfileString("s", nullptr, nullptr, file.Name()); }).front(),
      "WritePrivateProfileString(s, <nil>, <nil>, "s + file.Name() + ")\n");
}

TEST(ProfileStringTest, AFileThatCannotBeMadeIsTracedAtLevel1) {
  const ProfileTestFile file;
  const std::string name = file.NameOf("missing/file");
  const std::string error =
      "WritePrivateProfileString: ## WARNING: append open error: " + name + "\n";
  const auto write = [&] { EXPECT_EQ(WritePrivateProfileString("s", "k", "v", name.c_str()), 0U); };
  EXPECT_THAT(TracesOf(write, 1), ElementsAre(error));
  EXPECT_THAT(TracesOf(write), ElementsAre("WritePrivateProfileString(s, k, v, " + name + ")\n",
                                           error, "WritePrivateProfileString rc=0x0000\n"));
}

TEST(ProfileStringTest, RemovingFromAMissingFileIsNoOpenError) {
  const ProfileTestFile file;
  EXPECT_EQ(TracesOf([&] { WritePrivateProfileString("s", "k", nullptr, file.Name()); }).size(),
            2U);
}

TEST(ProfileStringTest, ReadsWhatWasWritten) {
  const ProfileTestFile file;
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", file.Name()), 1U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "k", "x").text, "v");
}

TEST(ProfileStringTest, ASinkThatThrowsLosesNoLockAndNoDescriptor) {
  const ProfileTestFile file;
  const ptrdiff_t before = CountDescriptors();
  for (const char* const format : {CANNOT_OPEN, CALL_LINE, RESULT_LINE, APPEND_ERROR}) {
    TraceSession session(5);
    session.ThrowAt(format);
    const std::string name = format == APPEND_ERROR ? file.NameOf("x/y") : file.Name();
    EXPECT_THROW(
        {
          ReadProfile(file.NameOf("missing").c_str(), "s", "k", "x");
          WritePrivateProfileString("s", "k", "v", name.c_str());
        },
        std::runtime_error);
    EXPECT_EQ(CountDescriptors(), before);
  }
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", file.Name()), 1U);
  EXPECT_EQ(file.Text(), "\n[s]\n\nk=v\n");
}

TEST(ProfileStringTest, TheSinkMayCallBack) {
  const ProfileTestFile file;
  const ProfileTestFile other;
  TraceSession session(5);
  bool isInside = false;
  int calls = 0;
  for (const char* const format : {CANNOT_OPEN, CALL_LINE, APPEND_ERROR, RESULT_LINE}) {
    session.CallAt(format, [&] {
      if (!std::exchange(isInside, true)) {
        EXPECT_EQ(WritePrivateProfileString("s", "k", "v", other.Name()), 1U);
        EXPECT_EQ(ReadProfile(other.Name(), "s", "k", "x").text, "v");
        isInside = false;
        ++calls;
      }
    });
  }
  ReadProfile(file.Name(), "s", "k", "x");
  WritePrivateProfileString("s", "k", "v", file.NameOf("x/y").c_str());
  EXPECT_EQ(calls, 4);
}

TEST(ProfileStringTest, ACancelledThreadFinishesItsRead) {
  const ProfileTestFile file("[s]\nk=v\n");
  const auto read = [&] { EXPECT_EQ(ReadProfile(file.Name(), "s", "k", "x").text, "v"); };
  EXPECT_TRUE(SurvivesCancellation(calls::read, read));
  EXPECT_TRUE(SurvivesCancellation(calls::close, read));
}

TEST(ProfileStringTest, ACancelledThreadFinishesItsWrite) {
  const auto expectWritten = [](auto& call) {
    const ProfileTestFile file("[s]\nk=v\na=1\n");
    EXPECT_TRUE(SurvivesCancellation(
        call, [&] { WritePrivateProfileString("s", "k", "value", file.Name()); }));
    EXPECT_EQ(file.Text(), "[s]\n\nk=value\na=1\n");
  };
  expectWritten(calls::read);
  expectWritten(calls::pwrite);
  expectWritten(calls::close);
}

// The threads of one process also wait for each other where the file system has no locks.

TEST(ProfileStringTest, WritersOfOneFileDoNotLoseEachOthersKeys) {
  const auto locks = calls::flock.Fail(ENOLCK);
  const ProfileTestFile file("[s]\n\n");
  std::atomic<int> writers = 0;
  std::atomic<bool> haveMet = false;
  const auto writes = BeforeEachWrite([&] {
    haveMet = ++writers > 1 || haveMet;
    YieldUntil([&] { return haveMet.load(); });
    --writers;
  });
  const auto write = [&file](const std::string& prefix) {
    for (int i = 0; i < 8; ++i) {
      WritePrivateProfileString("s", (prefix + std::to_string(i)).c_str(), "value", file.Name());
    }
  };
  std::thread first(write, "a");
  std::thread second(write, "b");
  first.join();
  second.join();
  EXPECT_FALSE(haveMet);
  EXPECT_EQ(ReadProfile(file.Name(), "s", nullptr, nullptr, 1000).count, 2U * 8 * 3);
}

TEST(ProfileStringTest, AReaderNeverSeesAnUpdateHalfDone) {
  const auto locks = calls::flock.Fail(ENOLCK);
  // While the value of b grows by ten bytes, the last line stands there twice.
  const ProfileTestFile file("[s]\na=1\nb=\n[t]\nkey=value\n");
  std::atomic<int> reads = 0;
  std::atomic<int> failures = 0;
  std::atomic<bool> isDone = false;
  std::thread reader([&] {
    while (!isDone) {
      failures += ReadProfile(file.Name(), "t", nullptr, nullptr).text == "key\0"s ? 0 : 1;
      ++reads;
    }
  });
  const auto writes = BeforeEachWrite([&] {
    const int before = reads;
    YieldUntil([&] { return reads > before + 1; });
  });
  for (const char* const value : {"0123456789", "", "0123456789", "", "0123456789"}) {
    WritePrivateProfileString("s", "b", value, file.Name());
  }
  isDone = true;
  reader.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
