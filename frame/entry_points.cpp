// The only file of the frame that includes the module: it creates the instance.

#include "frame/entry_points.h"

#include <memory>
#include <mutex>
#include <new>

#include "archive_module/em_talvor.h"
#include "archive_module/names.h"
#include "archive_module/setup_actions.h"
#include "base/forced_unwind.h"
#include "trace/debug_client.h"

namespace {

// The one instance of the process; null while there is none. The host creates and deletes from one
// thread, so nothing is locked.
CIExtensionModule* g_pModule = nullptr;

// Configures tracing on the first call of an entry point. When memory is exhausted, the call goes
// on untraced and the next one tries again.
void LoadTraceConfigOnce() {
  try {
    static const bool isLoaded = g_oDebugClient.Load(MODULE_NAME);
    static_cast<void>(isLoaded);
  } catch (const std::bad_alloc&) {
  }
}

// Creates the instance. std::bad_alloc goes to the host; any other failure leaves the pointer null.
void CreateInstance() {
  try {
    g_oDebugClient.Load(MODULE_NAME);
    g_pModule = std::make_unique<EM_TALVOR>().release();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    g_pModule = nullptr;
  }
}

// Returns false when there was nothing to destroy.
bool DestroyInstance() {
  if (g_pModule == nullptr) {
    return false;
  }
  delete g_pModule;
  return true;
}

}  // namespace

uint32_t EM_Create(CIExtensionModule** module, void* /*unused*/) {
  LoadTraceConfigOnce();
  const CTraceShield shield;
  if (g_pModule != nullptr) {
    DEBUG_TRACE(1, "\nEM DLL (%-10s) : ## ERROR: Module already existing!\n", MODULE_NAME);
  } else {
    DEBUG_TRACE(2, "\nEM DLL (%-10s) : Create module", MODULE_NAME);
    CreateInstance();
    if (g_pModule == nullptr) {
      DEBUG_TRACE(1, "\nEM DLL (%-10s) : ## ERROR: Module could not be created!\n", MODULE_NAME);
    }
  }
  if (module != nullptr) {
    *module = g_pModule;
  }
  return g_pModule != nullptr ? 1 : 0;
}

uint32_t EM_Delete() {
  LoadTraceConfigOnce();
  try {
    if (g_pModule == nullptr) {
      DEBUG_TRACE(1, "\nEM DLL (%-10s) : Module already destroyed!", MODULE_NAME);
      return 0;
    }
    DEBUG_TRACE(1, "\nEM DLL (%-10s) : Destroy module...", MODULE_NAME);
    if (!DestroyInstance()) {
      DEBUG_TRACE(1, "\nEM DLL (%-10s) : ## ERROR! Module could not be destroyed!", MODULE_NAME);
      return 0;
    }
    g_pModule = nullptr;
    DEBUG_TRACE(1, "\nEM DLL (%-10s) : .. Module destroyed successfully!", MODULE_NAME);
    return 1;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    DEBUG_TRACE_NOTHROW(1, "\nEM DLL (%-10s) : ## ERROR! Exception while destroying module!",
                        MODULE_NAME);
    return 0;
  }
}

const char* EM_GetModuleName() { return MODULE_NAME; }

uint32_t EM_SetupAction(uint32_t action) {
  LoadTraceConfigOnce();
  return SetupAction(action);
}
