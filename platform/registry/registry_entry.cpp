#include "platform/registry/registry_entry.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace {

using Key = std::shared_ptr<CRegistryNode>;

constinit const Key NO_KEY;

// Bytes of the largest block for several entries.
constexpr size_t LARGEST_BLOCK = 16'384;
static_assert(LARGEST_BLOCK <= UINT16_MAX);  // the offset of an entry fits its head

template <size_t alignment>
size_t AlignUp(size_t size) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace

// What stands at the beginning of a block.
struct CRegistryArena::Block {
  static Block* Make(size_t capacity) { return new (::operator new(capacity)) Block{1}; }

  void Drop() noexcept {
    if (owners.load(std::memory_order_acquire) == 1 ||
        owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      ::operator delete(this);
    }
  }

  std::atomic<uint32_t> owners;  // its entries, and the arena while it fills the block
};

void* CRegistryArena::Take(size_t size) {
  if (m_pBlock == nullptr || size > m_nCapacity - m_nUsed) {
    Release();
    const size_t capacity =
        std::max(sizeof(Block) + size, std::min(2 * m_nTextSize, LARGEST_BLOCK));
    m_pBlock = Block::Make(capacity);
    m_nCapacity = capacity;
    m_nUsed = sizeof(Block);
  }
  // No other thread knows an entry of a block that is being filled.
  m_pBlock->owners.store(m_pBlock->owners.load(std::memory_order_relaxed) + 1,
                         std::memory_order_relaxed);
  return reinterpret_cast<char*>(m_pBlock) + std::exchange(m_nUsed, m_nUsed + size);
}

void CRegistryArena::Release() noexcept {
  if (m_pBlock != nullptr) {
    std::exchange(m_pBlock, nullptr)->Drop();
  }
}

// Leaves the data for the caller to fill in, followed by a NUL; the pointer of a subkey is null.
CRegistryEntry::CRegistryEntry(std::string_view name, uint32_t type, size_t dataLength,
                               CRegistryArena* arena) {
  using Block = CRegistryArena::Block;
  static_assert(sizeof(Block) == alignof(Head));
  const auto nameLength = static_cast<uint32_t>(name.size());
  const size_t size = SizeOf(type, nameLength, dataLength);
  void* piece = nullptr;
  size_t offset = sizeof(Block);
  if (arena != nullptr) {
    piece = arena->Take(size);
    offset = arena->m_nUsed - size;
  } else {
    piece = Block::Make(sizeof(Block) + size) + 1;
  }
  m_pHead.reset(new (piece) Head{type, nameLength, static_cast<uint32_t>(dataLength),
                                 static_cast<uint16_t>(offset), arena != nullptr});
  name.copy(NameOf(*m_pHead), name.size());
  NameOf(*m_pHead)[name.size()] = '\0';
  if (type == REG_KEY) {
    new (KeyOf(*m_pHead)) Key;
  } else {
    DataOf(*m_pHead)[dataLength] = '\0';
  }
}

void CRegistryEntry::HeadDeleter::operator()(Head* head) const noexcept {
  if (head->type == REG_KEY) {
    KeyOf(*head)->~Key();
  }
  reinterpret_cast<CRegistryArena::Block*>(reinterpret_cast<char*>(head) - head->offset)->Drop();
}

// With the padding that aligns the head of the next entry.
size_t CRegistryEntry::SizeOf(uint32_t type, size_t nameLength, size_t dataLength) {
  const size_t payload = type == REG_KEY ? alignof(Key) - 1 + sizeof(Key) : dataLength + 1;
  return AlignUp<alignof(Head)>(sizeof(Head) + nameLength + std::max(1 + payload, READABLE));
}

std::shared_ptr<CRegistryNode>* CRegistryEntry::KeyOf(const Head& head) {
  char* const end = DataOf(head);
  const auto address = reinterpret_cast<uintptr_t>(end);
  return reinterpret_cast<Key*>(end + (AlignUp<alignof(Key)>(address) - address));
}

CRegistryEntry CRegistryEntry::MakeString(std::string_view name, uint32_t type,
                                          std::string_view text, CRegistryArena* arena) {
  return MakeBytes(name, type, text.substr(0, text.find('\0')), arena);
}

CRegistryEntry CRegistryEntry::MakeBinary(std::string_view name, std::string_view bytes,
                                          CRegistryArena* arena) {
  return MakeBytes(name, REG_BINARY, bytes, arena);
}

CRegistryEntry CRegistryEntry::MakeBytes(std::string_view name, uint32_t type,
                                         std::string_view bytes, CRegistryArena* arena) {
  CRegistryEntry entry(name, type, bytes.size(), arena);
  bytes.copy(DataOf(*entry.m_pHead), bytes.size());
  return entry;
}

CRegistryEntry CRegistryEntry::MakeInteger(std::string_view name, int32_t value,
                                           CRegistryArena* arena) {
  CRegistryEntry entry(name, REG_DWORD, sizeof(value), arena);
  std::memcpy(DataOf(*entry.m_pHead), &value, sizeof(value));
  return entry;
}

CRegistryEntry CRegistryEntry::MakeKey(std::string_view name, Key key, CRegistryArena* arena) {
  CRegistryEntry entry(name, REG_KEY, 0, arena);
  entry.SetKey(std::move(key));
  return entry;
}

int32_t CRegistryEntry::GetInteger() const {
  int32_t value = 0;
  if (GetType() == REG_DWORD) {
    std::memcpy(&value, DataOf(*m_pHead), sizeof(value));
  }
  return value;
}

const std::shared_ptr<CRegistryNode>& CRegistryEntry::GetKey() const {
  return IsKey() ? *KeyOf(*m_pHead) : NO_KEY;
}

void CRegistryEntry::SetKey(Key key) { *KeyOf(*m_pHead) = std::move(key); }

std::shared_ptr<CRegistryNode> CRegistryEntry::TakeKey() { return std::move(*KeyOf(*m_pHead)); }
