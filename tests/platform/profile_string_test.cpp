#include "platform/profile_string.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/platform/profile_test_file.h"
#include "tests/support/trace_session.h"

namespace {

using std::string_literals::operator""s;

constexpr char CANNOT_OPEN[] = "GetPrivateProfileString: Cannot open %s\n";
constexpr char NO_SECTION[] = "WritePrivateProfileString: ## WARNING: invalid pointer to AppName\n";
constexpr char NO_FILE[] = "WritePrivateProfileString: ## WARNING: invalid pointer to FileName\n";
constexpr char CALL[] = "WritePrivateProfileString(%s, %s, %s, %s)\n";
constexpr char RESULT[] = "WritePrivateProfileString rc=0x%04x\n";
constexpr char APPEND_ERROR[] = "WritePrivateProfileString: ## WARNING: append open error: %s\n";

// Called before a call of the product goes to the system.
std::function<void()> g_onRead;
std::function<void()> g_onWrite;
std::function<void()> g_onClose;
std::atomic<bool> g_bReadFails = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
extern "C" ssize_t __real_read(int descriptor, void* buffer, size_t size);
extern "C" ssize_t __real_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);
extern "C" int __real_close(int descriptor);

extern "C" ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  if (g_onRead) {
    g_onRead();
  }
  if (g_bReadFails) {
    errno = EIO;
    return -1;
  }
  return __real_read(descriptor, buffer, size);
}

extern "C" ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
  if (g_onWrite) {
    g_onWrite();
  }
  return __real_pwrite(descriptor, buffer, size, offset);
}

extern "C" int __wrap_close(int descriptor) {
  if (g_onClose) {
    g_onClose();
  }
  return __real_close(descriptor);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class ProfileStringTest : public testing::Test {
 protected:
  ~ProfileStringTest() override {
    g_onRead = g_onWrite = g_onClose = nullptr;
    g_bReadFails = false;
  }
};

ptrdiff_t CountDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

std::vector<std::string> TracesOf(const std::function<void()>& action) {
  const TraceSession session(5);
  action();
  return session.Texts();
}

// Runs `action` on a thread that cancels itself at the system call of `hook`. True when the action
// went on to its end and the cancellation came after it.
bool SurvivesCancellation(std::function<void()>& hook, const std::function<void()>& action) {
  std::atomic<bool> isDone = false;
  std::atomic<bool> isBeyond = false;
  hook = [isFirst = true]() mutable {
    if (std::exchange(isFirst, false)) {
      pthread_cancel(pthread_self());
      pthread_testcancel();
    }
  };
  std::thread([&] {
    action();
    isDone = true;
    pthread_testcancel();
    isBeyond = true;
  }).join();
  hook = nullptr;
  return isDone && !isBeyond;
}

// Gives other threads the chance to make that true, where nothing keeps them from it.
void YieldUntil(const std::function<bool()>& condition) {
  for (int i = 0; i < 30 && !condition(); ++i) {
    std::this_thread::yield();
  }
}

}  // namespace

TEST_F(ProfileStringTest, AFileThatCannotBeOpenedGivesTheDefault) {
  const ProfileTestFile file;
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 7).text, "12345");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 7).buffer, "12345\0#"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 6).buffer, "12345\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).buffer, "1234\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).count, 4U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 1).buffer, "\0"s);
}

TEST_F(ProfileStringTest, AKeyThatIsNotFoundGivesTheDefault) {
  const ProfileTestFile file("[s]\n");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 6).buffer, "12345\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).buffer, "1234\0"s);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "12345", 5).count, 4U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "", 5).buffer, "\0####"s);
}

