#include "platform/registry/registry.h"

#include <gmock/gmock.h>

#include "platform/registry/registry_node.h"
#include "tests/support/level_lines.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;

constexpr char OPEN_ERROR_LINE[] = "\nCRegistry::Open ##ERROR while opening !!!\n";
constexpr char FREE_LINE[] = "CRegistryNode::deleteNode \"%s\"\n";

class RegistryKeyTest : public RegistryFilesTest {
 protected:
  // The tree below HKEY_LOCAL_MACHINE that most tests start with.
  static constexpr char TREE[] = "Value=s=text\n[A]\nValue=s=text\n[B]\nMark=d=7\n\n\n";

  RegistryKeyTest() { WriteTree(TREE); }

  static bool IsAtB(CRegistry& registry) { return registry.GetValue("Mark") != nullptr; }

  static void ExpectNoKey(const CRegistry& registry) {
    EXPECT_TRUE(registry.GetKey().IsNull());
    EXPECT_EQ(registry.GetPath(), "");
  }

  // The number that stands for a handle in trace lines.
  static std::string Number(const HKEY& key) {
    return std::to_string(static_cast<int32_t>(reinterpret_cast<uintptr_t>(key.GetNode().get())));
  }
};

TEST_F(RegistryKeyTest, OpenTakesBothSeparatorsEverywhere) {
  CRegistry registry;
  for (const char* path : {"A\\B", "A/B", "A\\B\\", "A/B/", "A\\B/", "\\A\\B", "/A/B", "A\\\\B",
                           "A//B", "A\\/B", "\\/A/\\B/\\"}) {
    EXPECT_EQ(registry.Open(path, HKEY_LOCAL_MACHINE), REGISTRY_OK) << path;
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK) << path;
    EXPECT_TRUE(IsAtB(registry)) << path;
    registry.Close();
  }
}

TEST_F(RegistryKeyTest, OpenKeepsThePathWithSlashes) {
  CRegistry registry;
  registry.Open("\\A/B\\", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.GetPath(), "/A/B/");
}

TEST_F(RegistryKeyTest, OpenOfAnEmptyPathOpensTheRootItself) {
  CRegistry registry("A/B", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.Open("", HKEY_LOCAL_MACHINE), REGISTRY_OK);
  EXPECT_EQ(registry.GetPath(), "");
  EXPECT_EQ(registry.GetKey().GetNode(), HKEY(HKEY_LOCAL_MACHINE).GetNode());
}

TEST_F(RegistryKeyTest, OpenBelowTheNullHandleBeginsWithARootKey) {
  CRegistry registry;
  EXPECT_EQ(registry.Open("HKEY_LOCAL_MACHINE\\A\\B", nullptr), REGISTRY_OK);
  EXPECT_TRUE(IsAtB(registry));
  EXPECT_EQ(registry.Open("A\\B", nullptr), REGISTRY_FAILED);
  EXPECT_EQ(registry.Open("", nullptr), REGISTRY_OK);
  EXPECT_EQ(registry.Open("HKEY_LOCAL_MACHINE", registry.GetKey()), REGISTRY_OK);
}

TEST_F(RegistryKeyTest, OpenBelowAKeyHandle) {
  const CRegistry parent("A", HKEY_LOCAL_MACHINE);
  CRegistry registry;
  EXPECT_EQ(registry.Open("B", parent.GetKey()), REGISTRY_OK);
  EXPECT_TRUE(IsAtB(registry));
}

TEST_F(RegistryKeyTest, OpenTakesItsOwnPathAgain) {
  CRegistry registry("A\\B", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.Open(registry.GetPath().c_str(), HKEY_LOCAL_MACHINE), REGISTRY_OK);
  EXPECT_TRUE(IsAtB(registry));
  EXPECT_EQ(registry.GetPath(), "A/B");
}

TEST_F(RegistryKeyTest, OpenDoesNotLookAtTheAccess) {
  CRegistry registry;
  for (const int32_t access : {-1, 0, 1, 0x20019}) {
    EXPECT_EQ(registry.Open("A", HKEY_LOCAL_MACHINE, access), REGISTRY_OK) << access;
  }
}

TEST_F(RegistryKeyTest, OpenOfWhatIsNoKeyFailsAndLeavesNoKeyOpen) {
  for (const char* path : {"Missing", "A\\Missing", "Missing\\A", "Value", "A\\Value", "Value\\A",
                           "a\\b", "A\\B\\Mark", "AB", static_cast<const char*>(nullptr)}) {
    CRegistry registry("A", HKEY_LOCAL_MACHINE);
    EXPECT_EQ(registry.Open(path, HKEY_LOCAL_MACHINE), REGISTRY_FAILED);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_FAILED);
    ExpectNoKey(registry);
  }
}

