// What the rules let pass comes back from a file as it was, and what they refuse does not.

#include "tools/qamreg/text_rules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"
#include "tools/qamreg/failure.h"

namespace {

// A root key with what is written into it, and an entry behind it that a broken line would
// displace.
class Tree {
 public:
  Tree() : m_pKey(m_oTop.CreateKey("HKEY_USERS")) {
    Store(*m_oTop.CreateKey("behind"), CRegistryEntry::MakeInteger("it", 1));
  }

  static void Store(CRegistryNode& node, CRegistryEntry entry) {
    std::vector<CRegistryEntry> replaced;
    node.Store(std::move(entry), replaced);
  }

  CRegistryNode& Key() { return *m_pKey; }
  CRegistryNode& Top() { return m_oTop; }

 private:
  CRegistryNode m_oTop;
  std::shared_ptr<CRegistryNode> m_pKey;
};

bool HasBehind(CRegistryNode& top) {
  RegistryValue value;
  const auto behind = top.OpenKey("behind");
  return behind != nullptr && behind->ReadValue("it", value);
}

void Reload(Tree& tree, CRegistryNode& loaded) {
  ParseRegistryText(WriteRegistryText(tree.Top()), loaded);
}

size_t CountEntries(CRegistryNode& node) {
  size_t count = 0;
  node.ForEach([&](const CRegistryEntry&) { ++count; });
  return count;
}

bool SurvivesAsValue(const std::string& name, const ValueData& data) {
  Tree tree;
  const bool isText = data.type == REG_SZ || data.type == REG_EXPAND_SZ;
  if (isText) {
    Tree::Store(tree.Key(), CRegistryEntry::MakeString(name, data.type, data.bytes));
  } else if (data.type == REG_BINARY) {
    Tree::Store(tree.Key(), CRegistryEntry::MakeBinary(name, data.bytes));
  } else {
    Tree::Store(tree.Key(), CRegistryEntry::MakeInteger(name, std::stoi(FormatValue(data))));
  }
  CRegistryNode loaded;
  Reload(tree, loaded);
  const auto key = loaded.OpenKey("HKEY_USERS");
  RegistryValue value;
  return key != nullptr && HasBehind(loaded) && CountEntries(loaded) == 2 &&
         CountEntries(*key) == 1 && key->ReadValue(name, value) && value.type == data.type &&
         value.bytes == data.bytes + (isText ? std::string(1, '\0') : "");
}

bool SurvivesAsKey(const std::string& name) {
  Tree tree;
  Tree::Store(*tree.Key().CreateKey(name), CRegistryEntry::MakeInteger("inner", 1));
  CRegistryNode loaded;
  Reload(tree, loaded);
  const auto root = loaded.OpenKey("HKEY_USERS");
  const auto key = root != nullptr ? root->OpenKey(name) : nullptr;
  RegistryValue value;
  return key != nullptr && HasBehind(loaded) && CountEntries(loaded) == 2 &&
         CountEntries(*root) == 1 && CountEntries(*key) == 1 && key->ReadValue("inner", value);
}

template <typename Check>
bool Passes(const Check& check) {
  try {
    check();
    return true;
  } catch (const CFailure&) {
    return false;
  }
}

// Texts of the characters that mean something in the files.
class Texts {
 public:
  std::string Next(size_t maximum) {
    constexpr char CHARACTERS[] = "ax=[]\n\r sedb0 ";
    std::string text(m_oRandom() % (maximum + 1), ' ');
    for (char& character : text) {
      character = CHARACTERS[m_oRandom() % (sizeof(CHARACTERS) - 1)];
    }
    return text;
  }

 private:
  std::minstd_rand m_oRandom{1};
};

TEST(TextRules, ValuesPassThatSurviveTheFile) {
  Texts texts;
  size_t passed = 0;
  for (size_t round = 0; round < 5000; ++round) {
    const std::string name = texts.Next(5);
    const uint32_t type = std::vector<uint32_t>{REG_SZ, REG_EXPAND_SZ, REG_BINARY}[round % 3];
    const ValueData data = {type, texts.Next(5)};
    const bool passes = Passes([&] { CheckValue(name, data); });
    EXPECT_EQ(passes, SurvivesAsValue(name, data))
        << "\"" << name << "\", \"" << data.bytes << "\"";
    passed += passes ? 1 : 0;
  }
  EXPECT_GT(passed, 500U);
  EXPECT_LT(passed, 4500U);
}

TEST(TextRules, TextsEndAtNoZeroByte) {
  EXPECT_FALSE(Passes([] { CheckValue("n", {REG_SZ, std::string("a\0b", 3)}); }));
  EXPECT_TRUE(Passes([] { CheckValue("n", {REG_BINARY, std::string("a\0b", 3)}); }));
}

TEST(TextRules, KeysPassThatSurviveTheFile) {
  Texts texts;
  for (int round = 0; round < 2000; ++round) {
    const std::string name = "k" + texts.Next(4);
    EXPECT_EQ(Passes([&] { CheckKeyPath(CKeyPath("HKU\\" + name)); }), SurvivesAsKey(name)) << name;
  }
}

TEST(TextRules, TheLimitIsTheLongestLineThatSurvives) {
  for (const size_t length : {1010U, 1018U, 1019U, 1020U, 1021U}) {
    const ValueData text = {REG_SZ, std::string(length, 'x')};
    EXPECT_EQ(Passes([&] { CheckValue("n", text); }), SurvivesAsValue("n", text)) << length;
    const std::string name(length - 1, 'x');
    EXPECT_EQ(Passes([&] { CheckValue(name, MakeInteger(7)); }),
              SurvivesAsValue(name, MakeInteger(7)))
        << length;
    const std::string key(length + 1, 'x');
    EXPECT_EQ(Passes([&] { CheckKeyPath(CKeyPath("HKU\\" + key)); }), SurvivesAsKey(key)) << length;
  }
  const ValueData bytes = {REG_BINARY, std::string(339, '\xff')};
  for (const std::string name : {"n", "na", "nam", "name"}) {
    EXPECT_EQ(Passes([&] { CheckValue(name, bytes); }), SurvivesAsValue(name, bytes)) << name;
  }
}

}  // namespace
