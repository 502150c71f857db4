#include "platform/registry/registry.h"

#include <gmock/gmock.h>

#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char POINTER_LINE[] = "CRegistry::OpenPointer \"%s\"\n";
constexpr char POINTED_OPEN_LINE[] = "\nCRegistry::Open \"%s\", hKey = %d\n";
constexpr char POINTED_ERROR_LINE[] = "\nCRegistry::Open ##ERROR while opening !!!\n";
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

TEST_F(RegistryTest, OpensTheKeyOfItsOwnPath) {
  WriteTree(TREE);
  CRegistry registry("Software\\Talvor", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.Open(registry.GetPath().c_str(), HKEY_LOCAL_MACHINE), REGISTRY_OK);
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

class RegistryPointerTest : public RegistryFilesTest {
 protected:
  RegistryPointerTest() {
    setenv("REGISTRY_TEST", "hkey_local_machine\\Target", 1);
    WriteTree(
        "[Other]\n"
        "Elsewhere=s=HKEY_LOCAL_MACHINE\\Target\n"
        "\n"
        "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n"
        "[5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13]\n"
        "Bytes=b=48 4b\n"
        "Doubled=s=HKEY_LOCAL_MACHINE\\\\Target\\\n"
        "Empty=s=\n"
        "Expanded=es=%REGISTRY_TEST%\n"
        "Lower=s=hkey_local_machine/Target\n"
        "LowerTarget=s=HKEY_LOCAL_MACHINE\\target\n"
        "Missing=s=HKEY_LOCAL_MACHINE\\Nothing\n"
        "Number=d=5\n"
        "Plain=s=HKEY_LOCAL_MACHINE\\Target\n"
        "Root=s=HKEY_LOCAL_MACHINE\\\n"
        "Unknown=s=Target\\Inner\n"
        "Word=s=HKEY_LOCAL_MACHINE\n"
        "[Subkey]\n"
        "\n\n\n\n\n\n"
        "[Target]\nMark=d=7\n[Inner]\n\n\n");
  }

  static bool IsAtTarget(CRegistry& registry) { return registry.GetValue("Mark") != nullptr; }
};

TEST_F(RegistryPointerTest, OpensTheKeyThatTheValueNames) {
  for (const char* name : {"Plain", "Lower", "Expanded", "Doubled"}) {
    CRegistry registry;
    EXPECT_EQ(registry.OpenPointer(name, HKEY_LOCAL_MACHINE), REGISTRY_OK) << name;
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK) << name;
    EXPECT_TRUE(IsAtTarget(registry)) << name;
  }
}

TEST_F(RegistryPointerTest, KeepsThePathWithTheRootKeyInUpperCase) {
  CRegistry registry;
  registry.OpenPointer("Lower", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.GetPath(), "HKEY_LOCAL_MACHINE/Target");
}

TEST_F(RegistryPointerTest, OpensARootKeyItself) {
  CRegistry registry;
  EXPECT_EQ(registry.OpenPointer("Root", HKEY_LOCAL_MACHINE), REGISTRY_OK);
  EXPECT_EQ(registry.GetKey().GetNode(), HKEY(HKEY_LOCAL_MACHINE).GetNode());
}

TEST_F(RegistryPointerTest, FailsWithoutAUsablePointerAndLeavesNoKeyOpen) {
  for (const char* name : {"Absent", "Empty", "Word", "Bytes", "Number", "Subkey", "Unknown",
                           "Missing", "LowerTarget", static_cast<const char*>(nullptr)}) {
    CRegistry registry("Target", HKEY_LOCAL_MACHINE);
    EXPECT_EQ(registry.OpenPointer(name, HKEY_LOCAL_MACHINE), REGISTRY_FAILED);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_FAILED);
    EXPECT_TRUE(registry.GetKey().IsNull());
    EXPECT_EQ(registry.GetPath(), "");
  }
}

TEST_F(RegistryPointerTest, FailsWithoutThePointerKey) {
  CRegistry registry("Target", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.OpenPointer("Plain", HKEY_USERS), REGISTRY_FAILED);
  EXPECT_EQ(registry.GetStatus(), REGISTRY_FAILED);
  EXPECT_TRUE(registry.GetKey().IsNull());
}

