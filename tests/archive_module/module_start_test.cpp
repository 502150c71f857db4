// The start of the module: where it looks for the collector and for the place of the archive, and
// what becomes of requests when it does not find them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/failing_new.h"
#include "tests/support/trace_session.h"

namespace {

using testing::IsEmpty;
using Lines = std::vector<LevelLine>;

constexpr char POINTER[] = "Talvor=s=SOFTWARE\\Talvor\n";

class ModuleStartTest : public ModuleHost {
 protected:
  ModuleStartTest() : m_strProgram(m_strDirectory + "Talvor") {}

  // What every start writes first.
  static Lines Begin() {
    return {
        {1, "\n\n" + SeparatorLine()},
        {1, "\nEM_TALVOR (Start)   : ### Starting module EM_TALVOR ###\n"},
        {4, "\nEM_TALVOR           : Register event log source \"Corvista Server Control\" ..."},
        {4, "\nEM_TALVOR           : ... event log source \"Corvista Server Control\" registered"}};
  }

  // The installation directory is found.
  Lines BinDir() const {
    return {{3, "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"SOFTWARE\\Talvor\""},
            {4, "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"SOFTWARE\\Talvor\\Setup\"..."},
            {4, "\nEM_TALVOR (BinDir)  :   query Talvor file root value: \"FileRoot\"..."},
            {3, "\nEM_TALVOR (BinDir)  : Talvor base dir:   \"" + m_strDirectory + "\""}};
  }

  Lines LookForExecutable() const {
    return {{2, "\nEM_TALVOR (Start)   : Talvor executable: \"" + m_strProgram + "\""},
            {3, "\nEM_TALVOR (Start)   : Check for Talvor executable file existing..."}};
  }

  Lines Executable() const {
    return {{1, "\nEM_TALVOR (Start)   : -> Talvor is installed - module will be started"},
            {3, "\nEM_TALVOR (Start)   : Talvor executable: " + m_strProgram}};
  }

  static Lines TransferType() { return {{2, "\nEM_TALVOR (Start)   : HTI transfer type: Talvor"}}; }

  // The lookup of the data directory, up to the query.
  static Lines DataDirQuery() {
    return {{3, "\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"SOFTWARE\\Talvor\""},
            {4, "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"SOFTWARE\\Talvor\\Setup\"..."},
            {4, "\nEM_TALVOR (DataDir) :   query Talvor file root value: \"DataRoot\"..."}};
  }

  static Lines DataDir(const std::string& directory) {
    return {{3, "\nEM_TALVOR (DataDir) : Talvor data dir:   \"" + directory + "\""}};
  }

  static Lines FallBack() {
    return {
        {4,
         "\nEM_TALVOR (DataDir) :   no Talvor data root directory available, take file root..."}};
  }

  static Lines Archive(const std::string& directory) {
    return {
        {3, "\nEM_TALVOR (Start)   : Talvor archive dir: \"" + directory + "\"\n"},
        {2, "\nEM_TALVOR (Start)   : Talvor archive path: \"" + directory + "Talvor_Data.zip\"\n"}};
  }

  static Lines Worker() {
    return {{3, "\nEM_TALVOR (Start)   : Start task handler"},
            {4, "\nCTaskSerializer     : StartSerialization!"},
            {1, "\n\nEM_TALVOR (Start)   : Start of module completed"}};
  }

  static Lines End() { return {{1, "\n" + SeparatorLine() + "\n"}}; }

  static Lines Join(const std::vector<Lines>& parts) {
    Lines lines;
    for (const Lines& part : parts) {
      lines.insert(lines.end(), part.begin(), part.end());
    }
    return lines;
  }

  // Expects a start with that result and those lines.
  void ExpectStart(uint32_t result, const std::vector<Lines>& lines) {
    ExpectLines(LinesOfThisThread(), Join(lines), [&](TraceSession& session) {
      UnloadModule();
      LoadModule();
      ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
      session.Clear();
      EXPECT_EQ(m_pModule->Start(&m_oSwitch, 1), result);
    });
  }

  // The archive's path, as a transfer names it.
  std::string ArchivePath() {
    const TraceSession session(2);
    EXPECT_EQ(StartAfresh(), 1U);
    Run(TRANSFER);
    constexpr char TAG[] = "\nEM_TALVOR (Transfer):   archive path: ";
    for (const std::string& text : session.Texts()) {
      if (text.starts_with(TAG)) {
        return text.substr(sizeof(TAG) - 1);
      }
    }
    return "";
  }

