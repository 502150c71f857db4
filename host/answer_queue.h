#pragma once

#include <deque>
#include <memory>
#include <mutex>

#include "base/descriptor.h"
#include "frame/sip_json.h"

// The final answers on their way from the module's thread to the one that waits for them.
//
// Thread safety: every operation may be called from any thread.
class CAnswerQueue {
 public:
  // Throws CHostError.
  CAnswerQueue();

  // Adds a copy of the answer.
  void Add(const SipJson& answer);
  // The oldest answer; null when the queue is empty.
  std::unique_ptr<SipJson> Take();

  // Readable while an answer is there; for poll().
  int GetDescriptor() const { return m_oEvent.Get(); }

 private:
  CDescriptor m_oEvent;  // counts the answers
  std::mutex m_oLock;
  std::deque<std::unique_ptr<SipJson>> m_oAnswers;
};
