// Runs the module for minutes as a host does for months, and checks what is left of it.
//
//   soak MINUTES MODULE
//   soak --hostile MINUTES MODULE [SEED]
//
// The second form runs it in the hands of hosts that do whatever the interface does not forbid,
// drawn from a seed, which is a random one by default.
//
// Needs a machine of its own, see host/sandbox: it writes the registry.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "soak/hostile_soak.h"
#include "soak/process_levels.h"
#include "soak/soak_round.h"

namespace {

using Clock = std::chrono::steady_clock;
using Minutes = std::chrono::duration<double, std::ratio<60>>;

// After these rounds the process has what it allocates once and keeps, such as its threads' memory.
constexpr uint32_t WARM_UP_ROUNDS = 5;

constexpr Minutes REPORT_INTERVAL(1);

class CSoak {
 public:
  explicit CSoak(const std::string& module) : m_strModule(module) {}

  // True when all was well.
  bool Run(Minutes time) {
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
    Clock::time_point nextReport = Clock::now();
    while (m_bWell && (Clock::now() < end || m_nRounds <= WARM_UP_ROUNDS)) {
      RunRound();
      if (m_nRounds == WARM_UP_ROUNDS) {
        m_oBefore = Measure();
      }
      if (Clock::now() >= nextReport) {
        printf("round %u: %s\n", m_nRounds, Describe(Measure()).c_str());
        fflush(stdout);
        nextReport += std::chrono::duration_cast<Clock::duration>(REPORT_INTERVAL);
      }
    }
    Check();
    return m_bWell;
  }

  void PrintSummary(Minutes time) const {
    printf("%.1f minutes, %u rounds, the longest end of the module took %lld ms\n%s", time.count(),
           m_nRounds, static_cast<long long>(m_nLongestEnd), m_oBook.Summary().c_str());
    if (m_oBefore) {
      printf("  before: %s\n  after:  %s\n", Describe(*m_oBefore).c_str(),
             Describe(m_oAfter).c_str());
    }
    printf(m_bWell ? "All was well.\n" : "Not all was well, see above.\n");
  }

 private:
  void RunRound() {
    CSoakRound round(m_nRounds++, m_strModule, m_oSite, m_oBook);
    for (const std::string& complaint : round.Run()) {
      Complain("Round " + std::to_string(m_nRounds) + ": " + complaint);
    }
    m_nLongestEnd = std::max(m_nLongestEnd, round.GetEndTime());
  }

  ProcessLevels Measure() const {
    m_oSite.Clear();
    return MeasureProcess(m_oSite.GetDirectory());
  }

  void Check() {
    m_oAfter = Measure();
    if (m_oBefore) {
      for (const std::string& complaint : CompareLevels(*m_oBefore, m_oAfter)) {
        Complain(complaint);
      }
    }
    if (!m_oSite.IsRegistryUntouched()) {
      Complain("The registry has been changed.");
    }
  }

  void Complain(const std::string& sentence) {
    printf("%s\n", sentence.c_str());
    m_bWell = false;
  }

  const std::string m_strModule;
  CCollectorSite m_oSite;
  CRequestBook m_oBook;
  uint32_t m_nRounds = 0;
  int64_t m_nLongestEnd = 0;
  std::optional<ProcessLevels> m_oBefore;
  ProcessLevels m_oAfter = {};
  bool m_bWell = true;
};

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  if ((words.size() == 3 || words.size() == 4) && words[0] == "--hostile") {
    const uint32_t seed = words.size() == 4
                              ? static_cast<uint32_t>(std::strtoul(words[3].c_str(), nullptr, 10))
                              : std::random_device()();
    const bool isWell =
        RunHostileSoak(Minutes(std::strtod(words[1].c_str(), nullptr)), words[2], seed);
    return isWell ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  if (words.size() != 2) {
    fprintf(stderr, "usage: soak MINUTES MODULE | soak --hostile MINUTES MODULE [SEED]\n");
    return 2;
  }
  const Clock::time_point begin = Clock::now();
  CSoak soak(words[1]);
  const bool isWell = soak.Run(Minutes(std::strtod(words[0].c_str(), nullptr)));
  soak.PrintSummary(Clock::now() - begin);
  return isWell ? EXIT_SUCCESS : EXIT_FAILURE;
}
