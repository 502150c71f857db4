#pragma once

#include <cstdint>

#include "frame/extension_module_interface.h"
#include "frame/switch_interface.h"
#include "host/module_library.h"

// The one instance of a module, driven as an agent drives it. The library must outlive the object,
// and the switch its Stop().
class CModuleInstance {
 public:
  // Creates the instance. Throws CHostError.
  explicit CModuleInstance(const CModuleLibrary& library);
  // Stops a started instance and deletes it, unless that has been done.
  ~CModuleInstance();
  CModuleInstance(const CModuleInstance&) = delete;
  CModuleInstance& operator=(const CModuleInstance&) = delete;

  // Starts the instance and tells it that requests are enabled. False when the module reports that
  // it is not started; it takes requests nevertheless.
  bool Start(CISwitch& agent);
  // Does nothing on an instance that is not started.
  void Stop();
  // Deletes the instance and forgets it in any case. False when the module reports a failure.
  bool Delete();

  CIExtensionModule* operator->() const { return m_pModule; }

 private:
  const CModuleLibrary& m_oLibrary;
  CIExtensionModule* m_pModule = nullptr;  // the library's; null after Delete()
  bool m_bStarted = false;
};
