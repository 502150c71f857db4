#include "trace/debug_trace_config.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "tests/support/failing_new.h"
#include "tests/trace/trace_config_directory.h"
#include "trace/config_files.h"

namespace {

constexpr uint32_t LARGEST = 0xFFFFFFFF;

class DebugTraceConfigTest : public TraceConfigDirectory {
 protected:
  void Load(const char* moduleName = "EM_TALVOR") { EXPECT_TRUE(m_oClient.Load(moduleName)); }

  uint32_t LoadedLevel(const char* moduleName = "EM_TALVOR") {
    Load(moduleName);
    return m_oClient.GetDebugLevel();
  }

  uint32_t LoadedInterval() {
    Load();
    return m_oClient.GetDynamicUpdate();
  }
};

TEST_F(DebugTraceConfigTest, IsOffBeforeTheFirstLoad) {
  EXPECT_FALSE(m_oClient.IsEnabled());
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 0U);
  EXPECT_EQ(m_oClient.GetMemoryTracesFlag(), 0U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 0U);
  EXPECT_STREQ(m_oClient.GetModuleName(), "");
}

TEST_F(DebugTraceConfigTest, StaysOffWithoutADirectory) {
  Load();
  EXPECT_FALSE(m_oClient.IsEnabled());
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 0U);
}

TEST_F(DebugTraceConfigTest, ReadsLevelAndFlagsFromTheSectionOfTheModule) {
  Write("talvor.ini",
        "FileDebugLevel=1\n"
        "[OTHER]\nFileDebugLevel=2\nTraceFlags=2\n"
        "[em_talvor]\nFileDebugLevel = 3\nTraceFlags = 0x80000001\nMemoryTracesFlag=1\n"
        "[THIRD]\nFileDebugLevel=4\nTraceFlags=4\n");
  Load();
  EXPECT_TRUE(m_oClient.IsEnabled());
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 0x80000001U);
  EXPECT_EQ(m_oClient.GetMemoryTracesFlag(), 0U);
}

TEST_F(DebugTraceConfigTest, ReadsTheIntervalFromTheGlobalSectionOfTheGlobalFile) {
  Write("global_trace.ini",
        "[EM_TALVOR]\nDynamicUpdate=1\nFileDebugLevel=4\n"
        "[globaldebugsettings]\nDynamicUpdate=10\n");
  EXPECT_EQ(LoadedInterval(), 10U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 4U);
}

TEST_F(DebugTraceConfigTest, IsNotTakenInByKeysThatAreOnlyPartOfItsOwn) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nUpdate=1\nDynamic=1\nDynamicUpdate=10\n");
  Write("a.ini",
        "[EM_TALVOR]\nDebugLevel=1\nFlags=1\nFileDebug=1\nTrace=1\n"
        "FileDebugLevel=3\nTraceFlags=9\n");
  Load();
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
}

TEST_F(DebugTraceConfigTest, ReadsNoIntervalFromAnotherFileOrSection) {
  Write("a.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EM_TALVOR]\nDynamicUpdate=11\n");
  EXPECT_EQ(LoadedInterval(), 0U);
  Write("global_trace.ini", "[EM_TALVOR]\nDynamicUpdate=12\n");
  EXPECT_EQ(LoadedInterval(), 0U);
  Write("global_trace.ini", "[GlobalDebugSettings]\nOther=12\n");
  EXPECT_EQ(LoadedInterval(), 0U);
}

TEST_F(DebugTraceConfigTest, ReadsOnlyFilesWithIniInTheirName) {
  Write("a.conf", "[EM_TALVOR]\nFileDebugLevel=1\n");
  Write("b.INI", "[EM_TALVOR]\nFileDebugLevel=2\n");
  Write("cini", "[EM_TALVOR]\nFileDebugLevel=3\n");
  EXPECT_EQ(LoadedLevel(), 0U);
  Write("d.ini.old", "[EM_TALVOR]\nFileDebugLevel=4\n");
  EXPECT_EQ(LoadedLevel(), 4U);
  Write(".ini", "[EM_TALVOR]\nFileDebugLevel=5\n");
  EXPECT_EQ(LoadedLevel(), 5U);
}

TEST_F(DebugTraceConfigTest, TakesTheFirstFileInAlphabeticalOrderThatHoldsTheSection) {
  // Names in an order that neither creation nor hashing gives.
  for (const char* name : {"m.ini", "c.ini", "x.ini", "b.ini", "k.ini", "y.ini", "Z.ini"}) {
    Write(name, "[EM_TALVOR]\nTraceFlags=" + std::to_string(name[0]) + "\n");
  }
  Write("A.ini", "[OTHER]\nFileDebugLevel=7\n");
  Load();
  EXPECT_EQ(m_oClient.GetTraceFlags(), static_cast<uint32_t>('Z'));
  std::filesystem::remove(Path("Z.ini"));
  Load();
  EXPECT_EQ(m_oClient.GetTraceFlags(), static_cast<uint32_t>('b'));
}

