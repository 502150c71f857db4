#include "platform/registry/registry_entry.h"

#include <utility>

CRegistryEntry::CRegistryEntry(std::string_view name, uint32_t type, std::string_view data)
    : m_pBytes(new char[name.size() + data.size() + 2]),
      m_nNameLength(static_cast<uint32_t>(name.size())),
      m_nDataLength(static_cast<uint32_t>(data.size())),
      m_nType(type) {
  char* end = m_pBytes.get();
  end += name.copy(end, name.size());
  *end++ = '\0';
  end += data.copy(end, data.size());
  *end = '\0';
}

CRegistryEntry CRegistryEntry::MakeString(std::string_view name, uint32_t type,
                                          std::string_view text) {
  return {name, type, text.substr(0, text.find('\0'))};
}

CRegistryEntry CRegistryEntry::MakeBinary(std::string_view name, std::string_view bytes) {
  return {name, REG_BINARY, bytes};
}

CRegistryEntry CRegistryEntry::MakeInteger(std::string_view name, int32_t value) {
  CRegistryEntry entry(name, REG_DWORD, {});
  entry.m_nInteger = value;
  return entry;
}

CRegistryEntry CRegistryEntry::MakeKey(std::string_view name, std::shared_ptr<CRegistryNode> key) {
  CRegistryEntry entry(name, REG_KEY, {});
  entry.m_pKey = std::move(key);
  return entry;
}
