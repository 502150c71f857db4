// Storing and deleting values through CRegistry.

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "platform/registry/registry.h"
#include "tests/support/level_lines.h"
#include "tests/support/registry_files.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr char SET_LINE[] = "CRegistry::SetValue \"%s\" %d %d\n";
constexpr char REPLACE_LINE[] = "CRegistry::SetValue oEntry = %p\n";

class RegistryValuesTest : public RegistryFilesTest {
 protected:
  static constexpr char TREE[] = "Value=s=text\n[Key]\nOuter=s=text\n[Inner]\nMark=d=7\n\n\n";

  RegistryValuesTest() { WriteTree(TREE); }

  // What `change` makes of HKEY_LOCAL_MACHINE, as the file shows.
  template <typename Change>
  static std::string FileAfter(const Change& change) {
    {
      CRegistry registry(HKEY_LOCAL_MACHINE);
      change(registry);
    }
    return ReadFile(REGISTRY_FILE);
  }

  template <typename Change>
  static bool MakesDirty(const Change& change) {
    return Saves([&] {
      CRegistry registry(HKEY_LOCAL_MACHINE);
      change(registry);
    });
  }
};

TEST_F(RegistryValuesTest, SetValueStoresEveryType) {
  const int32_t number = -5;
  EXPECT_EQ(FileAfter([&](CRegistry& registry) {
              registry.DeleteValue("Key");
              registry.DeleteValue("Value");
              EXPECT_EQ(registry.SetValue("Text", "abc", 3, REG_SZ), 1U);
              EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
              EXPECT_EQ(registry.SetValue("Expand", "%A%", 3, REG_EXPAND_SZ), 1U);
              EXPECT_EQ(registry.SetValue("Bytes", "\0\xFF", 2, REG_BINARY), 1U);
              EXPECT_EQ(registry.SetValue("Number", &number, 4, REG_DWORD), 1U);
              EXPECT_EQ(registry.SetValue("EmptyText", nullptr, 0, REG_SZ), 1U);
              EXPECT_EQ(registry.SetValue("EmptyBytes", nullptr, 0, REG_BINARY), 1U);
            }),
            TreeText("Bytes=b=00 ff \nEmptyBytes=b=\nEmptyText=s=\nExpand=es=%A%\nNumber=d=-5\n"
                     "Text=s=abc\n"));
}

TEST_F(RegistryValuesTest, TextEndsAtItsLengthOrFirstNul) {
  EXPECT_EQ(FileAfter([](CRegistry& registry) {
              registry.DeleteValue("Key");
              registry.SetValue("Value", "abcdef", 3, REG_SZ);
              registry.SetValue("Nul", "ab\0cd", 5, REG_EXPAND_SZ);
            }),
            TreeText("Nul=es=ab\nValue=s=abc\n"));
}

TEST_F(RegistryValuesTest, ShortFormsStoreIntegersAndTexts) {
  EXPECT_EQ(FileAfter([](CRegistry& registry) {
              registry.DeleteValue("Key");
              EXPECT_EQ(registry.SetValue("Number", INT32_MIN), REGISTRY_OK);
              EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
              EXPECT_EQ(registry.SetValue("Value", "short"), REGISTRY_OK);
              EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
            }),
            TreeText("Number=d=-2147483648\nValue=s=short\n"));
}

TEST_F(RegistryValuesTest, SetValueRefusesBadDataAndStillMarksTheTreeDirty) {
  const char data[8] = {};
  const struct {
    const void* data;
    int32_t length;
    uint32_t type;
  } cases[] = {
      {data, 4, 0},
      {data, 4, 5},
      {data, 4, REG_KEY},
      {data, 0, REG_DWORD},
      {data, 3, REG_DWORD},
      {data, 5, REG_DWORD},
      {data, 8, REG_DWORD},
      {nullptr, 4, REG_DWORD},
      {data, -1, REG_SZ},
      {data, -1, REG_BINARY},
      {data, -4, REG_DWORD},
      {nullptr, 1, REG_SZ},
      {nullptr, 1, REG_EXPAND_SZ},
      {nullptr, 1, REG_BINARY},
  };
  for (const auto& bad : cases) {
    EXPECT_TRUE(MakesDirty([&](CRegistry& registry) {
      EXPECT_EQ(registry.SetValue("Value", bad.data, bad.length, bad.type), 0U) << bad.type;
      EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
    }));
    EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(TREE));
  }
}

