// A module that is answered well, but can be neither deleted nor unloaded.

#include "frame/extension_module.h"
#include "frame/status.h"

namespace {

class StubbornModule final : public CExtensionModule {
 public:
  uint32_t ModuleRequest(SipJson& request) override {
    SetCmdStatus(request, STATUS_DONE);
    return 1;
  }
};

StubbornModule g_oModule;

}  // namespace

extern "C" {

uint32_t EM_Create(CIExtensionModule** module, void* /*unused*/) {
  *module = &g_oModule;
  return 1;
}

uint32_t EM_Delete() { return 0; }

const char* EM_GetModuleName() { return "EM_STUBBORN"; }

uint32_t EM_SetupAction(uint32_t /*action*/) { return 0; }
}
