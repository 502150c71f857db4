// The smallest host of all asks whether the collector is there:
//   g++ -std=c++17 smallest_host.cpp -lem_talvor_record -o smallest_host
//   ./smallest_host /usr/lib/qamrel/em_talvor

#include <dlfcn.h>
#include <em_talvor/frame/entry_points.h>
#include <em_talvor/frame/extension_module_interface.h>
#include <em_talvor/frame/opcode.h>
#include <em_talvor/frame/sip_json.h>

#include <cstdio>

int main(int, char** arguments) {
  void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  CIExtensionModule* module = nullptr;
  reinterpret_cast<decltype(&EM_Create)>(dlsym(library, "EM_Create"))(&module, nullptr);
  module->Start(nullptr, 1);  // without a switch there is no transfer and no final answer
  SipJson request;
  request.m_oDocument.Parse(R"({"SIP": {"CMD": [{}]}})");
  request.SetCmdUInt("OC", OC_QUERY_TALVOR);
  module->ModuleRequest(request);
  std::printf("%s: the collector is %savailable\n", module->GetModuleName(),
              request.GetCmdUInt(0, "DA", 0) != 0 ? "" : "not ");
  module->Stop();
  reinterpret_cast<decltype(&EM_Delete)>(dlsym(library, "EM_Delete"))();
  dlclose(library);
}
