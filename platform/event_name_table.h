#pragma once

#include <map>
#include <string>

#include "platform/critical_section.h"

struct EventRecord;

// The named events of this process, sorted by name (byte order).
//
// Thread safety: every operation may be called from any thread. Whoever needs a search and a change
// to be one step holds the event reference lock around both; that lock is always taken before the
// table's.
class CEventNameTable {
 public:
  // Returns the record of that name, or null. The table does not own the records.
  EventRecord* Find(const std::string& name) noexcept;

  // Enters the record, over an earlier one of that name. Throws std::bad_alloc and then changes
  // nothing.
  void Insert(const std::string& name, EventRecord* record);

  // A name that is not in the table is no error.
  void Remove(const std::string& name) noexcept;

  void Clear() noexcept;

 private:
  CCriticalSection m_oLock;
  std::map<std::string, EventRecord*> m_oRecords;
};
