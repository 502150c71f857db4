#include "soak/hostile_soak.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>
#include <vector>

#include "soak/hostile_round.h"
#include "soak/process_levels.h"

namespace {

using std::chrono::seconds;
using Clock = std::chrono::steady_clock;
using Minutes = std::chrono::duration<double, std::ratio<60>>;

constexpr uint32_t LEAST_ROUNDS = 3;

// What the process takes once and keeps is there after these.
constexpr uint32_t WARM_UP_HOSTILE_ROUNDS = 5;

// A round takes seconds; one that takes longer is stuck.
constexpr unsigned LONGEST_ROUND = 300;

// How long a thread that has been joined may still be seen.
constexpr seconds TIME_TO_GO(10);

// What a signal handler writes.
std::array<char, 100> g_oSeedLine;

void WriteSeedLine() {
  const auto written = write(STDERR_FILENO, g_oSeedLine.data(), strlen(g_oSeedLine.data()));
  static_cast<void>(written);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's
extern "C" void __sanitizer_set_death_callback(void (*callback)());
#endif

void TellSeedAtDeath() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  __sanitizer_set_death_callback(WriteSeedLine);
#else
  for (const int number : {SIGSEGV, SIGBUS}) {
    signal(number, [](int caught) {
      WriteSeedLine();
      signal(caught, SIG_DFL);
    });
  }
#endif
  for (const int number : {SIGABRT, SIGALRM}) {
    signal(number, [](int caught) {
      WriteSeedLine();
      signal(caught, SIG_DFL);
      raise(caught);
    });
  }
}

class CHostileSoak {
 public:
  CHostileSoak(const std::string& module, uint32_t seed) : m_strModule(module), m_nSeed(seed) {}

  bool Run(Minutes time) {
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
    while (m_bIsWell && (Clock::now() < end || m_nRounds < LEAST_ROUNDS)) {
      RunRound();
      m_nSeed = CDraw(m_nSeed, 0).Below(UINT32_MAX);
    }
    CheckMemory();
    return m_bIsWell;
  }

  void PrintSummary(Minutes time) const {
    printf("%.1f minutes, %u rounds, the longest end of a module took %lld ms\n", time.count(),
           m_nRounds, static_cast<long long>(m_nLongestEnd));
    for (const auto& [outcome, count] : m_oTotals) {
      printf("  %llu %s\n", static_cast<unsigned long long>(count), outcome.c_str());
    }
    puts(m_bIsWell ? "All was well." : "Not all was well, see above.");
  }

 private:
  void RunRound() {
    snprintf(g_oSeedLine.data(), g_oSeedLine.size(), "This round has the seed %u.\n", m_nSeed);
    alarm(LONGEST_ROUND);
    const ProcessLevels before = Measure();
    std::vector<std::string> complaints;
    {
      CHostileRound round(m_nSeed, m_strModule, m_oCollector, m_oTotals);
      complaints = round.Run();
      m_nLongestEnd = std::max(m_nLongestEnd, round.GetEndTime());
    }
    ++m_nRounds;
    for (const std::string& complaint : CompareWhenSettled(before)) {
      complaints.push_back(complaint);
    }
    if (!m_oCollector.IsRegistryUntouched()) {
      complaints.emplace_back("The registry has been changed.");
    }
    alarm(0);
    Complain(complaints);
    if (m_nRounds == WARM_UP_HOSTILE_ROUNDS) {
      m_oWarm = Measure();
    }
  }

  // Memory is compared at the end of all rounds.
  std::vector<std::string> CompareWhenSettled(const ProcessLevels& before) const {
    const Clock::time_point end = Clock::now() + TIME_TO_GO;
    std::vector<std::string> risen;
    do {
      ProcessLevels after = Measure();
      after.bytes = before.bytes;
      after.residentKb = before.residentKb;
      risen = CompareLevels(before, after);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (!risen.empty() && Clock::now() < end);
    return risen;
  }

  ProcessLevels Measure() const {
    m_oCollector.Clear();
    return MeasureProcess(m_oCollector.GetDirectory());
  }

  void CheckMemory() {
    if (m_nRounds > WARM_UP_HOSTILE_ROUNDS) {
      Complain(CompareLevels(m_oWarm, Measure()));
    }
  }

  void Complain(const std::vector<std::string>& sentences) {
    for (const std::string& sentence : sentences) {
      printf("%s\n", sentence.c_str());
    }
    if (!sentences.empty()) {
      fflush(stdout);
      WriteSeedLine();
      m_bIsWell = false;
    }
  }

  const std::string m_strModule;
  uint32_t m_nSeed;  // of the next round
  CCollectorSite m_oCollector;
  std::map<std::string, uint64_t> m_oTotals;
  uint32_t m_nRounds = 0;
  int64_t m_nLongestEnd = 0;
  ProcessLevels m_oWarm = {};
  bool m_bIsWell = true;
};

}  // namespace

bool RunHostileSoak(Minutes time, const std::string& module, uint32_t seed) {
  printf("seed %u\n", seed);
  fflush(stdout);
  TellSeedAtDeath();
  std::thread([] {}).join();  // the thread sanitizer starts one of its own beside the first
  const Clock::time_point begin = Clock::now();
  CHostileSoak soak(module, seed);
  const bool isWell = soak.Run(time);
  soak.PrintSummary(Clock::now() - begin);
  return isWell;
}
