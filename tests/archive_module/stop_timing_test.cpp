// The end of the module at any instant of a job: it takes no longer than the grace period, the job
// is answered once, and nothing of it survives. The environment variable EM_TALVOR_STOP_ROUNDS sets
// the number of rounds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr int DEFAULT_ROUNDS = 4;

constexpr char CREATION_BEGINS[] =
    "\nEM_TALVOR (Create)  : Task serializer job - create Talvor archive...";
constexpr char TRANSFER_BEGINS[] =
    "\nEM_TALVOR (Transfer): Task serializer job - transfer the Talvor archive to BMC";

// Some collectors end before the module does, some within the grace period, some never.
constexpr const char* RUNS[] = {"",        "sleep 0.1",     "sleep 0.4",
                                "sleep 1", "exec sleep 60", "exec sleep 60"};

// The cases share the rounds, so that each of them stays short. Each has its own random sequence.
class StopTimingTest : public ModuleHost, public testing::WithParamInterface<uint32_t> {
 protected:
  StopTimingTest() : m_oRandom(GetParam()) {
    m_oSwitch.onHtiRequest = [this](SipJson& request) {
      std::this_thread::sleep_for(m_oTransferTime);
      request.SetCmdUInt("ST", 0);
    };
  }

  static int CountRounds() {
    const char* rounds = std::getenv("EM_TALVOR_STOP_ROUNDS");
    return rounds != nullptr ? std::atoi(rounds) : DEFAULT_ROUNDS;
  }

  microseconds UpTo(milliseconds most) {
    return microseconds(std::uniform_int_distribution<int64_t>(
        0, duration_cast<microseconds>(most).count())(m_oRandom));
  }

  // Starts a job and returns at an instant of it.
  void BeginJob(const TraceSession& session) {
    const bool isCreation = m_oRandom() % 3 != 0;
    InstallCollector(std::string("echo $$ > \"$D/pid\"\n") + RUNS[m_oRandom() % std::size(RUNS)] +
                     "\necho data > \"$archive\"");
    std::ofstream(m_strArchive) << "data";
    m_oTransferTime = UpTo(milliseconds(400));
    ASSERT_EQ(StartAfresh(), 1U);
    m_oSwitch.Forget();
    EXPECT_EQ(Send(isCreation ? CREATE : TRANSFER), std::make_pair(1U, 22U));
    ASSERT_TRUE(session.WaitFor(isCreation ? CREATION_BEGINS : TRANSFER_BEGINS));
    std::this_thread::sleep_for(UpTo(milliseconds(300)));
  }

  // Ends the module and expects nothing of it to be left.
  template <typename End>
  void ExpectEnd(const End& end) {
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(end(), 1U);
    const auto time = duration_cast<milliseconds>(Clock::now() - begin);
    m_oLongest = std::max(m_oLongest, time);
    EXPECT_LT(time, STOP_GRACE + LOAD_DELAY);
    EXPECT_EQ(m_oSwitch.Answers().size(), 1U);
    EXPECT_THAT(m_oSwitch.StatusOf(0), testing::AnyOf(0U, 6U));
    EXPECT_TRUE(HasOnlyThreads(m_nThreads));
    EXPECT_FALSE(HasChildren());
    std::string pid;
    if (std::ifstream(m_strDirectory + "pid") >> pid) {
      EXPECT_FALSE(std::filesystem::exists("/proc/" + pid));
    }
    std::filesystem::remove(m_strDirectory + "pid");
  }

  template <typename End>
  void RunRounds(int rounds, const End& end) {
    m_nThreads = CountThreads();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
      SCOPED_TRACE(round);
      const TraceSession session(2);
      BeginJob(session);
      ExpectEnd(end);
    }
    printf("%d rounds, the longest end took %d ms\n", rounds, static_cast<int>(m_oLongest.count()));
  }

 private:
  std::mt19937 m_oRandom;
  microseconds m_oTransferTime = microseconds(0);
  milliseconds m_oLongest = milliseconds(0);
  size_t m_nThreads = 0;
};

}  // namespace

TEST_P(StopTimingTest, StopComesAtAnyInstantOfAJob) {
  RunRounds(CountRounds(), [this] { return m_pModule->Stop(); });
}

TEST_P(StopTimingTest, DeletionComesAtAnyInstantOfAJob) {
  RunRounds((CountRounds() * 2 + 4) / 5, [this] { return DeleteModule(); });
}

INSTANTIATE_TEST_SUITE_P(Share, StopTimingTest, testing::Range(0U, 5U));
