#pragma once

#include <cstdint>

#include "frame/switch_interface.h"
#include "host/answer_queue.h"
#include "host/file_transfer.h"

// Plays the agent's message switch for one module: requests for other modules go to "HTI", final
// answers into a queue.
//
// Thread safety: the module may call from any of its threads.
class CHostSwitch final : public CSwitchBase {
 public:
  // Both must outlive the object.
  CHostSwitch(CFileTransfer& fileTransfer, CAnswerQueue& answers, uint32_t agentType);

  uintptr_t ForwardRequest(CIExtensionModule* module, SipJson* request) override;
  uintptr_t ReturnRequest(CIExtensionModule* module, SipJson* request, uint32_t messageIdHigh,
                          uint32_t messageIdLow) override;
  uint32_t GetAgentType() override { return m_nAgentType; }

 private:
  CFileTransfer& m_oFileTransfer;
  CAnswerQueue& m_oAnswers;
  const uint32_t m_nAgentType;
};
