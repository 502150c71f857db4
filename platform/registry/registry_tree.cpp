#include "platform/registry/registry_tree.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/forced_unwind.h"
#include "base/regular_file.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_text.h"
#include "trace/debug_client.h"

CRegistryTree& CRegistryTree::Get() {
  alignas(CRegistryTree) static unsigned char storage[sizeof(CRegistryTree)];
  static CRegistryTree& tree = *new (storage) CRegistryTree;
  return tree;
}

namespace {

bool IsMissing(const char* path) {
  struct stat status = {};
  return stat(path, &status) != 0 && errno == ENOENT;
}

// Whether overwriting the file would lose something.
bool HasContent(const char* path) {
  struct stat status = {};
  return stat(path, &status) == 0 ? S_ISREG(status.st_mode) : errno != ENOENT;
}

// What the merge compares of an entry. Two keys are equal whatever they contain.
struct Content {
  bool operator==(const Content& other) const = default;

  bool IsLiveKey() const { return type == REG_KEY && !isDeleted; }

  uint32_t type = 0;  // 0: there is none
  bool isDeleted = false;
  int32_t integer = 0;
  std::string data;
};

using Contents = std::map<std::string, Content, std::less<>>;

Contents ContentsOf(CRegistryNode* node) {
  Contents contents;
  if (node != nullptr) {
    node->ForEach([&contents](const CRegistryEntry& entry) {
      contents[std::string(entry.GetName())] = {entry.GetType(),
                                                entry.IsKey() && entry.GetKey() == nullptr,
                                                entry.GetInteger(), std::string(entry.GetData())};
    });
  }
  return contents;
}

Content ContentOf(const Contents& contents, const std::string& name) {
  const auto position = contents.find(name);
  return position != contents.end() ? position->second : Content();
}

CRegistryEntry MakeEntry(const std::string& name, const Content& content) {
  switch (content.type) {
    case REG_DWORD:
      return CRegistryEntry::MakeInteger(name, content.integer);
    case REG_BINARY:
      return CRegistryEntry::MakeBinary(name, content.data);
    default:
      return CRegistryEntry::MakeString(name, content.type, content.data);
  }
}

// The same key in each of the three trees.
struct MergePlace {
  std::shared_ptr<CRegistryNode> before;  // null: none
  std::shared_ptr<CRegistryNode> after;   // null: none
  std::shared_ptr<CRegistryNode> tree;
};

std::shared_ptr<CRegistryNode> OpenIn(const std::shared_ptr<CRegistryNode>& node,
                                      const std::string& name) {
  return node != nullptr ? node->OpenKey(name) : nullptr;
}

// Without recursion: trees may be deep.
class Merger {
 public:
  explicit Merger(MergePlace top) { m_oPlaces.push_back(std::move(top)); }

  void Run() {
    while (!m_oPlaces.empty()) {
      const MergePlace place = std::move(m_oPlaces.back());
      m_oPlaces.pop_back();
      MergeKey(place);
    }
  }

 private:
  void MergeKey(const MergePlace& place) {
    const Contents before = ContentsOf(place.before.get());
    const Contents after = ContentsOf(place.after.get());
    const Contents tree = ContentsOf(place.tree.get());
    Contents all = before;
    all.insert(after.begin(), after.end());
    for (const auto& entry : all) {
      MergeName(place, entry.first, ContentOf(before, entry.first), ContentOf(after, entry.first),
                ContentOf(tree, entry.first));
    }
  }

  void MergeName(const MergePlace& place, const std::string& name, const Content& before,
                 const Content& after, const Content& tree) {
    const bool isKeyGone = after.type == 0 && tree.IsLiveKey();
    if (tree.IsLiveKey() && (after.IsLiveKey() || isKeyGone)) {
      Descend(place, name);
    } else if (before == tree && !(after == before)) {
      Take(place, name, after);
    }
  }

  void Take(const MergePlace& place, const std::string& name, const Content& after) {
    std::vector<CRegistryEntry> replaced;
    if (after.type == 0 || after.IsLiveKey()) {
      place.tree->Remove(name, replaced);
    } else {
      place.tree->Store(MakeEntry(name, after), replaced);
    }
    KillRegistryKeys(replaced);
    if (after.IsLiveKey()) {
      Descend(place, name);
    }
  }

  void Descend(const MergePlace& place, const std::string& name) {
    std::shared_ptr<CRegistryNode> key = place.tree->CreateKey(name);
    if (key != nullptr) {
      m_oPlaces.push_back({OpenIn(place.before, name), OpenIn(place.after, name), std::move(key)});
    }
  }

  std::vector<MergePlace> m_oPlaces;  // that are still to be merged
};

// Does not own the node.
std::shared_ptr<CRegistryNode> NodeAt(CRegistryNode& node) {
  return {std::shared_ptr<CRegistryNode>(), &node};
}

// Runs after the last static destructor of the library or program.
[[gnu::destructor(102)]] void ReleaseRegistryTree() { CRegistryTree::Get().Release(); }

}  // namespace

void MergeRegistryNodes(CRegistryNode& before, CRegistryNode& after, CRegistryNode& tree) {
  Merger({NodeAt(before), NodeAt(after), NodeAt(tree)}).Run();
}

