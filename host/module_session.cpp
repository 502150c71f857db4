#include "host/module_session.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "frame/extension_module.h"
#include "frame/status.h"
#include "host/output.h"

using Clock = std::chrono::steady_clock;

CModuleSession::CModuleSession(const SessionSettings& settings, Listener listener)
    : m_oSettings(settings),
      m_oListener(std::move(listener)),
      m_oFileTransfer(settings.bmcDirectory, WriteMessage),
      m_oSwitch(m_oFileTransfer, m_oAnswers, settings.agentType),
      m_oLibrary(settings.module),
      m_oModule(m_oLibrary) {}

bool CModuleSession::Start() {
  const bool isAvailable = m_oModule.Start(m_oSwitch);
  if (m_oSettings.cabinet) {
    m_oModule->SetCabinetNumber(*m_oSettings.cabinet);
  }
  return isAvailable;
}

CModuleSession::Outcome CModuleSession::Ask(const HostRequest& request) {
  if (m_oSignals.Take() != 0) {
    return Outcome::INTERRUPTED;
  }
  HostAnswer answer = {request.name, request.record};
  const uint32_t isHandled = m_oModule->ModuleRequest(answer.record);
  answer.isFinal = isHandled == 0 || answer.GetStatus() != STATUS_PENDING;
  m_strPendingRequest = request.name;
  m_oListener.onAnswer(answer);
  return answer.isFinal ? Outcome::ANSWERED : WaitForAnswer();
}

void CModuleSession::Stop(bool isShutdown) {
  if (isShutdown) {
    m_oModule->ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
  }
  m_oModule.Stop();
  while (TakeAnswer()) {
  }
}

CModuleSession::Outcome CModuleSession::WaitForAnswer() {
  const Clock::time_point begin = Clock::now();
  for (std::chrono::seconds waited(0);; ++waited) {
    const Clock::time_point tick = begin + waited + std::chrono::seconds(1);
    while (Clock::now() < tick) {
      if (TakeAnswer()) {
        return Outcome::ANSWERED;
      }
      if (m_oSignals.Take() != 0) {
        return Outcome::INTERRUPTED;
      }
      PollUntil(tick);
    }
    if (m_oSettings.timeLimit && waited.count() + 1 >= *m_oSettings.timeLimit) {
      return Outcome::TIMED_OUT;
    }
    if (m_oListener.onWaiting) {
      m_oListener.onWaiting(waited + std::chrono::seconds(1));
    }
  }
}

bool CModuleSession::TakeAnswer() {
  const std::unique_ptr<SipJson> record = m_oAnswers.Take();
  if (record == nullptr) {
    return false;
  }
  m_oListener.onAnswer({m_strPendingRequest, *record});
  return true;
}

// Returns earlier when an answer or a signal comes.
void CModuleSession::PollUntil(Clock::time_point time) {
  std::array<pollfd, 2> descriptors = {
      {{m_oAnswers.GetDescriptor(), POLLIN, 0}, {m_oSignals.GetDescriptor(), POLLIN, 0}}};
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now());
  poll(descriptors.data(), descriptors.size(),
       static_cast<int>(std::max<int64_t>(left.count(), 0)));
}
