// The registry when memory is exhausted: every operation is repeated with one more allocation that
// succeeds, until none fails any more.

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <utility>

#include "platform/registry/registry.h"
#include "platform/registry/registry_node.h"
#include "platform/registry/registry_text.h"
#include "platform/registry/registry_tree.h"
#include "tests/support/failing_new.h"
#include "tests/support/registry_files.h"

namespace {

constexpr char LONG[] = "a text that is too long to be kept inside of a string object";

class RegistryMemoryTest : public RegistryFilesTest {
 protected:
  static constexpr char TREE[] =
      "Expand=es=%REGISTRY_TEST%\n"
      "Text=s=a text that is too long to be kept inside of a string object\n"
      "[Key]\n[Inner]\n[Innermost]\na=d=1\nb=s=2\nc=d=3\n\n\n\n";

  RegistryMemoryTest() {
    setenv("REGISTRY_TEST", LONG, 1);
    WriteTree(TREE);
  }

  static std::string Content() { return WriteRegistryText(*CRegistryTree::Get().GetTop()); }

  // Calls `attempt` with one more success each until memory suffices; returns how often it did not.
  template <typename Attempt>
  static int CountFailures(const Attempt& attempt) {
    int successes = 0;
    while (attempt(successes)) {
      ++successes;
    }
    return successes;
  }

  // Runs the operation, which returns its result, on an object that has HKEY_LOCAL_MACHINE open.
  // Without memory it must give `failure` as result and status and leave the tree as it was; then
  // `check` looks at the object.
  template <typename Operation, typename Check>
  static int CountFailures(int64_t failure, const Operation& operation, const Check& check) {
    const CRegistry loader;
    const std::string before = Content();
    return CountFailures([&](int successes) {
      CRegistry registry(HKEY_LOCAL_MACHINE);
      FailingNew failing(successes);
      const int64_t result = operation(registry);
      failing.Stop();
      if (!failing.HasFailed()) {
        EXPECT_NE(result, failure);
        return false;
      }
      EXPECT_EQ(result, failure);
      EXPECT_EQ(registry.GetStatus(), failure);
      EXPECT_EQ(Content(), before);
      check(registry);
      return true;
    });
  }

  static void Ignore(CRegistry& /*registry*/) {}

  static void ExpectNoKey(CRegistry& registry) { EXPECT_TRUE(registry.GetKey().IsNull()); }

