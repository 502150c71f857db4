// The four exports: what a host gets from them, and what it can do wrong.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/built_files.h"
#include "tests/support/failing_new.h"
#include "tests/support/trace_session.h"
#include "trace/config_files.h"

namespace {

using testing::ElementsAre;

class EntryPointsTest : public ModuleHost {};

constexpr char DESTROY[] = "\nEM DLL (%-10s) : Destroy module...";

// Makes the destructor of the instance throw after it has freed the instance: the instance gets a
// copy of its virtual table with another destructor.
class ThrowingDestructor {
 public:
  explicit ThrowingDestructor(CIExtensionModule* module) {
    const uintptr_t*& table = *reinterpret_cast<const uintptr_t**>(module);
    s_original = reinterpret_cast<Destructor>(table[DELETING_DESTRUCTOR]);
    std::memcpy(m_oCopy.data(), table - HEAD, sizeof(m_oCopy));
    m_oCopy[HEAD + DELETING_DESTRUCTOR] = reinterpret_cast<uintptr_t>(&Throw);
    table = &m_oCopy[HEAD];
  }

 private:
  using Destructor = void (*)(CIExtensionModule*);

  static constexpr size_t HEAD = 2;  // offset and type, before the operations
  static constexpr size_t DELETING_DESTRUCTOR = 1;
  static constexpr size_t OPERATIONS = 25;

  [[noreturn]] static void Throw(CIExtensionModule* module) {
    s_original(module);
    throw std::runtime_error("destructor");
  }

  static inline Destructor s_original = nullptr;

  std::array<uintptr_t, HEAD + OPERATIONS> m_oCopy;
};

// The file of the settings for all modules; its directory is removed in the end.
class TraceSettings {
 public:
  explicit TraceSettings(const char* text) {
    std::filesystem::create_directories(TRACE_CONFIG_DIRECTORY);
    std::ofstream(TRACE_GLOBAL_FILE) << text;
  }
  ~TraceSettings() { std::filesystem::remove_all(TRACE_CONFIG_DIRECTORY); }
  TraceSettings(const TraceSettings&) = delete;
  TraceSettings& operator=(const TraceSettings&) = delete;
};

[[noreturn]] void ThrowHostError() { throw std::runtime_error("not a failed allocation"); }

}  // namespace

TEST_F(EntryPointsTest, NothingElseIsExported) {
  const std::string command =
      std::string("nm -D --defined-only --format=just-symbols ") + EM_TALVOR_LIBRARY;
  FILE* symbols = popen(command.c_str(), "r");
  ASSERT_NE(symbols, nullptr);
  std::string names;
  for (int letter = fgetc(symbols); letter != EOF; letter = fgetc(symbols)) {
    names += static_cast<char>(letter);
  }
  EXPECT_EQ(pclose(symbols), 0);
  EXPECT_EQ(names, "EM_Create\nEM_Delete\nEM_GetModuleName\nEM_SetupAction\n");
}

TEST_F(EntryPointsTest, NameAndSetupActionsNeedNoInstance) {
  LoadModule();
  EXPECT_STREQ(GetModuleName(), "EM_TALVOR");
  EXPECT_EQ(SetupAction(1), 0U);
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  EXPECT_EQ(GetModuleName(), m_pModule->GetModuleName());
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_STREQ(GetModuleName(), "EM_TALVOR");
  EXPECT_EQ(SetupAction(1), 0U);
}

// The first call of another entry point reads the settings, as they are at that time.
TEST_F(EntryPointsTest, TheNameIsHadWithoutReadingTheSettings) {
  const TraceSession session(1);
  LoadModule();
  GetModuleName();
  setenv("CV_LOG_DEBUG_LEVEL", "0", 1);
  EXPECT_EQ(Delete(), 0U);
  EXPECT_EQ(session.Lines().size(), 0U);
}

TEST_F(EntryPointsTest, NameAndSetupActionsMakeNoInstance) {
  LoadModule();
  GetModuleName();
  SetupAction(1);
  EXPECT_EQ(Delete(), 0U);
}

TEST_F(EntryPointsTest, CreationTracesTheConstruction) {
  ExpectLines(LinesOfThisThread(),
              {{2, "\nEM DLL (EM_TALVOR ) : Create module"},
               {4, "\nCTaskSerializer     : Enable all Tasks"},
               {3, "\nEM_TALVOR           : CLASS CREATED!"}},
              [this](TraceSession& session) {
                UnloadModule();
                LoadModule();
                session.Clear();
                EXPECT_EQ(Create(&m_pModule, nullptr), 1U);
              });
}

