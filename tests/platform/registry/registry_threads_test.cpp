#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/registry/registry.h"
#include "platform/registry/registry_text.h"
#include "platform/registry/registry_tree.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char WITH_BELOW[] =
    "[HKEY_LOCAL_MACHINE]\n[Above]\n[Key]\ntext=s=x\n[Below]\ntext=s=y\n\n\n\n\n\n";

// --- One thread takes a key away that another one has open ---

struct Removal {
  const char* name;
  void (*run)();
};

void PrintTo(const Removal& removal, std::ostream* stream) { *stream << removal.name; }

constexpr Removal REMOVALS[] = {
    {"DeleteKey", [] { CRegistry("Above", HKEY_LOCAL_MACHINE).DeleteKey("Key"); }},
    {"DeleteKeyAbove", [] { CRegistry("", HKEY_LOCAL_MACHINE).DeleteKey("Above"); }},
    {"DeleteRootKey", [] { CRegistry("", nullptr).DeleteKey("HKEY_LOCAL_MACHINE"); }},
    {"DeleteValue", [] { CRegistry("Above", HKEY_LOCAL_MACHINE).DeleteValue("Key"); }},
    {"DeleteValueAbove", [] { CRegistry("", HKEY_LOCAL_MACHINE).DeleteValue("Above"); }},
    {"ValueStoredOver", [] { CRegistry("Above", HKEY_LOCAL_MACHINE).SetValue("Key", 1); }},
    {"ValueStoredOverAbove", [] { CRegistry("", HKEY_LOCAL_MACHINE).SetValue("Above", "x"); }},
    {"Reload", [] { CRegistryTree::Get().SetupTree(true); }},
    {"Release", [] { CRegistryTree::Get().Release(); }},
    {"ReloadWithoutTheKey",
     [] {
       WriteFile(REGISTRY_FILE, "[HKEY_LOCAL_MACHINE]\n");
       CRegistryTree::Get().SetupTree(true);
     }},
    {"DeletedAndMadeAnew", [] {
       CRegistry registry("Above", HKEY_LOCAL_MACHINE);
       registry.DeleteKey("Key");
       registry.CreateKey(HKEY_LOCAL_MACHINE, "Above/Key/Below");
     }}};

void ExpectNothing(CRegistry& registry) {
  std::string text = "untouched";
  EXPECT_EQ(registry.GetValue("text"), nullptr);
  EXPECT_EQ(registry.QueryValue(text, "text"), REGISTRY_NO_DATA);
  EXPECT_EQ(text, "untouched");
  uint32_t count = 10;
  EXPECT_EQ(registry.QueryValue(nullptr, "text", &count), REGISTRY_NO_DATA);
}

// Ends without a key open.
void ExpectNoEffect(CRegistry& registry) {
  EXPECT_EQ(registry.SetValue("text", "stray"), REGISTRY_INVALID);
  EXPECT_EQ(registry.SetValue("stray", 1), REGISTRY_INVALID);
  EXPECT_EQ(registry.SetValue("stray", "ab", 2, REG_BINARY), 0U);
  EXPECT_EQ(registry.CreateKey(nullptr, "Stray"), REGISTRY_FAILED);
  EXPECT_EQ(registry.CreateKey(nullptr, "Below/Stray"), REGISTRY_FAILED);
  EXPECT_EQ(registry.DeleteKey("Below"), REGISTRY_INVALID);
  EXPECT_EQ(registry.DeleteValue("text"), REGISTRY_OK);
  EXPECT_EQ(registry.Open("Below", registry.GetKey()), REGISTRY_FAILED);
}

class RegistryRemovalTest : public RegistryFilesTest, public testing::WithParamInterface<Removal> {
 protected:
  RegistryRemovalTest() { WriteFile(REGISTRY_FILE, WITH_BELOW); }

  static void Remove() { std::thread(GetParam().run).join(); }

  // What the tree is without the use of any object from before the removal.
  static std::string TreeAfterRemoval() {
    Remove();
    { const CRegistry saver; }
    return WriteRegistryText(*CRegistryTree::Get().GetTop());
  }
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistryRemovalTest, testing::ValuesIn(REMOVALS),
                         NameOf<Removal>);