  // Stores a value in the pointer key.
  static void AddPointer(const char* text) {
    CRegistry registry;
    registry.CreateKey(HKEY_LOCAL_MACHINE, REGISTRY_POINTER_KEY);
    registry.SetValue("Name", text);
  }
};

TEST_F(RegistryMemoryTest, LoadingStoresAllOrNothing) {
  WriteFile(REGISTRY_FILE, TreeText(TREE) + "[HKEY_USERS]\n");
  CRegistryTree& tree = CRegistryTree::Get();
  EXPECT_GT(CountFailures([&](int successes) {
              tree.Release();
              bool hasFailed = false;
              {
                const FailingNew failing(successes);
                tree.SetupTree(false);
                hasFailed = failing.HasFailed();
              }
              EXPECT_EQ(Content(), hasFailed ? "\n" : TreeText(TREE)) << successes;
              return hasFailed;
            }),
            10);
}

TEST_F(RegistryMemoryTest, ReadingATextStoresAllOrNothing) {
  constexpr char TEXT[] = "b=d=2\n[c]\nd=d=3\n\na=d=1\nb=d=4\n[c]\n\n";
  EXPECT_GT(CountFailures([&](int successes) {
              CRegistryNode node;
              ParseRegistryText("b=d=0\n[c]\nx=s=y\n\ne=d=0\n", node);
              const std::string before = WriteRegistryText(node);
              bool hasFailed = false;
              try {
                const FailingNew failing(successes);
                ParseRegistryText(TEXT, node);
              } catch (const std::bad_alloc&) {
                hasFailed = true;
              }
              EXPECT_EQ(WriteRegistryText(node),
                        hasFailed ? before : "a=d=1\nb=d=4\ne=d=0\n[c]\n\n\n");
              return hasFailed;
            }),
            5);
}

TEST_F(RegistryMemoryTest, FirstObjectIsMadeWithoutRootKeys) {
  CRegistryTree& tree = CRegistryTree::Get();
  EXPECT_GT(CountFailures([&](int successes) {
              tree.Release();
              FailingNew failing(successes);
              const CRegistry registry;
              failing.Stop();
              return failing.HasFailed();
            }),
            10);
  EXPECT_EQ(Content(), TreeText(TREE));
}

TEST_F(RegistryMemoryTest, OpenFailsAndLeavesNoKeyOpen) {
  CRegistry().CreateKey(HKEY_LOCAL_MACHINE, LONG);
  EXPECT_GT(
      CountFailures(
          REGISTRY_FAILED,
          [](CRegistry& registry) { return registry.Open(LONG, HKEY_LOCAL_MACHINE); }, ExpectNoKey),
      0);
}

TEST_F(RegistryMemoryTest, CreateKeyFailsAndKeepsTheCurrentKey) {
  EXPECT_GT(
      CountFailures(
          REGISTRY_FAILED, [](CRegistry& registry) { return registry.CreateKey(nullptr, "New"); },
          [](CRegistry& registry) {
            EXPECT_EQ(registry.GetKey().GetNode(), HKEY(HKEY_LOCAL_MACHINE).GetNode());
          }),
      1);
}

TEST_F(RegistryMemoryTest, OpenPointerFailsAndLeavesNoKeyOpen) {
  AddPointer("hkey_local_machine\\Key\\Inner");
  EXPECT_GT(
      CountFailures(
          REGISTRY_FAILED,
          [](CRegistry& registry) { return registry.OpenPointer("Name", HKEY_LOCAL_MACHINE); },
          ExpectNoKey),
      2);
}

TEST_F(RegistryMemoryTest, ReadRegistryPointerFails) {
  AddPointer(LONG);
  EXPECT_GT(CountFailures([](int successes) {
              std::string text;
              FailingNew failing(successes);
              const bool isRead = ReadRegistryPointer(text, "Name");
              failing.Stop();
              EXPECT_EQ(text, isRead ? LONG : "");
              return !isRead;
            }),
            1);
}

TEST_F(RegistryMemoryTest, GetValueFindsNothingAndKeepsTypeAndLength) {
  for (const char* name : {"Text", "Expand"}) {
    const void* bytes = nullptr;
    EXPECT_GT(CountFailures(
                  REGISTRY_NO_DATA,
                  [&](CRegistry& registry) {
                    bytes = registry.GetValue(name);
                    return registry.GetStatus();
                  },
                  [&](CRegistry& registry) {
                    EXPECT_EQ(bytes, nullptr);
                    EXPECT_EQ(registry.GetValueType(), 0U);
                    EXPECT_EQ(registry.GetValueLength(), 0U);
                  }),
              0)
        << name;
  }
}

TEST_F(RegistryMemoryTest, QueryValueFindsNothing) {
  for (const char* name : {"Text", "Expand"}) {
    std::string text;
    EXPECT_GT(CountFailures(
                  REGISTRY_NO_DATA,
                  [&](CRegistry& registry) { return registry.QueryValue(text, name); }, Ignore),
              0);
    EXPECT_EQ(text, LONG);
  }
}

TEST_F(RegistryMemoryTest, QueryValueIntoABufferNeedsMemoryOnlyToExpand) {
  for (const std::string name : {"Text", "Expand"}) {
    uint32_t count = 0;
    const int failures = CountFailures(
        REGISTRY_NO_DATA,
        [&](CRegistry& registry) { return registry.QueryValue(nullptr, name.c_str(), &count); },
        Ignore);
    EXPECT_EQ(failures > 0, name == "Expand");
    EXPECT_EQ(count, sizeof(LONG));
  }
}

TEST_F(RegistryMemoryTest, SetValueFails) {
  for (const char* name : {"New", "Text", "Key"}) {
    EXPECT_GT(CountFailures(
                  REGISTRY_INVALID,
                  [&](CRegistry& registry) { return registry.SetValue(name, LONG); }, Ignore),
              0)
        << name;
  }
  CRegistry registry;
  FailingNew failing(0);
  const uint32_t result = registry.SetValue("Name", LONG, 4, REG_BINARY, HKEY_LOCAL_MACHINE);
  failing.Stop();
  EXPECT_EQ(result, 0U);
}

TEST_F(RegistryMemoryTest, DeleteValueFails) {
  for (const char* name : {"Text", "Key"}) {
    EXPECT_GT(CountFailures(
                  REGISTRY_INVALID, [&](CRegistry& registry) { return registry.DeleteValue(name); },
                  Ignore),
              0)
        << name;
  }
}

TEST_F(RegistryMemoryTest, DeleteKeyNeedsNone) {
  CRegistry inner("Key\\Inner\\Innermost", HKEY_LOCAL_MACHINE);
  CRegistry registry(HKEY_LOCAL_MACHINE);
  FailingNew failing(0);
  const int32_t result = registry.DeleteKey("Key");
  failing.Stop();
  EXPECT_EQ(result, REGISTRY_OK);
  EXPECT_EQ(inner.GetValue("a"), nullptr);
  EXPECT_EQ(inner.SetValue("a", 1), REGISTRY_INVALID);
}

TEST_F(RegistryMemoryTest, EndOfAnObjectLeavesTheSaveToTheNextOne) {
  CRegistry registry(HKEY_LOCAL_MACHINE);
  registry.DeleteValue("Text");
  EXPECT_GT(CountFailures([](int successes) {
              std::filesystem::remove(REGISTRY_FILE);
              FailingNew failing(successes);
              { const CRegistry saver; }
              failing.Stop();
              EXPECT_EQ(std::filesystem::exists(REGISTRY_FILE), !failing.HasFailed());
              return failing.HasFailed();
            }),
            1);
}

}  // namespace
