// The operations of CRegistry on values.

#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_tree.h"
#include "trace/debug_client.h"

namespace {

// For trace lines.
const char* OrNullName(const char* text) { return text != nullptr ? text : "<null>"; }

bool IsString(uint32_t type) { return type == REG_SZ || type == REG_EXPAND_SZ; }

// Whether a value of that type can be made of `length` bytes of `data`.
bool IsValidValue(const void* data, int32_t length, uint32_t type) {
  if (length < 0 || (data == nullptr && length > 0)) {
    return false;
  }
  return IsString(type) || type == REG_BINARY || (type == REG_DWORD && length == sizeof(int32_t));
}

CRegistryEntry MakeEntry(const char* name, std::string_view bytes, uint32_t type) {
  if (type == REG_DWORD) {
    int32_t value = 0;
    std::memcpy(&value, bytes.data(), sizeof(value));
    return CRegistryEntry::MakeInteger(name, value);
  }
  return type == REG_BINARY ? CRegistryEntry::MakeBinary(name, bytes)
                            : CRegistryEntry::MakeString(name, type, bytes);
}

// Stores the entry in the key. False when the key has been deleted.
bool Store(CRegistryNode& node, CRegistryEntry entry) {
  std::vector<CRegistryEntry> replaced;
  const CRegistryNode::Stored stored = node.Store(std::move(entry), replaced);
  if (stored == CRegistryNode::Stored::REPLACED) {
    KillRegistryKeys(replaced);
    DEBUG_TRACE(2, "CRegistry::SetValue oEntry = %p\n",
                static_cast<const void*>(replaced.front().GetName().data()));
  }
  return stored != CRegistryNode::Stored::REFUSED;
}

// Copies the string, with a terminator when it fits.
int32_t CopyString(std::string_view text, char* buffer, uint32_t& count) {
  const auto length = static_cast<uint32_t>(text.size());
  if (buffer == nullptr) {
    count = length + 1;
    return REGISTRY_OK;
  }
  if (length >= count) {
    std::memcpy(buffer, text.data(), count);
    return REGISTRY_TOO_SMALL;
  }
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  count = length;  // deliberately not the size: callers use it as the length of the string
  return REGISTRY_OK;
}

}  // namespace

std::string ExpandEnvironment(std::string_view text) {
  std::string expanded;
  for (;;) {
    const size_t opening = text.find('%');
    const size_t closing =
        opening == std::string_view::npos ? opening : text.find('%', opening + 1);
    if (closing == std::string_view::npos) {
      return expanded.append(text);
    }
    expanded.append(text.substr(0, opening));
    const std::string name(text.substr(opening + 1, closing - opening - 1));
    const char* value = name.empty() ? "%" : std::getenv(name.c_str());
    if (value != nullptr) {
      expanded.append(value);
    }
    text.remove_prefix(closing + 1);
  }
}

// Runs `read`, which looks for the value and describes it, on the key.
template <typename Read>
int32_t CRegistry::ReadValue(const char* name, const HKEY& key, const Read& read) {
  // The current key is held already.
  const std::shared_ptr<CRegistryNode> other = key.IsNull() ? nullptr : key.GetNode();
  CRegistryNode* const node = key.IsNull() ? m_pNode.get() : other.get();
  if (node == nullptr) {
    return REGISTRY_INVALID;
  }
  if (name == nullptr || !read(*node)) {
    return REGISTRY_NO_DATA;
  }
  DEBUG_TRACE(4, "CRegistry::GetValue \"%s\" --> len %d\n", name,
              static_cast<int32_t>(m_nValueLength));
  return REGISTRY_OK;
}

void CRegistry::Describe(uint32_t type, size_t length) {
  m_nValueType = type;
  m_nValueLength = static_cast<uint32_t>(length);
}

const void* CRegistry::GetValue(const char* name, const HKEY& key) {
  const int32_t result = Finish(REGISTRY_NO_DATA, [&] {
    return ReadValue(name, key, [&](CRegistryNode& node) {
      if (!node.ReadValue(name, m_oValue)) {
        return false;
      }
      if (m_oValue.type == REG_EXPAND_SZ && m_bExpand) {
        m_oValue.bytes = ExpandEnvironment(m_oValue.bytes.c_str());
        m_oValue.bytes.push_back('\0');
      }
      Describe(m_oValue.type, m_oValue.bytes.size());
      return true;
    });
  });
  return result == REGISTRY_OK ? m_oValue.bytes.data() : nullptr;
}

