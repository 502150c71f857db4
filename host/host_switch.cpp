#include "host/host_switch.h"

CHostSwitch::CHostSwitch(CFileTransfer& fileTransfer, CAnswerQueue& answers, uint32_t agentType)
    : m_oFileTransfer(fileTransfer), m_oAnswers(answers), m_nAgentType(agentType) {}

uintptr_t CHostSwitch::ForwardRequest(CIExtensionModule* /*module*/, SipJson* request) {
  m_oFileTransfer.Answer(*request);
  return 1;
}

uintptr_t CHostSwitch::ReturnRequest(CIExtensionModule* /*module*/, SipJson* request,
                                     uint32_t /*messageIdHigh*/, uint32_t /*messageIdLow*/) {
  m_oAnswers.Add(*request);
  return 1;
}