TEST_F(RegistryKeyTest, OpenAfterAFailureResetsTheStatus) {
  CRegistry registry("Missing", HKEY_LOCAL_MACHINE);
  registry.Open("A", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
}

TEST_F(RegistryKeyTest, OpenIsTracedAtLevel2WithPathAndHandle) {
  CRegistry registry;
  const CRegistry key("A\\B", HKEY_LOCAL_MACHINE);
  ExpectLines({{2, "\nCRegistry::Open \"A\\B\", hKey = " + Number(HKEY_LOCAL_MACHINE) + "\n"},
               {2, "\nCRegistry::Open \"<null>\", hKey = " + Number(key.GetKey()) + "\n"},
               {1, OPEN_ERROR_LINE}},
              [&] {
                registry.Open("A\\B", HKEY_LOCAL_MACHINE);
                registry.Open(nullptr, registry.GetKey());
              });
  const TraceSession session(2);
  registry.Open("", nullptr);
  EXPECT_EQ(session.Texts().back(), "\nCRegistry::Open \"\", hKey = 0\n");
}

TEST_F(RegistryKeyTest, FailureToOpenIsTracedAtLevel1) {
  CRegistry registry;
  EXPECT_EQ(LevelOf(OPEN_ERROR_LINE, [&] { registry.Open("Missing", HKEY_USERS); }), 1U);
  EXPECT_EQ(LevelOf(OPEN_ERROR_LINE, [&] { registry.Open("A", HKEY_LOCAL_MACHINE); }), 0U);
}

TEST_F(RegistryKeyTest, OpenThatFailsLeavesNoKeyOpenAlsoWhenTheSinkThrows) {
  CRegistry registry("A", HKEY_LOCAL_MACHINE);
  TraceSession session(1);
  session.ThrowAt(OPEN_ERROR_LINE);
  EXPECT_ANY_THROW(registry.Open("Missing", HKEY_LOCAL_MACHINE));
  ExpectNoKey(registry);
}

TEST_F(RegistryKeyTest, CreateKeyMakesEveryMissingKeyAndOpensTheLast) {
  {
    CRegistry registry;
    EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "A\\New/Inner\\"), 0);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
    EXPECT_EQ(registry.GetPath(), "A/New/Inner/");
    EXPECT_EQ(registry.SetValue("Name", 1), REGISTRY_OK);
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Value=s=text\n[A]\nValue=s=text\n[B]\nMark=d=7\n\n"
                                              "[New]\n[Inner]\nName=d=1\n\n\n\n"));
}

TEST_F(RegistryKeyTest, CreateKeyOpensAnExistingKeyAsItIs) {
  CRegistry registry;
  EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "A\\B"), 0);
  EXPECT_TRUE(IsAtB(registry));
}

TEST_F(RegistryKeyTest, CreateKeyBelowTheCurrentKey) {
  CRegistry registry("A", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.CreateKey(nullptr, "B"), 0);
  EXPECT_TRUE(IsAtB(registry));
  EXPECT_EQ(registry.GetPath(), "B");
}

TEST_F(RegistryKeyTest, CreateKeyMarksTheTreeDirty) {
  EXPECT_TRUE(Saves([] { CRegistry().CreateKey(HKEY_LOCAL_MACHINE, "A"); }));
  EXPECT_TRUE(Saves([] { CRegistry().CreateKey(HKEY_LOCAL_MACHINE, "New"); }));
}

TEST_F(RegistryKeyTest, CreateKeyWithoutPathOrParentFails) {
  CRegistry registry;
  EXPECT_EQ(registry.CreateKey(nullptr, "A"), -1);
  EXPECT_EQ(registry.GetStatus(), -1);
  EXPECT_EQ(registry.CreateKey(nullptr, ""), -1);
  EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, nullptr), -1);
}

TEST_F(RegistryKeyTest, CreateKeyOfAnEmptyPathChangesNothing) {
  EXPECT_FALSE(Saves([] {
    CRegistry registry("A\\B", HKEY_LOCAL_MACHINE);
    EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, ""), 0);
    EXPECT_EQ(registry.GetStatus(), 0);
    EXPECT_TRUE(IsAtB(registry));
    EXPECT_EQ(registry.GetPath(), "A/B");
  }));
}

TEST_F(RegistryKeyTest, CreateKeyThroughAValueFailsAndLeavesTheValue) {
  CRegistry registry("A\\B", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "Value"), -1);
  EXPECT_EQ(registry.GetStatus(), -1);
  EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "A\\Value\\C"), -1);
  EXPECT_TRUE(IsAtB(registry));
  EXPECT_EQ(registry.GetPath(), "A/B");
  EXPECT_STREQ(static_cast<const char*>(registry.GetValue("Value", HKEY_LOCAL_MACHINE)), "text");
}