TEST_F(DebugTraceConfigTest, DoesNotLookForAMissingKeyInLaterFiles) {
  Write("a.ini", "[EM_TALVOR]\n");
  Write("b.ini", "[EM_TALVOR]\nFileDebugLevel=2\nTraceFlags=2\n");
  Load();
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 0U);
  EXPECT_FALSE(m_oClient.IsEnabled());
}

TEST_F(DebugTraceConfigTest, TakesALevelOfAllOnesInAFileForUnset) {
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=0xFFFFFFFF\n");
  EXPECT_EQ(LoadedLevel(), 0U);
  EXPECT_FALSE(m_oClient.IsEnabled());
}

TEST_F(DebugTraceConfigTest, PassesOverPipesAndDirectoriesNamedLikeAFile) {
  constexpr unsigned HANG_LIMIT = 60;  // seconds
  alarm(HANG_LIMIT);
  Write("c.ini", "[EM_TALVOR]\nFileDebugLevel=3\n");
  std::filesystem::create_directory(Path("a.ini"));
  ASSERT_EQ(mkfifo(Path("b.ini").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(Path("global_trace.ini").c_str(), 0600), 0);
  EXPECT_EQ(LoadedLevel(), 3U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 0U);
  alarm(0);
}

// A log beside the configuration, perhaps: reading it whole would take the memory of the host.
TEST_F(DebugTraceConfigTest, PassesOverAFileThatIsTooLongForAConfiguration) {
  Write("a.ini.log", "[EM_TALVOR]\nFileDebugLevel=5\n");
  Write("b.ini", "[EM_TALVOR]\nFileDebugLevel=2\n");
  std::filesystem::resize_file(Path("a.ini.log"), uintmax_t{1} << 40);
  m_oClient.Load("EM_TALVOR");
  EXPECT_EQ(m_oClient.GetDebugLevel(), 2U);
  std::filesystem::resize_file(Path("a.ini.log"), 16 << 20);
  m_oClient.Load("EM_TALVOR");
  EXPECT_EQ(m_oClient.GetDebugLevel(), 5U);
}

TEST_F(DebugTraceConfigTest, FirstLoadReadsAFileThatAProfileWriterHolds) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n");
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\n");
  const HeldConfigFile global(Path("global_trace.ini"));
  const HeldConfigFile module(Path("a.ini"));
  EXPECT_EQ(LoadedLevel(), 3U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
}

TEST_F(DebugTraceConfigTest, RepeatedLoadKeepsTheSettingsOfAFileThatAProfileWriterHolds) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n");
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\nTraceFlags=9\n");
  Load();
  Write("global_trace.ini", "");
  Write("a.ini", "");
  const HeldConfigFile global(Path("global_trace.ini"));
  const HeldConfigFile module(Path("a.ini"));
  EXPECT_EQ(LoadedLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
}

// An error of the system's, which is no answer about the files.
TEST_F(DebugTraceConfigTest, AListThatThereIsNoMemoryForIsNoEmptyOne) {
  Write("a.ini", "");
  bool hasFailed = true;
  for (int64_t successes = 0; hasFailed; ++successes) {
    std::vector<std::string> paths;
    FailingNew memory(successes);
    try {
      paths = ListTraceConfigFiles();
    } catch (const std::bad_alloc&) {
    }
    memory.Stop();
    hasFailed = memory.HasFailed();
    EXPECT_EQ(paths.size(), hasFailed ? 0U : 1U);
  }
}

TEST_F(DebugTraceConfigTest, IsNotTakenInByAFileInPlaceOfTheDirectory) {
  std::filesystem::create_directories("/etc/orvane/CorvistaSuite");
  std::filesystem::create_symlink("/dev/null", "/etc/orvane/CorvistaSuite/TraceConfig");
  EXPECT_EQ(LoadedLevel(), 0U);
}

TEST_F(DebugTraceConfigTest, EnvironmentLevelHoldsOverTheFile) {
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\nTraceFlags=9\n");
  setenv("CV_LOG_DEBUG_LEVEL", "5", 1);
  EXPECT_EQ(LoadedLevel(), 5U);
  EXPECT_TRUE(m_oClient.IsEnabled());
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
}

TEST_F(DebugTraceConfigTest, EnvironmentLevelZeroSwitchesTracingOff) {
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\n");
  setenv("CV_LOG_DEBUG_LEVEL", "0", 1);
  EXPECT_EQ(LoadedLevel(), 0U);
  EXPECT_FALSE(m_oClient.IsEnabled());
}

TEST_F(DebugTraceConfigTest, EnvironmentIsDecimal) {
  const struct {
    const char* text;
    uint32_t number;
  } cases[] = {{"010", 10},
               {"0x10", 0},
               {" 7", 7},
               {"", 0},
               {"x", 0},
               {"4294967294", 4294967294},
               {"4294967295", LARGEST},
               {"-1", LARGEST},
               {"4294967298", LARGEST},
               {"9223372036854775810", LARGEST}};
  for (const auto& [text, number] : cases) {
    setenv("CV_LOG_DEBUG_LEVEL", text, 1);
    setenv("CV_LOG_DYNAMIC_UPDATE", text, 1);
    Load();
    EXPECT_EQ(m_oClient.GetDebugLevel(), number) << text;
    EXPECT_EQ(m_oClient.IsEnabled(), number != 0) << text;
    EXPECT_EQ(m_oClient.GetDynamicUpdate(), number == LARGEST ? 0 : number) << text;
  }
}

TEST_F(DebugTraceConfigTest, EnvironmentAppliesWithoutADirectory) {
  setenv("CV_LOG_DEBUG_LEVEL", "2", 1);
  setenv("CV_LOG_DYNAMIC_UPDATE", "20", 1);
  Load();
  EXPECT_EQ(m_oClient.GetDebugLevel(), 2U);
  EXPECT_TRUE(m_oClient.IsEnabled());
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 20U);
}

