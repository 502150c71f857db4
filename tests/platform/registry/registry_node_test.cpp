#include "platform/registry/registry_node.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/platform/registry/registry_node_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RegistryNodeTest : public RegistryNodeFixture {};

// Names are compared by several bytes at a time.
TEST_F(RegistryNodeTest, TellsLongNamesApartByAnyByte) {
  std::vector<std::string> names = {std::string(40, 'm')};
  for (size_t position = 0; position < names[0].size(); ++position) {
    for (const char other : {'a', '\xE4'}) {
      std::string name = names[0];
      name[position] = other;
      names.push_back(name);
    }
    names.push_back(names[0].substr(0, position));
  }
  CRegistryNode node;
  for (const std::string& name : names) {
    EXPECT_EQ(Put(node, Text(name, "of " + name)), Stored::ADDED) << name;
  }
  for (const std::string& name : names) {
    EXPECT_EQ(Read(node, name), "of " + name);
  }
}

TEST_F(RegistryNodeTest, KeepsValuesAndSubkeysInByteOrder) {
  CRegistryNode node;
  for (const char* name : {"b", "a", "\xC3\xA4", "B", "ab", "", "a b", "1"}) {
    EXPECT_EQ(Put(node, Text(name)), Stored::ADDED) << name;
  }
  node.CreateKey("aa");
  node.CreateKey("Z");
  EXPECT_THAT(Names(node), ElementsAre("", "1", "B", "Z", "a", "a b", "aa", "ab", "b", "\xC3\xA4"));
}

TEST_F(RegistryNodeTest, NamesAreCaseSensitive) {
  CRegistryNode node;
  Put(node, Text("name", "lower"));
  Put(node, Text("NAME", "upper"));
  EXPECT_EQ(Read(node, "name"), "lower");
  EXPECT_EQ(Read(node, "NAME"), "upper");
  EXPECT_EQ(Read(node, "Name"), "(none)");
}

TEST_F(RegistryNodeTest, FindsEachOfManyEntries) {
  CRegistryNode node;
  for (int index = 0; index < 100; ++index) {
    Put(node, Text(std::to_string(index * 37 % 100), std::to_string(index * 37 % 100)));
  }
  for (int index = 0; index < 100; ++index) {
    EXPECT_EQ(Read(node, std::to_string(index)), std::to_string(index));
  }
  EXPECT_THAT(Names(node), SizeIs(100));
}

TEST_F(RegistryNodeTest, ReadValueGivesTypeAndBytes) {
  CRegistryNode node;
  Put(node, Text("text", ""));
  Put(node, CRegistryEntry::MakeBinary("bytes", "ab"));
  Put(node, CRegistryEntry::MakeInteger("number", 0x01020304));
  RegistryValue value;
  EXPECT_TRUE(node.ReadValue("text", value));
  EXPECT_EQ(value.type, REG_SZ);
  EXPECT_EQ(value.bytes, std::string(1, '\0'));
  EXPECT_TRUE(node.ReadValue("bytes", value));
  EXPECT_EQ(value.type, REG_BINARY);
  EXPECT_EQ(value.bytes, "ab");
  EXPECT_TRUE(node.ReadValue("number", value));
  EXPECT_EQ(value.type, REG_DWORD);
  EXPECT_EQ(value.bytes.size(), 4U);
  EXPECT_EQ(*reinterpret_cast<const int32_t*>(value.bytes.data()), 0x01020304);
}

TEST_F(RegistryNodeTest, ReadValueDoesNotReadSubkeys) {
  CRegistryNode node;
  node.CreateKey("key");
  EXPECT_EQ(Read(node, "key"), "(none)");
}

TEST_F(RegistryNodeTest, StoreHandsTheReplacedEntryOut) {
  CRegistryNode node;
  const auto key = node.CreateKey("name");
  Entries replaced;
  EXPECT_EQ(node.Store(Text("name"), replaced), Stored::REPLACED);
  ASSERT_THAT(replaced, SizeIs(1));
  EXPECT_EQ(replaced[0].GetKey(), key);
  EXPECT_EQ(Read(node, "name"), "text");
  EXPECT_THAT(Names(node), SizeIs(1));
}

