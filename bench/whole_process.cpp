// whole_process REQUESTS: a host's life with the module, for counting instructions and memory:
// loads it, creates and starts the instance, asks so many times for the collector, stops, deletes,
// unloads. Prints the bytes that the process has from the allocator after the first and after the
// last request, and those of the module's pages that are its own. Run it in the sandbox: it writes
// a registry.

#include <dlfcn.h>
#include <malloc.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include "archive_module/names.h"
#include "bench/files.h"
#include "bench/request_texts.h"
#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"
#include "tests/support/installed_registry.h"

namespace {

constexpr char DIRECTORY[] = "/etc/qamrel";
constexpr char REGISTRY[] = "/etc/qamrel/registry";

template <typename Function>
Function FindEntry(void* library, const char* name) {
  return reinterpret_cast<Function>(dlsym(library, name));
}

size_t UsedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// The bytes of the library's mappings that this process has written to.
long PrivateBytes(const std::string& library) {
  constexpr std::string_view FIELD = "Private_Dirty:";
  constexpr long KILOBYTE = 1024;
  std::ifstream mappings("/proc/self/smaps");
  long total = 0;
  bool isLibrary = false;
  for (std::string line; std::getline(mappings, line);) {
    if (line.find('-') < line.find(' ')) {
      isLibrary = line.ends_with(library);
    } else if (isLibrary && line.starts_with(FIELD)) {
      total += std::strtol(line.c_str() + FIELD.size(), nullptr, 10) * KILOBYTE;
    }
  }
  return total;
}

}  // namespace

int main(int count, char** arguments) {
  const long requests = count == 2 ? std::strtol(arguments[1], nullptr, 10) : 0;
  if (requests < 1) {
    fprintf(stderr, "usage: whole_process REQUESTS\n");
    return 2;
  }
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
  module->ModuleRequest(request);
  const size_t first = UsedBytes();
  for (long done = 1; done < requests; ++done) {
    module->ModuleRequest(request);
  }
  printf("%zu %zu %ld\n", first, UsedBytes(), PrivateBytes(EM_TALVOR_LIBRARY));
  Require(request.GetCmdUInt(0, "DA", 0) == 1, "ModuleRequest");

  module->Stop();
  FindEntry<uint32_t (*)()>(library, "EM_Delete")();
  dlclose(library);
  return 0;
}
