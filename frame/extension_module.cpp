#include "frame/extension_module.h"

#include "base/forced_unwind.h"
#include "frame/request_trace.h"
#include "frame/status.h"
#include "trace/debug_client.h"

namespace {

constexpr uint32_t ALL_ONES = 0xFFFFFFFF;

}  // namespace

std::atomic<uint32_t> CExtensionModule::s_nCabinetNumber = 0;
std::atomic<bool> CExtensionModule::s_bCabinetNumberSet = false;

CExtensionModule::~CExtensionModule() noexcept(false) = default;

uint32_t CExtensionModule::GetModuleInfo(void* /*record*/) { return 0; }

uint32_t CExtensionModule::Placeholder3() { return 1; }

uint32_t CExtensionModule::Start(CISwitch* pSwitch, uint32_t moduleId) {
  const CTraceShield shield;
  m_pSwitch = pSwitch;
  m_wModuleIdLow = static_cast<uint16_t>(moduleId);
  m_wModuleIdHigh = static_cast<uint16_t>(moduleId >> 16);
  const char* source = EventLogSource();
  DEBUG_TRACE(4, "\n%-20s: Register event log source \"%s\" ...", GetModuleName(), source);
  GetAgentType();  // all that registering a source means on this platform
  DEBUG_TRACE(4, "\n%-20s: ... event log source \"%s\" registered", GetModuleName(),
              EventLogSource());
  return 1;
}

const char* CExtensionModule::EventLogSource() {
  return GetAgentType() == AGENT_TYPE_AGENTLESS ? "Corvista Agentless Service"
                                                : "Corvista Server Control";
}

uint32_t CExtensionModule::Stop() { return 1; }

void CExtensionModule::Placeholder6() {}

void CExtensionModule::Placeholder7() {}

uint32_t CExtensionModule::ModuleRequest(SipJson& request) {
  SetCmdStatus(request, STATUS_UNHANDLED);
  return 0;
}

uintptr_t CExtensionModule::Placeholder9() { return 0; }

uint32_t CExtensionModule::SetCabinetNumber(uint32_t number) {
  const CTraceShield shield;
  s_nCabinetNumber = number;
  s_bCabinetNumberSet = true;
  DEBUG_TRACE(2, "\n\n%-20s: ## Server cabinet number = %d ##\n", GetModuleName(),
              static_cast<int32_t>(number));
  return 1;
}

uintptr_t CExtensionModule::Placeholder11() { return 0; }

uintptr_t CExtensionModule::Placeholder12() { return 0; }

uintptr_t CExtensionModule::ModuleNotification(uint32_t code, uintptr_t parameter,
                                               uintptr_t extra) {
  const CTraceShield shield;
  // The stray "0Xx" is deliberate: whoever reads logs searches for it.
  DEBUG_TRACE(2, "\n\n%-20s: ## NOTIFY: Code = 0Xx%02X, param = 0x%08X", GetModuleName(), code,
              static_cast<uint32_t>(parameter));
  if (code == SCN_SWITCH_SHUTDOWN) {
    m_bSwitchShutdown = true;
  }
  TraceNotification(code);
  DEBUG_TRACE(4, "\n%-20s:   call OnModuleNotification()...", GetModuleName());
  const uintptr_t result = OnModuleNotification(code, parameter, extra);
  DEBUG_TRACE(4, "\n%-20s:   ... OnModuleNotification() completed", GetModuleName());
  return result;
}

void CExtensionModule::TraceNotification(uint32_t code) {
  switch (code) {
    case SCN_SWITCH_SHUTDOWN:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_SWITCH_SHUTDOWN *** \n", GetModuleName());
      DEBUG_TRACE(3, "\n%-20s: -> SWITCH shutdown notification, set SwitchShutdown flag",
                  GetModuleName());
      break;
    case SCN_SWITCH_REQUEST_ENABLED:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_SWITCH_REQUEST_ENABLED *** \n", GetModuleName());
      DEBUG_TRACE(3, "\n%-20s: -> SWITCH start completed (all layers started) - requests enabled",
                  GetModuleName());
      break;
    case SCN_SYSTEM_SHUTDOWN:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_SYSTEM_SHUTDOWN *** \n", GetModuleName());
      DEBUG_TRACE(2, "\n%-20s: -> System shutdown", GetModuleName());
      break;
    case SCN_POWERSTATE_SUSPEND:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_POWERSTATE_SUSPEND *** \n", GetModuleName());
      break;
    case SCN_POWERSTATE_STANDBY:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_POWERSTATE_STANDBY *** \n", GetModuleName());
      break;
    case SCN_POWERSTATE_RESUME:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_POWERSTATE_RESUME *** \n", GetModuleName());
      break;
    case SCN_POWERSTATE_AC_OFFLINE:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_POWERSTATE_AC_OFFLINE *** \n", GetModuleName());
      break;
    case SCN_POWERSTATE_AC_ONLINE:
      DEBUG_TRACE(1, "\n%-20s: *** SCN_POWERSTATE_AC_ONLINE *** \n", GetModuleName());
      break;
    default:
      break;
  }
}

