#include "platform/process/child_program.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/process/process_control.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr bool KEEP = true;
constexpr bool CLOSE = false;

// While it is held, the first thing that a child does, on the memory of the test, is `action`.
ScopedAnswer InChild(void (*action)()) {
  const auto isDone = std::make_shared<std::atomic<bool>>(false);
  return calls::sigaction.Answer(
      [action, isDone, parent = getpid()](int signal, auto* wanted, auto* old) {
        if (getpid() != parent && !isDone->exchange(true)) {
          action();
        }
        return calls::sigaction.Real(signal, wanted, old);
      });
}

// The exit status of a child that executes the program; -1 when it ends otherwise.
int Execute(const CChildProgram& program) {
  std::atomic<int32_t> pid = 0;
  const pid_t child = program.Start(pid);
  EXPECT_EQ(pid, child);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class ChildProgramTest : public testing::Test {
 protected:
  // Which of the descriptors, opened before the limit is lowered, a child has: "299 300 ".
  std::string Inherited(bool keep, const std::vector<int>& descriptors, rlim_t lowered) const {
    std::string commands;
    for (const int descriptor : descriptors) {
      EXPECT_EQ(dup2(STDIN_FILENO, descriptor), descriptor);
      const std::string number = std::to_string(descriptor);
      commands += "[ ! -e /proc/self/fd/" + number + " ] || printf '" + number + " ' >>$D/out\n";
    }
    const std::string script = m_oScratch.WriteScript("list", commands + "exit 0");
    const DescriptorLimit limit(lowered);
    EXPECT_EQ(Execute({{script}, keep}), 0);
    for (const int descriptor : descriptors) {
      close(descriptor);
    }
    return m_oScratch.Read("out");
  }

  const ScratchDirectory m_oScratch;
};

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

TEST_F(ChildProgramTest, SplitsAtWhiteSpaceOfAnyKindAndLength) {
  EXPECT_THAT(SplitIntoWords(" a\tbc \n\v\f\r d "), ElementsAre("a", "bc", "d"));
  EXPECT_THAT(SplitIntoWords("a"), ElementsAre("a"));
}

TEST_F(ChildProgramTest, KnowsNoQuotesAndNoEscapes) {
  EXPECT_THAT(SplitIntoWords(R"(p "a b" 'c d' e\ f)"),
              ElementsAre("p", "\"a", "b\"", "'c", "d'", "e\\", "f"));
}

TEST_F(ChildProgramTest, FindsNoWordsInWhiteSpaceAndNull) {
  EXPECT_THAT(SplitIntoWords(""), IsEmpty());
  EXPECT_THAT(SplitIntoWords(" \t"), IsEmpty());
  EXPECT_THAT(SplitIntoWords(nullptr), IsEmpty());
}

TEST_F(ChildProgramTest, PassesTheProgramAndEveryArgumentOn) {
  const std::string script = m_oScratch.WriteScript("a b", R"(printf '[%s]' "$0" "$@" >$D/out)");
  EXPECT_EQ(Execute({{script, "c d", "", "\"e"}, CLOSE}), 0);
  EXPECT_EQ(m_oScratch.Read("out"), "[" + script + "][c d][][\"e]");
}

TEST_F(ChildProgramTest, ManyArgumentsAllArrive) {
  std::vector<std::string> words(5000, "x");
  words.front() = m_oScratch.WriteScript("count", "echo $# >$D/out");
  EXPECT_EQ(Execute({words, CLOSE}), 0);
  EXPECT_EQ(m_oScratch.Read("out"), "4999\n");
}

TEST_F(ChildProgramTest, LooksTheProgramUpThroughPath) {
  m_oScratch.WriteScript("only-here", "exit 3");
  const std::string path = getenv("PATH");
  setenv("PATH", ("/nowhere:" + m_oScratch.Path() + ":/bin").c_str(), 1);
  EXPECT_EQ(Execute({{"only-here"}, CLOSE}), 3);
  setenv("PATH", path.c_str(), 1);
}

TEST_F(ChildProgramTest, EndsWith255WhenItCannotBeExecuted) {
  EXPECT_EQ(Execute({{m_oScratch.Path("missing")}, CLOSE}), 255);
  EXPECT_EQ(Execute({{m_oScratch.Write("no-program", "")}, CLOSE}), 255);
  EXPECT_EQ(Execute({{m_oScratch.Path()}, CLOSE}), 255);
  EXPECT_EQ(Execute({{""}, CLOSE}), 255);
  EXPECT_EQ(Execute({{}, CLOSE}), 255);
}

TEST_F(ChildProgramTest, RunsNoExitHandlerAndFlushesNothingWhenItCannotBeExecuted) {
  static std::string marker;
  marker = m_oScratch.Path("marker");
  ASSERT_EQ(atexit([] { fclose(fopen(marker.c_str(), "w")); }), 0);
  FILE* buffered = fopen(m_oScratch.Path("buffered").c_str(), "w");
  ASSERT_NE(buffered, nullptr);
  fputs("once", buffered);
  EXPECT_EQ(Execute({{"/missing"}, KEEP}), 255);
  EXPECT_EQ(Execute({{}, KEEP}), 255);
  EXPECT_FALSE(std::filesystem::exists(marker));
  EXPECT_EQ(m_oScratch.Read("buffered"), "");
  fclose(buffered);
  EXPECT_EQ(m_oScratch.Read("buffered"), "once");
  marker = "/dev/null";
}

TEST_F(ChildProgramTest, KeepsTheStandardDescriptorsOnly) {
  const std::string script = m_oScratch.WriteScript(
      "list", "for i in 0 1 2 3 4 5; do [ ! -e /proc/self/fd/$i ] || printf $i; done >&2");
  const int saved = dup(STDERR_FILENO);
  const int out = open(m_oScratch.Path("out").c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_EQ(dup2(out, STDERR_FILENO), STDERR_FILENO);
  EXPECT_EQ(Execute({{script}, CLOSE}), 0);
  dup2(saved, STDERR_FILENO);
  EXPECT_EQ(m_oScratch.Read("out"), "012");
  close(out);
  close(saved);
}

TEST_F(ChildProgramTest, ClosesEveryDescriptorAlsoAboveTheLimit) {
  EXPECT_EQ(Inherited(CLOSE, {20, 255, 256, 900}, 300), "");
}

TEST_F(ChildProgramTest, KeepsDescriptorsWhenAsked) {
  EXPECT_EQ(Inherited(KEEP, {20, 299, 300}, 1024), "20 299 300 ");
}

TEST_F(ChildProgramTest, UnblocksFourSignalsAndNoOther) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGUSR1}) {
    sigaddset(&blocked, signal);
  }
  const std::string script = m_oScratch.WriteScript(
      "mask",
      "while read -r key value; do [ $key != SigBlk: ] || echo $value >$D/out; done "
      "</proc/self/status");
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &blocked, &before), 0);
  EXPECT_EQ(Execute({{script}, CLOSE}), 0);
  sigset_t after;
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, &after), 0);
  EXPECT_EQ(m_oScratch.Read("out"), "0000000000000200\n");  // SIGUSR1
  EXPECT_TRUE(sigismember(&after, SIGTERM)) << "unblocked in the parent";
}