  // The answers of a module that has not started.
  void ExpectUnavailable() {
    EXPECT_EQ(Send(CREATE), std::make_pair(1U, 3U));
    EXPECT_EQ(Send(TRANSFER), std::make_pair(1U, 3U));
    SipJson query = MakeRequest(QUERY);
    EXPECT_EQ(m_pModule->ModuleRequest(query), 1U);
    EXPECT_EQ(query.GetCmdUInt(0, "DA", 9), 0U);
    EXPECT_EQ(StatusOf(query), 0U);
    EXPECT_EQ(m_pModule->Stop(), 1U);
    EXPECT_THAT(m_oSwitch.Answers(), IsEmpty());
  }

  const std::string m_strProgram;
};

}  // namespace

TEST_F(ModuleStartTest, FindsTheCollectorAndTheArchiveAndStartsTheWorker) {
  InstallCollector("");
  ExpectStart(1,
              {Begin(), BinDir(), LookForExecutable(), Executable(), TransferType(), DataDirQuery(),
               DataDir(m_strDirectory), Archive(m_strDirectory), Worker(), End()});
}

TEST_F(ModuleStartTest, WithoutThePointerNothingIsInstalled) {
  WriteRegistryText("FileRoot=s=" + m_strDirectory + "\n", "");
  ExpectStart(
      0,
      {Begin(),
       {{2,
         "\nEM_TALVOR (BinDir)  : ## Talvor pointer key not existing - no Corvista component installed."},
        {1,
         "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!"}},
       TransferType(),
       End()});
  ExpectUnavailable();
}

TEST_F(ModuleStartTest, WithoutTheSetupKeyNothingIsInstalled) {
  WriteRegistryText("FileRoot=s=" + m_strDirectory + "\n", "Talvor=s=SOFTWARE\\Other\n");
  ExpectStart(
      0,
      {Begin(),
       {{3, "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"SOFTWARE\\Other\""},
        {4, "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"SOFTWARE\\Other\\Setup\"..."},
        {1,
         "\nEM_TALVOR (BinDir)  : ## ERROR 0xFFFFFFFF! Could not open registry key \"SOFTWARE\\Other\\Setup\"!"},
        {1,
         "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!"}},
       TransferType(),
       End()});
  ExpectUnavailable();
}

TEST_F(ModuleStartTest, WithoutTheFileRootNothingIsInstalled) {
  WriteRegistryText("DataRoot=s=" + m_strDirectory + "\n", POINTER);
  ExpectStart(
      0,
      {Begin(),
       {{3, "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"SOFTWARE\\Talvor\""},
        {4, "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"SOFTWARE\\Talvor\\Setup\"..."},
        {4, "\nEM_TALVOR (BinDir)  :   query Talvor file root value: \"FileRoot\"..."},
        {1,
         "\nEM_TALVOR (BinDir)  : ## ERROR 0x0000003D! Could not query registry value \"FileRoot\" in Talvor setup key!"},
        {1,
         "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!"}},
       TransferType(),
       End()});
  ExpectUnavailable();
}

TEST_F(ModuleStartTest, WithoutTheExecutableNothingIsInstalled) {
  WriteRegistry(m_strDirectory, m_strDirectory);
  ExpectStart(0, {Begin(),
                  BinDir(),
                  LookForExecutable(),
                  {{1, "\nEM_TALVOR (Start)   : -> Talvor not installed - module not started!"}},
                  TransferType(),
                  End()});
  ExpectUnavailable();
}

TEST_F(ModuleStartTest, AModuleThatDoesNotStartHasNoWorker) {
  const size_t threads = CountThreads();
  WriteRegistry(m_strDirectory, m_strDirectory);
  EXPECT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(CountThreads(), threads);
}

TEST_F(ModuleStartTest, WithoutTheDataRootTheArchiveLiesBesideTheExecutable) {
  InstallCollector("");
  WriteRegistryText("FileRoot=s=" + m_strDirectory + "\n", POINTER);
  ExpectStart(
      1,
      {Begin(),
       BinDir(),
       LookForExecutable(),
       Executable(),
       TransferType(),
       DataDirQuery(),
       {{1,
         "\nEM_TALVOR (DataDir) : ## ERROR 0x0000003D! Could not query registry value \"DataRoot\" in Talvor setup key!"}},
       FallBack(),
       BinDir(),
       Archive(m_strDirectory),
       Worker(),
       End()});
}

