#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>

#include "platform/registry/registry.h"
#include "platform/registry/registry_text.h"
#include "platform/registry/registry_tree.h"
#include "tests/support/registry_files.h"
#include "tests/support/registry_model.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

// Runs another thread to its end before one of the locks that this thread takes: the moments at
// which a thread can come in between two steps of an operation.
class Interruption {
 public:
  // Before the lock of that number, from 0.
  Interruption(int lock, std::function<void()> action)
      : m_oAction(std::move(action)), m_nLocksLeft(lock) {}
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  bool HasHappened() const { return m_nLocksLeft < 0; }

 private:
  void BeforeLock() {
    if (std::this_thread::get_id() == m_nThread && m_nLocksLeft-- == 0) {
      std::thread(m_oAction).join();
    }
  }

  const std::function<void()> m_oAction;
  const std::thread::id m_nThread = std::this_thread::get_id();
  int m_nLocksLeft;
  const ScopedAnswer m_oAnswer = calls::pthread_mutex_lock.Answer([this](pthread_mutex_t* mutex) {
    BeforeLock();
    return calls::pthread_mutex_lock.Real(mutex);
  });
};

constexpr char UNINTERRUPTED[] =
    "[HKEY_LOCAL_MACHINE]\n[Key]\ntext=s=old\n[Below]\nnumber=d=1\n\n\n\n\n";

struct InterruptedChange {
  const char* name;
  void (*run)(CRegistry& registry);  // has "Key" open
};

void PrintTo(const InterruptedChange& change, std::ostream* stream) { *stream << change.name; }

constexpr InterruptedChange INTERRUPTED_CHANGES[] = {
    {"NewText", [](CRegistry& registry) { registry.SetValue("new", "text"); }},
    {"TextStoredOver", [](CRegistry& registry) { registry.SetValue("text", "new"); }},
    {"Number", [](CRegistry& registry) { registry.SetValue("number", 2); }},
    {"Bytes", [](CRegistry& registry) { registry.SetValue("bytes", "ab", 2, REG_BINARY); }},
    {"KeyStoredOver", [](CRegistry& registry) { registry.SetValue("Below", 2); }},
    {"NewKey", [](CRegistry& registry) { registry.CreateKey(nullptr, "New"); }},
    {"NewKeys", [](CRegistry& registry) { registry.CreateKey(nullptr, "New/Newer/Newest"); }},
    {"NewKeyElsewhere", [](CRegistry& registry) { registry.CreateKey(HKEY_USERS, "New"); }},
    {"DeletedKey", [](CRegistry& registry) { registry.DeleteKey("Below"); }},
    {"DeletedValue", [](CRegistry& registry) { registry.DeleteValue("text"); }},
    {"KeyDeletedAsValue", [](CRegistry& registry) { registry.DeleteValue("Below"); }}};

class RegistryInterleavingTest : public RegistryFilesTest,
                                 public testing::WithParamInterface<InterruptedChange> {
 protected:
  RegistryInterleavingTest() { WriteFile(REGISTRY_FILE, UNINTERRUPTED); }

  // Runs the change, with `action` before its lock of that number. False when it takes fewer.
  static bool Run(int lock, const std::function<void()>& action) {
    CRegistry registry("Key", HKEY_LOCAL_MACHINE);
    EXPECT_EQ(registry.GetStatus(), REGISTRY_OK);
    const Interruption interruption(lock, action);
    GetParam().run(registry);
    return interruption.HasHappened();
  }
};

INSTANTIATE_TEST_SUITE_P(Registry, RegistryInterleavingTest, testing::ValuesIn(INTERRUPTED_CHANGES),
                         NameOf<InterruptedChange>);

TEST_P(RegistryInterleavingTest, SaveInTheMidstOfAChangeDoesNotKeepItFromTheFile) {
  int lock = 0;
  for (bool isInterrupted = true; isInterrupted; ++lock) {
    SCOPED_TRACE("lock " + std::to_string(lock));
    WriteFile(REGISTRY_FILE, UNINTERRUPTED);
    LoadTree();
    isInterrupted = Run(lock, [] { const CRegistry saver; });
    EXPECT_EQ(ReadFile(REGISTRY_FILE), WriteRegistryText(*CRegistryTree::Get().GetTop()));
    EXPECT_NE(ReadFile(REGISTRY_FILE), UNINTERRUPTED);
  }
  EXPECT_GT(lock, 1);
}

TEST_P(RegistryInterleavingTest, KeyThatGoesInTheMidstOfAChangeStaysAway) {
  for (const char* gone : {"Key", "Below"}) {
    int lock = 0;
    for (bool isInterrupted = true; isInterrupted; ++lock) {
      SCOPED_TRACE(std::string(gone) + " at lock " + std::to_string(lock));
      WriteFile(REGISTRY_FILE, UNINTERRUPTED);
      LoadTree();
      isInterrupted = Run(lock, [gone] {
        CRegistry deleter(*gone == 'K' ? "" : "Key", HKEY_LOCAL_MACHINE);
        deleter.DeleteValue(gone);
      });
      const std::string text = WriteRegistryText(*CRegistryTree::Get().GetTop());
      EXPECT_EQ(ReadFile(REGISTRY_FILE), text);
      if (isInterrupted) {
        EXPECT_EQ(text.find('[' + std::string(gone) + ']'), std::string::npos) << text;
      }
    }
  }
}

TEST_P(RegistryInterleavingTest, ReloadInTheMidstOfAChangeLeavesAWholeTree) {
  const RegistryModel before = LoadTree();
  Run(-1, [] {});
  const RegistryModel after = LoadTree();
  int lock = 0;
  for (bool isInterrupted = true; isInterrupted; ++lock) {
    SCOPED_TRACE("lock " + std::to_string(lock));
    WriteFile(REGISTRY_FILE, UNINTERRUPTED);
    LoadTree();
    isInterrupted = Run(lock, [] { CRegistryTree::Get().SetupTree(true); });
    const RegistryModel tree = LoadTree();
    EXPECT_TRUE(tree == before || tree == after) << testing::PrintToString(tree);
  }
}

TEST_F(RegistryFilesTest, TreeThatAnotherThreadHasJustLoadedIsNotLoadedAgain) {
  WriteFile(REGISTRY_FILE, UNINTERRUPTED);
  const TraceSession session(2);
  const Interruption interruption(0, [] { const CRegistry loader; });
  const CRegistry registry;
  EXPECT_TRUE(interruption.HasHappened());
  EXPECT_EQ(session.Count("CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n"), 1);
}

}  // namespace