TEST_F(ProfileStringTest, WithoutSectionKeyOrDefaultThereIsNoDefault) {
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

TEST_F(ProfileStringTest, TheValueIsFoundWithoutADefault) {
  const ProfileTestFile file("[s]\nkey=1\n");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", nullptr).text, "1");
}

TEST_F(ProfileStringTest, ABufferOfNoBytesIsNotTouched) {
  const ProfileTestFile file("[s]\nkey=1\n");
  EXPECT_EQ(ReadProfile(file.Name(), "s", "key", "default", 0).count, 0U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", nullptr, "default", 0).count, 0U);
  EXPECT_EQ(ReadProfile(file.NameOf("missing").c_str(), "s", "key", "default", 0).count, 0U);
  EXPECT_EQ(GetPrivateProfileString("s", "key", "default", nullptr, 5, file.Name()), 0U);
}

TEST_F(ProfileStringTest, TheDefaultMayLieInTheBuffer) {
  const ProfileTestFile file;
  std::string buffer = "#text";
  EXPECT_EQ(GetPrivateProfileString("s", "k", buffer.data() + 1, buffer.data(), 5, file.Name()),
            4U);
  EXPECT_EQ(buffer, "text\0"s);
}

TEST_F(ProfileStringTest, AFileThatCannotBeOpenedIsTraced) {
  const ProfileTestFile file;
  EXPECT_EQ(LevelOf(CANNOT_OPEN, [&] { ReadProfile(file.Name(), "s", "key", "x"); }), 4U);
  EXPECT_EQ(TracesOf([&] { ReadProfile(file.Name(), nullptr, nullptr, nullptr); }),
            std::vector{"GetPrivateProfileString: Cannot open "s + file.Name() + "\n"});
}

TEST_F(ProfileStringTest, APipeOrDirectoryCannotBeOpenedAndNothingWaits) {
  const ProfileTestFile file;
  const std::string pipe = file.NameOf("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& name : {pipe, file.NameOf("")}) {
    EXPECT_EQ(TracesOf([&] { ReadProfile(name.c_str(), "s", "key", "x"); }).size(), 1U);
    EXPECT_EQ(ReadProfile(name.c_str(), "s", "key", "x").text, "x");
  }
}

TEST_F(ProfileStringTest, ANullFileNameCannotBeOpened) {
  EXPECT_EQ(TracesOf([] { ReadProfile(nullptr, "s", "key", "x"); }),
            std::vector{"GetPrivateProfileString: Cannot open <nil>\n"s});
  EXPECT_EQ(ReadProfile(nullptr, "s", "key", "x").text, "x");
}

TEST_F(ProfileStringTest, AFileThatCannotBeReadToItsEndCountsAsNotOpened) {
  const ProfileTestFile file("[a]\n" + std::string(40000, '\n') + "[b]\n");
  int reads = 0;
  g_onRead = [&reads] { g_bReadFails = ++reads > 1; };
  const std::vector<std::string> traces = TracesOf([&] {
    const ProfileAnswer answer = ReadProfile(file.Name(), nullptr, nullptr, "x");
    EXPECT_EQ(answer.count, 0U);
    EXPECT_EQ(answer.buffer.front(), '\0');
  });
  EXPECT_EQ(traces, std::vector{"GetPrivateProfileString: Cannot open "s + file.Name() + "\n"});
  reads = 0;
  EXPECT_EQ(ReadProfile(file.Name(), "b", "key", "x").text, "x");
}

TEST_F(ProfileStringTest, NothingIsReadBehindTheAnswer) {
  const ProfileTestFile file("[a]\nkey=1\n[b]\n" + std::string(40000, '\n'));
  int reads = 0;
  g_onRead = [&reads] { g_bReadFails = ++reads > 1; };
  EXPECT_EQ(ReadProfile(file.Name(), "a", "key", "x").text, "1");
  reads = 0;
  EXPECT_EQ(ReadProfile(file.Name(), "a", "other", "x").text, "x");
  EXPECT_EQ(reads, 1);
  reads = 0;
  EXPECT_EQ(ReadProfile(file.Name(), nullptr, nullptr, "x", 4).text, "a\0"s);
}

TEST_F(ProfileStringTest, ASuccessfulReadTracesNothing) {
  const ProfileTestFile file("[s]\nkey=1\n");
  EXPECT_TRUE(TracesOf([&] { ReadProfile(file.Name(), "s", "key", "x"); }).empty());
}

TEST_F(ProfileStringTest, ANullSectionIsRefused) {
  const ProfileTestFile file;
  EXPECT_EQ(
      LevelOf(NO_SECTION,
              [&] { EXPECT_EQ(WritePrivateProfileString(nullptr, "k", "v", file.Name()), 0U); }),
      4U);
  EXPECT_EQ(TracesOf([] { WritePrivateProfileString(nullptr, "k", "v", nullptr); }),
            std::vector{std::string(NO_SECTION)});
  EXPECT_FALSE(file.Exists());
}

TEST_F(ProfileStringTest, ANullFileNameIsRefused) {
  EXPECT_EQ(
      LevelOf(NO_FILE, [] { EXPECT_EQ(WritePrivateProfileString("s", "k", "v", nullptr), 0U); }),
      4U);
  EXPECT_EQ(TracesOf([] { WritePrivateProfileString("s", "k", "v", nullptr); }),
            std::vector{std::string(NO_FILE)});
}

TEST_F(ProfileStringTest, AWriteTracesItsCallAndItsResult) {
  const ProfileTestFile file;
  const auto write = [&] { WritePrivateProfileString("s", "k", "v", file.Name()); };
  EXPECT_EQ(LevelOf(CALL, write), 4U);
  EXPECT_EQ(LevelOf(RESULT, write), 4U);
  EXPECT_EQ(TracesOf(write),
            (std::vector{"WritePrivateProfileString(s, k, v, "s + file.Name() + ")\n",
                         "WritePrivateProfileString rc=0x0001\n"s}));
  EXPECT_EQ(TracesOf([&] { WritePrivateProfileString("x", "k", nullptr, file.Name()); }).back(),
            "WritePrivateProfileString rc=0x0000\n");
}

TEST_F(ProfileStringTest, ANullKeyOrValueIsShownAsNil) {
  const ProfileTestFile file("");
  EXPECT_EQ(
      TracesOf([&] { WritePrivateProfileString("s", nullptr, nullptr, file.Name()); }).front(),
      "WritePrivateProfileString(s, <nil>, <nil>, "s + file.Name() + ")\n");
}

TEST_F(ProfileStringTest, AFileThatCannotBeMadeIsTraced) {
  const ProfileTestFile file;
  const std::string name = file.NameOf("missing/file");
  const auto write = [&] { EXPECT_EQ(WritePrivateProfileString("s", "k", "v", name.c_str()), 0U); };
  EXPECT_EQ(LevelOf(APPEND_ERROR, write), 1U);
  EXPECT_EQ(TracesOf(write),
            (std::vector{"WritePrivateProfileString(s, k, v, " + name + ")\n",
                         "WritePrivateProfileString: ## WARNING: append open error: " + name + "\n",
                         "WritePrivateProfileString rc=0x0000\n"s}));
}

TEST_F(ProfileStringTest, RemovingFromAMissingFileIsNoOpenError) {
  const ProfileTestFile file;
  EXPECT_EQ(TracesOf([&] { WritePrivateProfileString("s", "k", nullptr, file.Name()); }).size(),
            2U);
}

TEST_F(ProfileStringTest, ReadsWhatWasWritten) {
  const ProfileTestFile file;
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", file.Name()), 1U);
  EXPECT_EQ(ReadProfile(file.Name(), "s", "k", "x").text, "v");
}

TEST_F(ProfileStringTest, ASinkThatThrowsLosesNoLockAndNoDescriptor) {
  const ProfileTestFile file;
  const ptrdiff_t before = CountDescriptors();
  for (const char* const format : {CANNOT_OPEN, CALL, RESULT, APPEND_ERROR}) {
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

TEST_F(ProfileStringTest, TheSinkMayCallBack) {
  const ProfileTestFile file;
  const ProfileTestFile other;
  TraceSession session(5);
  bool isInside = false;
  int calls = 0;
  for (const char* const format : {CANNOT_OPEN, CALL, APPEND_ERROR, RESULT}) {
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

TEST_F(ProfileStringTest, ACancelledThreadFinishesItsRead) {
  const ProfileTestFile file("[s]\nk=v\n");
  for (auto* const hook : {&g_onRead, &g_onClose}) {
    EXPECT_TRUE(SurvivesCancellation(
        *hook, [&] { EXPECT_EQ(ReadProfile(file.Name(), "s", "k", "x").text, "v"); }));
  }
}

TEST_F(ProfileStringTest, ACancelledThreadFinishesItsWrite) {
  for (auto* const hook : {&g_onRead, &g_onWrite, &g_onClose}) {
    const ProfileTestFile file("[s]\nk=v\na=1\n");
    EXPECT_TRUE(SurvivesCancellation(
        *hook, [&] { WritePrivateProfileString("s", "k", "value", file.Name()); }));
    EXPECT_EQ(file.Text(), "[s]\n\nk=value\na=1\n");
  }
}

TEST_F(ProfileStringTest, WritersOfOneFileDoNotLoseEachOthersKeys) {
  const ProfileTestFile file("[s]\n\n");
  std::atomic<int> writers = 0;
  std::atomic<bool> haveMet = false;
  g_onWrite = [&] {
    haveMet = ++writers > 1 || haveMet;
    YieldUntil([&] { return haveMet.load(); });
    --writers;
  };
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

TEST_F(ProfileStringTest, AReaderNeverSeesAnUpdateHalfDone) {
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
  g_onWrite = [&] {
    const int before = reads;
    YieldUntil([&] { return reads > before + 1; });
  };
  for (const char* const value : {"0123456789", "", "0123456789", "", "0123456789"}) {
    WritePrivateProfileString("s", "b", value, file.Name());
  }
  isDone = true;
  reader.join();
  EXPECT_EQ(failures, 0);
}
