#include "host/answer_queue.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "host/host_error.h"

CAnswerQueue::CAnswerQueue() : m_oEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
  if (!m_oEvent.IsOpen()) {
    throw CHostError(EX_OSERR, std::string("The system gives no event descriptor (") +
                                   strerror(errno) + "): raise the limit of open files.");
  }
}

void CAnswerQueue::Add(const SipJson& answer) {
  const std::lock_guard guard(m_oLock);
  m_oAnswers.push_back(std::make_unique<SipJson>(answer));
  eventfd_write(m_oEvent.Get(), 1);
}

std::unique_ptr<SipJson> CAnswerQueue::Take() {
  const std::lock_guard guard(m_oLock);
  if (m_oAnswers.empty()) {
    return nullptr;
  }
  eventfd_t count = 0;
  eventfd_read(m_oEvent.Get(), &count);
  std::unique_ptr<SipJson> answer = std::move(m_oAnswers.front());
  m_oAnswers.pop_front();
  return answer;
}