TEST_F(RegistryKeyTest, CreateKeyThatFailsStillMarksTheTreeDirty) {
  EXPECT_TRUE(Saves([] { CRegistry().CreateKey(HKEY_LOCAL_MACHINE, "New\\..\\A\\Value"); }));
  EXPECT_TRUE(Saves([] { CRegistry().CreateKey(HKEY_LOCAL_MACHINE, "Value"); }));
}

TEST_F(RegistryKeyTest, CreateKeyIsTracedAtLevel2WithThePath) {
  CRegistry registry;
  ExpectLines({{2, "CRegistry::CreateKey \"A\\B\"\n"}, {2, "CRegistry::CreateKey \"<null>\"\n"}},
              [&] {
                registry.CreateKey(HKEY_USERS, "A\\B");
                registry.CreateKey(HKEY_USERS, nullptr);
              });
}

TEST_F(RegistryKeyTest, DeleteKeyOfWhatIsNoSubkeyFails) {
  EXPECT_FALSE(Saves([] {
    CRegistry registry;
    EXPECT_EQ(registry.DeleteKey("A"), REGISTRY_INVALID);
    registry.Open("", HKEY_LOCAL_MACHINE);
    for (const char* name :
         {"Missing", "Value", "a", "A\\B", "", static_cast<const char*>(nullptr)}) {
      EXPECT_EQ(registry.DeleteKey(name), REGISTRY_INVALID);
      EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
    }
    EXPECT_NE(registry.GetValue("Value"), nullptr);
    EXPECT_EQ(registry.Open("A\\B", HKEY_LOCAL_MACHINE), REGISTRY_OK);
  }));
}

