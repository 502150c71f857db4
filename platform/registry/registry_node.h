#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry/registry_entry.h"
#include "platform/sync/critical_section.h"

// One key of the registry tree: values and subkeys, sorted by name (byte order) in one name space.
//
// A key that is taken out of the tree, with everything below it, is dead from then on, for whoever
// still refers to it: it is empty and stores nothing. The entry of a deleted key stays in its
// parent; it opens as a dead key until a new key or value is stored under its name.
//
// Freeing a subtree, however deep, needs neither stack nor memory.
//
// Thread safety: every operation may be called from any thread. Each locks this key only, so no two
// keys are ever locked at once.
class CRegistryNode {
 public:
  CRegistryNode() = default;
  ~CRegistryNode();
  CRegistryNode(const CRegistryNode&) = delete;
  CRegistryNode& operator=(const CRegistryNode&) = delete;

  // The subkey of that name, or null when there is none or the name is that of a value.
  std::shared_ptr<CRegistryNode> OpenKey(std::string_view name);

  // As OpenKey(), but makes the subkey when the name is free or that of a deleted key. Null when
  // the name is that of a value or this key is dead. Throws std::bad_alloc.
  std::shared_ptr<CRegistryNode> CreateKey(std::string_view name);

  // Makes an empty subkey unless there is one: when the name is free, that of a deleted key, or
  // that of a value, which is lost. True when it made one. Throws std::bad_alloc.
  bool AddKeyIfMissing(std::string_view name);

  // Calls `visit` with the entry of a value, under the lock. False when the name is free or that of
  // a subkey.
  template <typename Visit>
  bool VisitValue(std::string_view name, const Visit& visit) {
    const CCriticalSectionGuard guard(m_oLock);
    const CRegistryEntry* entry = Find(name);
    if (entry == nullptr || entry->IsKey()) {
      return false;
    }
    visit(*entry);
    return true;
  }

  // Copies a value. False, and `value` untouched, when the name is free or that of a subkey. Throws
  // std::bad_alloc.
  bool ReadValue(std::string_view name, RegistryValue& value);

  enum class Stored { ADDED, REPLACED, REFUSED };  // refused: the key is dead

  // Stores the entry; one of its name is moved to `replaced` and the caller's to discard. Throws
  // std::bad_alloc and then changes nothing.
  Stored Store(CRegistryEntry entry, std::vector<CRegistryEntry>& replaced);

  // Stores many entries at once, in any order; of entries of one name the last one stays. Takes
  // time in proportion to the number of entries. Otherwise as Store().
  void StoreAll(std::vector<CRegistryEntry> entries, std::vector<CRegistryEntry>& replaced);

  // Takes an entry out; false when there is none of that name.
  bool Remove(std::string_view name, std::vector<CRegistryEntry>& removed);

  // Takes the subkey out and leaves the entry of a deleted key. False when the name is not that of
  // a subkey; `key` is null when it was deleted before.
  bool DeleteKey(std::string_view name, std::shared_ptr<CRegistryNode>& key);

  // A number above 0 that every change of the entries raises. Takes no lock.
  uint64_t GetGeneration() const { return m_nGeneration; }

  // Calls `visit` with each entry, in order, under the lock.
  template <typename Visit>
  void ForEach(const Visit& visit) {
    const CCriticalSectionGuard guard(m_oLock);
    if (m_bDead) {
      return;
    }
    for (const CRegistryEntry& entry : m_oEntries) {
      visit(entry);
    }
  }

  // Calls `visit` with the entries from the name `next` on, in order, under the lock, until it
  // returns false. True when there are more; `next` is then the name to go on from. Throws
  // std::bad_alloc.
  template <typename Visit>
  bool ForEachFrom(std::string& next, const Visit& visit) {
    const CCriticalSectionGuard guard(m_oLock);
    if (m_bDead) {
      return false;
    }
    const auto end = m_oEntries.end();
    auto entry = Search(next).entry;
    while (entry != end && visit(*entry)) {
      ++entry;
    }
    if (entry == end || ++entry == end) {
      return false;
    }
    next = entry->GetName();
    return true;
  }

  // Frees everything below this key, without a trace, and leaves it alive.
  void Clear();

  // Kills this key and everything below it and traces each entry that had something to free. What
  // the sink throws ends here.
  void deleteNode();

 private:
  // Where an entry is, or where it would be.
  struct Position {
    std::vector<CRegistryEntry>::iterator entry;
    bool isTaken;
  };

  Position Search(std::string_view name);
  CRegistryEntry* Find(std::string_view name);
  CRegistryEntry* FindAgain(std::string_view name);
  bool Kill(CRegistryNode* outer);
  void FreeEntries(bool isTraced);

  CCriticalSection m_oLock;
  std::vector<CRegistryEntry> m_oEntries;
  size_t m_nFoundLast = 0;  // where OpenKey() found an entry; others may be there now
  std::atomic<uint64_t> m_nGeneration = 1;
  bool m_bDead = false;
  // Of a dead key, while it is being freed.
  CRegistryNode* m_pOuter = nullptr;
  size_t m_nFreed = 0;  // entries
};

// Kills the keys among entries that were taken out of the tree.
void KillRegistryKeys(const std::vector<CRegistryEntry>& entries);
