#include "platform/event_name_table.h"

EventRecord* CEventNameTable::Find(const std::string& name) noexcept {
  const CCriticalSectionGuard guard(m_oLock);
  const auto entry = m_oRecords.find(name);
  return entry != m_oRecords.end() ? entry->second : nullptr;
}

void CEventNameTable::Insert(const std::string& name, EventRecord* record) {
  const CCriticalSectionGuard guard(m_oLock);
  m_oRecords.insert_or_assign(name, record);
}

void CEventNameTable::Remove(const std::string& name) noexcept {
  const CCriticalSectionGuard guard(m_oLock);
  m_oRecords.erase(name);
}

void CEventNameTable::Clear() noexcept {
  const CCriticalSectionGuard guard(m_oLock);
  m_oRecords.clear();
}