TEST_F(EntryPointsTest, ASecondCreationHandsTheInstanceOutAgainAndTracesAnError) {
  ExpectLines(LinesOfThisThread(),
              {{1, "\nEM DLL (EM_TALVOR ) : ## ERROR: Module already existing!\n"}},
              [this](TraceSession& session) {
                UnloadModule();
                LoadModule();
                ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
                session.Clear();
                CIExtensionModule* again = nullptr;
                EXPECT_EQ(Create(&again, this), 1U);
                EXPECT_EQ(again, m_pModule);
              });
}

TEST_F(EntryPointsTest, CreationTakesANullPointer) {
  LoadModule();
  EXPECT_EQ(Create(nullptr, nullptr), 1U);
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  EXPECT_NE(m_pModule, nullptr);
}

TEST_F(EntryPointsTest, DeletionTracesTheDestruction) {
  ExpectLines(LinesOfThisThread(),
              {{1, "\nEM DLL (EM_TALVOR ) : Destroy module..."},
               {1, "\nEM_TALVOR           : CLASS DESTROYED!"},
               {4, "\nCTaskSerializer     : TerminateSerialization!"},
               {5, "\nCTaskSerializer     :   terminated"},
               {4, "\n\nCTaskSerializer     : Class destroyed!"},
               {1, "\nEM DLL (EM_TALVOR ) : .. Module destroyed successfully!"}},
              [this](TraceSession& session) {
                UnloadModule();
                LoadModule();
                ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
                session.Clear();
                EXPECT_EQ(DeleteModule(), 1U);
              });
}

TEST_F(EntryPointsTest, DeletionWithoutAnInstanceFails) {
  const auto alreadyDestroyed = {LevelLine{1, "\nEM DLL (EM_TALVOR ) : Module already destroyed!"}};
  ExpectLines(LinesOfThisThread(), alreadyDestroyed, [this](TraceSession& /*session*/) {
    UnloadModule();
    LoadModule();
    EXPECT_EQ(Delete(), 0U);
  });
  ExpectLines(LinesOfThisThread(), alreadyDestroyed, [this](TraceSession& session) {
    UnloadModule();
    LoadModule();
    ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
    EXPECT_EQ(DeleteModule(), 1U);
    session.Clear();
    EXPECT_EQ(Delete(), 0U);
  });
}

TEST_F(EntryPointsTest, CreationAfterADeletionBuildsAFreshInstance) {
  InstallCollector("");
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
  EXPECT_EQ(DeleteModule(), 1U);
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 3U));  // not started yet
  EXPECT_EQ(m_pModule->Start(&m_oSwitch, 1), 1U);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
}

// The instance counts as present, although it is gone.
TEST_F(EntryPointsTest, ADestructorThatThrowsMakesTheDeletionFailAndTheHostSurvives) {
  ExpectLines(LinesOfThisThread(),
              {{1, "\nEM DLL (EM_TALVOR ) : Destroy module..."},
               {1, "\nEM_TALVOR           : CLASS DESTROYED!"},
               {4, "\nCTaskSerializer     : TerminateSerialization!"},
               {5, "\nCTaskSerializer     :   terminated"},
               {4, "\n\nCTaskSerializer     : Class destroyed!"},
               {1, "\nEM DLL (EM_TALVOR ) : ## ERROR! Exception while destroying module!"},
               {1, "\nEM DLL (EM_TALVOR ) : ## ERROR: Module already existing!\n"}},
              [this](TraceSession& session) {
                UnloadModule();
                LoadModule();
                ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
                const void* const freed = m_pModule;
                session.Clear();
                const ThrowingDestructor destructor(std::exchange(m_pModule, nullptr));
                EXPECT_EQ(Delete(), 0U);
                CIExtensionModule* again = nullptr;
                EXPECT_EQ(Create(&again, nullptr), 1U);
                EXPECT_EQ(again, freed);
              });
}

TEST_F(EntryPointsTest, ASinkThatThrowsMakesTheDeletionFailAndTheNextOneWork) {
  TraceSession session(1);
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  session.ThrowAt(DESTROY);
  EXPECT_EQ(Delete(), 0U);
  EXPECT_THAT(session.Texts(),
              ElementsAre("\nEM DLL (EM_TALVOR ) : ## ERROR! Exception while destroying module!"));
  session.CallAt(DESTROY, [] {});
  EXPECT_EQ(DeleteModule(), 1U);
}

