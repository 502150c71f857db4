#pragma once

#include <cstdint>

#include "frame/switch_interface.h"

// A switch of a host that does nothing; a test overrides what it needs.
class DefaultSwitch : public CISwitch {
 public:
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
  uintptr_t ForwardRequest(CIExtensionModule* /*module*/, SipJson* /*request*/) override {
    return 0;
  }
  uintptr_t ForwardFlag(CIExtensionModule* /*module*/, bool /*flag*/) override { return 0; }
  uintptr_t Forward(CIExtensionModule* /*module*/) override { return 0; }
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
  uintptr_t ReturnRequest(CIExtensionModule* /*module*/, SipJson* /*request*/,
                          uint32_t /*messageIdHigh*/, uint32_t /*messageIdLow*/) override {
    return 0;
  }
  uint32_t GetAgentType() override { return 0; }
};
