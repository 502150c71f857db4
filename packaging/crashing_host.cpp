// A host that gives the module a bad pointer, on which the module crashes: what a debugger says of
// it is tried by packaging/check.

#include <dlfcn.h>
#include <em_talvor/frame/entry_points.h>
#include <em_talvor/frame/extension_module_interface.h>

int main(int, char** arguments) {
  void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  CIExtensionModule* module = nullptr;
  reinterpret_cast<decltype(&EM_Create)>(dlsym(library, "EM_Create"))(&module, nullptr);
  module->GetModuleInfo(reinterpret_cast<void*>(8));
}
