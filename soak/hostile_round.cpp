#include "soak/hostile_round.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "frame/notification.h"
#include "soak/joined_threads.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// Of the sixteen threads, those that call only exports, through all lives of a round.
constexpr uint32_t EXPORT_CALLERS = 3;
constexpr uint32_t MODULE_CALLERS = 16 - EXPORT_CALLERS;

// The stream of the numbers that the round itself draws, beside those of its threads.
constexpr uint32_t ROUND_STREAM = 100;

constexpr uint32_t LINES_PER_THROW = 400;

// A queue holds 19 jobs, and each thread, also that of the module, may add one behind the end.
constexpr size_t MOST_DROPPED_IN_A_LIFE = 19 + MODULE_CALLERS + 1;

// The seven seconds of the module, and what a loaded machine may add.
constexpr int64_t LONGEST_HOSTILE_END = 7100 + 20000;
constexpr milliseconds LONGEST_WAIT(120000);

}  // namespace

struct CHostileRound::Life {
  Life(bool isTold, uint32_t lifeSeed) : seed(lifeSeed), book(isTold), hostSwitch(book, lifeSeed) {}

  const uint32_t seed;
  CHostileBook book;
  CHostileSwitch hostSwitch;
  CIExtensionModule* module = nullptr;
  std::atomic<uint64_t> calls = 0;
  bool mayDrop = true;
  CJoinedThreads callers;  // last: joined before the rest goes
};

CHostileRound::CHostileRound(uint32_t seed, const std::string& module,
                             const CCollectorSite& collector,
                             std::map<std::string, uint64_t>& totals)
    : m_nSeed(seed),
      m_oCollector(collector),
      m_oTotals(totals),
      m_oDraw(seed, ROUND_STREAM),
      m_oTraceFiles(!m_oDraw.OneIn(4)),
      m_oLibrary(module),
      m_oSite{m_oLibrary, m_oCollector, m_oTraceFiles} {}

std::vector<std::string> CHostileRound::Run() {
  SetSinkThrows(LINES_PER_THROW, m_nSeed);
  RunLives();
  SetSinkThrows(0, 0);
  if (!m_oLibrary.Unload()) {
    m_oComplaints.emplace_back("The library is still in the process after it was unloaded.");
  }
  std::error_code ignored;
  std::filesystem::remove_all("/var/log/Talvor", ignored);
  return m_oComplaints;
}

void CHostileRound::RunLives() {
  CHostileBook book(false);
  std::atomic<bool> ends = false;
  std::atomic<uint64_t> calls = 0;
  {
    CJoinedThreads callers;
    for (uint32_t thread = 0; thread < EXPORT_CALLERS; ++thread) {
      callers.Add([&, thread] {
        calls += CHostileCaller(m_oSite, book, m_nSeed, thread).CallExports(ends);
      });
    }
    const uint32_t lives = 1 + m_oDraw.Below(3);
    for (uint32_t number = 1; number <= lives && m_oComplaints.empty(); ++number) {
      RunLife(number);
    }
    ends = true;
  }
  m_oTotals["calls of exports beside a module's life"] += calls;
  TakeComplaints(book);
}

void CHostileRound::RunLife(uint32_t number) {
  Life life(m_oTraceFiles.IsFull(), m_nSeed + number);
  Create(life);
  for (uint32_t thread = 0; life.module != nullptr && thread < MODULE_CALLERS; ++thread) {
    life.callers.Add([this, &life, thread] {
      life.calls += CHostileCaller(m_oSite, life.book, life.seed, EXPORT_CALLERS + thread)
                        .CallModule(*life.module);
    });
  }
  if (life.module != nullptr) {
    const auto end = static_cast<End>(m_oDraw.Below(3));
    Start(life);
    EndLife(life, end);
    life.hostSwitch.NoteDeletion();
  }
  life.book.Close(life.mayDrop ? MOST_DROPPED_IN_A_LIFE : 0);
  life.book.AddTo(m_oTotals);
  ++m_oTotals["lives"];
  m_oTotals["calls of a module's threads"] += life.calls;
  TakeComplaints(life.book);
}

