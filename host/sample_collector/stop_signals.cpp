#include "host/sample_collector/stop_signals.h"

#include <cstring>
#include <stdexcept>
#include <string>

CStopSignals::CStopSignals() {
  sigemptyset(&m_oSignals);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    sigaddset(&m_oSignals, signal);
  }
  sigprocmask(SIG_BLOCK, &m_oSignals, nullptr);
}

void CStopSignals::Pause(std::chrono::seconds duration) const {
  const timespec limit = {duration.count(), 0};
  const int signal = sigtimedwait(&m_oSignals, nullptr, &limit);
  if (signal > 0) {
    throw std::runtime_error(std::string("stopped by the signal \"") + strsignal(signal) +
                             "\"; no archive was created");
  }
}
