#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class CRegistryNode;

// Types of registry values, stored in the files too. REG_KEY is the registry's own mark for a
// subkey and deliberately outside the range of the others.
constexpr uint32_t REG_SZ = 1;         // string
constexpr uint32_t REG_EXPAND_SZ = 2;  // string whose environment references are expanded on read
constexpr uint32_t REG_BINARY = 3;     // bytes
constexpr uint32_t REG_DWORD = 4;      // signed 32-bit integer
constexpr uint32_t REG_KEY = 666;      // subkey

// A value as read from a key.
struct RegistryValue {
  uint32_t type = 0;
  std::string bytes;  // strings with their terminator, 4 bytes of an integer
};

// Memory for the many entries of a registry text, taken from the system in large blocks. A block
// lives as long as the last of its entries, which may outlive the object.
//
// Not thread-safe; the entries are not tied to the thread that made them.
class CRegistryArena {
 public:
  // `textSize`: bytes of the text; an estimate of the need.
  explicit CRegistryArena(size_t textSize) : m_nTextSize(textSize) {}
  ~CRegistryArena() { Release(); }
  CRegistryArena(const CRegistryArena&) = delete;
  CRegistryArena& operator=(const CRegistryArena&) = delete;

 private:
  friend class CRegistryEntry;
  struct Block;

  // A piece of `size` bytes of m_pBlock.
  void* Take(size_t size);
  void Release() noexcept;

  const size_t m_nTextSize;
  Block* m_pBlock = nullptr;  // the one that is being filled
  size_t m_nCapacity = 0;     // of it, in bytes
  size_t m_nUsed = 0;
};

// One value or subkey of a registry key. The name may hold any byte but NUL.
//
// As small as a pointer: a key holds its entries in one array, which is searched and moved as a
// whole. All else is in one piece of memory for each entry.
//
// Not thread-safe: the lock of the key that holds the entry guards it.
class CRegistryEntry {
 public:
  // `type` is REG_SZ or REG_EXPAND_SZ; the string ends at its first NUL. An entry that is read from
  // a registry text takes its memory from the arena of that text; others have none (null).
  static CRegistryEntry MakeString(std::string_view name, uint32_t type, std::string_view text,
                                   CRegistryArena* arena = nullptr);
  static CRegistryEntry MakeBinary(std::string_view name, std::string_view bytes,
                                   CRegistryArena* arena = nullptr);
  // A string or binary value of just these bytes, which hold no NUL for a string.
  static CRegistryEntry MakeBytes(std::string_view name, uint32_t type, std::string_view bytes,
                                  CRegistryArena* arena = nullptr);
  static CRegistryEntry MakeInteger(std::string_view name, int32_t value,
                                    CRegistryArena* arena = nullptr);
  // A null key makes the entry that stays for a deleted key.
  static CRegistryEntry MakeKey(std::string_view name, std::shared_ptr<CRegistryNode> key,
                                CRegistryArena* arena = nullptr);

  // So many bytes can be read from any position of a name, its end included, for comparing names by
  // words. What follows the NUL has no meaning.
  static constexpr size_t READABLE = 8;

  // Both are followed by a NUL and valid until the entry is destroyed. The data of an integer are
  // its 4 bytes, those of a subkey are empty.
  std::string_view GetName() const { return {NameOf(*m_pHead), m_pHead->nameLength}; }
  std::string_view GetData() const {
    return IsKey() ? std::string_view("") : std::string_view(DataOf(*m_pHead), m_pHead->dataLength);
  }

  uint32_t GetType() const { return m_pHead->type; }
  bool IsKey() const { return GetType() == REG_KEY; }
  // True when it was read from a line of a registry text, which a string makes again.
  bool IsFromText() const { return m_pHead->isFromText; }
  int32_t GetInteger() const;

  // Null unless the entry is a subkey, and for a deleted one.
  const std::shared_ptr<CRegistryNode>& GetKey() const;
  // Only for subkeys.
  void SetKey(std::shared_ptr<CRegistryNode> key);
  std::shared_ptr<CRegistryNode> TakeKey();

 private:
  // The name follows and a NUL, then the data and a NUL or, aligned, the pointer to the subkey.
  struct Head {
    uint32_t type;
    uint32_t nameLength;
    uint32_t dataLength;
    uint16_t offset;  // bytes from the beginning of the block
    bool isFromText;
  };
  struct HeadDeleter {
    void operator()(Head* head) const noexcept;
  };

  CRegistryEntry(std::string_view name, uint32_t type, size_t dataLength, CRegistryArena* arena);

  static char* NameOf(const Head& head) {
    return reinterpret_cast<char*>(const_cast<Head*>(&head) + 1);
  }
  static char* DataOf(const Head& head) { return NameOf(head) + head.nameLength + 1; }
  static std::shared_ptr<CRegistryNode>* KeyOf(const Head& head);
  static size_t SizeOf(uint32_t type, size_t nameLength, size_t dataLength);

  std::unique_ptr<Head, HeadDeleter> m_pHead;
};