// The key that was opened last is looked for where it was.
TEST_F(RegistryNodeTest, OpenKeyFindsAKeyThatHasMoved) {
  CRegistryNode node;
  const auto key = node.CreateKey("m");
  EXPECT_EQ(node.OpenKey("m"), key);
  Put(node, Text("a"));
  EXPECT_EQ(node.OpenKey("m"), key);
  Entries removed;
  node.Remove("a", removed);
  EXPECT_EQ(node.OpenKey("m"), key);
  node.Remove("m", removed);
  EXPECT_EQ(node.OpenKey("m"), nullptr);
}

TEST_F(RegistryNodeTest, CreateKeyOpensAnExistingKey) {
  CRegistryNode node;
  const auto key = node.CreateKey("name");
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(node.CreateKey("name"), key);
  EXPECT_EQ(node.OpenKey("name"), key);
}

TEST_F(RegistryNodeTest, KeysAreNotOpenedUnderTheNameOfAValue) {
  CRegistryNode node;
  Put(node, Text("name"));
  EXPECT_EQ(node.OpenKey("name"), nullptr);
  EXPECT_EQ(node.CreateKey("name"), nullptr);
  EXPECT_EQ(node.OpenKey("absent"), nullptr);
  EXPECT_EQ(Read(node, "name"), "text");
}

TEST_F(RegistryNodeTest, AddKeyIfMissingLeavesAKeyAndReplacesAnythingElse) {
  CRegistryNode node;
  EXPECT_TRUE(node.AddKeyIfMissing("key"));
  const auto key = node.OpenKey("key");
  ASSERT_NE(key, nullptr);
  EXPECT_FALSE(node.AddKeyIfMissing("key"));
  EXPECT_EQ(node.OpenKey("key"), key);
  EXPECT_TRUE(node.AddKeyIfMissing("a"));
  Put(node, Text("value"));
  EXPECT_TRUE(node.AddKeyIfMissing("value"));
  EXPECT_NE(node.OpenKey("value")->CreateKey("below"), nullptr);
  std::shared_ptr<CRegistryNode> deleted;
  node.DeleteKey("a", deleted);
  EXPECT_TRUE(node.AddKeyIfMissing("a"));
  EXPECT_NE(node.OpenKey("a")->CreateKey("below"), nullptr);
  EXPECT_THAT(Names(node), ElementsAre("a", "key", "value"));
}

TEST_F(RegistryNodeTest, RemoveHandsTheEntryOut) {
  CRegistryNode node;
  Put(node, Text("a"));
  Put(node, Text("b"));
  Put(node, Text("c"));
  Entries removed;
  EXPECT_FALSE(node.Remove("absent", removed));
  EXPECT_TRUE(node.Remove("b", removed));
  ASSERT_THAT(removed, SizeIs(1));
  EXPECT_EQ(removed[0].GetName(), "b");
  EXPECT_FALSE(node.Remove("b", removed));
  EXPECT_THAT(Names(node), ElementsAre("a", "c"));
}

TEST_F(RegistryNodeTest, DeleteKeyLeavesAnEntryThatOpensAsADeadKey) {
  CRegistryNode node;
  const auto key = node.CreateKey("key");
  std::shared_ptr<CRegistryNode> deleted;
  EXPECT_TRUE(node.DeleteKey("key", deleted));
  EXPECT_EQ(deleted, key);
  EXPECT_THAT(Names(node), ElementsAre("key"));
  const auto dead = node.OpenKey("key");
  ASSERT_NE(dead, nullptr);
  EXPECT_EQ(Put(*dead, Text("name")), Stored::REFUSED);
  EXPECT_EQ(dead->CreateKey("name"), nullptr);
  EXPECT_THAT(Names(*dead), IsEmpty());
  EXPECT_TRUE(node.DeleteKey("key", deleted));
  EXPECT_EQ(deleted, nullptr);
}

