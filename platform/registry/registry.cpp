#include "platform/registry/registry.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/shown_address.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_path.h"
#include "platform/registry/registry_tree.h"
#include "trace/debug_client.h"

namespace {

// For trace lines.
const char* OrNull(const char* text) { return text != nullptr ? text : "<null>"; }

int32_t OrNull(const std::shared_ptr<CRegistryNode>& node) {
  return static_cast<int32_t>(ShownAddress(node.get()));
}

bool ReadOnce(CRegistry& registry, std::string& text, const char* name) {
  return registry.Open(REGISTRY_POINTER_KEY, HKEY_LOCAL_MACHINE) == REGISTRY_OK &&
         registry.QueryValue(text, name) == REGISTRY_OK;
}

}  // namespace

std::shared_ptr<CRegistryNode> HKEY::GetNode() const {
  return m_strRootName.empty() ? m_pNode : CRegistryTree::Get().GetTop()->OpenKey(m_strRootName);
}

CRegistry::CRegistry() { InitClass(); }

CRegistry::CRegistry(const HKEY& key) {
  InitClass();
  m_pNode = key.GetNode();
}

CRegistry::CRegistry(const char* path, const HKEY& root, int32_t access) {
  InitClass();
  Open(path, root, access);
}

CRegistry::CRegistry(const CRegistry& other) {
  InitClass();
  m_pNode = other.m_pNode;
  m_strPath = other.m_strPath;
}

CRegistry& CRegistry::operator=(const CRegistry& other) {
  if (this != &other) {
    InitClass();
    m_pNode = other.m_pNode;
    m_strPath = other.m_strPath;
  }
  return *this;
}

CRegistry::~CRegistry() {
  if (CRegistryTree::Get().IsSaved()) {
    return;
  }
  const CTraceShield shield;
  try {
    CRegistryTree::Get().SaveTree();
  } catch (const std::bad_alloc&) {
    // The tree stays dirty: the end of the next object tries again.
  }
}

void CRegistry::InitClass() {
  DEBUG_TRACE(2, "\nCRegistry::InitClass");
  m_nStatus = REGISTRY_OK;
  m_nValueLength = 0;
  m_nValueType = 0;
  m_bExpand = true;
  CRegistryTree& tree = CRegistryTree::Get();
  tree.SetupTree(false);
  bool isComplete = false;
  try {
    isComplete = tree.AddMissingRootKeys();
  } catch (const std::bad_alloc&) {
    // What is below a root key that is still missing cannot be opened.
  }
  if (isComplete) {
    DEBUG_TRACE(1, "CRegistry::InitClass() : re-initialize the registry-tree\n");
  }
}

int32_t CRegistry::Open(const char* path, const HKEY& root, int32_t /*access*/) {
  return FinishOpening([&] {
    auto node = root.GetNode();
    DEBUG_TRACE(2, "\nCRegistry::Open \"%s\", hKey = %d\n", OrNull(path), OrNull(node));
    if (path == nullptr) {
      return CloseAndFail();
    }
    return OpenNode(path, root.IsNull() ? CRegistryTree::Get().GetTop() : std::move(node));
  });
}

// Walks down from `node` and makes the key at the end the current one.
int32_t CRegistry::OpenNode(std::string_view path, std::shared_ptr<CRegistryNode> node) {
  CRegistryPath components(path);
  for (std::string_view name = components.Next(); node != nullptr && !name.empty();
       name = components.Next()) {
    node = node->OpenKey(name);
  }
  if (node == nullptr) {
    return CloseAndFail();
  }
  SetCurrent(path, std::move(node));
  return REGISTRY_OK;
}

void CRegistry::SetCurrent(std::string_view path, std::shared_ptr<CRegistryNode> node) {
  m_strPath = path;
  // Looked for in the original: what has just been written is slow to read back.
  if (path.find('\\') != std::string_view::npos) {
    std::replace(m_strPath.begin(), m_strPath.end(), '\\', '/');
  }
  m_pNode = std::move(node);
}

int32_t CRegistry::CloseAndFail() {
  Close();
  DEBUG_TRACE(1, "\nCRegistry::Open ##ERROR while opening !!!\n");
  return REGISTRY_FAILED;
}

void CRegistry::Close() {
  m_pNode.reset();
  m_strPath.clear();
}

