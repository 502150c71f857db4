#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_text.h"
#include "platform/registry/registry_tree.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"

namespace {

constexpr uint32_t SEEDS = 1000;

std::string AllBytesBut(const std::string& excluded) {
  std::string bytes;
  for (int byte = 0; byte <= std::numeric_limits<unsigned char>::max(); ++byte) {
    if (excluded.find(static_cast<char>(byte)) == std::string::npos) {
      bytes.push_back(static_cast<char>(byte));
    }
  }
  return bytes;
}

const std::string NUL(1, '\0');

// Stores random keys and values, and keeps account of what the tree must hold then.
class RandomTree {
 public:
  explicit RandomTree(uint32_t seed) : m_oRandom(seed) {
    for (const char* root : ROOT_KEY_NAMES) {
      AddKey(std::string(root) + '\n', root);
    }
    m_oKeys.push_back({"", ""});
  }

  // One object stores all; its end saves.
  void Grow() {
    CRegistry registry;
    const uint32_t steps = Number(60);
    for (uint32_t step = 0; step < steps; ++step) {
      const Key key = m_oKeys[Number(static_cast<uint32_t>(m_oKeys.size()))];
      if (Number(4) == 0) {
        GrowKey(registry, key);
      } else {
        GrowValue(registry, key);
      }
    }
  }

  const RegistryModel& GetModel() const { return m_oModel; }

 private:
  struct Key {
    std::string place;  // in the model
    std::string path;   // for CRegistry
  };

  // From 0 to below `end`.
  uint32_t Number(uint32_t end) { return static_cast<uint32_t>(m_oRandom()) % end; }

  std::string Bytes(const std::string& alphabet, size_t length) {
    std::string bytes(length, ' ');
    std::generate(bytes.begin(), bytes.end(),
                  [&] { return alphabet[Number(static_cast<uint32_t>(alphabet.size()))]; });
    return bytes;
  }

  // Mostly short, sometimes as long as can be.
  size_t Length(size_t longest) {
    const uint32_t kind = Number(20);
    return kind == 0 ? longest : std::min<size_t>(longest, kind == 1 ? 0 : Number(30));
  }

  void AddKey(const std::string& place, const std::string& path) {
    m_oModel[place] = ModelOfKey();
    m_oKeys.push_back({place, path});
  }

  void GrowKey(CRegistry& registry, const Key& parent) {
    static const std::string ALPHABET = AllBytesBut(NUL + "\n]\\/");
    const std::string name =
        Number(2) == 0 ? Bytes("ab ", 1 + Number(3)) : Bytes(ALPHABET, 1 + Number(12));
    const std::string place = parent.place + name + '\n';
    if (m_oModel.contains(place)) {
      return;
    }
    const std::string path = parent.path + '\\' + name;
    EXPECT_EQ(registry.CreateKey(CRegistryTree::Get().GetTop(), path.c_str()), REGISTRY_OK);
    AddKey(place, path);
  }

  void GrowValue(CRegistry& registry, const Key& key) {
    static const std::string ALPHABET = AllBytesBut(NUL + "\n=");
    std::string name = Number(2) == 0 ? Bytes("ab ", Number(4)) : Bytes(ALPHABET, Number(12));
    if (name.starts_with('[')) {
      name.insert(0, 1, ' ');
    }
    const std::string place = key.place + name + '\n';
    const auto before = m_oModel.find(place);
    if (before != m_oModel.end() && before->second == ModelOfKey()) {
      return;
    }
    EXPECT_EQ(registry.Open(key.path.c_str(), nullptr), REGISTRY_OK);
    m_oModel[place] = StoreValue(registry, name);
  }

  // Returns the value as the model shows it.
  std::string StoreValue(CRegistry& registry, const std::string& name) {
    static const std::string TEXT_ALPHABET = AllBytesBut(NUL + "\n");
    static const std::string ALPHABET = AllBytesBut("");
    const uint32_t type = 1 + Number(4);
    if (type == REG_DWORD) {
      const auto value =
          static_cast<int32_t>(Number(3) == 0 ? 0x80000000U >> Number(2) * 31 : m_oRandom());
      EXPECT_EQ(registry.SetValue(name.c_str(), value), REGISTRY_OK);
      return ModelOfValue(type, std::to_string(value));
    }
    const size_t room = REGISTRY_LINE_LENGTH - name.size() - 4;
    const std::string bytes =
        type == REG_BINARY ? Bytes(ALPHABET, Length(room / 3)) : Bytes(TEXT_ALPHABET, Length(room));
    EXPECT_EQ(
        registry.SetValue(name.c_str(), bytes.data(), static_cast<int32_t>(bytes.size()), type),
        1U);
    return ModelOfValue(type, bytes);
  }

  std::mt19937 m_oRandom;
  RegistryModel m_oModel;
  std::vector<Key> m_oKeys;
};

using RegistryRoundTripTest = RegistryFilesTest;

TEST_F(RegistryRoundTripTest, RandomTreesComeBackAsTheyWere) {
  for (uint32_t seed = 0; seed < SEEDS; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ResetRegistry();
    LoadTree();
    RandomTree tree(seed);
    tree.Grow();
    ASSERT_EQ(ReadTree(), tree.GetModel()) << "stored";
    if (!Exists(REGISTRY_FILE)) {
      continue;  // nothing was stored
    }
    const std::string text = ReadFile(REGISTRY_FILE);

    CRegistryTree::Get().SetupTree(true);
    ASSERT_EQ(ReadTree(), tree.GetModel()) << "loaded in place";
    ASSERT_EQ(LoadTree(), tree.GetModel()) << "loaded anew";

    CRegistryTree::Get().MarkDirty();
    CRegistryTree::Get().SaveTree();
    ASSERT_EQ(ReadFile(REGISTRY_FILE), text) << "saved again";
    ASSERT_EQ(ReadFile(REGISTRY_BACKUP_FILE), text);
  }
}

}  // namespace
