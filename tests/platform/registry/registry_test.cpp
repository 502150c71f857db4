#include "platform/registry/registry.h"

#include <gmock/gmock.h>

#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char INIT_LINE[] = "\nCRegistry::InitClass";
constexpr char REINITIALIZE_LINE[] = "CRegistry::InitClass() : re-initialize the registry-tree\n";

class RegistryTest : public RegistryFilesTest {
 protected:
  // An object whose every state differs from that of a new one.
  static CRegistry MakeUsed() {
    CRegistry registry("Software\\Talvor", HKEY_LOCAL_MACHINE);
    registry.SetExpand(false);
    registry.GetValue("Home");
    registry.QueryValue(nullptr, "Missing", nullptr);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_NO_DATA);
    return registry;
  }

  static void ExpectFreshState(const CRegistry& registry) {
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
    EXPECT_EQ(registry.GetValueType(), 0U);
    EXPECT_EQ(registry.GetValueLength(), 0U);
  }

  static std::string QueryHome(CRegistry& registry) {
    std::string text;
    registry.QueryValue(text, "Home");
    return text;
  }

  static constexpr char TREE[] = "[Software]\n[Talvor]\nHome=es=%REGISTRY_TEST%\n\n\n";

  RegistryTest() { setenv("REGISTRY_TEST", "expanded", 1); }
};

TEST_F(RegistryTest, ConstructionOpensNoKey) {
  const CRegistry registry;
  ExpectFreshState(registry);
  EXPECT_TRUE(registry.GetKey().IsNull());
  EXPECT_EQ(registry.GetPath(), "");
}

TEST_F(RegistryTest, ConstructionFromAHandleMakesItTheCurrentKey) {
  WriteTree("Name=s=text\n");
  CRegistry registry(HKEY_LOCAL_MACHINE);
  ExpectFreshState(registry);
  EXPECT_EQ(registry.GetPath(), "");
  EXPECT_NE(registry.GetValue("Name"), nullptr);
}

TEST_F(RegistryTest, ConstructionFromTheNullHandleOpensNoKey) {
  const HKEY null;
  CRegistry registry(null);
  EXPECT_TRUE(registry.GetKey().IsNull());
  EXPECT_EQ(registry.SetValue("Name", 1), REGISTRY_INVALID);
}

TEST_F(RegistryTest, ConstructionFromAPathOpensIt) {
  WriteTree(TREE);
  CRegistry registry("Software\\Talvor", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
  EXPECT_EQ(registry.GetPath(), "Software/Talvor");
  EXPECT_EQ(QueryHome(registry), "expanded");
}

TEST_F(RegistryTest, ConstructionFromAMissingPathKeepsTheFailureAsStatus) {
  const CRegistry registry("Software", HKEY_LOCAL_MACHINE, -1);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_FAILED);
  EXPECT_TRUE(registry.GetKey().IsNull());
}

TEST_F(RegistryTest, CopyTakesKeyAndPathAndNothingElse) {
  WriteTree(TREE);
  CRegistry used = MakeUsed();
  CRegistry copy(used);
  ExpectFreshState(copy);
  EXPECT_EQ(copy.GetPath(), "Software/Talvor");
  used.Close();
  EXPECT_EQ(copy.GetPath(), "Software/Talvor");
  EXPECT_EQ(QueryHome(copy), "expanded");
}

TEST_F(RegistryTest, AssignmentTakesKeyAndPathAndResetsTheRest) {
  WriteTree(TREE);
  CRegistry used = MakeUsed();
  CRegistry other = MakeUsed();
  other.Close();
  other = used;
  ExpectFreshState(other);
  EXPECT_EQ(other.GetPath(), "Software/Talvor");
  used.Close();
  EXPECT_EQ(other.GetPath(), "Software/Talvor");
  EXPECT_EQ(QueryHome(other), "expanded");
}

TEST_F(RegistryTest, AssignmentToItselfDoesNothing) {
  WriteTree(TREE);
  CRegistry used("Software\\Talvor", HKEY_LOCAL_MACHINE);
  used.SetExpand(false);
  used.DeleteKey("Missing");
  const CRegistry& same = used;
  const TraceSession session(5);
  used = same;
  EXPECT_TRUE(session.Lines().empty());
  EXPECT_EQ(used.GetStatus(), REGISTRY_INVALID);
  EXPECT_EQ(used.GetPath(), "Software/Talvor");
  EXPECT_EQ(QueryHome(used), "%REGISTRY_TEST%");
}

TEST_F(RegistryTest, CopyConstructionAndAssignmentRunInitClass) {
  CRegistry registry;
  const TraceSession session(2);
  const CRegistry copy(registry);
  EXPECT_EQ(session.Count(INIT_LINE), 1);
  registry = copy;
  EXPECT_EQ(session.Count(INIT_LINE), 2);
}