void CHostileRound::Create(Life& life) {
  Pause(20);
  CIExtensionModule* again = nullptr;
  if (m_oLibrary.Create(&life.module, nullptr) != 1 || life.module == nullptr) {
    life.book.Complain("EM_Create has failed.");
  } else if (m_oDraw.OneIn(2) &&
             (m_oLibrary.Create(&again, nullptr) != 1 || again != life.module)) {
    life.book.Complain("A second EM_Create did not hand out the same module.");
  }
}

void CHostileRound::Start(Life& life) {
  const uint32_t starts = m_oDraw.OneIn(3) ? 2 : 1;
  for (uint32_t start = 0; start < starts; ++start) {
    Pause(100);
    if (life.module->Start(&life.hostSwitch, m_oDraw.Below(UINT32_MAX)) != 1) {
      life.book.Complain("The module did not start.");
    }
  }
  Pause(300);
}

void CHostileRound::EndLife(Life& life, End end) {
  if (m_oDraw.OneIn(5)) {
    life.module->ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
    Pause(100);
  }
  const Clock::time_point begin = Clock::now();
  Clock::time_point joined = begin;
  Clock::time_point stopped = begin;
  switch (end) {
    case End::STOP_AMID_CALLS:
      life.hostSwitch.AllowStop();
      Pause(50);
      Stop(life);
      stopped = Clock::now();
      life.callers.Join();
      joined = Clock::now();
      break;
    case End::STOP_WHEN_SETTLED:
      life.callers.Join();
      WaitUntilSettled(life);
      joined = stopped = Clock::now();
      Stop(life);
      break;
    case End::DELETE_ONLY:
      life.callers.Join();
      joined = stopped = Clock::now();
      break;
  }
  Delete(life);
  const Clock::duration time =
      (end == End::STOP_AMID_CALLS ? stopped - begin : Clock::duration(0)) +
      (Clock::now() - joined);
  m_nEndTime = std::max(m_nEndTime, std::chrono::duration_cast<milliseconds>(time).count());
  if (m_nEndTime > LONGEST_HOSTILE_END) {
    life.book.Complain("The end of the module took " + std::to_string(m_nEndTime) + " ms.");
  }
}

// At times from two threads.
void CHostileRound::Stop(Life& life) {
  const auto stop = [&life] {
    if (life.module->Stop() != 1) {
      life.book.Complain("Stop() has failed.");
    }
  };
  CJoinedThreads second;
  if (m_oDraw.OneIn(2)) {
    second.Add(stop);
  }
  stop();
}

// Only when the sink is told everything it can be known.
void CHostileRound::WaitUntilSettled(Life& life) {
  if (!m_oTraceFiles.IsFull()) {
    return;
  }
  life.mayDrop = false;
  const Clock::time_point end = Clock::now() + LONGEST_WAIT;
  while (!life.book.IsSettled() && Clock::now() < end) {
    m_oCollector.KillHangingCollector();
    std::this_thread::sleep_for(milliseconds(5));
  }
}

// An exception of the sink takes the result away: it is 0, and the module may be gone or not.
void CHostileRound::Delete(Life& life) {
  bool mayBeGone = false;
  uint32_t result = 0;
  bool hasThrown = true;
  while (result == 0 && hasThrown) {
    TakeSinkNotes();
    result = m_oLibrary.Delete();
    hasThrown = TakeSinkNotes().hasThrown;
    mayBeGone = mayBeGone || hasThrown;
  }
  if (result != 1 && !mayBeGone) {
    life.book.Complain("EM_Delete has failed.");
  }
  if (m_oLibrary.Delete() != 0) {
    life.book.Complain("EM_Delete has deleted a module twice.");
  }
}

void CHostileRound::Pause(uint32_t mostMilliseconds) {
  std::this_thread::sleep_for(milliseconds(m_oDraw.Below(mostMilliseconds + 1)));
}

void CHostileRound::TakeComplaints(const CHostileBook& book) {
  for (const std::string& complaint : book.GetComplaints()) {
    m_oComplaints.push_back(complaint);
  }
}
