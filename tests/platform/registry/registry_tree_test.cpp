#include "platform/registry/registry_tree.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_text.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/failing_new.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char SETUP_LINE[] = "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n";
constexpr char BACKUP_LINE[] =
    "CRegistry: WARNING: Could not restore tree from \"%s\", trying backup\n";
constexpr char DEFAULT_LINE[] =
    "CRegistry: WARNING: Could not restore tree from \"%s\", trying default\n";
constexpr char FAILED_LINE[] =
    "CRegistry: ERROR: Could not restore tree from \"%s\", restoring failed\n";
constexpr char NOT_OPENED_LINE[] = "CRegistry: WARNING: Could not open \"%s\"\n";
constexpr char LENGTH_LINE[] = "CRegistry: WARNING: The length of \"%s\" is not sufficient\n";
constexpr char CONTENT_LINE[] =
    "CRegistry: WARNING: Node restoring from \"%s\" failed - check the content of this file\n";
constexpr char PATH_LINE[] = "CRegistry: ERROR: Empty file path";
constexpr char ERROR_LINE[] = "CRegistry: SetupTree(): ## ERROR during Setup\n";
constexpr char SAVE_LINE[] = "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]";

class RegistryTreeTest : public RegistryFilesTest {
 protected:
  static std::string Loaded() {
    m_oTree.SetupTree(false);
    return Content();
  }

  static std::string Content() { return WriteRegistryText(*m_oTree.GetTop()); }

  // Sets the tree up as a new process does.
  static void SetUpAnew() {
    m_oTree.Release();
    m_oTree.SetupTree(false);
  }

  static void Change(int32_t value) { CRegistry(HKEY_LOCAL_MACHINE).SetValue("Name", value); }

  static inline CRegistryTree& m_oTree = CRegistryTree::Get();
};

TEST_F(RegistryTreeTest, LoadsTheCurrentFileAndNoOther) {
  WriteFile(REGISTRY_FILE, "a=d=1\n\n");
  WriteFile(REGISTRY_BACKUP_FILE, "b=d=1\n\n");
  WriteFile(REGISTRY_DEFAULT_FILE, "c=d=1\n\n");
  const TraceSession session(5);
  EXPECT_EQ(Loaded(), "a=d=1\n\n");
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistry: SetupTree(): ForceSetup=0, MIsSetup=0, MIsDirty=0\n"));
}

TEST_F(RegistryTreeTest, LoadsTheBackupWhenTheCurrentFileIsMissing) {
  WriteFile(REGISTRY_BACKUP_FILE, "b=d=1\n\n");
  WriteFile(REGISTRY_DEFAULT_FILE, "c=d=1\n\n");
  const TraceSession session(1);
  EXPECT_EQ(Loaded(), "b=d=1\n\n");
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistry: WARNING: Could not open \"/etc/qamrel/registry\"\n",
                          "CRegistry: WARNING: Could not restore tree from "
                          "\"/etc/qamrel/registry\", trying backup\n"));
}

TEST_F(RegistryTreeTest, LoadsTheBackupWhenTheCurrentFileIsEmpty) {
  WriteFile(REGISTRY_FILE, "");
  WriteFile(REGISTRY_BACKUP_FILE, "b=d=1\n\n");
  const TraceSession session(1);
  EXPECT_EQ(Loaded(), "b=d=1\n\n");
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistry: WARNING: The length of \"/etc/qamrel/registry\" is not "
                          "sufficient\n",
                          "CRegistry: WARNING: Could not restore tree from "
                          "\"/etc/qamrel/registry\", trying backup\n"));
}

TEST_F(RegistryTreeTest, LoadsTheDefaultWhenNothingIsReadFromTheOthers) {
  WriteFile(REGISTRY_FILE, "ignored\n");
  WriteFile(REGISTRY_BACKUP_FILE, "\n");
  WriteFile(REGISTRY_DEFAULT_FILE, "c=d=1\n\n");
  const TraceSession session(1);
  EXPECT_EQ(Loaded(), "c=d=1\n\n");
  EXPECT_THAT(session.Texts(),
              ElementsAre("CRegistry: WARNING: Node restoring from \"/etc/qamrel/registry\" failed "
                          "- check the content of this file\n",
                          "CRegistry: WARNING: Could not restore tree from "
                          "\"/etc/qamrel/registry\", trying backup\n",
                          "CRegistry: WARNING: Node restoring from \"/etc/qamrel/registry.old\" "
                          "failed - check the content of this file\n",
                          "CRegistry: WARNING: Could not restore tree from "
                          "\"/etc/qamrel/registry.old\", trying default\n"));
}

