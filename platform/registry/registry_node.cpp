#include "platform/registry/registry_node.h"

#include <algorithm>
#include <utility>

#include "platform/registry/registry_name.h"
#include "trace/debug_client.h"

namespace {

bool ComesBefore(const CRegistryEntry& left, const CRegistryEntry& right) {
  return left.GetName() < right.GetName();
}

bool HaveOneName(const CRegistryEntry& left, const CRegistryEntry& right) {
  return left.GetName() == right.GetName();
}

// Sorted, with each name once, as the registry writes them.
bool IsInOrder(const std::vector<CRegistryEntry>& entries) {
  return std::adjacent_find(entries.begin(), entries.end(),
                            [](const CRegistryEntry& left, const CRegistryEntry& right) {
                              return !ComesBefore(left, right);
                            }) == entries.end();
}

size_t CountRepeatedNames(const std::vector<CRegistryEntry>& entries) {
  size_t count = 0;
  for (size_t index = 1; index < entries.size(); ++index) {
    count += HaveOneName(entries[index - 1], entries[index]) ? 1 : 0;
  }
  return count;
}

// Of neighbours with the same name only the last stays; the others go to `replaced`.
void KeepLastOfEachName(std::vector<CRegistryEntry>& entries,
                        std::vector<CRegistryEntry>& replaced) {
  const size_t repeated = CountRepeatedNames(entries);
  if (repeated == 0) {
    return;
  }
  replaced.reserve(replaced.size() + repeated);
  auto kept = entries.begin();
  for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
    if (entry + 1 != entries.end() && HaveOneName(*entry, *(entry + 1))) {
      replaced.push_back(std::move(*entry));
    } else if (kept++ != entry) {
      *(kept - 1) = std::move(*entry);
    }
  }
  entries.erase(kept, entries.end());
}

// Whether deleting the entry frees anything: integers and deleted keys have nothing.
bool HasPayload(const CRegistryEntry& entry) {
  return entry.IsKey() ? entry.GetKey() != nullptr : entry.GetType() != REG_DWORD;
}

}  // namespace

// Without a lock: nobody else refers to the key any more.
CRegistryNode::~CRegistryNode() {
  if (!std::exchange(m_bDead, true)) {
    FreeEntries(false);
  }
}

void CRegistryNode::Clear() {
  CRegistryNode taken;  // its end frees them
  const CCriticalSectionGuard guard(m_oLock);
  ++m_nGeneration;
  taken.m_oEntries.swap(m_oEntries);
}

std::shared_ptr<CRegistryNode> CRegistryNode::OpenKey(std::string_view name) {
  const CCriticalSectionGuard guard(m_oLock);
  const CRegistryEntry* entry = FindAgain(name);
  if (entry == nullptr || !entry->IsKey()) {
    return nullptr;
  }
  const std::shared_ptr<CRegistryNode>& key = entry->GetKey();
  if (key != nullptr) {
    return key;
  }
  auto deleted = std::make_shared<CRegistryNode>();
  deleted->m_bDead = true;
  return deleted;
}

std::shared_ptr<CRegistryNode> CRegistryNode::CreateKey(std::string_view name) {
  const CCriticalSectionGuard guard(m_oLock);
  if (m_bDead) {
    return nullptr;
  }
  const auto [position, isTaken] = Search(name);
  if (!isTaken) {
    auto key = std::make_shared<CRegistryNode>();
    ++m_nGeneration;
    m_oEntries.insert(position, CRegistryEntry::MakeKey(name, key));
    return key;
  }
  if (position->IsKey() && position->GetKey() == nullptr) {
    ++m_nGeneration;
    position->SetKey(std::make_shared<CRegistryNode>());
  }
  return position->GetKey();
}

bool CRegistryNode::AddKeyIfMissing(std::string_view name) {
  const CCriticalSectionGuard guard(m_oLock);
  const auto [position, isTaken] = Search(name);
  if (isTaken && position->GetKey() != nullptr) {
    return false;
  }
  ++m_nGeneration;
  CRegistryEntry key = CRegistryEntry::MakeKey(name, std::make_shared<CRegistryNode>());
  if (isTaken) {
    *position = std::move(key);
  } else {
    m_oEntries.insert(position, std::move(key));
  }
  return true;
}

