#include "soak/soak_switch.h"

#include <chrono>
#include <thread>

#include "frame/sip_json.h"

uintptr_t CSoakSwitch::ForwardRequest(CIExtensionModule* /*module*/, SipJson* request) {
  const uint32_t number = m_nTransfers++;
  std::this_thread::sleep_for(std::chrono::milliseconds(number % 20));
  switch (number % 3) {
    case 0:
      request->SetCmdUInt("ST", 0);
      break;
    case 1:
      request->SetCmdUInt("ST", 5);
      break;
    default:
      break;
  }
  return 1;
}

uintptr_t CSoakSwitch::ReturnRequest(CIExtensionModule* /*module*/, SipJson* request,
                                     uint32_t messageIdHigh, uint32_t messageIdLow) {
  m_oBook.AnswerFinally(messageIdHigh << 16 | messageIdLow,
                        request->GetCmdUInt(request->m_nCmdIndex, "ST", NO_STATUS));
  return 1;
}
