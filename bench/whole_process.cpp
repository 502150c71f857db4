// A host's life with the module, for counting instructions: loads it, creates and starts the
// instance, asks 1,000 times for the collector, stops, deletes, unloads. Run it in the
// sandbox: it writes a registry.

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "archive_module/names.h"
#include "bench/files.h"
#include "bench/request_texts.h"
#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"
#include "tests/support/installed_registry.h"

namespace {

constexpr int REQUESTS = 1000;
constexpr char DIRECTORY[] = "/etc/qamrel";
constexpr char REGISTRY[] = "/etc/qamrel/registry";

template <typename Function>
Function FindEntry(void* library, const char* name) {
  return reinterpret_cast<Function>(dlsym(library, name));
}

}  // namespace

int main() {
  Require(mkdir(DIRECTORY, 0755) == 0, DIRECTORY);
  WriteWhole(REGISTRY, InstalledRegistry(SetupValues(DIRECTORY, DIRECTORY)), false);
  const std::string collector = std::string(DIRECTORY) + "/" + COLLECTOR_NAME;
  WriteWhole(collector.c_str(), "#!/bin/sh\n", false);

  void* library = dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  CIExtensionModule* module = nullptr;
  Require(library != nullptr, EM_TALVOR_LIBRARY);
  FindEntry<uint32_t (*)(CIExtensionModule**, void*)>(library, "EM_Create")(&module, nullptr);
  Require(module != nullptr && module->Start(nullptr, 0x00120034) == 1, "Start");

  SipJson request;
  request.m_oDocument.Parse(REQUEST_TEXT);
  for (int count = 0; count < REQUESTS; ++count) {
    module->ModuleRequest(request);
  }
  Require(request.GetCmdUInt(0, "DA", 0) == 1, "ModuleRequest");

  module->Stop();
  FindEntry<uint32_t (*)()>(library, "EM_Delete")();
  dlclose(library);
  return 0;
}