const char* CExtensionModule::GetModuleName() { return "EM_XXX"; }

void CExtensionModule::Placeholder15() {}

void CExtensionModule::Placeholder16() {}

void CExtensionModule::Placeholder17() {}

void CExtensionModule::Placeholder18() {}

uintptr_t CExtensionModule::Placeholder19() { return 0; }

uintptr_t CExtensionModule::Placeholder20() { return 0; }

uintptr_t CExtensionModule::Placeholder21() { return 0; }

uintptr_t CExtensionModule::Placeholder22() { return 0; }

uintptr_t CExtensionModule::OnModuleNotification(uint32_t /*code*/, uintptr_t /*parameter*/,
                                                 uintptr_t /*extra*/) {
  return 0;
}

void CExtensionModule::SetCmdStatus(SipJson& request, uint32_t status) {
  request.SetCmdUInt("ST", status);
}

void CExtensionModule::ResetCabinet(SipJson& request, uint32_t status) {
  request.SetCmdUInt("CA", ALL_ONES);
  SetCmdStatus(request, status);
}

void CExtensionModule::ResetMessageId(SipJson& request, uint32_t status) {
  request.SetCmdUInt("MI", ALL_ONES);
  SetCmdStatus(request, status);
}

bool CExtensionModule::IsForServerCabinet(const SipJson& request) {
  const SipJson::Value* cabinet = request.FindCmdMember(request.m_nCmdIndex, "CA");
  return cabinet == nullptr || SipJson::ToUInt(*cabinet, 0) == s_nCabinetNumber;
}

void CExtensionModule::TraceRequest(const SipJson& request, uint32_t level) {
  TraceRecord(*this, " (REQ)", request, level);
}

void CExtensionModule::TraceReturn(const SipJson& request, uint32_t level) {
  TraceRecord(*this, " (RET)", request, level);
}

void CExtensionModule::TraceReply(const SipJson& request, uint32_t level) {
  TraceRecord(*this, " (RPL)", request, level);
}

uintptr_t CExtensionModule::AsyncRequest(SipJson& request, uint32_t /*wait*/) {
  if (m_pSwitch == nullptr) {
    SetCmdStatus(request, STATUS_FAILED);
    return 0;
  }
  return ForwardRequest(request);
}

uintptr_t CExtensionModule::ForwardRequest(SipJson& request) {
  CISwitch* pSwitch = m_pSwitch;
  return pSwitch != nullptr ? pSwitch->ForwardRequest(this, &request) : 0;
}

uintptr_t CExtensionModule::ForwardFlag(bool flag) {
  CISwitch* pSwitch = m_pSwitch;
  return pSwitch != nullptr ? pSwitch->ForwardFlag(this, flag) : 0;
}

uintptr_t CExtensionModule::Forward() {
  CISwitch* pSwitch = m_pSwitch;
  return pSwitch != nullptr ? pSwitch->Forward(this) : 0;
}

uintptr_t CExtensionModule::ReturnRequest(SipJson& request) {
  CISwitch* pSwitch = m_pSwitch;
  if (pSwitch == nullptr) {
    return 0;
  }
  const uint32_t messageId = request.GetCmdUInt(request.m_nCmdIndex, "MI", 0);
  return pSwitch->ReturnRequest(this, &request, messageId >> 16, messageId & 0xFFFF);
}

uint32_t CExtensionModule::GetAgentType() {
  CISwitch* pSwitch = m_pSwitch;
  try {
    return pSwitch != nullptr ? pSwitch->GetAgentType() : 0;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return 0;
  }
}
