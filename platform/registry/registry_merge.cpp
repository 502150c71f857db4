#include "platform/registry/registry_merge.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry/registry_node.h"

namespace {

// A value or key as it is compared. Keys are the same whatever is in them.
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

// Shares nothing: the caller owns the node.
std::shared_ptr<CRegistryNode> NodeAt(CRegistryNode& node) {
  return {std::shared_ptr<CRegistryNode>(), &node};
}

}  // namespace

void MergeRegistryNodes(CRegistryNode& before, CRegistryNode& after, CRegistryNode& tree) {
  Merger({NodeAt(before), NodeAt(after), NodeAt(tree)}).Run();
}
