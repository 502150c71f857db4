// The module on a system that refuses: each function that enters the system or allocates memory
// fails on each of its calls in turn. The host survives, every request gets its status, nothing
// stays open, locked or running, and the registry is unchanged.

#include "tests/archive_module/call_faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::IsSupersetOf;

std::string ReadRegistry() {
  std::ifstream file("/etc/qamrel/registry");
  return {std::istreambuf_iterator<char>(file), {}};
}

void MakeCollectorDirectory() {
  const std::string directory = std::string(COLLECTOR_DIRECTORY) + "/logs/old";
  std::filesystem::create_directories(directory);
  std::ofstream(directory + "/log") << "x";
}

class CallFaultsTest : public ModuleHost {
 protected:
  CallFaultsTest() {
    InstallCollector(GOOD_COLLECTOR);
    m_oSwitch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 0); };
    m_strRegistry = ReadRegistry();
  }
  ~CallFaultsTest() override { std::filesystem::remove_all(COLLECTOR_DIRECTORY); }

  void ExpectRegistryAsItWas() const {
    EXPECT_EQ(ReadRegistry(), m_strRegistry);
    const std::filesystem::directory_iterator files("/etc/qamrel");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  }

  std::string m_strRegistry;
};

// The functions, one for each case.
class EachCallTest : public CallFaultsTest, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    LoadModule();
    m_pFaults = std::make_unique<CallFaults>(m_pLibrary);
    if (const auto names = m_pFaults->ImportedNames();
        std::find(names.begin(), names.end(), GetParam()) == names.end()) {
      GTEST_SKIP() << "one of those that only other compilers and options make of the source";
    }
  }

  void FailCall(int64_t number) { m_pFaults->Fail(GetParam(), number, 1); }

  // A new instance of a host, with the library loaded again.
  void Reload() {
    m_pFaults.reset();
    UnloadModule();
    ASSERT_FALSE(IsLoaded());
    LoadModule();
    m_pFaults = std::make_unique<CallFaults>(m_pLibrary);
  }

  // Creates the instance. Without memory or an event that may fail, and the host tries again.
  void CreateModule() {
    try {
      Create(&m_pModule, nullptr);
    } catch (const std::bad_alloc&) {
      m_pModule = nullptr;
    }
    if (m_pModule == nullptr) {
      EXPECT_EQ(Delete(), 0U);
      EXPECT_EQ(Create(&m_pModule, nullptr), 1U);
    }
  }

  void ExpectWorkingModule(uint32_t isStarted, bool hasWorker) {
    SipJson query = MakeRequest(QUERY);
    EXPECT_EQ(m_pModule->ModuleRequest(query), 1U);
    EXPECT_EQ(query.GetCmdUInt(0, "DA", 9), isStarted);
    if (isStarted == 0) {
      EXPECT_EQ(Send(CREATE), std::make_pair(1U, 3U));
    } else if (hasWorker) {
      EXPECT_EQ(Run(CREATE), 0U);
    }
  }

  // Sends a request whose call fails, and waits for its final answer. Returns its statuses.
  std::pair<uint32_t, uint32_t> SendWithFault(const char* command, int64_t number) {
    const size_t answers = m_oSwitch.Answers().size();
    FailCall(number);
    const uint32_t status = Send(command).second;
    return {status, status == 22 ? m_oSwitch.StatusOf(answers) : status};
  }

  std::unique_ptr<CallFaults> m_pFaults;
};

// All functions except those that create a process, which replace each other, and what follows
// them.
std::vector<std::string> NamesOfCalls() {
  std::vector<std::string> names = CallFaults::AllNames();
  std::vector<std::string> others = {"fork", "vfork", "execvp"};
#ifdef __SANITIZE_THREAD__
  others.emplace_back("pthread_mutex_init");  // a lock without its mutex protects nothing
#endif
  for (const std::string& name : others) {
    names.erase(std::remove(names.begin(), names.end(), name), names.end());
  }
  return names;
}

std::string CaseName(const testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  name.erase(std::remove_if(name.begin(), name.end(), [](char letter) { return !isalnum(letter); }),
             name.end());
  return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Functions, EachCallTest, testing::ValuesIn(NamesOfCalls()), CaseName);