TEST_F(EntryPointsTest, ASinkThatThrowsAtEveryLineOfADeletionIsSurvived) {
  TraceSession session(1);
  LoadModule();
  session.CallAtEachLine([](const std::string& /*format*/) { throw std::runtime_error("sink"); });
  EXPECT_EQ(Delete(), 0U);  // also where there is nothing to destroy
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  EXPECT_EQ(Delete(), 0U);
  session.CallAtEachLine(nullptr);
  EXPECT_EQ(DeleteModule(), 1U);
}

// The instance is gone when the last line of a deletion is written.
TEST_F(EntryPointsTest, ASinkThatThrowsBehindADeletionDoesNotBringTheInstanceBack) {
  TraceSession session(1);
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  session.ThrowAt("\nEM DLL (%-10s) : .. Module destroyed successfully!");
  EXPECT_EQ(DeleteModule(), 0U);
  EXPECT_EQ(Delete(), 0U);
  EXPECT_EQ(session.Texts().back(), "\nEM DLL (EM_TALVOR ) : Module already destroyed!");
}

// Nothing of what the thread had begun is left behind.
TEST_F(EntryPointsTest, AThreadOfTheHostMayEndWithinACreationOrADeletion) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP()
      << "the sanitizer takes what ends a thread, which is no object, for a null reference";
#endif
  TraceSession session(3);
  LoadModule();
  bool hasReturned = false;
  const auto endsWithin = [&](const char* line, const std::function<void()>& call) {
    session.CallAt(line, [] { pthread_exit(nullptr); });
    std::thread([&] {
      call();
      hasReturned = true;
    }).join();
    session.CallAt(line, nullptr);
  };
  endsWithin("\nEM_TALVOR           : CLASS CREATED!", [this] { Create(&m_pModule, nullptr); });
  EXPECT_EQ(m_pModule, nullptr);
  EXPECT_EQ(Delete(), 0U);
  EXPECT_EQ(Create(&m_pModule, nullptr), 1U);
  endsWithin(DESTROY, [this] { Delete(); });
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_FALSE(hasReturned);
}

TEST_F(EntryPointsTest, AFailedAllocationOfACreationReachesTheHost) {
  int countThrown = 0;
  bool hasFailed = true;
  for (int64_t successes = 0; hasFailed; ++successes) {
    UnloadModule();
    LoadModule();
    FailingNew memory(successes, 1);
    uint32_t result = 0;
    bool hasThrown = false;
    try {
      result = Create(&m_pModule, nullptr);
    } catch (const std::bad_alloc&) {
      hasThrown = true;
    }
    memory.Stop();
    hasFailed = memory.HasFailed();
    // The module is created even when its settings cannot be read, but not without the event that
    // wakes its worker.
    EXPECT_TRUE(result == 1 || hasFailed) << successes;
    EXPECT_EQ(m_pModule == nullptr, result == 0) << successes;
    countThrown += hasThrown ? 1 : 0;
    EXPECT_EQ(Create(&m_pModule, nullptr), 1U) << successes;
    EXPECT_EQ(DeleteModule(), 1U) << successes;
  }
  EXPECT_GT(countThrown, 0);
}

TEST_F(EntryPointsTest, AFailedAllocationReachesTheHostFromNoOtherEntryPoint) {
  const TraceSettings settings("[GlobalDebugSettings]\nDynamicUpdate=0\n");
  bool hasFailed = true;
  for (int64_t successes = 0; hasFailed; ++successes) {
    hasFailed = false;
    const auto call = [&](const auto& entryPoint) {
      UnloadModule();
      LoadModule();
      FailingNew memory(successes, 1);
      EXPECT_NO_THROW(entryPoint());
      memory.Stop();
      hasFailed = memory.HasFailed() || hasFailed;
    };
    call([this] { EXPECT_EQ(Delete(), 0U); });
    call([this] { EXPECT_EQ(SetupAction(4), 0U); });
  }
}

TEST_F(EntryPointsTest, AnotherExceptionGivesTheErrorLineAndNull) {
  const TraceSession session(1);
  uint32_t result = 1;
  for (int64_t successes = 0; result == 1; ++successes) {
    ASSERT_LT(successes, 100);
    UnloadModule();
    LoadModule();
    Delete();
    m_pModule = reinterpret_cast<CIExtensionModule*>(this);
    FailingNew memory(successes, 1, &ThrowHostError);
    result = Create(&m_pModule, nullptr);
  }
  EXPECT_EQ(m_pModule, nullptr);
  EXPECT_EQ(session.Texts().back(),
            "\nEM DLL (EM_TALVOR ) : ## ERROR: Module could not be created!\n");
  EXPECT_EQ(Create(&m_pModule, nullptr), 1U);
}
