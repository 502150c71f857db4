#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/registry/registry_node.h"
#include "platform/sync/critical_section.h"

// The one registry tree of the process: loaded from its files on first use, saved back when it has
// been changed. Exists before its first use and after the last static object of the process.
//
// Thread safety: every operation may be called from any thread. Loading and saving exclude each
// other.
class CRegistryTree {
 public:
  static CRegistryTree& Get();

  CRegistryTree(const CRegistryTree&) = delete;
  CRegistryTree& operator=(const CRegistryTree&) = delete;

  // The key whose subkeys are the root keys.
  std::shared_ptr<CRegistryNode> GetTop();

  // Loads the tree once, or again with `force`: from the current file, else from the backup, else
  // from the default. What a file holds replaces the entries of the same name below the top;
  // without any readable file the tree stays as it is. What goes wrong is traced.
  //
  // A current file that exists but could not be read is read again before the next save. What it
  // holds is then merged into the tree, except where the tree has been changed meanwhile.
  void SetupTree(bool force) {
    if (force || !MIsSetup) {
      Setup(force);
    }
  }

  // Makes an empty key for each root key that is missing, deleted or a value; that does not make
  // the tree dirty. True when nothing was missing.
  bool AddMissingRootKeys() { return m_oTop.GetGeneration() == m_nComplete || AddRootKeys(); }

  // Saves the tree when it is dirty. False when that fails, with the reason traced; the next call
  // tries again. When only the flush of the directory failed, the next call repeats just that
  // unless the tree has been changed: a second full save would push the older state out of the
  // backup. A tree whose loading was broken off, by exhausted memory, is never saved.
  bool SaveTree();

  // True when SaveTree() has nothing to do.
  bool IsSaved() const { return !MIsDirty && !m_bUnflushed; }

  // Makes the next save write the tree. Operations that change it hold a CRegistryChange instead.
  void MarkDirty() { MIsDirty = true; }

  // Frees the tree; it is loaded again on its next use. Changes that are not saved are lost.
  void Release();

  // Loads one file into a node. False, with the reason traced, when it cannot be read or has no
  // entries.
  static bool RestoreNode(const char* path, CRegistryNode& node);

 private:
  CRegistryTree() = default;
  ~CRegistryTree() = default;

  enum class Restored {
    DONE,
    NOTHING,    // no file, or one without entries
    UNREADABLE  // a file is there and cannot be read
  };

  static Restored RestoreFile(const char* path, CRegistryNode& node);
  void Setup(bool force);
  bool AddRootKeys();
  void LoadFiles();
  bool LoadCurrentFile();
  bool MergeUnreadFile();
  bool WriteTree();

  CCriticalSection m_oLock;  // held while loading and saving
  CRegistryNode m_oTop;
  std::atomic<uint64_t> m_nComplete = 0;  // a generation of the top that has every root key
  std::atomic<bool> MIsDirty = false;
  std::atomic<bool> MIsSetup = false;
  std::atomic<bool> m_bUnflushed = false;  // the files are saved, but for their directory
  bool m_bUnread = false;                  // the current file exists and could not be read
  std::string m_strLoaded;                 // the tree as loaded without that file, as text
};

// Lives while an operation changes the tree. Marks it dirty, even if the change then fails: before
// the change, and again after it, because a save in between may have missed it.
class CRegistryChange {
 public:
  CRegistryChange() { CRegistryTree::Get().MarkDirty(); }
  ~CRegistryChange() { CRegistryTree::Get().MarkDirty(); }
  CRegistryChange(const CRegistryChange&) = delete;
  CRegistryChange& operator=(const CRegistryChange&) = delete;
};

// Makes in `tree` the changes that lead from `before` to `after`, except where `tree` itself has
// changed since it equalled `before`. Keys are added, but never removed without a value or key that
// takes their place. Throws std::bad_alloc; the merge may then be repeated.
void MergeRegistryNodes(CRegistryNode& before, CRegistryNode& after, CRegistryNode& tree);
