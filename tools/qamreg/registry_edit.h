#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "tools/qamreg/key_path.h"
#include "tools/qamreg/value_data.h"

struct NamedValue {
  std::string name;
  ValueData data;
};

// What is to be stored in one key.
struct KeyContent {
  std::string path;  // from the root key on, separated by "\"
  std::vector<NamedValue> values;
};

// Throws CFailure when there is a registry file that this user cannot read or that holds no entry:
// the registry would be read from an older file.
void CheckRegistryFile();

// Opens a key. Throws CFailure when it is not there.
void OpenExisting(CRegistry& registry, const CKeyPath& path);

// Throws CFailure: there is no such value in the key, or with `recursive` in nothing below it.
[[noreturn]] void ThrowNoValue(const std::string& name, const CKeyPath& path,
                               bool recursive = false);

// One change of the registry. It takes the lock and then loads the registry, which no other process
// can save until the change is saved: so it works on the newest state.
class CRegistryEdit {
 public:
  // How long each edit of the program waits for other processes; 30 seconds unless set.
  static void SetWaitLimit(std::chrono::seconds limit) { s_oWaitLimit = limit; }

  // Waits for other changes to end, and says so when that takes longer than a second. Throws
  // CFailure, also when the registry is damaged or has a line that is too long.
  CRegistryEdit();
  CRegistryEdit(const CRegistryEdit&) = delete;
  CRegistryEdit& operator=(const CRegistryEdit&) = delete;

  CRegistry& Get() { return m_oRegistry; }

  // Creates the keys and stores their values. Throws CFailure, and stores nothing, when a value
  // would get the name of an existing key or a key that of an existing value.
  void Store(const std::vector<KeyContent>& keys);

  // Throws CFailure when the registry cannot be written.
  void Save();

 private:
  void CheckNames(const std::vector<KeyContent>& keys);

  static std::chrono::seconds s_oWaitLimit;

  const std::unique_ptr<CRegistryLock> m_pLock;  // released last
  CRegistry m_oRegistry;
};
