#include "platform/registry_tree.h"

#include <cxxabi.h>

#include <new>
#include <string>

#include "platform/registry_file.h"
#include "platform/registry_key.h"
#include "platform/registry_parser.h"
#include "platform/registry_paths.h"
#include "platform/registry_writer.h"
#include "trace/debug_client.h"
#include "trace/regular_file.h"

CRegistryTree& CRegistryTree::Get() {
  alignas(CRegistryTree) static unsigned char storage[sizeof(CRegistryTree)];
  static CRegistryTree& tree = *new (storage) CRegistryTree;
  return tree;
}

namespace {

// Runs after the last static destructor of the library or program.
[[gnu::destructor(102)]] void ReleaseRegistryTree() { CRegistryTree::Get().Release(); }

}  // namespace

void CRegistryTree::Release() {
  const CCriticalSectionGuard guard(m_oLock);
  m_oTop.Clear();
  MIsSetup = false;
  MIsDirty = false;
}

// Shares nothing: the top lives as long as the process.
std::shared_ptr<CRegistryNode> CRegistryTree::GetTop() {
  return {std::shared_ptr<CRegistryNode>(), &m_oTop};
}

void CRegistryTree::SetupTree(bool force) {
  if (!force && MIsSetup) {
    return;
  }
  const CTraceShield
      shield;  // a tree that the sink kept from loading would be saved over the files
  const CCriticalSectionGuard guard(m_oLock);
  if (!force && MIsSetup) {
    return;
  }
  DEBUG_TRACE(2, "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n", force,
              MIsSetup.load(), MIsDirty.load());
  try {
    LoadFiles();
    MIsSetup = true;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    DEBUG_TRACE(1, "CRegistry: SetupTree(): ## ERROR during Setup\n");
  }
}

void CRegistryTree::LoadFiles() {
  if (RestoreNode(REGISTRY_FILE, m_oTop)) {
    return;
  }
  DEBUG_TRACE(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying backup\n",
              REGISTRY_FILE);
  if (RestoreNode(REGISTRY_BACKUP_FILE, m_oTop)) {
    return;
  }
  DEBUG_TRACE(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying default\n",
              REGISTRY_BACKUP_FILE);
  if (RestoreNode(REGISTRY_DEFAULT_FILE, m_oTop)) {
    return;
  }
  DEBUG_TRACE(1, "CRegistry: ERROR: Could not restore tree from \"%s\", restoring failed\n",
              REGISTRY_DEFAULT_FILE);
}

bool CRegistryTree::RestoreNode(const char* path, CRegistryNode& node) {
  if (path == nullptr) {
    DEBUG_TRACE(1, "CRegistry: ERROR: Empty file path");
    return false;
  }
  std::string text;
  if (!ReadRegularFile(path, text)) {
    DEBUG_TRACE(1, "CRegistry: WARNING: Could not open \"%s\"\n", path);
    return false;
  }
  if (text.empty()) {
    DEBUG_TRACE(1, "CRegistry: WARNING: The length of \"%s\" is not sufficient\n", path);
    return false;
  }
  if (!ParseRegistryText(text, node)) {
    DEBUG_TRACE(
        1,
        "CRegistry: WARNING: Node restoring from \"%s\" failed - check the content of this file\n",
        path);
    return false;
  }
  return true;
}

bool CRegistryTree::AddMissingRootKeys() {
  bool isComplete = true;
  for (const char* name : ROOT_KEY_NAMES) {
    isComplete = !m_oTop.AddKeyIfMissing(name) && isComplete;
  }
  return isComplete;
}

bool CRegistryTree::SaveTree() {
  if (!MIsDirty) {
    return true;
  }
  const CCriticalSectionGuard guard(m_oLock);
  if (!MIsSetup) {
    return false;
  }
  if (!MIsDirty.exchange(false)) {
    return true;
  }
  // Cleared before the tree is read: a change that comes meanwhile marks it again.
  bool isSaved = false;
  try {
    isSaved = SaveRegistryFile(WriteRegistryText(m_oTop));
  } catch (...) {
    MIsDirty = true;
    throw;
  }
  if (!isSaved) {
    MIsDirty = true;
    return false;
  }
  DEBUG_TRACE(2, "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]",
              REGISTRY_TEMPORARY_FILE, REGISTRY_FILE);
  return true;
}
