// The module's life as its host sees it: entry points, identification, start, stop and unloading.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using Clock = std::chrono::steady_clock;

constexpr char CREATE[] = R"({"OC":13313,"MI":"0x00010002"})";

size_t CountEntries(const char* directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t CountThreads() { return CountEntries("/proc/self/task"); }

size_t CountDescriptors() { return CountEntries("/proc/self/fd"); }

class EmTalvorTest : public ModuleHost {
 protected:
  // Waits until the collector has made the file "runs".
  bool WaitForCollector() const {
    return WaitUntil([this] { return std::filesystem::exists(m_directory + "runs"); });
  }
};

}  // namespace

TEST_F(EmTalvorTest, ExportsNothingButItsEntryPoints) {
  FILE* symbols = popen("nm -D --defined-only --format=just-symbols " EM_TALVOR_LIBRARY, "r");
  ASSERT_NE(symbols, nullptr);
  std::string names;
  for (int letter = fgetc(symbols); letter != EOF; letter = fgetc(symbols)) {
    names += static_cast<char>(letter);
  }
  EXPECT_EQ(pclose(symbols), 0);
  EXPECT_EQ(names, "EM_Create\nEM_Delete\nEM_GetModuleName\nEM_SetupAction\n");
}

TEST_F(EmTalvorTest, ASecondCreationHandsTheInstanceOutAgainAndTracesAnError) {
  const TraceSession session(1);
  LoadModule();
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  CIExtensionModule* again = nullptr;
  EXPECT_EQ(Create(&again, nullptr), 1U);
  EXPECT_EQ(again, m_module);
  EXPECT_THAT(session.Texts(),
              ElementsAre("\nEM DLL (EM_TALVOR ) : ## ERROR: Module already existing!\n"));
}

TEST_F(EmTalvorTest, CreationTakesANullPointer) {
  LoadModule();
  EXPECT_EQ(Create(nullptr, nullptr), 1U);
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  EXPECT_NE(m_module, nullptr);
}

TEST_F(EmTalvorTest, DeletionWithoutAnInstanceFails) {
  const TraceSession session(1);
  LoadModule();
  EXPECT_EQ(Delete(), 0U);
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  EXPECT_EQ(Delete(), 1U);
  EXPECT_EQ(Delete(), 0U);
  m_module = nullptr;
  EXPECT_EQ(session.Count("\nEM DLL (%-10s) : Module already destroyed!"), 2);
  EXPECT_EQ(session.Count("\nEM DLL (%-10s) : .. Module destroyed successfully!"), 1);
}

TEST_F(EmTalvorTest, CreationAfterADeletionBuildsAFreshInstance) {
  const TraceSession session(2);
  LoadModule();
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(Create(&m_module, nullptr), 1U);
    EXPECT_EQ(Delete(), 1U);
    m_module = nullptr;
  }
  EXPECT_EQ(session.Count("\nEM DLL (%-10s) : Create module"), 2);
}

TEST_F(EmTalvorTest, NameAndSetupActionsNeedNoInstance) {
  LoadModule();
  EXPECT_STREQ(GetModuleName(), "EM_TALVOR");
  EXPECT_EQ(SetupAction(1), 0U);
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  EXPECT_STREQ(m_module->GetModuleName(), "EM_TALVOR");
  EXPECT_EQ(Delete(), 1U);
  m_module = nullptr;
  EXPECT_STREQ(GetModuleName(), "EM_TALVOR");
}

TEST_F(EmTalvorTest, FillsTheIdentificationRecordByteByByte) {
  LoadModule();
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  std::array<uint8_t, 300> record = {};
  record.fill(0xFF);
  const uint32_t size = 246;
  memcpy(record.data(), &size, sizeof(size));
  std::array<uint8_t, 300> expected = record;
  expected[21] = 0xFC;
  memset(&expected[42], 0, 204);
  expected[42] = 2;
  memcpy(&expected[46], "EM_TALVOR", 9);
  memcpy(&expected[146], "Talvor extension module", 23);
  EXPECT_EQ(m_module->GetModuleInfo(record.data()), 1U);
  EXPECT_EQ(record, expected);

  record.fill(0);
  memcpy(record.data(), &size, sizeof(size));
  EXPECT_EQ(m_module->GetModuleInfo(record.data()), 1U);
  EXPECT_EQ(record[8], 3);
  EXPECT_EQ(record[21], 0);
}

TEST_F(EmTalvorTest, LeavesASmallerIdentificationRecordUntouched) {
  LoadModule();
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  std::array<uint8_t, 246> record = {245};
  const std::array<uint8_t, 246> before = record;
  EXPECT_EQ(m_module->GetModuleInfo(record.data()), 0U);
  EXPECT_EQ(record, before);
}

