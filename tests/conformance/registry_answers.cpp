#include "tests/conformance/registry_answers.h"

#include <array>
#include <cstdio>
#include <utility>
#include <vector>

#include "platform/registry/registry_tree.h"
#include "tests/support/registry_files.h"

namespace {

constexpr char KEY_PATH[] = "Key";

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string ListOf(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) {
    list += (list.empty() ? "" : ", ") + Quoted(name);
  }
  return list.empty() ? "none" : list;
}

}  // namespace

std::function<std::string()> AskRegistry(RegistrySteps steps) {
  return [steps = std::move(steps)] {
    ResetRegistry();
    CRegistry key;
    key.CreateKey(HKEY_CURRENT_USER, KEY_PATH);
    return steps(key);
  };
}

std::function<std::string()> AskAfterRestart(std::function<void(CRegistry& key)> make,
                                             RegistrySteps steps) {
  return [make = std::move(make), steps = std::move(steps)] {
    ResetRegistry();
    {
      CRegistry key;
      key.CreateKey(HKEY_CURRENT_USER, KEY_PATH);
      make(key);
    }
    CRegistryTree::Get().Release();
    CRegistry key(KEY_PATH, HKEY_CURRENT_USER);
    return steps(key);
  };
}

std::string ResultWord(int32_t result) {
  switch (result) {
    case REGISTRY_OK:
      return "done";
    case REGISTRY_NO_DATA:
      return "not found";
    case REGISTRY_TOO_SMALL:
      return "too small";
    default:
      return "refused";
  }
}

std::string OpenWord(const std::string& path, const HKEY& root) {
  return CRegistry().Open(path.c_str(), root) == REGISTRY_OK ? "found" : "not found";
}

std::string CreateWord(CRegistry& registry, const HKEY& parent, const char* path) {
  return registry.CreateKey(parent, path) == REGISTRY_OK ? "created" : "refused";
}

std::string Store(CRegistry& key, const char* name, const std::string& bytes, uint32_t type) {
  const auto length = static_cast<int32_t>(bytes.size());
  return key.SetValue(name, bytes.data(), length, type) == 1 ? "stored" : "refused";
}

std::string TextOf(CRegistry& key, const char* name) {
  std::string text;
  const int32_t result = key.QueryValue(text, name);
  return result == REGISTRY_OK ? Quoted(text) : ResultWord(result);
}

std::string SizeOf(CRegistry& key, const char* name) {
  if (key.GetValue(name) == nullptr) {
    return ResultWord(key.GetStatus());
  }
  return "type " + std::to_string(key.GetValueType()) + ", " +
         std::to_string(key.GetValueLength()) + " bytes";
}

std::string BytesOf(CRegistry& key, const char* name) {
  const auto* bytes = static_cast<const unsigned char*>(key.GetValue(name));
  if (bytes == nullptr) {
    return ResultWord(key.GetStatus());
  }
  std::string text;
  for (uint32_t index = 0; index < key.GetValueLength(); ++index) {
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", bytes[index]);
    text += (text.empty() ? "" : " ") + std::string(digits.data());
  }
  return text;
}

std::string KeysOf(CRegistry& key) {
  std::vector<std::string> names;
  return key.EnumKeys(names) == REGISTRY_OK ? ListOf(names) : "refused";
}

std::string ValuesOf(CRegistry& key) {
  std::vector<std::string> names;
  return key.EnumValues(names) == REGISTRY_OK ? ListOf(names) : "refused";
}
