#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>

#include "platform/registry/registry.h"
#include "platform/registry/registry_tree.h"
#include "tests/support/registry_files.h"

namespace {

constexpr size_t NESTED = 100'000;

// A recursion on this stack would not come far.
constexpr size_t SMALL_STACK = size_t{256} * 1024;

void RunOnSmallStack(const std::function<void()>& action) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, SMALL_STACK), 0);
  pthread_t thread = 0;
  ASSERT_EQ(pthread_create(
                &thread, &attributes,
                [](void* argument) -> void* {
                  (*static_cast<const std::function<void()>*>(argument))();
                  return nullptr;
                },
                const_cast<std::function<void()>*>(&action)),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

class RegistryNestingTest : public RegistryFilesTest {
 protected:
  RegistryNestingTest() {
    WriteFile(REGISTRY_FILE, "[HKEY_LOCAL_MACHINE]\n" + Repeated("[k]\n", NESTED) + "deep=d=1\n");
    m_strPath = Repeated("/k", NESTED);
  }

  // Opens the deepest key.
  bool OpenDeepest(CRegistry& registry) const {
    return registry.Open(m_strPath.c_str(), HKEY_LOCAL_MACHINE) == REGISTRY_OK &&
           registry.GetValue("deep") != nullptr;
  }

  // `remove` takes away the whole chain, while an object has its deepest key open.
  void ExpectRemoval(const std::function<void()>& remove) const {
    RunOnSmallStack([&] {
      CRegistry deepest;
      ASSERT_TRUE(OpenDeepest(deepest));
      remove();
      EXPECT_EQ(deepest.GetValue("deep"), nullptr);
      EXPECT_EQ(deepest.SetValue("deep", 2), REGISTRY_INVALID);
      EXPECT_FALSE(OpenDeepest(deepest));
    });
  }

  std::string m_strPath;
};

TEST_F(RegistryNestingTest, DeepTreeIsLoaded) {
  RunOnSmallStack([&] {
    CRegistry registry;
    EXPECT_TRUE(OpenDeepest(registry));
  });
}

TEST_F(RegistryNestingTest, DeepTreeIsSaved) {
  RunOnSmallStack([&] {
    CRegistry registry;
    ASSERT_TRUE(OpenDeepest(registry));
    EXPECT_EQ(registry.SetValue("deep", 2), REGISTRY_OK);
  });
  const std::string text = ReadFile(REGISTRY_FILE);
  EXPECT_TRUE(text.find(Repeated("[k]\n", NESTED) + "deep=d=2\n" + Repeated("\n", NESTED) +
                        "\n[") != std::string::npos);
}

TEST_F(RegistryNestingTest, DeepTreeIsMade) {
  RunOnSmallStack([&] {
    CRegistry registry;
    EXPECT_EQ(registry.CreateKey(HKEY_USERS, m_strPath.c_str()), REGISTRY_OK);
    EXPECT_EQ(registry.SetValue("deep", 1), REGISTRY_OK);
    EXPECT_EQ(registry.Open(m_strPath.c_str(), HKEY_USERS), REGISTRY_OK);
  });
}

TEST_F(RegistryNestingTest, DeepTreeIsFreed) {
  RunOnSmallStack([&] {
    CRegistry registry;
    ASSERT_TRUE(OpenDeepest(registry));
    CRegistryTree::Get().Release();
    EXPECT_EQ(registry.GetValue("deep"), nullptr);
  });
}

TEST_F(RegistryNestingTest, DeepTreeIsDeletedAsAKey) {
  ExpectRemoval([] { EXPECT_EQ(CRegistry("", HKEY_LOCAL_MACHINE).DeleteKey("k"), REGISTRY_OK); });
}

TEST_F(RegistryNestingTest, DeepTreeIsDeletedAsAValue) {
  ExpectRemoval([] { EXPECT_EQ(CRegistry("", HKEY_LOCAL_MACHINE).DeleteValue("k"), REGISTRY_OK); });
}

TEST_F(RegistryNestingTest, DeepTreeIsStoredOver) {
  ExpectRemoval([] { EXPECT_EQ(CRegistry("", HKEY_LOCAL_MACHINE).SetValue("k", 1), REGISTRY_OK); });
}

TEST_F(RegistryNestingTest, DeepTreeIsReplacedByAReload) {
  ExpectRemoval([] {
    WriteFile(REGISTRY_FILE, "[HKEY_LOCAL_MACHINE]\n");
    CRegistryTree::Get().SetupTree(true);
  });
}

}  // namespace