TEST_F(DebugTraceConfigTest, EnvironmentIntervalHoldsOverTheFile) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n");
  setenv("CV_LOG_DYNAMIC_UPDATE", "0", 1);
  EXPECT_EQ(LoadedInterval(), 0U);
  setenv("CV_LOG_DYNAMIC_UPDATE", "30", 1);
  EXPECT_EQ(LoadedInterval(), 30U);
}

TEST_F(DebugTraceConfigTest, TakesAnIntervalOfAllOnesForNever) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=0xFFFFFFFF\n");
  EXPECT_EQ(LoadedInterval(), 0U);
}

TEST_F(DebugTraceConfigTest, RepeatedLoadResetsWhatIsNotFoundAnyMore) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n");
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\nTraceFlags=9\n");
  Load();
  Write("global_trace.ini", "");
  Write("a.ini", "");
  Load();
  EXPECT_EQ(m_oClient.GetDebugLevel(), 0U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 0U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 0U);
  EXPECT_FALSE(m_oClient.IsEnabled());
}

TEST_F(DebugTraceConfigTest, RepeatedLoadKeepsTheSettingsWhenThereIsNoFileAtAll) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n");
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\nTraceFlags=9\n");
  Load();
  std::filesystem::remove_all(Path(""));
  Load();
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 10U);
  EXPECT_TRUE(m_oClient.IsEnabled());
}

// A copy would have to be freed while a thread may still trace.
TEST_F(DebugTraceConfigTest, HandsOutTheModuleNameThatItWasGiven) {
  const char name[] = "EM_TALVOR";
  Load(name);
  EXPECT_EQ(m_oClient.GetModuleName(), name);
}

TEST_F(DebugTraceConfigTest, LoadsTheSectionOfTheNameThatItIsGiven) {
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\n[OTHER]\nFileDebugLevel=4\n");
  EXPECT_EQ(LoadedLevel(), 3U);
  EXPECT_EQ(LoadedLevel("OTHER"), 4U);
  EXPECT_STREQ(m_oClient.GetModuleName(), "OTHER");
}

TEST_F(DebugTraceConfigTest, TakesANullNameForAnEmptyOne) {
  Write("a.ini", "[]\nFileDebugLevel=3\n");
  EXPECT_EQ(LoadedLevel(nullptr), 3U);
  EXPECT_STREQ(m_oClient.GetModuleName(), "");
}

TEST_F(DebugTraceConfigTest, ReleaseKeepsTheSettingsButForgetsTheNameAndTheInterval) {
  Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n");
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\nTraceFlags=9\n");
  Load();
  m_oClient.Release();
  EXPECT_STREQ(m_oClient.GetModuleName(), "");
  EXPECT_EQ(m_oClient.GetDebugLevel(), 3U);
  EXPECT_EQ(m_oClient.GetTraceFlags(), 9U);
  EXPECT_EQ(m_oClient.GetDynamicUpdate(), 0U);
  EXPECT_TRUE(m_oClient.IsEnabled());
}

TEST_F(DebugTraceConfigTest, LoadsAgainAfterRelease) {
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=3\n");
  Load();
  m_oClient.Release();
  m_oClient.Release();
  Write("a.ini", "[EM_TALVOR]\nFileDebugLevel=4\n");
  EXPECT_EQ(LoadedLevel(), 4U);
  EXPECT_STREQ(m_oClient.GetModuleName(), "EM_TALVOR");
}

}  // namespace