TEST_F(RegistryTreeTest, GoesOnWithAnEmptyTreeWithoutAnyFile) {
  const TraceSession session(1);
  EXPECT_EQ(Loaded(), "\n");
  EXPECT_THAT(session.Formats(), ElementsAre(NOT_OPENED_LINE, BACKUP_LINE, NOT_OPENED_LINE,
                                             DEFAULT_LINE, NOT_OPENED_LINE, FAILED_LINE));
  EXPECT_EQ(session.Texts().back(),
            "CRegistry: ERROR: Could not restore tree from \"/etc/qamrel/registry.default\", "
            "restoring failed\n");
  m_oTree.SetupTree(false);
  EXPECT_EQ(session.Lines().size(), 6U);
}

TEST_F(RegistryTreeTest, FileOfEmptyKeysLoads) {
  WriteFile(REGISTRY_FILE, "[HKEY_USERS]\n\n\n");
  WriteFile(REGISTRY_BACKUP_FILE, "b=d=1\n\n");
  EXPECT_EQ(Loaded(), "[HKEY_USERS]\n\n\n");
}

TEST_F(RegistryTreeTest, IntegerLineWithoutDigitsKeepsTheBackupFromLoading) {
  WriteFile(REGISTRY_FILE, "a=d=x\n");
  WriteFile(REGISTRY_BACKUP_FILE, "b=d=1\n\n");
  EXPECT_EQ(Loaded(), "\n");
}

TEST_F(RegistryTreeTest, EveryLoadFailureIsTracedAtLevel1) {
  for (const char* line : {NOT_OPENED_LINE, BACKUP_LINE, DEFAULT_LINE, FAILED_LINE}) {
    EXPECT_EQ(LevelOf(line, SetUpAnew), 1U) << line;
  }
  WriteFile(REGISTRY_FILE, "");
  EXPECT_EQ(LevelOf(LENGTH_LINE, SetUpAnew), 1U);
  WriteFile(REGISTRY_FILE, "ignored\n");
  EXPECT_EQ(LevelOf(CONTENT_LINE, SetUpAnew), 1U);
}

TEST_F(RegistryTreeTest, SetupIsTracedAtLevel2) { EXPECT_EQ(LevelOf(SETUP_LINE, SetUpAnew), 2U); }

TEST_F(RegistryTreeTest, SecondSetupDoesNothing) {
  WriteFile(REGISTRY_FILE, "a=d=1\n\n");
  Loaded();
  WriteFile(REGISTRY_FILE, "a=d=2\n\n");
  const TraceSession session(5);
  m_oTree.SetupTree(false);
  EXPECT_THAT(session.Lines(), IsEmpty());
  EXPECT_EQ(Content(), "a=d=1\n\n");
}

TEST_F(RegistryTreeTest, ForcedSetupReplacesWhatTheFileHoldsAndKeepsTheRest) {
  WriteFile(REGISTRY_FILE, "a=d=1\nb=d=1\n[c]\nd=d=1\n\n\n");
  Loaded();
  WriteFile(REGISTRY_FILE, "a=d=2\n[c]\n\n\n");
  const TraceSession session(2);
  m_oTree.SetupTree(true);
  EXPECT_EQ(session.Texts()[0], "CRegistry: SetupTree(): ForceSetup=1, MIsSetup=1, MIsDirty=0\n");
  EXPECT_EQ(Content(), "a=d=2\nb=d=1\n[c]\n\n\n");
}

TEST_F(RegistryTreeTest, ForcedSetupKeepsTheTreeWithoutAReadableFile) {
  WriteFile(REGISTRY_FILE, "a=d=1\n\n");
  Loaded();
  std::filesystem::remove(REGISTRY_FILE);
  m_oTree.SetupTree(true);
  EXPECT_EQ(Content(), "a=d=1\n\n");
}

// More than is loaded; its content is whole again without the rest.
constexpr size_t TOO_LONG = (size_t{64} << 20) + 1;

TEST_F(RegistryTreeTest, CurrentFileThatCannotBeReadIsNeverSavedOver) {
  const std::string current = TreeText("Name=d=1\nOther=d=1\n");
  WriteFile(REGISTRY_FILE, current);
  std::filesystem::resize_file(REGISTRY_FILE, TOO_LONG);
  WriteFile(REGISTRY_BACKUP_FILE, TreeText("Name=d=0\nOther=d=0\n"));
  const TraceSession session(1);
  Change(2);
  EXPECT_EQ(Content(), TreeText("Name=d=2\nOther=d=0\n"));
  ASSERT_EQ(std::filesystem::file_size(REGISTRY_FILE), TOO_LONG);
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), TreeText("Name=d=0\nOther=d=0\n"));
  EXPECT_EQ(session.Count(NOT_OPENED_LINE), 2);
  EXPECT_FALSE(m_oTree.SaveTree());

  std::filesystem::resize_file(REGISTRY_FILE, current.size());
  EXPECT_TRUE(m_oTree.SaveTree());
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=2\nOther=d=1\n"));
  EXPECT_EQ(ReadFile(REGISTRY_BACKUP_FILE), current);
}