TEST_F(ChildProgramTest, NoHandlerOfTheHostRunsInTheChild) {
  static volatile sig_atomic_t handled = 0;
  handled = 0;
  signal(SIGUSR1, [](int) { handled = handled + 1; });
  const auto inChild = InChild([] { kill(getpid(), SIGUSR1); });
  EXPECT_EQ(Execute({{"true"}, CLOSE}), -1) << "the signal ends the child";
  EXPECT_EQ(handled, 0);
  raise(SIGUSR1);
  EXPECT_EQ(handled, 1) << "the host has its handler still";
  signal(SIGUSR1, SIG_DFL);
}

TEST_F(ChildProgramTest, AnIgnoredSignalStaysIgnored) {
  signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(Execute({{m_oScratch.WriteScript("signal", "kill -USR1 $$\nexit 4")}, CLOSE}), 4);
  signal(SIGUSR1, SIG_DFL);
}

TEST_F(ChildProgramTest, ACancelledThreadStartsTheChildAllTheSame) {
  const auto failing = calls::close_range.Fail(ENOSYS);
  const CChildProgram program({m_oScratch.WriteScript("end", "exit 5")}, CLOSE);
  std::atomic<int32_t> child = 0;
  bool isCancelled = true;
  std::thread thread([&] {
    pthread_cancel(pthread_self());
    program.Start(child);
    pthread_testcancel();
    isCancelled = false;
  });
  thread.join();
  int status = 0;
  ASSERT_GT(child, 1);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 5);
  EXPECT_TRUE(isCancelled);
}

TEST_F(ChildProgramTest, OthersHaveTheIdBeforeTheProgramIsExecuted) {
  const auto inChild = InChild([] { sleep(15); });
  std::atomic<int32_t> pid = 0;
  std::thread thread([&pid] {
    const pid_t child = CChildProgram({"true"}, CLOSE).Start(pid);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
  });
  EXPECT_TRUE(WaitUntil([&pid] { return pid > 1; }));
  EXPECT_TRUE(KillProcess(pid, true));
  thread.join();
}

TEST_F(ChildProgramTest, AnIdThatOnlyHoldsInANamespaceOfTheChildIsNotGiven) {
  constexpr int REFUSED = 2;
  const pid_t host = fork();
  if (host == 0) {
    static std::atomic<int32_t> pid = 0;
    static volatile int32_t seen = -1;
    if (unshare(CLONE_NEWPID) != 0) {
      _exit(REFUSED);
    }
    const auto inChild = InChild([] { seen = pid; });
    const pid_t child = CChildProgram({"true"}, CLOSE).Start(pid);
    waitpid(child, nullptr, 0);
    _exit(seen <= 0 && pid == child && child > 1 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(host, &status, 0), host);
  if (WEXITSTATUS(status) == REFUSED) {
    GTEST_SKIP() << "no process namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(ChildProgramTest, TheChildCopiesNoMemory) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer makes every vfork() a fork()";
#endif
  static volatile bool isSeen = false;
  const auto inChild = InChild([] { isSeen = true; });
  EXPECT_EQ(Execute({{"true"}, CLOSE}), 0);
  EXPECT_TRUE(isSeen) << "what the child writes is not the memory of its parent";
}

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