TEST_F(RegistryKeyTest, DeletedKeyIsNotSaved) {
  {
    CRegistry registry("A", HKEY_LOCAL_MACHINE);
    EXPECT_EQ(registry.DeleteKey("B"), REGISTRY_OK);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Value=s=text\n[A]\nValue=s=text\n\n"));
}

TEST_F(RegistryKeyTest, DeletedKeyOpensAsAnEmptyKeyThatStoresNothing) {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  registry.DeleteKey("A");
  EXPECT_EQ(registry.GetValue("A"), nullptr);
  EXPECT_EQ(registry.Open("A\\B", HKEY_LOCAL_MACHINE), REGISTRY_FAILED);
  EXPECT_EQ(registry.Open("A", HKEY_LOCAL_MACHINE), REGISTRY_OK);
  EXPECT_EQ(registry.GetValue("Value"), nullptr);
  EXPECT_EQ(registry.SetValue("Value", 1), REGISTRY_INVALID);
  EXPECT_EQ(registry.CreateKey(nullptr, "B"), -1);
  EXPECT_EQ(registry.GetValue("Value"), nullptr);
  registry.Open("", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.DeleteKey("A"), REGISTRY_OK);
}

TEST_F(RegistryKeyTest, DeletedKeyComesBackThroughCreateKey) {
  {
    CRegistry registry("", HKEY_LOCAL_MACHINE);
    registry.DeleteKey("A");
    EXPECT_EQ(registry.CreateKey(HKEY_LOCAL_MACHINE, "A\\New"), 0);
    EXPECT_EQ(registry.SetValue("Name", 1), REGISTRY_OK);
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Value=s=text\n[A]\n[New]\nName=d=1\n\n\n"));
}

TEST_F(RegistryKeyTest, DeletedKeyComesBackAsAValue) {
  {
    CRegistry registry("", HKEY_LOCAL_MACHINE);
    registry.DeleteKey("A");
    EXPECT_EQ(registry.SetValue("A", 1), REGISTRY_OK);
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("A=d=1\nValue=s=text\n"));
}

TEST_F(RegistryKeyTest, DeletedKeyNameIsFreeAfterDeleteValue) {
  CRegistry registry("", HKEY_LOCAL_MACHINE);
  registry.DeleteKey("A");
  EXPECT_EQ(registry.DeleteValue("A"), REGISTRY_OK);
  EXPECT_EQ(registry.DeleteKey("A"), REGISTRY_INVALID);
  EXPECT_EQ(registry.Open("A", HKEY_LOCAL_MACHINE), REGISTRY_FAILED);
}

TEST_F(RegistryKeyTest, ObjectsInADeletedSubtreeFindNothingAndStoreNothing) {
  {
    CRegistry outer("A", HKEY_LOCAL_MACHINE);
    CRegistry inner("A\\B", HKEY_LOCAL_MACHINE);
    CRegistry(HKEY_LOCAL_MACHINE).DeleteKey("A");
    CRegistry().CreateKey(HKEY_LOCAL_MACHINE, "A\\B");
    for (CRegistry* registry : {&outer, &inner}) {
      EXPECT_EQ(registry->GetValue("Value"), nullptr);
      EXPECT_EQ(registry->GetValue("Mark"), nullptr);
      EXPECT_EQ(registry->SetValue("Name", "text"), REGISTRY_INVALID);
      EXPECT_EQ(registry->CreateKey(nullptr, "New"), -1);
      EXPECT_EQ(registry->DeleteKey("B"), REGISTRY_INVALID);
      EXPECT_EQ(registry->DeleteValue("Value"), REGISTRY_OK);
    }
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Value=s=text\n[A]\n[B]\n\n\n"));
}

TEST_F(RegistryKeyTest, DeletedRootKeyComesBackThroughCreateKey) {
  CRegistry registry("", nullptr);
  EXPECT_EQ(registry.DeleteKey("HKEY_LOCAL_MACHINE"), REGISTRY_OK);
  EXPECT_EQ(CRegistry("A", HKEY_LOCAL_MACHINE).GetStatus(), REGISTRY_FAILED);
  EXPECT_EQ(registry.CreateKey(nullptr, "HKEY_LOCAL_MACHINE\\New"), 0);
  EXPECT_EQ(CRegistry("New", HKEY_LOCAL_MACHINE).GetStatus(), REGISTRY_OK);
}

TEST_F(RegistryKeyTest, DeleteKeyMarksTheTreeDirty) {
  EXPECT_TRUE(Saves([] { CRegistry(HKEY_LOCAL_MACHINE).DeleteKey("A"); }));
}

TEST_F(RegistryKeyTest, DeleteKeyIsTracedAtLevel2WithTheName) {
  CRegistry registry;
  ExpectLines({{2, "CRegistry::DeleteKey \"Name\"\n"}, {2, "CRegistry::DeleteKey \"<null>\"\n"}},
              [&] {
                registry.DeleteKey("Name");
                registry.DeleteKey(nullptr);
              });
}

TEST_F(RegistryKeyTest, DeletedEntriesWithSomethingToFreeAreTracedAtLevel2) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  EXPECT_EQ(LevelOf(FREE_LINE,
                    [&] {
                      registry.CreateKey(HKEY_LOCAL_MACHINE, "New\\Inner");
                      registry.Open("", HKEY_LOCAL_MACHINE);
                      registry.DeleteKey("New");
                    }),
            2U);
  registry.CreateKey(HKEY_LOCAL_MACHINE, "A\\C");
  registry.SetValue("Bytes", "\1", 1, REG_BINARY);
  registry.SetValue("Empty", "");
  registry.SetValue("Number", 1);
  registry.Open("A", HKEY_LOCAL_MACHINE);
  registry.CreateKey(registry.GetKey(), "Gone");
  registry.Open("A", HKEY_LOCAL_MACHINE);
  registry.DeleteKey("Gone");
  registry.Open("", HKEY_LOCAL_MACHINE);
  const TraceSession session(2);
  registry.DeleteKey("A");
  EXPECT_THAT(
      session.Texts(),
      ElementsAre("CRegistry::DeleteKey \"A\"\n", "CRegistryNode::deleteNode \"B\"\n",
                  "CRegistryNode::deleteNode \"Bytes\"\n", "CRegistryNode::deleteNode \"Empty\"\n",
                  "CRegistryNode::deleteNode \"C\"\n", "CRegistryNode::deleteNode \"Value\"\n"));
}

TEST_F(RegistryKeyTest, DeletingSurvivesASinkThatThrows) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  CRegistry inner("A\\B", HKEY_LOCAL_MACHINE);
  {
    TraceSession session(2);
    session.ThrowAt(FREE_LINE);
    EXPECT_EQ(registry.DeleteKey("A"), REGISTRY_OK);
  }
  EXPECT_EQ(inner.GetValue("Mark"), nullptr);
}

TEST_F(RegistryKeyTest, HandleOfARootKeyFollowsTheTree) {
  const HKEY machine = HKEY_LOCAL_MACHINE;
  EXPECT_FALSE(machine.IsNull());
  EXPECT_EQ(machine.GetNode(), nullptr);
  CRegistry registry;
  EXPECT_NE(machine.GetNode(), nullptr);
}

TEST_F(RegistryKeyTest, NullHandleHasNoKey) {
  EXPECT_TRUE(HKEY().IsNull());
  EXPECT_TRUE(HKEY(nullptr).IsNull());
  EXPECT_EQ(HKEY().GetNode(), nullptr);
  EXPECT_TRUE(HKEY(std::shared_ptr<CRegistryNode>()).IsNull());
}

}  // namespace
