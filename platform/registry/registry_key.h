#pragma once

#include <array>
#include <cstddef>
#include <memory>

class CRegistryNode;

// The predefined key handles.
enum RootKey {
  HKEY_LOCAL_MACHINE,
  HKEY_CURRENT_USER,
  HKEY_USERS,
  HKEY_CLASSES_ROOT,
  HKEY_CURRENT_CONFIG,
};

// Their names, by handle.
constexpr std::array<const char*, 5> ROOT_KEY_NAMES = {"HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER",
                                                       "HKEY_USERS", "HKEY_CLASSES_ROOT",
                                                       "HKEY_CURRENT_CONFIG"};

// A key handle: null, a root key, or a key of the tree, which it keeps from being freed but not
// from being deleted. A root key is looked up when the handle is used, so that a handle outlives a
// reload.
class HKEY {
 public:
  HKEY(std::nullptr_t = nullptr) {}
  HKEY(RootKey root) : m_pRootName(ROOT_KEY_NAMES[root]) {}
  HKEY(std::shared_ptr<CRegistryNode> node) : m_pNode(std::move(node)) {}

  bool IsNull() const { return m_pRootName == nullptr && m_pNode == nullptr; }

  // The key at this moment; null for the null handle and for a root key that is none in the tree.
  std::shared_ptr<CRegistryNode> GetNode() const;

 private:
  const char* m_pRootName = nullptr;
  std::shared_ptr<CRegistryNode> m_pNode;
};