TEST_F(RegistryPointerTest, TakesAnotherPointerKey) {
  CRegistry registry;
  EXPECT_EQ(registry.OpenPointer("Other", "Elsewhere", HKEY_LOCAL_MACHINE, -1), REGISTRY_OK);
  EXPECT_TRUE(IsAtTarget(registry));
  EXPECT_EQ(registry.OpenPointer("Other", "Plain", HKEY_LOCAL_MACHINE, -1), REGISTRY_FAILED);
  EXPECT_EQ(registry.OpenPointer(nullptr, "Plain", HKEY_LOCAL_MACHINE, -1), REGISTRY_FAILED);
}

TEST_F(RegistryPointerTest, IsTracedAtLevel2WithThePointerKey) {
  CRegistry registry;
  EXPECT_EQ(LevelOf(POINTER_LINE, [&] { registry.OpenPointer("Plain", HKEY_USERS); }), 2U);
  const TraceSession session(2);
  registry.OpenPointer("Plain", HKEY_LOCAL_MACHINE);
  registry.OpenPointer("Other", "Elsewhere", HKEY_LOCAL_MACHINE, -1);
  const std::vector<std::string> texts = session.Texts();
  ASSERT_EQ(texts.size(), 6U);
  EXPECT_EQ(texts[0],
            "CRegistry::OpenPointer \"SYSTEM\\CurrentControlSet\\Control\\UUID\\"
            "5B2E9A40-7C13-4F8D-9A61-2D7E0C4B8F13\"\n");
  EXPECT_EQ(texts[2], "\nCRegistry::Open \"HKEY_LOCAL_MACHINE/Target\", hKey = 0\n");
  EXPECT_EQ(texts[3], "CRegistry::OpenPointer \"Other\"\n");
}

TEST_F(RegistryPointerTest, UnusablePointerIsNoFailureToOpen) {
  CRegistry registry;
  const TraceSession session(5);
  registry.OpenPointer("Absent", HKEY_LOCAL_MACHINE);
  registry.OpenPointer("Word", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(session.Count(POINTED_ERROR_LINE), 0);
  registry.OpenPointer("Missing", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(session.Count(POINTED_ERROR_LINE), 1);
}

TEST_F(RegistryPointerTest, ReadRegistryPointerReadsTexts) {
  std::string text;
  EXPECT_TRUE(ReadRegistryPointer(text, "Plain"));
  EXPECT_EQ(text, "HKEY_LOCAL_MACHINE\\Target");
  EXPECT_TRUE(ReadRegistryPointer(text, "Expanded"));
  EXPECT_EQ(text, "hkey_local_machine\\Target");
  EXPECT_TRUE(ReadRegistryPointer(text, "Empty"));
  EXPECT_EQ(text, "");
}

TEST_F(RegistryPointerTest, ReadRegistryPointerLeavesTheTextWithoutOne) {
  std::string text = "before";
  for (const char* name : {"Absent", "Number", "Bytes", "Subkey"}) {
    EXPECT_FALSE(ReadRegistryPointer(text, name)) << name;
    EXPECT_EQ(text, "before");
  }
  EXPECT_FALSE(ReadRegistryPointer(text, nullptr));
}

TEST_F(RegistryPointerTest, ReadRegistryPointerTriesTwice) {
  std::string text;
  const TraceSession session(2);
  EXPECT_TRUE(ReadRegistryPointer(text, "Plain"));
  EXPECT_EQ(session.Count(POINTED_OPEN_LINE), 1);
  EXPECT_FALSE(ReadRegistryPointer(text, "Absent"));
  EXPECT_EQ(session.Count(POINTED_OPEN_LINE), 3);
}

TEST_F(RegistryPointerTest, ReadRegistryPointerFindsWhatComesBeforeItsSecondAttempt) {
  TraceSession session(2);
  int attempts = 0;
  session.CallAt(POINTED_OPEN_LINE, [&attempts] {
    if (++attempts == 2) {
      CRegistry registry;
      registry.CreateKey(HKEY_LOCAL_MACHINE, REGISTRY_POINTER_KEY);
      registry.SetValue("Late", "text");
    }
  });
  std::string text;
  EXPECT_TRUE(ReadRegistryPointer(text, "Late"));
  EXPECT_EQ(text, "text");
}

TEST_F(RegistryPointerTest, ReadRegistryPointerSavesADirtyTree) {
  CRegistry writer(HKEY_USERS);
  writer.SetValue("Name", 1);
  EXPECT_TRUE(Saves([] {
    std::string text;
    ReadRegistryPointer(text, "Plain");
  }));
}

}  // namespace