TEST_P(RegistryRemovalTest, ObjectWhoseKeyIsGoneFindsNothingAndChangesNothing) {
  CRegistry registry("Above\\Key", HKEY_LOCAL_MACHINE);
  CRegistry below("Above\\Key\\Below", HKEY_LOCAL_MACHINE);
  CRegistry copy(registry);
  ASSERT_NE(copy.GetValue("text"), nullptr);
  const std::string after = TreeAfterRemoval();
  for (CRegistry* stale : {&registry, &below, &copy}) {
    ExpectNothing(*stale);
    ExpectNoEffect(*stale);
  }
  EXPECT_EQ(WriteRegistryText(*CRegistryTree::Get().GetTop()), after);
  { const CRegistry saver; }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), after);
}

TEST_P(RegistryRemovalTest, HandleOfAKeyThatIsGoneFindsNothingAndChangesNothing) {
  const HKEY handle = CRegistry("Above\\Key", HKEY_LOCAL_MACHINE).GetKey();
  const std::string after = TreeAfterRemoval();
  {
    CRegistry registry(handle);
    ExpectNothing(registry);
    ExpectNoEffect(registry);
    EXPECT_EQ(registry.GetValue("text", handle), nullptr);
    EXPECT_EQ(registry.SetValue("stray", "x", 1, REG_SZ, handle), 0U);
    EXPECT_EQ(registry.CreateKey(handle, "Stray"), REGISTRY_FAILED);
    EXPECT_EQ(registry.Open("", handle), REGISTRY_OK);
    ExpectNothing(registry);
  }
  EXPECT_EQ(WriteRegistryText(*CRegistryTree::Get().GetTop()), after);
  EXPECT_EQ(ReadFile(REGISTRY_FILE), after);
}

TEST_P(RegistryRemovalTest, ValueReadBeforeStaysValid) {
  CRegistry registry("Above\\Key", HKEY_LOCAL_MACHINE);
  const auto* text = static_cast<const char*>(registry.GetValue("text"));
  Remove();
  EXPECT_STREQ(text, "x");
}

// --- Many threads at once ---

constexpr int THREADS = 4;
constexpr uint32_t ROUNDS_OF_THREADS = 250;
constexpr const char* KEYS[] = {"A", "B", "A/Below", "B/Below/Deeper"};
constexpr const char* NAMES[] = {"v", "w", "Below"};

// A text that shows when half of it is another one.
std::string TextOf(uint32_t number) {
  return std::string(1 + number % 40, static_cast<char>('a' + number % 26));
}

bool IsWhole(const std::string& text) {
  return std::adjacent_find(text.begin(), text.end(), std::not_equal_to<>()) == text.end();
}

class Worker {
 public:
  explicit Worker(uint32_t seed, bool reloads) : m_oRandom(seed), m_bReloads(reloads) {}

  void Run() {
    for (uint32_t round = 0; round < ROUNDS_OF_THREADS; ++round) {
      CRegistry registry(KEYS[Number(std::size(KEYS))], HKEY_LOCAL_MACHINE);
      for (uint32_t step = Number(6); step > 0; --step) {
        Step(registry);
      }
    }
  }

 private:
  uint32_t Number(size_t end) { return static_cast<uint32_t>(m_oRandom() % end); }

  void Step(CRegistry& registry) {
    const char* name = NAMES[Number(std::size(NAMES))];
    switch (Number(9)) {
      case 0:
        registry.CreateKey(HKEY_LOCAL_MACHINE, KEYS[Number(std::size(KEYS))]);
        break;
      case 1:
        registry.SetValue(name, TextOf(Number(1000)).c_str());
        break;
      case 2:
        registry.SetValue(name, static_cast<int32_t>(Number(1000)));
        break;
      case 3:
        registry.DeleteValue(name);
        break;
      case 4:
        registry.DeleteKey("Below");
        break;
      case 5:
        CRegistry("", HKEY_LOCAL_MACHINE).DeleteValue(Number(2) == 0 ? "A" : "B");
        break;
      case 6:
        if (m_bReloads) {
          CRegistryTree::Get().SetupTree(true);
        }
        break;
      default:
        Read(registry, name);
        break;
    }
  }

