#include "platform/registry/registry_key.h"

#include "platform/registry/registry_tree.h"

std::shared_ptr<CRegistryNode> HKEY::GetNode() const {
  return m_pRootName != nullptr ? CRegistryTree::Get().GetTop()->OpenKey(m_pRootName) : m_pNode;
}