TEST_F(RegistryTreeTest, ContentThatCouldOnceNotBeReadForWantOfDescriptorsIsInTheNextFile) {
  WriteTree("Other=d=1\n");
  {
    const DescriptorLimit none(0);
    Loaded();
  }
  Change(1);
  Change(2);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=2\nOther=d=1\n"));
}

TEST_F(RegistryTreeTest, CurrentFileThatWasRemovedSinceKeepsNothingFromBeingSaved) {
  WriteTree("Other=d=1\n");
  {
    const DescriptorLimit none(0);
    Loaded();
  }
  std::filesystem::remove(REGISTRY_FILE);
  Change(1);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=1\n"));
}

TEST_F(RegistryTreeTest, FileOfMoreThan64MebibytesIsNotLoaded) {
  WriteFile(REGISTRY_FILE, "a=d=1\n");
  std::filesystem::resize_file(REGISTRY_FILE, TOO_LONG);
  const TraceSession session(1);
  EXPECT_EQ(Loaded(), "\n");
  EXPECT_EQ(session.Texts()[0], "CRegistry: WARNING: Could not open \"/etc/qamrel/registry\"\n");
  std::filesystem::resize_file(REGISTRY_FILE, TOO_LONG - 1);
  m_oTree.SetupTree(true);
  EXPECT_EQ(Content(), "a=d=1\n\n");
}

TEST_F(RegistryTreeTest, RootHandlesFollowAReload) {
  WriteTree("Name=s=before\n");
  CRegistry stale(HKEY_LOCAL_MACHINE);
  WriteTree("Name=s=after\n");
  m_oTree.SetupTree(true);
  std::string text;
  EXPECT_EQ(CRegistry().QueryValue(text, "Name", HKEY_LOCAL_MACHINE), REGISTRY_OK);
  EXPECT_EQ(text, "after");
  EXPECT_EQ(stale.GetValue("Name"), nullptr);
  EXPECT_EQ(stale.SetValue("Name", 1), REGISTRY_INVALID);
}

TEST_F(RegistryTreeTest, ExceptionDuringSetupIsTracedAtLevel1AndSetupRunsAgain) {
  WriteFile(REGISTRY_FILE, "a=d=1\n\n");
  EXPECT_EQ(LevelOf(ERROR_LINE,
                    [] {
                      const FailingNew failing(0, 1);
                      m_oTree.SetupTree(false);
                    }),
            1U);
  EXPECT_EQ(Content(), "\n");
  m_oTree.MarkDirty();
  m_oTree.SaveTree();
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "a=d=1\n\n");
  EXPECT_EQ(Loaded(), "a=d=1\n\n");
}

TEST_F(RegistryTreeTest, RestoreNodeWithoutAPathIsTracedAtLevel1) {
  CRegistryNode node;
  EXPECT_FALSE(CRegistryTree::RestoreNode(nullptr, node));
  EXPECT_EQ(LevelOf(PATH_LINE, [&] { CRegistryTree::RestoreNode(nullptr, node); }), 1U);
}

TEST_F(RegistryTreeTest, RestoreNodeLoadsAnyFileIntoAnyNode) {
  constexpr char PATH[] = "/etc/qamrel/other";
  WriteFile(PATH, "[a]\nb=s=text");
  CRegistryNode node;
  EXPECT_TRUE(CRegistryTree::RestoreNode(PATH, node));
  EXPECT_EQ(WriteRegistryText(node), "[a]\nb=s=text\n\n\n");
  EXPECT_FALSE(CRegistryTree::RestoreNode("/etc/qamrel/missing", node));
}

TEST_F(RegistryTreeTest, SaveDoesNothingUnlessDirty) {
  WriteFile(REGISTRY_FILE, "a=d=1\n\n");
  Loaded();
  std::filesystem::remove(REGISTRY_FILE);
  const TraceSession session(5);
  m_oTree.SaveTree();
  EXPECT_THAT(session.Lines(), IsEmpty());
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "(missing)");
  m_oTree.MarkDirty();
  m_oTree.SaveTree();
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "a=d=1\n\n");
  EXPECT_THAT(session.Texts(),
              ElementsAre("\nCRegistry::SaveTree MPRegistryTemp[/etc/qamrel/registry.new] \t "
                          "MPRegistry[/etc/qamrel/registry]"));
  m_oTree.SaveTree();
  EXPECT_EQ(session.Lines().size(), 1U);
}