bool CRegistryNode::ReadValue(std::string_view name, RegistryValue& value) {
  return VisitValue(name, [&](const CRegistryEntry& entry) {
    const std::string_view data = entry.GetData();
    const bool isString = entry.GetType() == REG_SZ || entry.GetType() == REG_EXPAND_SZ;
    value.bytes.assign(data.data(), data.size() + (isString ? 1 : 0));
    value.type = entry.GetType();
  });
}

CRegistryNode::Stored CRegistryNode::Store(CRegistryEntry entry,
                                           std::vector<CRegistryEntry>& replaced) {
  const CCriticalSectionGuard guard(m_oLock);
  if (m_bDead) {
    return Stored::REFUSED;
  }
  ++m_nGeneration;
  const auto [position, isTaken] = Search(entry.GetName());
  if (!isTaken) {
    m_oEntries.insert(position, std::move(entry));
    return Stored::ADDED;
  }
  replaced.reserve(replaced.size() + 1);
  replaced.push_back(std::exchange(*position, std::move(entry)));
  return Stored::REPLACED;
}

void CRegistryNode::StoreAll(std::vector<CRegistryEntry> entries,
                             std::vector<CRegistryEntry>& replaced) {
  const CCriticalSectionGuard guard(m_oLock);
  if (m_bDead) {
    return;
  }
  ++m_nGeneration;
  if (!IsInOrder(entries)) {
    std::stable_sort(entries.begin(), entries.end(), ComesBefore);
    KeepLastOfEachName(entries, replaced);
  }
  if (m_oEntries.empty()) {
    m_oEntries = std::move(entries);
    return;
  }
  // From here on nothing needs memory.
  replaced.reserve(replaced.size() + entries.size());
  m_oEntries.reserve(m_oEntries.size() + entries.size());
  const auto middle = m_oEntries.insert(m_oEntries.end(), std::make_move_iterator(entries.begin()),
                                        std::make_move_iterator(entries.end()));
  std::inplace_merge(m_oEntries.begin(), middle, m_oEntries.end(), ComesBefore);
  KeepLastOfEachName(m_oEntries, replaced);
}

bool CRegistryNode::Remove(std::string_view name, std::vector<CRegistryEntry>& removed) {
  const CCriticalSectionGuard guard(m_oLock);
  if (m_bDead) {
    return false;
  }
  const auto [position, isTaken] = Search(name);
  if (!isTaken) {
    return false;
  }
  ++m_nGeneration;
  removed.push_back(std::move(*position));
  m_oEntries.erase(position);
  return true;
}

bool CRegistryNode::DeleteKey(std::string_view name, std::shared_ptr<CRegistryNode>& key) {
  const CCriticalSectionGuard guard(m_oLock);
  CRegistryEntry* entry = Find(name);
  if (entry == nullptr || !entry->IsKey()) {
    return false;
  }
  ++m_nGeneration;
  key = entry->TakeKey();
  return true;
}

void CRegistryNode::deleteNode() {
  const CTraceShield shield;
  if (Kill(nullptr)) {
    FreeEntries(true);
  }
}

// Makes this key dead, so that the caller may free its entries and return to `outer`. False when it
// was dead already.
bool CRegistryNode::Kill(CRegistryNode* outer) {
  const CCriticalSectionGuard guard(m_oLock);
  if (m_bDead) {
    return false;
  }
  ++m_nGeneration;
  m_bDead = true;
  m_pOuter = outer;
  return true;
}

