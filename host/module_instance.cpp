#include "host/module_instance.h"

#include <utility>

#include "frame/extension_module.h"
#include "host/host_error.h"

namespace {

constexpr uint32_t MODULE_ID = 0x00340001;

}  // namespace

CModuleInstance::CModuleInstance(const CModuleLibrary& library) : m_oLibrary(library) {
  if (m_oLibrary.Create(&m_pModule, nullptr) == 0 || m_pModule == nullptr) {
    throw CHostError(EX_SOFTWARE,
                     "The module could not be created: look at its trace with --trace 3.");
  }
}

CModuleInstance::~CModuleInstance() {
  if (m_pModule != nullptr) {
    Stop();
    Delete();
  }
}

bool CModuleInstance::Start(CISwitch& agent) {
  m_bStarted = true;
  const bool isAvailable = m_pModule->Start(&agent, MODULE_ID) != 0;
  m_pModule->ModuleNotification(SCN_SWITCH_REQUEST_ENABLED, 0, 0);
  return isAvailable;
}

void CModuleInstance::Stop() {
  if (std::exchange(m_bStarted, false)) {
    m_pModule->Stop();
  }
}

bool CModuleInstance::Delete() {
  m_pModule = nullptr;
  return m_oLibrary.Delete() != 0;
}
