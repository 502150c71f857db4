// How keys end: by being killed, cleared or no longer referred to.

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <utility>

#include "platform/registry/registry_node.h"
#include "tests/platform/registry/registry_node_fixture.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RegistryNodeEndTest : public RegistryNodeFixture {};

TEST_F(RegistryNodeEndTest, DeadKeyIsEmptyAndStoresNothing) {
  CRegistryNode node;
  Put(node, Text("name"));
  node.CreateKey("key");
  node.deleteNode();
  EXPECT_THAT(Names(node), IsEmpty());
  EXPECT_EQ(Read(node, "name"), "(none)");
  EXPECT_EQ(node.OpenKey("key"), nullptr);
  EXPECT_EQ(node.CreateKey("new"), nullptr);
  EXPECT_EQ(Put(node, Text("new")), Stored::REFUSED);
  Entries entries;
  entries.push_back(Text("new"));
  Entries others;
  node.StoreAll(std::move(entries), others);
  EXPECT_FALSE(node.Remove("name", others));
  std::shared_ptr<CRegistryNode> deleted;
  EXPECT_FALSE(node.DeleteKey("key", deleted));
  EXPECT_THAT(Names(node), IsEmpty());
}

TEST_F(RegistryNodeEndTest, DeleteNodeKillsEverythingBelow) {
  CRegistryNode node;
  const auto outer = node.CreateKey("outer");
  const auto inner = outer->CreateKey("inner");
  Put(*inner, Text("name"));
  node.deleteNode();
  for (const auto& key : {outer, inner}) {
    EXPECT_THAT(Names(*key), IsEmpty());
    EXPECT_EQ(Put(*key, Text("name")), Stored::REFUSED);
  }
}

TEST_F(RegistryNodeEndTest, DeleteNodeTracesInnerEntriesBeforeTheirKey) {
  CRegistryNode node;
  Put(*node.CreateKey("b")->CreateKey("c"), Text("d"));
  Put(*node.OpenKey("b"), Text("e"));
  Put(node, CRegistryEntry::MakeBinary("a", ""));
  Put(node, CRegistryEntry::MakeInteger("number", 1));
  std::shared_ptr<CRegistryNode> deleted;
  node.CreateKey("gone");
  node.DeleteKey("gone", deleted);
  const TraceSession session(2);
  node.deleteNode();
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistryNode::deleteNode \"a\"\n", "CRegistryNode::deleteNode \"d\"\n",
                          "CRegistryNode::deleteNode \"c\"\n", "CRegistryNode::deleteNode \"e\"\n",
                          "CRegistryNode::deleteNode \"b\"\n"));
}

TEST_F(RegistryNodeEndTest, KeyIsDeadBeforeItsEntriesAreFreed) {
  CRegistryNode node;
  Put(node, Text("a"));
  Put(node, Text("b"));
  node.CreateKey("c");
  EXPECT_NE(node.OpenKey("c"), nullptr);
  TraceSession session(2);
  int lines = 0;
  session.CallAt("CRegistryNode::deleteNode \"%s\"\n", [&] {
    ++lines;
    EXPECT_THAT(Names(node), IsEmpty());
    std::string next = "b";
    EXPECT_FALSE(node.ForEachFrom(next, [](const CRegistryEntry& entry) {
      ADD_FAILURE() << entry.GetName();
      return true;
    }));
    EXPECT_EQ(Read(node, "b"), "(none)");
    EXPECT_EQ(node.OpenKey("c"), nullptr);
    Entries entries;
    entries.push_back(Text("d"));
    Entries others;
    node.StoreAll(std::move(entries), others);
    EXPECT_EQ(Put(node, Text("e")), Stored::REFUSED);
    EXPECT_FALSE(node.Remove("b", others));
    std::shared_ptr<CRegistryNode> deleted;
    EXPECT_FALSE(node.DeleteKey("c", deleted));
    node.deleteNode();
  });
  node.deleteNode();
  EXPECT_EQ(lines, 3);
}

TEST_F(RegistryNodeEndTest, ClearKillsEverythingBelowAndLeavesTheKeyAlive) {
  CRegistryNode node;
  const auto outer = node.CreateKey("outer");
  const auto inner = outer->CreateKey("inner");
  const TraceSession session(5);
  node.Clear();
  EXPECT_THAT(session.Lines(), IsEmpty());
  EXPECT_THAT(Names(node), IsEmpty());
  EXPECT_EQ(Put(node, Text("name")), Stored::ADDED);
  EXPECT_EQ(Put(*outer, Text("name")), Stored::REFUSED);
  EXPECT_EQ(Put(*inner, Text("name")), Stored::REFUSED);
}

TEST_F(RegistryNodeEndTest, EndOfAKeyKillsWhatIsBelow) {
  auto outer = std::make_shared<CRegistryNode>();
  const auto inner = outer->CreateKey("middle")->CreateKey("inner");
  Put(*inner, Text("name"));
  outer.reset();
  EXPECT_EQ(Read(*inner, "name"), "(none)");
  EXPECT_EQ(Put(*inner, Text("name")), Stored::REFUSED);
}

TEST_F(RegistryNodeEndTest, DeepTreesAreFreedWithoutRecursion) {
  for (const bool isDeleted : {false, true}) {
    CRegistryNode top;
    std::shared_ptr<CRegistryNode> key = top.CreateKey("key");
    for (int depth = 0; depth < 100'000; ++depth) {
      key = key->CreateKey("key");
    }
    if (isDeleted) {
      top.deleteNode();
    }
  }
}

TEST_F(RegistryNodeEndTest, KillRegistryKeysKillsTheKeysAmongTheEntries) {
  CRegistryNode node;
  const auto key = node.CreateKey("key");
  Put(node, Text("value"));
  Entries removed;
  node.Remove("key", removed);
  node.Remove("value", removed);
  KillRegistryKeys(removed);
  EXPECT_EQ(Put(*key, Text("name")), Stored::REFUSED);
}

}  // namespace