// Frees the entries of this key and of all keys below it, depth first. It neither recurses, because
// a tree may be deeper than the stack, nor keeps a list, because deleting must work when memory is
// exhausted. Instead each key on the path from this key down to the one being freed holds the two
// things that a stack frame would hold: how many of its entries are done (m_nFreed) and the key to
// return to (m_pOuter), which Kill() sets on the way down. When all entries of a key are done they
// are destroyed together; that drops the references to its subkeys, whose own entries are gone by
// then, so no destructor recurses either. A subkey that another thread has killed first is that
// thread's to free and is passed over. No lock is needed: Kill() succeeds for one thread only, and
// a dead key shows its entries to nobody else.
void CRegistryNode::FreeEntries(bool isTraced) {
  CRegistryNode* key = this;
  while (key != nullptr) {
    if (key->m_nFreed == key->m_oEntries.size()) {
      key->m_nFreed = 0;
      std::vector<CRegistryEntry>().swap(key->m_oEntries);
      key = std::exchange(key->m_pOuter, nullptr);
      continue;
    }
    const CRegistryEntry& entry = key->m_oEntries[key->m_nFreed];
    if (entry.IsKey() && entry.GetKey() != nullptr && entry.GetKey()->Kill(key)) {
      key = entry.GetKey().get();
      continue;
    }
    if (isTraced && HasPayload(entry)) {
      DEBUG_TRACE(2, "CRegistryNode::deleteNode \"%s\"\n", entry.GetName().data());
    }
    ++key->m_nFreed;
  }
}

// A binary search that compares eight bytes of the names at a time, from where they may differ on.
// Only when a candidate has the same eight bytes is the rest compared; then the search goes on
// after what the name is known to share with all entries that are left.
CRegistryNode::Position CRegistryNode::Search(std::string_view name) {
  const auto entries = m_oEntries.begin();
  size_t low = 0;
  size_t high = m_oEntries.size();
  CRegistryNameWindow window(name, 0);
  while (low != high) {
    const size_t middle = (low + high) / 2;
    const CRegistryEntry& candidate = m_oEntries[middle];
    const uint64_t word = window.Of(candidate);
    if (word < window.Get()) {
      low = middle + 1;
      continue;
    }
    if (word > window.Get()) {
      high = middle;
      continue;
    }
    const std::string_view found = candidate.GetName();
    const size_t shared =
        window.HoldsEndOfName() ? name.size() : FindNameDifference(found, name, window.GetEnd());
    const bool isWhole = shared == name.size();
    if (isWhole && shared == found.size()) {
      return {entries + static_cast<std::ptrdiff_t>(middle), true};
    }
    // What the first and the last entry share is shared by all between them.
    const size_t common = FindNameDifference(m_oEntries[low].GetName(),
                                             m_oEntries[high - 1].GetName(), window.GetStart());
    // A candidate that ends here has a NUL here, which comes before any byte of a name.
    if (!isWhole &&
        static_cast<uint8_t>(found.data()[shared]) < static_cast<uint8_t>(name[shared])) {
      low = middle + 1;
    } else {
      high = middle;
    }
    window = CRegistryNameWindow(name, std::min(shared, common));
  }
  return {entries + static_cast<std::ptrdiff_t>(low), false};
}

// Null for a dead key.
CRegistryEntry* CRegistryNode::Find(std::string_view name) {
  if (m_bDead) {
    return nullptr;
  }
  const auto [position, isTaken] = Search(name);
  return isTaken ? &*position : nullptr;
}

// As Find(), but looks first at the entry that was found last: paths begin with the same keys.
CRegistryEntry* CRegistryNode::FindAgain(std::string_view name) {
  if (!m_bDead && m_nFoundLast < m_oEntries.size() && m_oEntries[m_nFoundLast].GetName() == name) {
    return &m_oEntries[m_nFoundLast];
  }
  CRegistryEntry* const entry = Find(name);
  if (entry != nullptr) {
    m_nFoundLast = static_cast<size_t>(entry - m_oEntries.data());
  }
  return entry;
}

void KillRegistryKeys(const std::vector<CRegistryEntry>& entries) {
  for (const CRegistryEntry& entry : entries) {
    if (entry.GetKey() != nullptr) {
      entry.GetKey()->deleteNode();
    }
  }
}
