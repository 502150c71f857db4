#pragma once

#include <cstdio>
#include <string>

// What every contender stores: `total` strings in `keys` keys, each key with the same number of
// them.
struct RegistryShape {
  int total;
  int keys;
};

constexpr RegistryShape ONE_KEY = {100'000, 1};
constexpr RegistryShape THOUSAND_KEYS = {100'000, 1000};
constexpr RegistryShape MILLION = {1'000'000, 1000};

inline std::string KeyName(int key) {
  char name[16];
  snprintf(name, sizeof name, "Key%04d", key);
  return name;
}

inline std::string ValueName(int value) {
  char name[16];
  snprintf(name, sizeof name, "Value%06d", value);
  return name;
}

inline std::string ValueText(int value) { return "/opt/agent/data/" + std::to_string(value); }

// Calls `beginKey` with each key's name, `addValue` with each of its values and `endKey`.
template <typename BeginKey, typename AddValue, typename EndKey>
void Describe(RegistryShape shape, const BeginKey& beginKey, const AddValue& addValue,
              const EndKey& endKey) {
  for (int key = 0; key < shape.keys; ++key) {
    beginKey(KeyName(key));
    for (int value = 0; value < shape.total / shape.keys; ++value) {
      addValue(ValueName(value), ValueText(value));
    }
    endKey();
  }
}
