#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

class CRegistryNode;

// Types of registry values, stored in the files too. REG_KEY is the registry's own mark for a
// subkey and deliberately outside the range of the others.
constexpr uint32_t REG_SZ = 1;         // string
constexpr uint32_t REG_EXPAND_SZ = 2;  // string whose environment references are expanded on read
constexpr uint32_t REG_BINARY = 3;     // bytes
constexpr uint32_t REG_DWORD = 4;      // signed 32-bit integer
constexpr uint32_t REG_KEY = 666;      // subkey

// One value or subkey of a registry key. The name may hold any byte but NUL.
//
// Not thread-safe: the lock of the key that holds the entry guards it.
class CRegistryEntry {
 public:
  // `type` is REG_SZ or REG_EXPAND_SZ; the string ends at its first NUL.
  static CRegistryEntry MakeString(std::string_view name, uint32_t type, std::string_view text);
  static CRegistryEntry MakeBinary(std::string_view name, std::string_view bytes);
  static CRegistryEntry MakeInteger(std::string_view name, int32_t value);
  // A null key makes the entry that stays for a deleted key.
  static CRegistryEntry MakeKey(std::string_view name, std::shared_ptr<CRegistryNode> key);

  // Both are followed by a NUL and valid until the entry changes.
  std::string_view GetName() const { return {m_pBytes.get(), m_nNameLength}; }
  std::string_view GetData() const { return {m_pBytes.get() + m_nNameLength + 1, m_nDataLength}; }

  uint32_t GetType() const { return m_nType; }
  bool IsKey() const { return m_nType == REG_KEY; }
  int32_t GetInteger() const { return m_nInteger; }

  // Null unless the entry is a subkey, and for a deleted one.
  const std::shared_ptr<CRegistryNode>& GetKey() const { return m_pKey; }
  void SetKey(std::shared_ptr<CRegistryNode> key) { m_pKey = std::move(key); }
  std::shared_ptr<CRegistryNode> TakeKey() { return std::move(m_pKey); }

 private:
  CRegistryEntry(std::string_view name, uint32_t type, std::string_view data);

  std::unique_ptr<char[]> m_pBytes;  // name, NUL, data, NUL: one allocation for each value
  uint32_t m_nNameLength;
  uint32_t m_nDataLength;
  uint32_t m_nType;
  int32_t m_nInteger = 0;
  std::shared_ptr<CRegistryNode> m_pKey;
};
