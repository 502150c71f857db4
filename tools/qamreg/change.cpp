// The commands that change the registry.

#include "platform/registry/registry.h"
#include "tools/qamreg/commands.h"
#include "tools/qamreg/failure.h"
#include "tools/qamreg/key_path.h"
#include "tools/qamreg/registry_edit.h"
#include "tools/qamreg/text_rules.h"

namespace {

void Store(const KeyContent& content) {
  CRegistryEdit edit;
  edit.Store({content});
  edit.Save();
}

}  // namespace

void AddKey(const std::string& key) {
  const CKeyPath path(key);
  CheckKeyPath(path);
  Store({path.Text(), {}});
}

void AddValue(const std::string& key, const std::string& valueName, const std::string& typeName,
              const std::string& data) {
  const CKeyPath path(key);
  const ValueData value = ParseValue(typeName, data);
  CheckKeyPath(path);
  CheckValue(valueName, value);
  Store({path.Text(), {{valueName, value}}});
}

void DeleteKey(const std::string& key) {
  const CKeyPath path(key);
  if (path.IsRoot()) {
    throw CFailure(EXIT_FAILED,
                   path.Text() + " is a root key and cannot be deleted: name a key below it.");
  }
  CRegistryEdit edit;
  OpenExisting(edit.Get(), path);
  edit.Get().Open(path.ParentText().c_str(), nullptr);
  edit.Get().DeleteKey(path.Name().c_str());
  edit.Save();
}

void DeleteValue(const std::string& key, const std::string& valueName) {
  const CKeyPath path(key);
  CRegistryEdit edit;
  OpenExisting(edit.Get(), path);
  if (!ReadValue(edit.Get(), valueName)) {
    ThrowNoValue(valueName, path);
  }
  edit.Get().DeleteValue(valueName.c_str());
  edit.Save();
}

void SetPointer(const std::string& name, const std::string& key) {
  AddValue(std::string("HKEY_LOCAL_MACHINE\\") + REGISTRY_POINTER_KEY, name, "REG_SZ",
           CKeyPath(key).Text());
}