TEST_F(RegistryValuesTest, SetValueWithoutAKeyFailsAndStillMarksTheTreeDirty) {
  EXPECT_TRUE(Saves([] { EXPECT_EQ(CRegistry().SetValue("Name", "a", 1, REG_SZ), 0U); }));
  EXPECT_TRUE(Saves([] { EXPECT_EQ(CRegistry().SetValue("Name", 1), REGISTRY_INVALID); }));
  EXPECT_TRUE(Saves([] { EXPECT_EQ(CRegistry().SetValue("Name", "a"), REGISTRY_INVALID); }));
}

TEST_F(RegistryValuesTest, SetValueOfANullTextFailsAndStillMarksTheTreeDirty) {
  EXPECT_TRUE(MakesDirty([](CRegistry& registry) {
    const char* text = nullptr;
    EXPECT_EQ(registry.SetValue("Value", text), REGISTRY_INVALID);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
  }));
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(TREE));
}

TEST_F(RegistryValuesTest, NullNameSucceedsWithoutStoringAnything) {
  EXPECT_TRUE(MakesDirty([](CRegistry& registry) {
    EXPECT_EQ(registry.SetValue(nullptr, "a", 1, REG_SZ), 1U);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
    EXPECT_EQ(registry.SetValue(nullptr, 1), REGISTRY_OK);
    EXPECT_EQ(registry.SetValue(nullptr, "a"), REGISTRY_OK);
    EXPECT_EQ(registry.SetValue(nullptr, "a", 1, 0), 0U);
  }));
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(TREE));
}

TEST_F(RegistryValuesTest, SetValueStoresInTheKeyGivenOrElseTheCurrentOne) {
  EXPECT_EQ(FileAfter([](CRegistry& registry) {
              CRegistry inner("Key\\Inner", HKEY_LOCAL_MACHINE);
              EXPECT_EQ(inner.SetValue("Name", "a", 1, REG_SZ), 1U);
              EXPECT_EQ(inner.SetValue("Name", "b", 1, REG_SZ, HKEY_LOCAL_MACHINE), 1U);
              EXPECT_EQ(CRegistry().SetValue("Other", "c", 1, REG_SZ, inner.GetKey()), 1U);
              registry.Close();
            }),
            TreeText("Name=s=b\nValue=s=text\n[Key]\nOuter=s=text\n"
                     "[Inner]\nMark=d=7\nName=s=a\nOther=s=c\n\n\n"));
}

TEST_F(RegistryValuesTest, SetValueReplacesValueAndType) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  registry.SetValue("Value", 5);
  EXPECT_NE(registry.GetValue("Value"), nullptr);
  EXPECT_EQ(registry.GetValueType(), REG_DWORD);
  registry.SetValue("Value", "\1\2", 2, REG_BINARY);
  EXPECT_NE(registry.GetValue("Value"), nullptr);
  EXPECT_EQ(registry.GetValueType(), REG_BINARY);
  EXPECT_EQ(registry.GetValueLength(), 2U);
}

TEST_F(RegistryValuesTest, SetValueTakesItsOwnValueBuffer) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  const void* bytes = registry.GetValue("Value");
  EXPECT_EQ(registry.SetValue("Copy", bytes, 4, REG_SZ), 1U);
  EXPECT_STREQ(static_cast<const char*>(registry.GetValue("Copy")), "text");
}

TEST_F(RegistryValuesTest, SetValueOverASubkeyFreesItsSubtree) {
  CRegistry inner("Key\\Inner", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(FileAfter([](CRegistry& registry) {
              const TraceSession session(2);
              EXPECT_EQ(registry.SetValue("Key", "now a value"), REGISTRY_OK);
              EXPECT_THAT(session.Formats(),
                          ElementsAre(SET_LINE, "CRegistryNode::deleteNode \"%s\"\n",
                                      "CRegistryNode::deleteNode \"%s\"\n", REPLACE_LINE));
            }),
            TreeText("Key=s=now a value\nValue=s=text\n"));
  EXPECT_EQ(inner.GetValue("Mark"), nullptr);
  EXPECT_EQ(inner.SetValue("Mark", 1), REGISTRY_INVALID);
}

TEST_F(RegistryValuesTest, SetValueIsTracedAtLevel2WithNameLengthAndType) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  ExpectLines({{2, "CRegistry::SetValue \"Name\" 3 1\n"},
               {2, "CRegistry::SetValue \"Other\" 4 4\n"},
               {2, "CRegistry::SetValue \"<null>\" 2 77\n"}},
              [&](TraceSession& session) {
                registry.DeleteValue("Name");
                registry.DeleteValue("Other");
                session.Clear();
                registry.SetValue("Name", "abc");
                registry.SetValue("Other", 1);
                registry.SetValue(nullptr, "abc", 2, 77);
              });
}