int64_t CRegistry::CreateKey(const HKEY& parent, const char* path) {
  return Finish(int64_t{REGISTRY_FAILED}, [&]() -> int64_t {
    DEBUG_TRACE(2, "CRegistry::CreateKey \"%s\"\n", OrNull(path));
    const auto node = NodeOf(parent);
    if (path == nullptr || node == nullptr) {
      return REGISTRY_FAILED;
    }
    return *path != '\0' ? CreateNode(path, node) : REGISTRY_OK;
  });
}

// Walks down from `node`, makes what is missing, and makes the key at the end the current one.
int32_t CRegistry::CreateNode(std::string_view path, std::shared_ptr<CRegistryNode> node) {
  const CRegistryChange change;
  CRegistryPath components(path);
  for (std::string_view name = components.Next(); node != nullptr && !name.empty();
       name = components.Next()) {
    node = node->CreateKey(name);
  }
  if (node == nullptr) {
    return REGISTRY_FAILED;
  }
  SetCurrent(path, std::move(node));
  return REGISTRY_OK;
}

int32_t CRegistry::OpenPointer(const char* valueName, const HKEY& root, int32_t access) {
  return OpenPointer(REGISTRY_POINTER_KEY, valueName, root, access);
}

int32_t CRegistry::OpenPointer(const char* keyPath, const char* valueName, const HKEY& root,
                               int32_t access) {
  DEBUG_TRACE(2, "CRegistry::OpenPointer \"%s\"\n", OrNull(keyPath));
  if (Open(keyPath, root, access) != REGISTRY_OK) {
    return REGISTRY_FAILED;
  }
  return FinishOpening([&] {
    std::string pointer;
    if (QueryValue(pointer, valueName) != REGISTRY_OK ||
        FindRegistrySeparator(pointer) == std::string::npos) {
      return REGISTRY_FAILED;
    }
    return FollowPointer(pointer);
  });
}

// Opens the key that the pointer, which holds a separator, names from the top.
int32_t CRegistry::FollowPointer(std::string_view pointer) {
  const size_t separator = FindRegistrySeparator(pointer);
  std::string path = ToUpperRegistryName(pointer.substr(0, separator));
  path += '/';
  path += pointer.substr(separator + 1);
  return Open(path.c_str(), nullptr);
}

int32_t CRegistry::DeleteKey(const char* name) {
  return Finish(REGISTRY_INVALID, [&] {
    DEBUG_TRACE(2, "CRegistry::DeleteKey \"%s\"\n", OrNull(name));
    std::shared_ptr<CRegistryNode> key;
    if (name == nullptr || m_pNode == nullptr || !m_pNode->DeleteKey(name, key)) {
      return REGISTRY_INVALID;
    }
    CRegistryTree::Get().MarkDirty();
    if (key != nullptr) {
      key->deleteNode();
    }
    return REGISTRY_OK;
  });
}

// Stores the names of the entries that are wanted.
template <typename Wanted>
int32_t CRegistry::EnumNames(std::vector<std::string>& names, const Wanted& isWanted) {
  return Finish(REGISTRY_INVALID, [&] {
    if (m_pNode == nullptr) {
      return REGISTRY_INVALID;
    }
    names.clear();
    m_pNode->ForEach([&](const CRegistryEntry& entry) {
      if (isWanted(entry)) {
        names.emplace_back(entry.GetName());
      }
    });
    return REGISTRY_OK;
  });
}

int32_t CRegistry::EnumKeys(std::vector<std::string>& names) {
  return EnumNames(names, [](const CRegistryEntry& entry) { return entry.GetKey() != nullptr; });
}

int32_t CRegistry::EnumValues(std::vector<std::string>& names) {
  return EnumNames(names, [](const CRegistryEntry& entry) { return !entry.IsKey(); });
}

int32_t CRegistry::Flush() {
  return Finish(REGISTRY_FAILED,
                [] { return CRegistryTree::Get().SaveTree() ? REGISTRY_OK : REGISTRY_FAILED; });
}

std::shared_ptr<CRegistryNode> CRegistry::NodeOf(const HKEY& key) const {
  return key.IsNull() ? m_pNode : key.GetNode();
}

bool ReadRegistryPointer(std::string& text, const char* name) {
  CRegistry registry;
  // The second attempt is for a reader that arrives while the key is being replaced.
  return ReadOnce(registry, text, name) || ReadOnce(registry, text, name);
}