TEST_F(EmTalvorTest, StartTracesItsSteps) {
  InstallCollector("");
  const TraceSession session(3);
  ASSERT_EQ(CreateAndStart(), 1U);
  const std::string line(90, '-');
  const std::string program = m_directory + "Talvor";
  std::vector<std::string> texts;
  for (const std::string& text : session.Texts()) {
    if (text.find("EM_TALVOR (Start)") != std::string::npos ||
        text.find(line) != std::string::npos) {
      texts.push_back(text);
    }
  }
  EXPECT_THAT(
      texts,
      ElementsAre("\n\n" + line, "\nEM_TALVOR (Start)   : ### Starting module EM_TALVOR ###\n",
                  "\nEM_TALVOR (Start)   : Talvor executable: \"" + program + "\"",
                  "\nEM_TALVOR (Start)   : Check for Talvor executable file existing...",
                  "\nEM_TALVOR (Start)   : -> Talvor is installed - module will be started",
                  "\nEM_TALVOR (Start)   : Talvor executable: " + program,
                  "\nEM_TALVOR (Start)   : HTI transfer type: Talvor",
                  "\nEM_TALVOR (Start)   : Talvor archive dir: \"" + m_directory + "\"\n",
                  "\nEM_TALVOR (Start)   : Talvor archive path: \"" + m_archive + "\"\n",
                  "\nEM_TALVOR (Start)   : Start task handler",
                  "\n\nEM_TALVOR (Start)   : Start of module completed", "\n" + line + "\n"));
}

TEST_F(EmTalvorTest, DoesNotStartWithoutTheExecutable) {
  WriteRegistry(m_directory, m_directory);
  const TraceSession session(3);
  const size_t threads = CountThreads();
  EXPECT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(CountThreads(), threads);
  EXPECT_THAT(session.Texts(),
              IsSupersetOf({"\nEM_TALVOR (Start)   : -> Talvor not installed - module not started!",
                            "\nEM_TALVOR (Start)   : HTI transfer type: Talvor"}));
  EXPECT_EQ(m_module->Stop(), 1U);
}

TEST_F(EmTalvorTest, DoesNotStartWithoutTheRegistryAndStillTracesTheTransferType) {
  const TraceSession session(2);
  EXPECT_EQ(CreateAndStart(), 0U);
  EXPECT_THAT(
      session.Formats(),
      IsSupersetOf(
          {"\nEM_TALVOR (Start)   : ## ERROR! Could not get the Talvor installation path - module not started!",
           "\nEM_TALVOR (Start)   : HTI transfer type: Talvor"}));
}

TEST_F(EmTalvorTest, NeverChangesTheRegistry) {
  InstallCollector("echo data > \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(CREATE);
  m_module->ModuleRequest(request);
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
  m_module->Stop();
  UnloadModule();
  EXPECT_EQ(CountEntries("/etc/qamrel"), 1U);
}

TEST_F(EmTalvorTest, StopWithoutAJobSaysThatNothingRuns) {
  InstallCollector("");
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  session.Texts();
  const size_t threads = CountThreads();
  EXPECT_EQ(m_module->Stop(), 1U);
  EXPECT_EQ(CountThreads(), threads - 1);
  EXPECT_EQ(session.Count(
                "\nEM_TALVOR (Stop)    : Talvor process not running, can stop module immediately"),
            1);
  EXPECT_THAT(session.Texts(),
              IsSupersetOf({"\n### Stopping module EM_TALVOR ###\n",
                            "\n\n### Stop of module EM_TALVOR completed successfully ###"}));
}

TEST_F(EmTalvorTest, StopKillsACollectorThatOutlivesTheGrace) {
  InstallCollector("touch '" + m_directory + "runs'; exec sleep 60");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(CREATE);
  m_module->ModuleRequest(request);
  ASSERT_TRUE(WaitForCollector());
  const Clock::time_point begin = Clock::now();
  EXPECT_EQ(m_module->Stop(), 1U);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(2100));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(20));
  EXPECT_THAT(m_switch.Answers(), testing::SizeIs(1));
  EXPECT_EQ(m_switch.StatusOf(0), 6U);
  EXPECT_EQ(
      session.Count(
          "\nEM_TALVOR (Stop)    : -> Talvor archive creation in progress - terminate process (#%d) and wait for exit..."),
      1);
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated in time or WaitForExit() failed!\n") +
          session.Count("\nEM_TALVOR (Stop)    : Talvor process exit"),
      1);
}