TEST_F(RegistryValuesTest, ReplacementIsTracedAtLevel2) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  EXPECT_EQ(LevelOf(REPLACE_LINE, [&] { registry.SetValue("Value", 1); }), 2U);
  const TraceSession session(2);
  registry.SetValue("Value", 1);
  EXPECT_THAT(session.Texts().back(), MatchesRegex("CRegistry::SetValue oEntry = 0x[0-9a-f]+\n"));
}

TEST_F(RegistryValuesTest, DeleteValueRemovesTheValue) {
  EXPECT_EQ(FileAfter([](CRegistry& registry) {
              EXPECT_EQ(registry.DeleteValue("Value"), REGISTRY_OK);
              EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
              EXPECT_EQ(registry.GetValue("Value"), nullptr);
            }),
            TreeText("[Key]\nOuter=s=text\n[Inner]\nMark=d=7\n\n\n"));
}

TEST_F(RegistryValuesTest, DeleteValueRemovesASubkeyAndFreesItsSubtree) {
  CRegistry inner("Key\\Inner", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(FileAfter([](CRegistry& registry) {
              const TraceSession session(2);
              EXPECT_EQ(registry.DeleteValue("Key"), REGISTRY_OK);
              EXPECT_THAT(session.Texts(), ElementsAre("CRegistry::DeleteValue \"Key\"\n",
                                                       "CRegistryNode::deleteNode \"Inner\"\n",
                                                       "CRegistryNode::deleteNode \"Outer\"\n"));
            }),
            TreeText("Value=s=text\n"));
  EXPECT_EQ(inner.GetValue("Mark"), nullptr);
  EXPECT_EQ(inner.SetValue("Mark", 1), REGISTRY_INVALID);
}

TEST_F(RegistryValuesTest, DeleteValueOfAMissingNameSucceedsAndMarksTheTreeDirty) {
  for (const char* name : {"Absent", "value", "", static_cast<const char*>(nullptr)}) {
    EXPECT_TRUE(MakesDirty([&](CRegistry& registry) {
      EXPECT_EQ(registry.DeleteValue(name), REGISTRY_OK);
      EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
    }));
    EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText(TREE));
  }
}

TEST_F(RegistryValuesTest, DeleteValueWithoutAKeyFailsAndChangesNothing) {
  EXPECT_FALSE(Saves([] {
    CRegistry registry;
    EXPECT_EQ(registry.DeleteValue("Value"), REGISTRY_INVALID);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_INVALID);
  }));
}

TEST_F(RegistryValuesTest, DeleteValueIsTracedAtLevel2WithTheName) {
  CRegistry registry;
  ExpectLines(
      {{2, "CRegistry::DeleteValue \"Value\"\n"}, {2, "CRegistry::DeleteValue \"<null>\"\n"}}, [&] {
        registry.DeleteValue("Value");
        registry.DeleteValue(nullptr);
      });
}

TEST(RegistryExpandTest, ReplacesReferencesAndKeepsTheRest) {
  setenv("HOME", "/root", 1);
  setenv("EMPTY", "", 1);
  setenv("WITH BLANK", "b", 1);
  setenv("NESTED", "%HOME%", 1);
  unsetenv("UNSET");
  const struct {
    const char* text;
    const char* expanded;
  } cases[] = {
      {"", ""},
      {"plain", "plain"},
      {"%HOME%", "/root"},
      {"%HOME%%HOME%", "/root/root"},
      {"a%HOME%b%HOME%c", "a/rootb/rootc"},
      {"x%HOME%y%%z%", "x/rooty%z%"},
      {"%", "%"},
      {"%%", "%"},
      {"%%%", "%%"},
      {"%%%%", "%%"},
      {"100%", "100%"},
      {"a%HOME", "a%HOME"},
      {"a%UNSET%b", "ab"},
      {"a%EMPTY%b", "ab"},
      {"%home%", ""},
      {"%WITH BLANK%", "b"},
      {"%NESTED%", "%HOME%"},
      {"HOME%", "HOME%"},
      {"%%HOME%%", "%HOME%"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(ExpandEnvironment(test.text), test.expanded) << test.text;
  }
}

}  // namespace
