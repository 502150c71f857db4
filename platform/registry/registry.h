#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry/registry_entry.h"

class CRegistryNode;

// Results of registry operations; the key operations use REGISTRY_FAILED.
constexpr int32_t REGISTRY_OK = 0;
constexpr int32_t REGISTRY_FAILED = -1;
constexpr int32_t REGISTRY_INVALID = 22;    // EINVAL: no key open, bad name or value
constexpr int32_t REGISTRY_TOO_SMALL = 34;  // ERANGE: buffer too small, missing count
constexpr int32_t REGISTRY_NO_DATA = 61;    // ENODATA: value absent or of another type

// The pointer key, below HKEY_LOCAL_MACHINE: each installed component has a value there that names
// the component's root key.
constexpr char REGISTRY_POINTER_KEY[] =
    "SYSTEM\\CurrentControlSet\\Control\\UUID\\5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13";

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
  HKEY(RootKey root) : m_strRootName(ROOT_KEY_NAMES[root]) {}
  HKEY(std::shared_ptr<CRegistryNode> node) : m_pNode(std::move(node)) {}

  bool IsNull() const { return m_strRootName.empty() && m_pNode == nullptr; }

  // The key at this moment; null for the null handle and for a root key that is not in the tree.
  std::shared_ptr<CRegistryNode> GetNode() const;

 private:
  std::string_view m_strRootName;  // empty: no root key
  std::shared_ptr<CRegistryNode> m_pNode;
};

// Access to the registry: an object that opens a key, works on it and ends. The tree is loaded when
// the first object is made and saved, when it was changed, whenever an object ends.
//
// The object keeps the key that it has open. When that key is deleted, replaced or reloaded by
// anybody, reads through the object find nothing and changes fail.
//
// Keys and values of one key share one name space; names are case-sensitive. Paths are separated by
// "\" or "/". Exhausted memory ends an operation with its failure value and leaves the tree as it
// was.
//
// Thread safety: the registry may be used from any thread, one object by one thread at a time.
class CRegistry {
 public:
  CRegistry();
  // Makes `key` the current key.
  explicit CRegistry(const HKEY& key);
  // Opens a key; GetStatus() tells whether it worked.
  CRegistry(const char* path, const HKEY& root, int32_t access = -1);
  // The same current key as `other`.
  CRegistry(const CRegistry& other);
  CRegistry& operator=(const CRegistry& other);
  // Saves the tree when it is dirty; a failure is traced.
  ~CRegistry();

  // Loads the tree on its first use and adds the root keys that are missing in it. Every
  // constructor calls it.
  void InitClass();

  // Opens the key at `path` below `root` (null: the top, so that the path begins with the name of a
  // root key); an empty path opens the root itself. `access` is ignored. Returns REGISTRY_OK,
  // or REGISTRY_FAILED, and then no key is open.
  int32_t Open(const char* path, const HKEY& root, int32_t access = -1);

  // Opens the key at `path` below `parent` (null: the current key) and makes the keys that are
  // missing. An empty path changes nothing. Returns REGISTRY_OK; or REGISTRY_FAILED without a path
  // or parent, or when a component is the name of a value, and then the current key stays.
  int64_t CreateKey(const HKEY& parent, const char* path);

  // Opens the key that a pointer names: the string value `valueName` of the pointer key below
  // `root`, a path that begins with the name of a root key in upper or lower case. Results as for
  // Open().
  int32_t OpenPointer(const char* valueName, const HKEY& root, int32_t access = -1);
  // As above, with another key than the pointer key.
  int32_t OpenPointer(const char* keyPath, const char* valueName, const HKEY& root, int32_t access);

  // Deletes the subkey `name` of the current key with everything below it. Its name stays taken in
  // the current key, deliberately: it opens as an empty key that stores nothing and is not saved,
  // until a key or value is stored under it again. Returns REGISTRY_OK, or REGISTRY_INVALID when
  // there is no such subkey.
  int32_t DeleteKey(const char* name);

  void Close();

  // Store the names of the subkeys, or of the values, of the current key in their order. Deleted
  // keys are left out. Return REGISTRY_OK, or REGISTRY_INVALID when no key is open.
  int32_t EnumKeys(std::vector<std::string>& names);
  int32_t EnumValues(std::vector<std::string>& names);

  // Saves the tree now when it is dirty. Returns REGISTRY_OK, or REGISTRY_FAILED when it is not
  // saved: the end of the next object tries again.
  int32_t Flush();