  static void Read(CRegistry& registry, const char* name) {
    std::string text;
    if (registry.QueryValue(text, name) == REGISTRY_OK) {
      EXPECT_PRED1(IsWhole, text);
    }
    if (registry.GetValue(name) != nullptr && registry.GetValueType() == REG_DWORD) {
      EXPECT_EQ(registry.GetValueLength(), 4U);
    }
  }

  std::mt19937 m_oRandom;
  const bool m_bReloads;
};

class RegistryThreadsTest : public RegistryFilesTest, public testing::WithParamInterface<bool> {
 protected:
  static void RunWorkers() {
    std::vector<std::thread> threads;
    for (uint32_t seed = 0; seed < THREADS; ++seed) {
      threads.emplace_back([seed] { Worker(seed, GetParam()).Run(); });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistryThreadsTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& reloads) {
                           return std::string(reloads.param ? "WithReloads" : "WithoutReloads");
                         });

TEST_P(RegistryThreadsTest, ThreadsThatChangeTheSameKeysLeaveTheirTreeInTheFile) {
  RunWorkers();
  { const CRegistry saver; }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), WriteRegistryText(*CRegistryTree::Get().GetTop()));
  EXPECT_FALSE(Exists(REGISTRY_TEMPORARY_FILE));
}

TEST_P(RegistryThreadsTest, EveryFileThatAThreadSavesCanBeLoaded) {
  RunWorkers();
  const std::string text = ReadFile(REGISTRY_FILE);
  LoadTree();
  EXPECT_EQ(WriteRegistryText(*CRegistryTree::Get().GetTop()), text);
}

TEST_F(RegistryThreadsTest, FirstUseByManyThreadsLoadsTheTree) {
  WriteFile(REGISTRY_FILE, WITH_BELOW);
  std::vector<std::thread> threads(8);
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      CRegistry registry("Above/Key", HKEY_LOCAL_MACHINE);
      std::string text;
      EXPECT_EQ(registry.QueryValue(text, "text"), REGISTRY_OK);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(RegistryThreadsTest, SetupThatWaitsForAnotherOneDoesNothing) {
  constexpr char SETUP[] = "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n";
  std::thread second;
  std::atomic<std::thread::id> id;
  std::atomic<bool> isWaiting = false;
  const auto locking = calls::pthread_mutex_lock.Answer([&](pthread_mutex_t* mutex) {
    if (id.load() == std::this_thread::get_id()) {
      isWaiting = true;
    }
    return calls::pthread_mutex_lock.Real(mutex);
  });
  TraceSession session(2);
  session.CallAt(SETUP, [&] {
    second = std::thread([&] {
      id = std::this_thread::get_id();
      CRegistryTree::Get().SetupTree(false);
    });
    EXPECT_TRUE(WaitUntil([&] { return isWaiting.load(); }));
  });
  CRegistryTree::Get().SetupTree(false);
  second.join();
  EXPECT_EQ(session.Count(SETUP), 1);
}

TEST_F(RegistryThreadsTest, AThreadMayEndWithinTheSetupWhichThenRunsAgain) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP()
      << "the sanitizer takes what ends a thread, which is no object, for a null reference";
#endif
  constexpr char TRYING[] =
      "CRegistry: WARNING: Could not restore tree from \"%s\", trying backup\n";
  CRegistryTree& tree = CRegistryTree::Get();
  WriteFile(REGISTRY_BACKUP_FILE, "b=d=1\n\n");
  TraceSession session(1);
  session.CallAt(TRYING, [] { pthread_exit(nullptr); });
  std::thread([&] { tree.SetupTree(false); }).join();
  EXPECT_EQ(WriteRegistryText(*tree.GetTop()), "\n");
  session.CallAt(TRYING, nullptr);
  tree.SetupTree(false);
  EXPECT_EQ(WriteRegistryText(*tree.GetTop()), "b=d=1\n\n");
}

}  // namespace