TEST_F(RegistryTreeTest, ChangeDuringASaveIsSavedByTheNextOne) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  registry.SetValue("Name", 1);
  {
    TraceSession session(2);
    session.CallAt(SAVE_LINE, [&registry] { registry.SetValue("Name", 2); });
    m_oTree.SaveTree();
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=1\n"));
  m_oTree.SaveTree();
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("Name=d=2\n"));
}

TEST_F(RegistryTreeTest, TreeThatWasNeverLoadedIsNotSaved) {
  WriteFile(REGISTRY_FILE, "a=d=1\n\n");
  m_oTree.MarkDirty();
  m_oTree.SaveTree();
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "a=d=1\n\n");
  const TraceSession session(2);
  EXPECT_EQ(Loaded(), "a=d=1\n\n");
  EXPECT_EQ(session.Texts()[0], "CRegistry: SetupTree(): ForceSetup=0, MIsSetup=0, MIsDirty=1\n");
}

TEST_F(RegistryTreeTest, ReleaseFreesTheTreeAndForgetsWhatIsNotSaved) {
  WriteTree("Name=d=1\n");
  CRegistry registry(HKEY_LOCAL_MACHINE);
  registry.SetValue("Name", 2);
  m_oTree.Release();
  EXPECT_EQ(registry.GetValue("Name"), nullptr);
  EXPECT_EQ(Content(), "\n");
  m_oTree.SaveTree();
  EXPECT_EQ(Loaded(), TreeText("Name=d=1\n"));
  std::filesystem::remove(REGISTRY_FILE);
  m_oTree.SaveTree();
  EXPECT_EQ(ReadFile(REGISTRY_FILE), "(missing)");
}

TEST_F(RegistryTreeTest, RootKeyThatIsAValueOrDeletedIsAnEmptyKeyForTheNextObject) {
  WriteFile(REGISTRY_FILE, "HKEY_LOCAL_MACHINE=d=1\n[HKEY_USERS]\nName=d=1\n\n\n");
  EXPECT_EQ(CRegistry("", nullptr).DeleteKey("HKEY_USERS"), REGISTRY_OK);
  EXPECT_EQ(CRegistry("", HKEY_LOCAL_MACHINE).SetValue("Name", 2), REGISTRY_OK);
  EXPECT_EQ(CRegistry("", HKEY_USERS).SetValue("Name", 3), REGISTRY_OK);
  EXPECT_EQ(ReadFile(REGISTRY_FILE),
            "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n"
            "[HKEY_LOCAL_MACHINE]\nName=d=2\n\n[HKEY_USERS]\nName=d=3\n\n\n");
}

TEST_F(RegistryTreeTest, AddMissingRootKeysTellsWhetherNoneWasMissing) {
  WriteFile(REGISTRY_FILE, "[HKEY_CURRENT_CONFIG]\nName=d=1\n\n\n");
  Loaded();
  EXPECT_FALSE(m_oTree.AddMissingRootKeys());
  EXPECT_EQ(Content(),
            "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\nName=d=1\n\n[HKEY_CURRENT_USER]\n\n"
            "[HKEY_LOCAL_MACHINE]\n\n[HKEY_USERS]\n\n\n");
  EXPECT_TRUE(m_oTree.AddMissingRootKeys());
}

TEST_F(RegistryTreeTest, AddMissingRootKeysNoticesEachWayToLoseOne) {
  Loaded();
  m_oTree.AddMissingRootKeys();
  ASSERT_TRUE(m_oTree.AddMissingRootKeys());
  const auto top = m_oTree.GetTop();
  std::vector<CRegistryEntry> lost;
  std::shared_ptr<CRegistryNode> key;
  const std::function<void()> losses[] = {
      [&] { top->Remove("HKEY_USERS", lost); },
      [&] { top->DeleteKey("HKEY_USERS", key); },
      [&] { top->Store(CRegistryEntry::MakeInteger("HKEY_USERS", 1), lost); },
      [&] { top->Clear(); },
  };
  for (const auto& lose : losses) {
    lose();
    EXPECT_FALSE(m_oTree.AddMissingRootKeys());
    EXPECT_TRUE(m_oTree.AddMissingRootKeys());
    EXPECT_NE(top->OpenKey("HKEY_USERS")->CreateKey("below"), nullptr);
  }
}

}  // namespace