// Hands the string, expanded, to `take`, under the lock of its key, so that it is copied only once.
template <typename Take>
int32_t CRegistry::ReadString(const char* name, const HKEY& key, const Take& take) {
  const auto visit = [&](const CRegistryEntry& entry) {
    const uint32_t type = entry.GetType();
    const std::string_view data = entry.GetData();
    if (!IsString(type)) {
      Describe(type, data.size());
    } else if (type == REG_EXPAND_SZ && m_bExpand) {
      const std::string text = ExpandEnvironment(data);
      take(text);
      Describe(type, text.size() + 1);
    } else {
      take(data);
      Describe(type, data.size() + 1);
    }
  };
  const int32_t result =
      ReadValue(name, key, [&](CRegistryNode& node) { return node.VisitValue(name, visit); });
  return result == REGISTRY_OK && !IsString(m_nValueType) ? REGISTRY_NO_DATA : result;
}

int32_t CRegistry::QueryValue(char* buffer, const char* name, uint32_t* count, const HKEY& key) {
  return Finish(REGISTRY_NO_DATA, [&] {
    int32_t copied = REGISTRY_TOO_SMALL;
    const int32_t result = ReadString(name, key, [&](std::string_view text) {
      copied = count != nullptr ? CopyString(text, buffer, *count) : REGISTRY_TOO_SMALL;
    });
    if (result != REGISTRY_OK) {
      return result;
    }
    if (count == nullptr) {
      DEBUG_TRACE(1, "CRegistry::QueryValue: ** ERROR **  pdwCount is a NULL pointer\n");
    }
    return copied;
  });
}

int32_t CRegistry::QueryValue(std::string& text, const char* name, const HKEY& key) {
  return Finish(REGISTRY_NO_DATA, [&] {
    return ReadString(name, key, [&](std::string_view found) { text = found; });
  });
}

uint32_t CRegistry::SetValue(const char* name, const void* data, int32_t length, uint32_t type,
                             const HKEY& key) {
  const int32_t result = Finish(REGISTRY_INVALID, [&] {
    const CRegistryChange change;
    DEBUG_TRACE(2, "CRegistry::SetValue \"%s\" %d %d\n", OrNullName(name), length,
                static_cast<int32_t>(type));
    const std::shared_ptr<CRegistryNode> node = NodeOf(key);
    if (node == nullptr || !IsValidValue(data, length, type)) {
      return REGISTRY_INVALID;
    }
    if (name == nullptr) {
      return REGISTRY_OK;
    }
    const std::string_view bytes(static_cast<const char*>(data), static_cast<size_t>(length));
    return Store(*node, MakeEntry(name, bytes, type)) ? REGISTRY_OK : REGISTRY_INVALID;
  });
  return result == REGISTRY_OK ? 1 : 0;
}

int32_t CRegistry::SetValue(const char* name, int32_t value) {
  SetValue(name, &value, sizeof(value), REG_DWORD);
  return m_nStatus;
}

int32_t CRegistry::SetValue(const char* name, const char* text) {
  const size_t length = text != nullptr ? std::strlen(text) : 0;
  if (text == nullptr || length > INT32_MAX) {
    CRegistryTree::Get().MarkDirty();
    m_nStatus = REGISTRY_INVALID;
    return m_nStatus;
  }
  SetValue(name, text, static_cast<int32_t>(length), REG_SZ);
  return m_nStatus;
}

int32_t CRegistry::DeleteValue(const char* name) {
  return Finish(REGISTRY_INVALID, [&] {
    DEBUG_TRACE(2, "CRegistry::DeleteValue \"%s\"\n", OrNullName(name));
    if (m_pNode == nullptr) {
      return REGISTRY_INVALID;
    }
    const CRegistryChange change;
    std::vector<CRegistryEntry> removed;
    if (name != nullptr && m_pNode->Remove(name, removed)) {
      KillRegistryKeys(removed);
    }
    return REGISTRY_OK;
  });
}
