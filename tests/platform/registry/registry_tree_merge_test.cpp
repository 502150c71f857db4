#include "platform/registry/registry_tree.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"

namespace {

// The trees as texts.
struct Merge {
  std::string before;
  std::string after;
  std::string tree;

  std::string Run() const {
    CRegistryNode nodes[3];
    ParseRegistryText(before, nodes[0]);
    ParseRegistryText(after, nodes[1]);
    ParseRegistryText(tree, nodes[2]);
    MergeRegistryNodes(nodes[0], nodes[1], nodes[2]);
    return WriteRegistryText(nodes[2]);
  }
};

TEST(RegistryTreeMergeTest, UnchangedTreeBecomesTheNewOne) {
  const std::string before = "b=b=01 \nd=d=1\ne=es=1\ng=s=gone\ns=s=1\n[k]\nv=d=1\n\n";
  const std::string after = "b=b=02 \nd=d=2\ne=es=2\ns=es=1\n[k]\nv=d=2\n[n]\nw=d=3\n\n\n\n";
  EXPECT_EQ((Merge{before, after, before}.Run()), after);
  EXPECT_EQ((Merge{"", after, ""}.Run()), after);
}

TEST(RegistryTreeMergeTest, ChangesOfTheTreeStay) {
  EXPECT_EQ((Merge{"a=d=1\n", "a=d=2\n", "a=d=3\n"}.Run()), "a=d=3\n\n") << "changed";
  EXPECT_EQ((Merge{"a=d=1\n", "a=d=2\n", ""}.Run()), "\n") << "removed";
  EXPECT_EQ((Merge{"", "a=d=2\n", "a=d=3\n"}.Run()), "a=d=3\n\n") << "added";
  EXPECT_EQ((Merge{"a=d=1\n", "", "a=d=3\n"}.Run()), "a=d=3\n\n") << "removed afterwards";
  EXPECT_EQ((Merge{"[k]\n\n", "[k]\na=d=1\n\n", ""}.Run()), "\n") << "removed with its key";
  EXPECT_EQ((Merge{"", "[k]\na=d=1\n\n", "[k]\nb=d=2\n\n"}.Run()), "[k]\na=d=1\nb=d=2\n\n\n");
  EXPECT_EQ((Merge{"", "b=d=1\n", "c=d=1\n"}.Run()), "b=d=1\nc=d=1\n\n");
}

TEST(RegistryTreeMergeTest, KeyThatWasDeletedStaysDeleted) {
  CRegistryNode before;
  CRegistryNode after;
  CRegistryNode tree;
  for (CRegistryNode* node : {&before, &after, &tree}) {
    ParseRegistryText("[k]\na=d=1\n\n", *node);
  }
  std::shared_ptr<CRegistryNode> deleted;
  tree.DeleteKey("k", deleted);
  MergeRegistryNodes(before, after, tree);
  EXPECT_EQ(WriteRegistryText(tree), "\n");
}

TEST(RegistryTreeMergeTest, KeysAndValuesTakeEachOthersPlace) {
  EXPECT_EQ((Merge{"a=d=1\n", "[a]\nb=d=2\n\n", "a=d=1\n"}.Run()), "[a]\nb=d=2\n\n\n");
  EXPECT_EQ((Merge{"[a]\nb=d=2\n\n", "a=d=1\n", "[a]\nb=d=2\n\n"}.Run()), "a=d=1\n\n");
}

TEST(RegistryTreeMergeTest, KeyThatIsGoneIsEmptiedOfWhatWasNotChanged) {
  EXPECT_EQ((Merge{"[a]\nb=d=1\n\n", "", "[a]\nb=d=1\nc=d=2\n\n"}.Run()), "[a]\nc=d=2\n\n\n");
}

TEST(RegistryTreeMergeTest, KeysThatAreOpenStayTheSame) {
  CRegistryNode before;
  CRegistryNode after;
  CRegistryNode tree;
  ParseRegistryText("[k]\na=d=1\n\n", after);
  const auto key = tree.CreateKey("k");
  MergeRegistryNodes(before, after, tree);
  RegistryValue value;
  EXPECT_TRUE(key->ReadValue("a", value));
}

TEST(RegistryTreeMergeTest, DeepTreesNeedNoStack) {
  std::string text;
  for (int depth = 0; depth < 100'000; ++depth) {
    text += "[k]\n";
  }
  EXPECT_EQ((Merge{"", text, ""}.Run()), text + std::string(100'001, '\n'));
}

}  // namespace
