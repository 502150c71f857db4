#pragma once

#include <atomic>
#include <cstdint>

#include "frame/switch_interface.h"
#include "soak/request_book.h"

// The switch of the soak: enters final answers in the book, and plays HTI, which answers with one
// status or another, or with none, after a short while.
//
// Thread safety: the module may call from any of its threads.
class CSoakSwitch final : public CISwitch {
 public:
  // The book must outlive the object.
  explicit CSoakSwitch(CRequestBook& book) : m_oBook(book) {}

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
  uint32_t GetAgentType() override { return AGENT_TYPE_AGENTLESS; }

 private:
  CRequestBook& m_oBook;
  std::atomic<uint32_t> m_nTransfers = 0;
};