TEST_F(EmTalvorTest, StopLetsACollectorEndWithinTheGrace) {
  InstallCollector("touch '" + m_directory + "runs'; sleep 1; echo data > \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(CREATE);
  m_module->ModuleRequest(request);
  ASSERT_TRUE(WaitForCollector());
  EXPECT_EQ(m_module->Stop(), 1U);
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
}

TEST_F(EmTalvorTest, StopDropsTheJobsThatHaveNotBegun) {
  InstallCollector("touch '" + m_directory + "runs'; sleep 1; echo data > \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  for (int count = 0; count < 3; ++count) {
    SipJson request = MakeRequest(CREATE);
    m_module->ModuleRequest(request);
  }
  ASSERT_TRUE(WaitForCollector());
  EXPECT_EQ(m_module->Stop(), 1U);
  EXPECT_THAT(m_switch.Answers(), testing::SizeIs(1));
}

TEST_F(EmTalvorTest, StopKillsTheIdOfAFailedRunAllTheSame) {
  InstallCollector("exit 2");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(CREATE);
  m_module->ModuleRequest(request);
  EXPECT_EQ(m_switch.StatusOf(0), 6U);
  EXPECT_EQ(m_module->Stop(), 1U);
  EXPECT_THAT(
      session.Texts(),
      Contains(
          "\n\nEM_TALVOR (Stop)    : ## ERROR! Talvor process could not be terminated (0x00000003)!\n"));
}

TEST_F(EmTalvorTest, StopWithinTheHandBackDoesNotHang) {
  InstallCollector("echo data > \"$archive\"");
  uint32_t stopped = 0;
  m_switch.onAnswer = [&](SipJson& /*answer*/) { stopped = m_module->Stop(); };
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(CREATE);
  m_module->ModuleRequest(request);
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
  EXPECT_EQ(stopped, 1U);
}

TEST_F(EmTalvorTest, DeletionWithoutStopEndsTheWorkerAndTheCollector) {
  InstallCollector("touch '" + m_directory + "runs'; exec sleep 60");
  ASSERT_EQ(CreateAndStart(), 1U);
  const size_t threads = CountThreads();
  SipJson request = MakeRequest(CREATE);
  m_module->ModuleRequest(request);
  ASSERT_TRUE(WaitForCollector());
  EXPECT_EQ(Delete(), 1U);
  m_module = nullptr;
  EXPECT_EQ(m_switch.StatusOf(0), 6U);
  EXPECT_EQ(CountThreads(), threads - 1);
}

TEST_F(EmTalvorTest, ASinkThatThrowsWhileTheModuleStartsAndStopsDoesNoHarm) {
  InstallCollector("");
  TraceSession session(5);
  session.ThrowAt("\nEM_TALVOR (Start)   : Start task handler");
  session.ThrowAt("\n### Stopping module %s ###\n");
  session.ThrowAt("\nCTaskSerializer     : TerminateSerialization!");
  session.ThrowAt("\nEM_TALVOR           : CLASS DESTROYED!");
  EXPECT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(m_module->Stop(), 1U);
  EXPECT_EQ(Delete(), 1U);
  m_module = nullptr;
}

TEST_F(EmTalvorTest, ASinkThatThrowsMakesTheDeletionFailAndTheNextOneWork) {
  TraceSession session(1);
  LoadModule();
  ASSERT_EQ(Create(&m_module, nullptr), 1U);
  session.ThrowAt("\nEM DLL (%-10s) : Destroy module...");
  EXPECT_EQ(Delete(), 0U);
  EXPECT_THAT(session.Texts(),
              ElementsAre("\nEM DLL (EM_TALVOR ) : ## ERROR! Exception while destroying module!"));
  session.CallAt("\nEM DLL (%-10s) : Destroy module...", [] {});
  EXPECT_EQ(Delete(), 1U);
  m_module = nullptr;
}

TEST_F(EmTalvorTest, TwentyRoundsLeaveNothingBehind) {
  InstallCollector("echo data > \"$archive\"");
  size_t threads = 0;
  size_t descriptors = 0;
  for (size_t round = 0; round < 20; ++round) {
    ASSERT_EQ(CreateAndStart(), 1U);
    SipJson request = MakeRequest(CREATE);
    m_module->ModuleRequest(request);
    ASSERT_EQ(m_switch.StatusOf(round), 0U);
    EXPECT_EQ(m_module->Stop(), 1U);
    UnloadModule();
    EXPECT_FALSE(IsLoaded());
    if (round == 0) {
      threads = CountThreads();
      descriptors = CountDescriptors();
    }
  }
  EXPECT_EQ(CountThreads(), threads);
  EXPECT_EQ(CountDescriptors(), descriptors);
}
