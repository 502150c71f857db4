#include "host/child_watch.h"

#include <atomic>
#include <cstdint>

namespace {

// A ChildEnd in one word, so that a signal handler can store it; 0: none.
std::atomic<uint64_t> g_nChildEnd = 0;
static_assert(std::atomic<uint64_t>::is_always_lock_free);

constexpr unsigned PID_SHIFT = 32;
constexpr uint64_t KILLED = 1U << 16;
constexpr uint64_t CODE_MASK = 0xFFFF;

void StoreChildEnd(int /*signal*/, siginfo_t* info, void* /*context*/) {
  const bool isKilled = info->si_code == CLD_KILLED || info->si_code == CLD_DUMPED;
  if (isKilled || info->si_code == CLD_EXITED) {
    g_nChildEnd = static_cast<uint64_t>(info->si_pid) << PID_SHIFT | (isKilled ? KILLED : 0) |
                  (static_cast<uint64_t>(info->si_status) & CODE_MASK);
  }
}

}  // namespace

CChildWatch::CChildWatch() {
  g_nChildEnd = 0;
  struct sigaction action = {};
  action.sa_sigaction = StoreChildEnd;
  action.sa_flags = SA_SIGINFO | SA_RESTART | SA_NOCLDSTOP;
  sigaction(SIGCHLD, &action, &m_oOriginalAction);
}

CChildWatch::~CChildWatch() { sigaction(SIGCHLD, &m_oOriginalAction, nullptr); }

std::optional<ChildEnd> CChildWatch::Take() {
  const uint64_t end = g_nChildEnd.exchange(0);
  if (end == 0) {
    return std::nullopt;
  }
  return ChildEnd{static_cast<pid_t>(end >> PID_SHIFT), (end & KILLED) != 0,
                  static_cast<int>(end & CODE_MASK)};
}
