#include "platform/registry/registry_pointer.h"

#include "platform/registry/registry.h"

namespace {

bool ReadOnce(CRegistry& registry, std::string& text, const char* name) {
  return registry.Open(REGISTRY_POINTER_KEY, HKEY_LOCAL_MACHINE) == REGISTRY_OK &&
         registry.QueryValue(text, name) == REGISTRY_OK;
}

}  // namespace

bool ReadRegistryPointer(std::string& text, const char* name) {
  CRegistry registry;
  // The second attempt serves a reader that comes while the key is being stored anew.
  return ReadOnce(registry, text, name) || ReadOnce(registry, text, name);
}