TEST_P(EachCallTest, IsSurvivedWhenAModuleStartsAndEnds) {
  const size_t threads = CountThreads();
  const ptrdiff_t descriptors = CountDescriptors();
  bool hasFailed = true;
  for (int64_t number = 0; hasFailed; ++number) {
    SCOPED_TRACE(number);
    Reload();
    FailCall(number);
    CreateModule();
    const uint32_t isStarted = m_pModule->Start(&m_oSwitch, 1);
    hasFailed = m_pFaults->Stop();
    EXPECT_TRUE(hasFailed || isStarted == 1);
    ExpectWorkingModule(isStarted, CountThreads() > threads);

    FailCall(number);
    EXPECT_EQ(m_pModule->Stop(), 1U);
    EXPECT_TRUE(HasOnlyThreads(threads));
    EXPECT_EQ(DeleteModule(), 1U);
    hasFailed = m_pFaults->Stop() || hasFailed;
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_FALSE(HasChildren());
  }
  ExpectRegistryAsItWas();
}

TEST_P(EachCallTest, IsSurvivedWhenAModuleIsDeletedWithoutStop) {
  const size_t threads = CountThreads();
  bool hasFailed = true;
  for (int64_t number = 0; hasFailed; ++number) {
    SCOPED_TRACE(number);
    Reload();
    ASSERT_EQ(CreateAndStart(), 1U);
    FailCall(number);
    EXPECT_EQ(DeleteModule(), 1U);
    hasFailed = m_pFaults->Stop();
    EXPECT_TRUE(HasOnlyThreads(threads));
  }
}

TEST_P(EachCallTest, IsSurvivedByRequests) {
  ASSERT_EQ(CreateAndStart(), 1U);
  const ptrdiff_t descriptors = CountDescriptors();
  for (const char* command : {QUERY, CREATE, NAMED_TRANSFER}) {
    bool hasFailed = true;
    for (int64_t number = 0; hasFailed; ++number) {
      SCOPED_TRACE(command + std::to_string(number));
      const auto [status, finalStatus] = SendWithFault(command, number);
      hasFailed = m_pFaults->Stop();
      EXPECT_THAT(status, AnyOf(command == QUERY ? 0U : 22U, 13U));
      EXPECT_THAT(finalStatus, AnyOf(0U, 3U, 5U, 6U, 13U));
      EXPECT_TRUE(hasFailed || finalStatus == 0);
      EXPECT_EQ(Run(CREATE), 0U);
      EXPECT_EQ(Send(QUERY), std::make_pair(1U, 0U));
      EXPECT_EQ(CountDescriptors(), descriptors);
      EXPECT_FALSE(HasChildren());
    }
  }
  EXPECT_EQ(m_pModule->Stop(), 1U);
  ExpectRegistryAsItWas();
}

TEST_P(EachCallTest, IsSurvivedByACleanup) {
  const ptrdiff_t descriptors = CountDescriptors();
  bool hasFailed = true;
  for (int64_t number = 0; hasFailed; ++number) {
    SCOPED_TRACE(number);
    Reload();
    MakeCollectorDirectory();
    std::ofstream(m_strArchive) << "data";
    FailCall(number);
    EXPECT_LE(SetupAction(CLEANUP), 1U);
    hasFailed = m_pFaults->Stop();
    EXPECT_EQ(CountDescriptors(), descriptors);
    // A registry that could not be read stays unknown until the module is loaded again.
    Reload();
    EXPECT_EQ(SetupAction(CLEANUP), 1U);
    EXPECT_FALSE(std::filesystem::exists(COLLECTOR_DIRECTORY));
    EXPECT_FALSE(std::filesystem::exists(m_strArchive));
  }
  ExpectRegistryAsItWas();
}

// When one way to create a process fails the launcher takes another, which must be made to fail
// too.
TEST_F(CallFaultsTest, TheFunctionsOfACreationAreAmongThoseThatFail) {
  LoadModule();
  const CallFaults faults(m_pLibrary);
  const std::vector<std::string> names = faults.ImportedNames();
  EXPECT_THAT(names, IsSupersetOf({"open", "read", "write", "stat", "fstat", "unlink", "opendir",
                                   "readdir", "unlinkat", "syscall", "execvp", "waitpid", "kill",
                                   "pthread_create", "malloc", "_Znwm"}));
  EXPECT_THAT(names, AnyOf(Contains("openat"), Contains("__openat_2")));
  EXPECT_THAT(names, AnyOf(Contains("fork"), Contains("vfork")));
}

