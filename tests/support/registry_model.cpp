#include "tests/support/registry_model.h"

#include "platform/registry/registry.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_tree.h"

namespace {

std::string ModelOf(const CRegistryEntry& entry) {
  if (entry.IsKey()) {
    return ModelOfKey();
  }
  return entry.GetType() == REG_DWORD ? ModelOfValue(REG_DWORD, std::to_string(entry.GetInteger()))
                                      : ModelOfValue(entry.GetType(), entry.GetData());
}

void ReadKey(CRegistryNode& key, const std::string& path, RegistryModel& model) {
  key.ForEach([&](const CRegistryEntry& entry) {
    const std::string place = path + std::string(entry.GetName()) + '\n';
    model[place] = ModelOf(entry);
    if (entry.GetKey() != nullptr) {
      ReadKey(*entry.GetKey(), place, model);
    }
  });
}

}  // namespace

std::string ModelOfValue(uint32_t type, std::string_view bytes) {
  return std::to_string(type) + ':' + std::string(bytes);
}

std::string ModelOfKey() { return "key"; }

RegistryModel ReadTree() {
  RegistryModel model;
  ReadKey(*CRegistryTree::Get().GetTop(), "", model);
  return model;
}

RegistryModel LoadTree() {
  CRegistryTree::Get().Release();
  const CRegistry registry;
  return ReadTree();
}
