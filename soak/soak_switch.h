#pragma once

#include <atomic>
#include <cstdint>

#include "frame/switch_interface.h"
#include "soak/request_book.h"

// The switch of the soak: records final answers in the ledger, and plays HTI, which after a short
// while answers with one status or another, or with none.
//
// Thread safety: the module may call from any of its threads.
class CSoakSwitch final : public CSwitchBase {
 public:
  // The ledger must outlive the object.
  explicit CSoakSwitch(CRequestBook& book) : m_oBook(book) {}

  uintptr_t ForwardRequest(CIExtensionModule* module, SipJson* request) override;
  uintptr_t ReturnRequest(CIExtensionModule* module, SipJson* request, uint32_t messageIdHigh,
                          uint32_t messageIdLow) override;
  uint32_t GetAgentType() override { return AGENT_TYPE_AGENTLESS; }

 private:
  CRequestBook& m_oBook;
  std::atomic<uint32_t> m_nTransfers = 0;
};
