#pragma once

#include <cstdint>

class CIExtensionModule;
class SipJson;

// What a module sees of the host's message switch. Operations are called by their position in the
// virtual table, given beside them; the placeholders keep the positions that modules do not use.
// The host owns the object; modules never delete it. The switch keeps no request after a call.
class CISwitch {
 public:
  virtual void Placeholder0() = 0;
  virtual void Placeholder1() = 0;
  virtual void Placeholder2() = 0;
  virtual void Placeholder3() = 0;
  virtual void Placeholder4() = 0;
  virtual void Placeholder5() = 0;
  virtual void Placeholder6() = 0;
  virtual void Placeholder7() = 0;
  virtual void Placeholder8() = 0;
  virtual void Placeholder9() = 0;

  // 10. Sends a module's request to another module and returns when it has been answered in place.
  virtual uintptr_t ForwardRequest(CIExtensionModule* module, SipJson* request) = 0;

  // 11, 12. The host defines their meaning.
  virtual uintptr_t ForwardFlag(CIExtensionModule* module, bool flag) = 0;
  virtual uintptr_t Forward(CIExtensionModule* module) = 0;

  virtual void Placeholder13() = 0;
  virtual void Placeholder14() = 0;
  virtual void Placeholder15() = 0;
  virtual void Placeholder16() = 0;
  virtual void Placeholder17() = 0;
  virtual void Placeholder18() = 0;
  virtual void Placeholder19() = 0;
  virtual void Placeholder20() = 0;
  virtual void Placeholder21() = 0;
  virtual void Placeholder22() = 0;
  virtual void Placeholder23() = 0;
  virtual void Placeholder24() = 0;
  virtual void Placeholder25() = 0;

  // 26. Takes back a finished request: the final answer to one that was answered "pending" before.
  // The halves are the high and the low 16 bits of its message id.
  virtual uintptr_t ReturnRequest(CIExtensionModule* module, SipJson* request,
                                  uint32_t messageIdHigh, uint32_t messageIdLow) = 0;

  // 27. The kind of host agent, one of the AGENT_TYPE_ values or any other.
  virtual uint32_t GetAgentType() = 0;

 protected:
  ~CISwitch() = default;
};

// A switch that answers 0 to everything: a host overrides what it needs.
class CSwitchBase : public CISwitch {
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

 protected:
  ~CSwitchBase() = default;
};

// The agentless service.
constexpr uint32_t AGENT_TYPE_AGENTLESS = 5;