TEST_F(RegistryTest, CloseLeavesNoKeyOpen) {
  WriteTree(TREE);
  CRegistry registry("Software", HKEY_LOCAL_MACHINE);
  registry.Close();
  EXPECT_TRUE(registry.GetKey().IsNull());
  EXPECT_EQ(registry.GetPath(), "");
  EXPECT_EQ(registry.DeleteValue("Talvor"), REGISTRY_INVALID);
}

TEST_F(RegistryTest, InitClassResetsTheStateAndKeepsTheKey) {
  WriteTree(TREE);
  CRegistry registry = MakeUsed();
  registry.SetExpand(false);
  registry.GetValue("Home");
  EXPECT_EQ(registry.GetValueType(), REG_EXPAND_SZ);
  registry.InitClass();
  ExpectFreshState(registry);
  EXPECT_EQ(QueryHome(registry), "expanded");
}

TEST_F(RegistryTest, InitClassIsTracedAtLevel2) {
  EXPECT_EQ(LevelOf(INIT_LINE, [] { const CRegistry registry; }), 2U);
}

TEST_F(RegistryTest, ReinitializationIsTracedAtLevel1) {
  const CRegistry first;
  EXPECT_EQ(LevelOf(REINITIALIZE_LINE, [] { const CRegistry registry; }), 1U);
}

TEST_F(RegistryTest, ReinitializationIsOneLineForEachInitClassInWhichNoRootKeyWasMissing) {
  WriteFile(REGISTRY_FILE,
            "[HKEY_LOCAL_MACHINE]\n\n[HKEY_CLASSES_ROOT]\n\n[HKEY_USERS]\n\n"
            "[HKEY_CURRENT_USER]\n\n\n");
  const TraceSession session(2);
  CRegistry registry;
  EXPECT_EQ(session.Count(REINITIALIZE_LINE), 0);
  registry.InitClass();
  EXPECT_EQ(session.Count(REINITIALIZE_LINE), 1);
  registry.InitClass();
  EXPECT_EQ(session.Count(REINITIALIZE_LINE), 2);
}

TEST_F(RegistryTest, ReinitializationIsTracedForTheFirstObjectOfACompleteTree) {
  WriteTree("");
  const TraceSession session(2);
  const CRegistry registry;
  EXPECT_EQ(session.Count(REINITIALIZE_LINE), 1);
  EXPECT_EQ(session.Formats().back(), REINITIALIZE_LINE);
}

TEST_F(RegistryTest, InitClassAddsEveryMissingRootKey) {
  CRegistry registry;
  for (const RootKey root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_USERS, HKEY_CLASSES_ROOT,
                             HKEY_CURRENT_CONFIG}) {
    EXPECT_EQ(registry.Open("", root), REGISTRY_OK) << root;
    EXPECT_EQ(registry.SetValue(ROOT_KEY_NAMES[root], 1), REGISTRY_OK);
    EXPECT_EQ(registry.Open(ROOT_KEY_NAMES[root], nullptr), REGISTRY_OK) << root;
    EXPECT_NE(registry.GetValue(ROOT_KEY_NAMES[root]), nullptr) << root;
  }
}

TEST_F(RegistryTest, InitClassKeepsTheRootKeysThatAreThere) {
  WriteFile(REGISTRY_FILE, "[HKEY_USERS]\nName=d=5\n\n\n");
  CRegistry registry(HKEY_USERS);
  EXPECT_NE(registry.GetValue("Name"), nullptr);
}

TEST_F(RegistryTest, AddingRootKeysDoesNotMakeTheTreeDirty) {
  EXPECT_FALSE(Saves([] { const CRegistry registry; }));
  EXPECT_TRUE(Saves([] { CRegistry(HKEY_USERS).SetValue("Name", 1); }));
}

TEST_F(RegistryTest, EndOfAnObjectSavesTheTreeOnce) {
  {
    CRegistry registry(HKEY_LOCAL_MACHINE);
    EXPECT_EQ(registry.SetValue("Name", "text"), REGISTRY_OK);
    EXPECT_EQ(ReadFile(REGISTRY_FILE), "(missing)");
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=s=text\n"));
  EXPECT_FALSE(Saves([] { const CRegistry registry; }));
}

TEST_F(RegistryTest, EndOfAnyObjectSavesWhatAnotherChanged) {
  CRegistry writer(HKEY_LOCAL_MACHINE);
  writer.SetValue("Name", 1);
  { const CRegistry other; }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=1\n"));
}

TEST_F(RegistryTest, EndOfAnObjectSurvivesASinkThatThrows) {
  TraceSession session(2);
  session.ThrowAt("\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]");
  { CRegistry(HKEY_LOCAL_MACHINE).SetValue("Name", 1); }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=1\n"));
}

}  // namespace
