#pragma once

#include <cstdint>

#include "frame/switch_interface.h"
#include "host/answer_queue.h"
#include "host/file_transfer.h"

// Plays the agent's message switch for one module: requests for other modules go to "HTI", final
// answers into a queue.
//
// Thread safety: the module may call from any of its threads.
class CHostSwitch final : public CISwitch {
 public:
  // Both must outlive the object.
  CHostSwitch(CFileTransfer& fileTransfer, CAnswerQueue& answers, uint32_t agentType);

  void Placeholder0() override {}
  void Placeholder1() override {}
  void Placeholder2() override {}
  void Placeholder3() override {}
  void Placeholder4() override {}
  void Placeholder5() override {}
  void Placeholder6() override {}
  void Placeholder7() override {}
  void Placeholder8() override {}
  void Placeholder9() override {}
  uintptr_t ForwardRequest(CIExtensionModule* module, SipJson* request) override;
  uintptr_t ForwardFlag(CIExtensionModule* module, bool flag) override;
  uintptr_t Forward(CIExtensionModule* module) override;
  void Placeholder13() override {}
  void Placeholder14() override {}
  void Placeholder15() override {}
  void Placeholder16() override {}
  void Placeholder17() override {}
  void Placeholder18() override {}
  void Placeholder19() override {}
  void Placeholder20() override {}
  void Placeholder21() override {}
  void Placeholder22() override {}
  void Placeholder23() override {}
  void Placeholder24() override {}
  void Placeholder25() override {}
  uintptr_t ReturnRequest(CIExtensionModule* module, SipJson* request, uint32_t messageIdHigh,
                          uint32_t messageIdLow) override;
  uint32_t GetAgentType() override { return m_nAgentType; }

 private:
  CFileTransfer& m_oFileTransfer;
  CAnswerQueue& m_oAnswers;
  const uint32_t m_nAgentType;
};