TEST_F(ModuleStartTest, ADirectoryGetsItsSlashOnlyWhenItHasNone) {
  InstallCollector("");
  const std::string bare = m_strDirectory.substr(0, m_strDirectory.size() - 1);
  for (const std::string& fileRoot : {bare, m_strDirectory}) {
    for (const char* dataRoot : {"/var/tmp", "/var/tmp/"}) {
      WriteRegistry(fileRoot, dataRoot);
      EXPECT_EQ(ArchivePath(), "\"/var/tmp/Talvor_Data.zip\"");
    }
  }
}

TEST_F(ModuleStartTest, AnEmptyDataRootLeavesTheArchiveInTheWorkingDirectory) {
  InstallCollector("");
  WriteRegistry(m_strDirectory, "");
  EXPECT_EQ(ArchivePath(), "\"Talvor_Data.zip\"");
}

TEST_F(ModuleStartTest, AnEmptyFileRootIsTheRootDirectory) {
  WriteRegistry("", m_strDirectory);
  const TraceSession session(3);
  EXPECT_EQ(CreateAndStart(), 0U);
  EXPECT_THAT(session.Texts(),
              testing::IsSupersetOf({"\nEM_TALVOR (BinDir)  : Talvor base dir:   \"/\"",
                                     "\nEM_TALVOR (Start)   : Talvor executable: \"/Talvor\""}));
}

// The data directory falls back to the installation directory, which has just been found. The
// second lookup fails only when something breaks in between, here an allocation.
TEST_F(ModuleStartTest, DoesNotStartWhenTheSecondLookupFails) {
  InstallCollector("");
  constexpr char NO_DATA_DIR[] =
      "\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor archive data dir - module not started!";
  TraceSession session(1);
  for (int64_t successes = 0; session.Count(NO_DATA_DIR) == 0; ++successes) {
    ASSERT_LT(successes, 100);
    std::unique_ptr<FailingNew> memory;
    session.CallAt("\nEM_TALVOR (Start)   : -> Talvor is installed - module will be started",
                   [&] { memory = std::make_unique<FailingNew>(successes); });
    session.CallAt(NO_DATA_DIR, [&] { memory.reset(); });
    EXPECT_EQ(StartAfresh(), 0U);
  }
  EXPECT_EQ(session.Count("\n\nEM_TALVOR (Start)   : Start of module completed"), 0);
  ExpectUnavailable();
}

TEST_F(ModuleStartTest, AsksForTheCollectorOnceMoreWhenItIsStartedAgain) {
  WriteRegistry(m_strDirectory, m_strDirectory);
  EXPECT_EQ(CreateAndStart(), 0U);
  InstallCollector("");
  EXPECT_EQ(m_pModule->Start(&m_oSwitch, 1), 1U);
  EXPECT_EQ(Run(TRANSFER), 3U);
}

TEST_F(ModuleStartTest, MayBeStartedAgainWhileJobsBegin) {
  InstallCollector(GOOD_COLLECTOR);
  ASSERT_EQ(CreateAndStart(), 1U);
  for (size_t job = 0; job < 10; ++job) {
    EXPECT_EQ(Send(job % 2 == 0 ? CREATE : TRANSFER), std::make_pair(1U, 22U));
    do {
      EXPECT_EQ(m_pModule->Start(&m_oSwitch, 1), 1U);
    } while (m_oSwitch.Answers().size() <= job);
    EXPECT_EQ(m_oSwitch.StatusOf(job), job % 2 == 0 ? 0U : 22U);
  }
}

TEST_F(ModuleStartTest, SurvivesAnyAllocationThatFails) {
  InstallCollector("");
  bool hasFailed = true;
  for (int64_t successes = 0; hasFailed; ++successes) {
    UnloadModule();
    LoadModule();
    ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
    FailingNew memory(successes, 1);
    const uint32_t isStarted = m_pModule->Start(&m_oSwitch, 1);
    memory.Stop();
    hasFailed = memory.HasFailed();
    SipJson query = MakeRequest(QUERY);
    EXPECT_EQ(m_pModule->ModuleRequest(query), 1U);
    EXPECT_EQ(query.GetCmdUInt(0, "DA", 9), isStarted);
    EXPECT_EQ(m_pModule->Stop(), 1U);
  }
}