void CRegistryTree::Release() {
  const CCriticalSectionGuard guard(m_oLock);
  m_oTop.Clear();
  MIsSetup = false;
  MIsDirty = false;
  m_bUnflushed = false;
  m_bUnread = false;
}

// Does not own the top, which lives as long as the process.
std::shared_ptr<CRegistryNode> CRegistryTree::GetTop() {
  return {std::shared_ptr<CRegistryNode>(), &m_oTop};
}

void CRegistryTree::Setup(bool force) {
  // Half a tree, whose loading the sink has broken off, would be saved over the files.
  const CTraceShield shield;
  const CCriticalSectionGuard guard(m_oLock);
  if (!force && MIsSetup) {
    return;
  }
  DEBUG_TRACE(2, "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n", force,
              MIsSetup.load(), MIsDirty.load());
  try {
    LoadFiles();
    m_strLoaded = m_bUnread ? WriteRegistryText(m_oTop) : std::string();
    MIsSetup = true;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    DEBUG_TRACE(1, "CRegistry: SetupTree(): ## ERROR during Setup\n");
  }
}

void CRegistryTree::LoadFiles() {
  m_bUnread = false;
  if (LoadCurrentFile()) {
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

bool CRegistryTree::LoadCurrentFile() {
  // Where files cannot be exchanged, the current one is missing for an instant of each save, which
  // the lock waits for.
  std::optional<CRegistryLock> lock;
  if (IsMissing(REGISTRY_FILE)) {
    lock.emplace(RegistryUse::LOAD);
  }
  const Restored restored = RestoreFile(REGISTRY_FILE, m_oTop);
  m_bUnread = restored == Restored::UNREADABLE;
  return restored == Restored::DONE;
}

// Loads the current file, which could not be read at set-up, as if it had been loaded then: changes
// made to the tree since are kept. False when it still cannot be read.
bool CRegistryTree::MergeUnreadFile() {
  CRegistryNode file;
  const Restored restored = RestoreFile(REGISTRY_FILE, file);
  if (restored == Restored::UNREADABLE) {
    return false;
  }
  if (restored == Restored::DONE) {
    CRegistryNode loaded;
    ParseRegistryText(m_strLoaded, loaded);
    MergeRegistryNodes(loaded, file, m_oTop);
  }
  m_bUnread = false;
  m_strLoaded = {};
  return true;
}

bool CRegistryTree::RestoreNode(const char* path, CRegistryNode& node) {
  if (path == nullptr) {
    DEBUG_TRACE(1, "CRegistry: ERROR: Empty file path");
    return false;
  }
  return RestoreFile(path, node) == Restored::DONE;
}

CRegistryTree::Restored CRegistryTree::RestoreFile(const char* path, CRegistryNode& node) {
  std::string text;
  if (!ReadRegularFile(path, text, LONGEST_REGISTRY_FILE)) {
    const Restored restored = HasContent(path) ? Restored::UNREADABLE : Restored::NOTHING;
    DEBUG_TRACE(1, "CRegistry: WARNING: Could not open \"%s\"\n", path);
    return restored;
  }
  if (text.empty()) {
    DEBUG_TRACE(1, "CRegistry: WARNING: The length of \"%s\" is not sufficient\n", path);
    return Restored::NOTHING;
  }
  if (!ParseRegistryText(text, node)) {
    DEBUG_TRACE(
        1,
        "CRegistry: WARNING: Node restoring from \"%s\" failed - check the content of this file\n",
        path);
    return Restored::NOTHING;
  }
  return Restored::DONE;
}

bool CRegistryTree::AddRootKeys() {
  const uint64_t generation = m_oTop.GetGeneration();
  bool isComplete = true;
  for (const char* name : ROOT_KEY_NAMES) {
    isComplete = !m_oTop.AddKeyIfMissing(name) && isComplete;
  }
  if (isComplete) {
    m_nComplete = generation;
  }
  return isComplete;
}

bool CRegistryTree::SaveTree() {
  if (IsSaved()) {
    return true;
  }
  const CCriticalSectionGuard guard(m_oLock);
  if (!MIsSetup) {
    return false;
  }
  if (MIsDirty ? !WriteTree() : m_bUnflushed && !FlushRegistryDirectory()) {
    return false;
  }
  m_bUnflushed = false;
  return true;
}

bool CRegistryTree::WriteTree() {
  if (m_bUnread && !MergeUnreadFile()) {
    return false;
  }
  // The tree is not locked while it is written. So the mark is cleared before the tree is read: a
  // change that comes meanwhile sets it again, and the next save writes that change.
  MIsDirty = false;
  RegistrySave result = RegistrySave::FAILED;
  try {
    result =
        SaveRegistryFile([this](const RegistryTextSink& sink) { WriteRegistryText(m_oTop, sink); });
  } catch (...) {
    MIsDirty = true;
    throw;
  }
  if (result == RegistrySave::FAILED) {
    MIsDirty = true;
    return false;
  }
  m_bUnflushed = result == RegistrySave::NOT_FLUSHED;
  if (m_bUnflushed) {
    return false;
  }
  DEBUG_TRACE(2, "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]",
              REGISTRY_TEMPORARY_FILE, REGISTRY_FILE);
  return true;
}
