// A registry file is loaded, walked, saved and loaded again, and both trees must be equal.
//
// Input: the content of a registry file; see text_input.h.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/text_input.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_entry.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"

namespace {

// A line up to this length is saved whole. A longer one may be cut, because bytes written with one
// digit get two.
constexpr size_t SHORT_LINE = 600;

struct Entry {
  explicit Entry(const CRegistryEntry& entry)
      : name(entry.GetName()),
        data(entry.GetData()),
        type(entry.GetType()),
        integer(entry.GetInteger()),
        key(entry.GetKey().get()) {}

  // For a subkey, only that it is one.
  bool operator==(const Entry& other) const {
    return name == other.name && data == other.data && type == other.type &&
           integer == other.integer && (key != nullptr) == (other.key != nullptr);
  }

  std::string_view name;
  std::string_view data;
  uint32_t type;
  int32_t integer;
  CRegistryNode* key;
};

// Valid as long as the node is not changed.
std::vector<Entry> EntriesOf(CRegistryNode& node) {
  std::vector<Entry> entries;
  node.ForEach([&](const CRegistryEntry& entry) { entries.emplace_back(entry); });
  return entries;
}

void Find(CRegistryNode& node, const Entry& entry) {
  if (entry.key != nullptr) {
    FUZZ_CHECK(node.OpenKey(entry.name).get() == entry.key);
    return;
  }
  RegistryValue value;
  FUZZ_CHECK(node.ReadValue(entry.name, value) && value.type == entry.type);
  if (entry.type == REG_EXPAND_SZ) {
    FUZZ_CHECK(entry.data.find('%') != std::string_view::npos ||
               ExpandEnvironment(entry.data) == entry.data);
  }
}

// Walks two trees that must be equal, and finds every entry of the first by its name.
void Walk(CRegistryNode& top, CRegistryNode& equalTop) {
  std::vector<std::pair<CRegistryNode*, CRegistryNode*>> rest = {{&top, &equalTop}};
  while (!rest.empty()) {
    const auto [node, equal] = rest.back();
    rest.pop_back();
    const std::vector<Entry> entries = EntriesOf(*node);
    const std::vector<Entry> equals = EntriesOf(*equal);
    FUZZ_CHECK(entries == equals);
    for (size_t index = 0; index < entries.size(); ++index) {
      FUZZ_CHECK(index == 0 || entries[index - 1].name < entries[index].name);
      Find(*node, entries[index]);
      if (entries[index].key != nullptr) {
        rest.emplace_back(entries[index].key, equals[index].key);
      }
    }
  }
}

bool HasShortLinesOnly(std::string_view text) {
  while (!text.empty()) {
    if (TakePiece(text, "\n").size() > SHORT_LINE) {
      return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = ReadText(data, size);
  CRegistryNode loaded;
  const bool hasRead = ParseRegistryText(text, loaded);
  FUZZ_CHECK(hasRead || EntriesOf(loaded).empty());

  const std::string saved = WriteRegistryText(loaded);
  CRegistryNode again;
  ParseRegistryText(saved, again);
  FUZZ_CHECK(WriteRegistryText(again) == saved);
  Walk(loaded, HasShortLinesOnly(text) ? again : loaded);

  // Over itself, as a forced reload does.
  ParseRegistryText(text, loaded);
  FUZZ_CHECK(WriteRegistryText(loaded) == saved);
  return 0;
}