TEST_F(RegistryNodeTest, DeletedKeyComesBackThroughCreateKey) {
  CRegistryNode node;
  const auto key = node.CreateKey("key");
  std::shared_ptr<CRegistryNode> deleted;
  node.DeleteKey("key", deleted);
  const auto again = node.CreateKey("key");
  ASSERT_NE(again, nullptr);
  EXPECT_NE(again, key);
  EXPECT_EQ(node.OpenKey("key"), again);
  EXPECT_EQ(Put(*again, Text("name")), Stored::ADDED);
}

TEST_F(RegistryNodeTest, DeleteKeyDeletesSubkeysOnly) {
  CRegistryNode node;
  Put(node, Text("value"));
  std::shared_ptr<CRegistryNode> deleted;
  EXPECT_FALSE(node.DeleteKey("value", deleted));
  EXPECT_FALSE(node.DeleteKey("absent", deleted));
  EXPECT_EQ(Read(node, "value"), "text");
}

TEST_F(RegistryNodeTest, StoreAllSortsAndKeepsTheLastOfEachName) {
  CRegistryNode node;
  Entries entries;
  for (const auto& [name, text] :
       {std::pair{"c", "1"}, {"a", "2"}, {"c", "3"}, {"b", "4"}, {"a", "5"}, {"c", "6"}}) {
    entries.push_back(Text(name, text));
  }
  Entries replaced;
  node.StoreAll(std::move(entries), replaced);
  EXPECT_THAT(Names(node), ElementsAre("a", "b", "c"));
  EXPECT_EQ(Read(node, "a"), "5");
  EXPECT_EQ(Read(node, "b"), "4");
  EXPECT_EQ(Read(node, "c"), "6");
  EXPECT_THAT(replaced, SizeIs(3));
}

TEST_F(RegistryNodeTest, StoreAllReplacesWhatIsThereAndKeepsTheRest) {
  CRegistryNode node;
  const auto key = node.CreateKey("b");
  Put(node, Text("c", "old"));
  Put(node, Text("e", "old"));
  Entries entries;
  for (const char* name : {"d", "b", "e", "a"}) {
    entries.push_back(Text(name, "new"));
  }
  Entries replaced;
  node.StoreAll(std::move(entries), replaced);
  EXPECT_THAT(Names(node), ElementsAre("a", "b", "c", "d", "e"));
  for (const auto& [name, text] :
       {std::pair{"a", "new"}, {"b", "new"}, {"c", "old"}, {"d", "new"}, {"e", "new"}}) {
    EXPECT_EQ(Read(node, name), text) << name;
  }
  ASSERT_THAT(replaced, SizeIs(2));
  EXPECT_EQ(replaced[0].GetKey(), key);
}

TEST_F(RegistryNodeTest, VisitsEntriesInPartsFromANameOn) {
  CRegistryNode node;
  std::vector<std::string> names;
  const auto visit = [&](std::string& next, size_t count) {
    return node.ForEachFrom(next, [&](const CRegistryEntry& entry) {
      names.emplace_back(entry.GetName());
      return --count > 0;
    });
  };
  std::string next;
  EXPECT_FALSE(visit(next, 1));
  for (const char* name : {"", "a", "b", "d", "e"}) {
    Put(node, Text(name, "text"));
  }
  EXPECT_TRUE(visit(next, 3));
  EXPECT_EQ(next, "d");
  EXPECT_EQ(names, (std::vector<std::string>{"", "a", "b"}));
  next = "c";
  EXPECT_FALSE(visit(next, 2));
  EXPECT_EQ(names, (std::vector<std::string>{"", "a", "b", "d", "e"}));
  next = "f";
  EXPECT_FALSE(visit(next, 1));
  node.deleteNode();
  next = "";
  EXPECT_FALSE(visit(next, 1));
  EXPECT_EQ(names.size(), 5U);
}

}  // namespace
