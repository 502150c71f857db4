#include "archive_module/collector_watch.h"

#include <new>
#include <system_error>
#include <utility>

namespace {

// How often a running collector is looked for: a job may fork late.
constexpr std::chrono::milliseconds LOOK_INTERVAL(10);

}  // namespace

CCollectorWatch::CCollectorWatch(std::chrono::milliseconds grace, std::function<bool()> isRunning,
                                 std::function<void()> terminate)
    : m_oGrace(grace), m_oIsRunning(std::move(isRunning)), m_oTerminate(std::move(terminate)) {
  if (!StartThread()) {
    for (auto waited = LOOK_INTERVAL; waited < m_oGrace && m_oIsRunning();
         waited += LOOK_INTERVAL) {
      std::this_thread::sleep_for(LOOK_INTERVAL);
    }
    if (m_oIsRunning()) {
      m_oTerminate();
      m_bTerminated = true;
    }
  }
}

CCollectorWatch::~CCollectorWatch() { End(); }

bool CCollectorWatch::End() {
  {
    const std::lock_guard guard(m_oLock);
    m_bEnded = true;
  }
  m_oChanged.notify_all();
  if (m_oThread.joinable()) {
    m_oThread.join();
  }
  return m_bTerminated;
}

// False when the system gives no thread, or no memory for it.
bool CCollectorWatch::StartThread() {
  try {
    m_oThread = std::thread([this] { Run(); });
    return true;
  } catch (const std::system_error&) {
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// True when the watch was ended within the time.
bool CCollectorWatch::WaitForEnd(std::chrono::milliseconds time) {
  std::unique_lock lock(m_oLock);
  return m_oChanged.wait_for(lock, time, [this] { return m_bEnded; });
}

void CCollectorWatch::Run() {
  auto time = m_oGrace;
  while (!WaitForEnd(time)) {
    if (m_oIsRunning()) {
      m_oTerminate();
      m_bTerminated = true;
      return;
    }
    time = LOOK_INTERVAL;
  }
}