TEST_F(CallFaultsTest, ACollectorThatTheSystemDoesNotExecuteFailsTheJob) {
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("execvp", 0);
  EXPECT_EQ(Run(CREATE), 6U);
  faults.Stop();
  EXPECT_EQ(Run(CREATE), 0U);
}

// The job has lost its collector, but Stop() still knows it.
TEST_F(CallFaultsTest, ACollectorThatCannotBeWaitedForIsEndedByStop) {
  InstallCollector("exec sleep 60");
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("waitpid", 0, 1, ECHILD);
  EXPECT_EQ(Run(CREATE), 6U);
  EXPECT_TRUE(HasChildren());
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_FALSE(HasChildren());
}

TEST_F(CallFaultsTest, ACollectorThatCannotBeKilledIsWaitedFor) {
  InstallCollector("touch \"$D/runs\"; while test ! -e \"$D/go\"; do sleep 0.1; done");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  faults.Fail("kill", 0);
  faults.CallAt("kill", [this] { std::ofstream(m_strDirectory + "go") << "go"; });
  Send(CREATE);
  ASSERT_TRUE(WaitForCollector());
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);  // it has left no archive
  EXPECT_FALSE(HasChildren());
  EXPECT_THAT(
      session.Texts(),
      Contains(
          "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated (0x00000001)!\n"));
}

// Stop() waits for the collector before the job does, and finds that it has ended by itself.
TEST_F(CallFaultsTest, ACollectorThatEndsBeforeTheKillHasExited) {
  InstallCollector(
      "echo $$ > \"$D/pid\"; touch \"$D/runs\"; while test ! -e \"$D/go\"; do sleep 0.1; done");
  constexpr char EXITED[] = "\nEM_TALVOR (Stop)    : Talvor process exit";
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  std::atomic<bool> isJob = true;
  faults.CallAt("waitpid", [&] {
    if (isJob.exchange(false)) {
      session.WaitFor(EXITED);
    }
  });
  faults.CallAt("kill", [this] {
    std::ofstream(m_strDirectory + "go") << "go";
    std::string pid;
    std::ifstream(m_strDirectory + "pid") >> pid;
    EXPECT_TRUE(WaitUntil([&pid] {
      std::string text;
      std::getline(std::ifstream("/proc/" + pid + "/stat"), text);
      return text.find(") Z ") != std::string::npos;
    }));
  });
  Send(CREATE);
  ASSERT_TRUE(WaitForCollector());
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(session.Count(EXITED), 1);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
}

TEST_F(CallFaultsTest, WithoutAThreadStopEndsTheCollectorAllTheSame) {
  InstallCollector("touch \"$D/runs\"; exec sleep 60");
  const size_t threads = CountThreads();
  ASSERT_EQ(CreateAndStart(), 1U);
  CallFaults faults(m_pLibrary);
  Send(CREATE);
  Send(CREATE);
  ASSERT_TRUE(WaitForCollector());
  faults.Fail("pthread_create", 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  EXPECT_THAT(m_oSwitch.Answers(), testing::SizeIs(1));
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
  EXPECT_TRUE(HasOnlyThreads(threads));
  EXPECT_FALSE(HasChildren());
}

// The event that wakes the worker is the first of the module.
TEST_F(CallFaultsTest, WithoutAnEventForTheWorkerThereIsNoInstance) {
  const TraceSession session(1);
  LoadModule();
  CallFaults faults(m_pLibrary);
  faults.Fail("pthread_cond_init", 0, 1);
  m_pModule = reinterpret_cast<CIExtensionModule*>(this);
  EXPECT_EQ(Create(&m_pModule, nullptr), 0U);
  EXPECT_EQ(m_pModule, nullptr);
  EXPECT_TRUE(faults.Stop());
  EXPECT_EQ(session.Texts().back(),
            "\nEM DLL (EM_TALVOR ) : ## ERROR: Module could not be created!\n");
  EXPECT_EQ(Create(&m_pModule, nullptr), 1U);
}