  // Reads a value of `key` (null: the current key). Returns its bytes (strings with their
  // terminator and expanded when SetExpand() says so, an integer as 4 bytes), valid until the next
  // read or the object's end, or null when the value is absent. GetValueType() and GetValueLength()
  // describe it.
  const void* GetValue(const char* name, const HKEY& key = nullptr);

  // Reads a string of `key` (null: the current key) into `buffer` of `*count` bytes and stores its
  // length without terminator in `*count`. With a null buffer it stores the size needed. Returns
  // REGISTRY_OK; REGISTRY_INVALID without a key; REGISTRY_NO_DATA when the value is absent or no
  // string; REGISTRY_TOO_SMALL without a count, or when the string and its terminator do not fit:
  // the buffer is then filled and not terminated.
  int32_t QueryValue(char* buffer, const char* name, uint32_t* count, const HKEY& key = nullptr);
  // As above, into a string; otherwise the string stays as it is.
  int32_t QueryValue(std::string& text, const char* name, const HKEY& key = nullptr);

  // Stores a value in `key` (null: the current key) under `name`, over a value or subkey of that
  // name; a null name stores nothing and succeeds. Takes `length` bytes of `data`; a string ends at
  // its first NUL, an integer needs 4 bytes. Returns 1, or 0 without a key, for another type or
  // invalid data.
  uint32_t SetValue(const char* name, const void* data, int32_t length, uint32_t type,
                    const HKEY& key = nullptr);
  // Store in the current key. Return REGISTRY_OK or REGISTRY_INVALID.
  int32_t SetValue(const char* name, int32_t value);
  int32_t SetValue(const char* name, const char* text);

  // Removes the value, or the subkey with everything below it, from the current key. A name that is
  // not there is no error. Returns REGISTRY_OK, or REGISTRY_INVALID when no key is open.
  int32_t DeleteValue(const char* name);

  // The result of the last operation.
  int32_t GetStatus() const { return m_nStatus; }
  // Of the value last read.
  uint32_t GetValueType() const { return m_nValueType; }
  uint32_t GetValueLength() const { return m_nValueLength; }
  // The path last opened, separated by "/".
  const std::string& GetPath() const { return m_strPath; }
  HKEY GetKey() const { return m_pNode; }

  // Whether reading a REG_EXPAND_SZ expands it; it does by default.
  void SetExpand(bool expand) { m_bExpand = expand; }

 private:
  // Runs an operation and keeps its result as the status; exhausted memory ends it with `failure`.
  template <typename Result, typename Operation>
  Result Finish(Result failure, const Operation& operation) {
    Result result = failure;
    try {
      result = operation();
    } catch (const std::bad_alloc&) {
      // The result stays the failure.
    }
    m_nStatus = static_cast<int32_t>(result);
    return result;
  }

  // As Finish(), for operations that leave no key open when they fail, for want of memory too.
  template <typename Operation>
  int32_t FinishOpening(const Operation& operation) {
    const int32_t result = Finish(REGISTRY_FAILED, operation);
    if (result != REGISTRY_OK) {
      Close();
    }
    return result;
  }

  std::shared_ptr<CRegistryNode> NodeOf(const HKEY& key) const;
  int32_t OpenNode(std::string_view path, std::shared_ptr<CRegistryNode> node);
  int32_t CreateNode(std::string_view path, std::shared_ptr<CRegistryNode> node);
  void SetCurrent(std::string_view path, std::shared_ptr<CRegistryNode> node);
  int32_t FollowPointer(std::string_view pointer);
  int32_t CloseAndFail();
  template <typename Read>
  int32_t ReadValue(const char* name, const HKEY& key, const Read& read);
  template <typename Take>
  int32_t ReadString(const char* name, const HKEY& key, const Take& take);
  void Describe(uint32_t type, size_t length);
  template <typename Wanted>
  int32_t EnumNames(std::vector<std::string>& names, const Wanted& isWanted);

  int32_t m_nStatus = 0;
  uint32_t m_nValueLength = 0;
  uint32_t m_nValueType = 0;
  bool m_bExpand = true;
  std::shared_ptr<CRegistryNode> m_pNode;  // the current key; null: none
  RegistryValue m_oValue;                  // the value buffer: what GetValue() read last
  std::string m_strPath;
};

// Reads the string value `name` of the pointer key. False, and `text` untouched, when there is
// none. Any thread may call.
bool ReadRegistryPointer(std::string& text, const char* name);

// Replaces every %NAME% by the value of the environment variable NAME (nothing when it is unset)
// and every doubled percent sign by one. A percent sign without a closing one stays. Throws
// std::bad_alloc.
std::string ExpandEnvironment(std::string_view text);
