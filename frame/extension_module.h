#pragma once

#include <atomic>
#include <cstdint>

#include "frame/extension_module_interface.h"
#include "frame/notification.h"
#include "frame/sip_json.h"
#include "frame/switch_interface.h"

// What every module of the host shares: a default for each operation of the interface, what the
// switch hands over at the start, the server cabinet number, and helpers that write, trace and
// forward requests. A module derives from this class first and overrides what it needs.
//
// Thread safety: the host calls from any of its threads; nothing is locked. A request belongs to
// the thread that handles it.
class CExtensionModule : public CIExtensionModule {
 public:
  CExtensionModule() = default;
  ~CExtensionModule() noexcept(false) override;
  CExtensionModule(const CExtensionModule&) = delete;
  CExtensionModule& operator=(const CExtensionModule&) = delete;

  // The defaults of the interface. GetModuleInfo() writes nothing and returns 0; ModuleRequest()
  // answers the current command with status 1 and returns 0; ModuleNotification() records the
  // shutdown of the switch before it calls the hook. None of them throws.
  uint32_t GetModuleInfo(void* record) override;
  uint32_t Placeholder3() override;
  uint32_t Start(CISwitch* pSwitch, uint32_t moduleId) override;
  uint32_t Stop() override;
  void Placeholder6() override;
  void Placeholder7() override;
  uint32_t ModuleRequest(SipJson& request) override;
  uintptr_t Placeholder9() override;
  uint32_t SetCabinetNumber(uint32_t number) override;
  uintptr_t Placeholder11() override;
  uintptr_t Placeholder12() override;
  uintptr_t ModuleNotification(uint32_t code, uintptr_t parameter, uintptr_t extra) override;
  const char* GetModuleName() override;
  void Placeholder15() override;
  void Placeholder16() override;
  void Placeholder17() override;
  void Placeholder18() override;
  uintptr_t Placeholder19() override;
  uintptr_t Placeholder20() override;
  uintptr_t Placeholder21() override;
  uintptr_t Placeholder22() override;
  uintptr_t OnModuleNotification(uint32_t code, uintptr_t parameter, uintptr_t extra) override;

 protected:
  // Write the status of a request's current command; the last two first set its cabinet or message
  // id to all ones (deliberately not 0). See SipJson::SetCmdUInt() for what they leave alone.
  static void SetCmdStatus(SipJson& request, uint32_t status);
  static void ResetCabinet(SipJson& request, uint32_t status);
  static void ResetMessageId(SipJson& request, uint32_t status);

  // False when the current command names another cabinet than the server's. A request without a
  // cabinet counts as the server's.
  static bool IsForServerCabinet(const SipJson& request);

  // Trace the current command of a request: as received, as returned to the switch, or as a
  // separate reply. While tracing is off nothing is read or built.
  void TraceRequest(const SipJson& request, uint32_t level);
  void TraceReturn(const SipJson& request, uint32_t level);
  void TraceReply(const SipJson& request, uint32_t level);

  // Sends a request to another module, which answers it in place before this returns. Without a
  // switch the status of the request becomes 6 and the result is 0. `wait` is the host's and
  // deliberately not passed on.
  uintptr_t AsyncRequest(SipJson& request, uint32_t wait);

  // Call the switch; 0 without one.
  uintptr_t ForwardRequest(SipJson& request);
  uintptr_t ForwardFlag(bool flag);
  uintptr_t Forward();
  // Hands a finished request back to the switch, with its message id.
  uintptr_t ReturnRequest(SipJson& request);
  // Also 0, an unknown type, when the switch throws.
  uint32_t GetAgentType();

  // True once the switch has announced its shutdown; never false again.
  bool IsSwitchShutdown() const { return m_bSwitchShutdown; }

 private:
  const char* EventLogSource();
  void TraceNotification(uint32_t code);

  std::atomic<CISwitch*> m_pSwitch = nullptr;  // the host's; null before Start()
  std::atomic<uint16_t> m_wModuleIdLow = 0;
  std::atomic<uint16_t> m_wModuleIdHigh = 0;
  std::atomic<bool> m_bSwitchShutdown = false;

  // One server cabinet per process; 0 until the host sets it.
  static std::atomic<uint32_t> s_nCabinetNumber;
  static std::atomic<bool> s_bCabinetNumberSet;
};
