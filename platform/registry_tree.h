#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "platform/critical_section.h"
#include "platform/registry_node.h"

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
  void SetupTree(bool force);

  // Makes an empty key for each root key that is missing; that does not make the tree dirty. True
  // when none was missing.
  bool AddMissingRootKeys();

  // Saves the tree when it is dirty. False when that fails, with the reason traced, and it stays
  // dirty. A tree that could not be loaded is never saved.
  bool SaveTree();

  // Makes the next save write the tree. Operations that change it hold a CRegistryChange instead.
  void MarkDirty() { MIsDirty = true; }

  // Frees the tree; it is loaded again on its next use. Changes that are not saved are lost.
  void Release();

  // Loads one file into a node. False, with the reason traced, when it cannot be read or holds
  // nothing.
  static bool RestoreNode(const char* path, CRegistryNode& node);

 private:
  CRegistryTree() = default;
  ~CRegistryTree() = default;

  void LoadFiles();

  CCriticalSection m_oLock;  // the class lock: held while loading and saving
  CRegistryNode m_oTop;
  std::atomic<bool> MIsDirty = false;
  std::atomic<bool> MIsSetup = false;
};

// Lives while an operation changes the tree, and marks it dirty also when the change then fails:
// before the change, and again after it, because a save in the midst of it may have come too early.
class CRegistryChange {
 public:
  CRegistryChange() { CRegistryTree::Get().MarkDirty(); }
  ~CRegistryChange() { CRegistryTree::Get().MarkDirty(); }
  CRegistryChange(const CRegistryChange&) = delete;
  CRegistryChange& operator=(const CRegistryChange&) = delete;
};
