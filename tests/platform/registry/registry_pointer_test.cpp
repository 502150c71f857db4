#include "platform/registry/registry_pointer.h"

#include <gtest/gtest.h>

#include "platform/registry/registry.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char POINTER_LINE[] = "CRegistry::OpenPointer \"%s\"\n";
constexpr char OPEN_LINE[] = "\nCRegistry::Open \"%s\", hKey = %d\n";
constexpr char OPEN_ERROR_LINE[] = "\nCRegistry::Open ##ERROR while opening !!!\n";

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
  EXPECT_EQ(session.Count(OPEN_ERROR_LINE), 0);
  registry.OpenPointer("Missing", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(session.Count(OPEN_ERROR_LINE), 1);
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
  EXPECT_EQ(session.Count(OPEN_LINE), 1);
  EXPECT_FALSE(ReadRegistryPointer(text, "Absent"));
  EXPECT_EQ(session.Count(OPEN_LINE), 3);
}

TEST_F(RegistryPointerTest, ReadRegistryPointerFindsWhatComesBeforeItsSecondAttempt) {
  TraceSession session(2);
  int attempts = 0;
  session.CallAt(OPEN_LINE, [&attempts] {
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
