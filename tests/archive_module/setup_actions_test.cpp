// What an installer asks of the module, without an instance.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/trace_session.h"

namespace {

using Lines = std::vector<LevelLine>;

class SetupActionsTest : public ModuleHost {
 protected:
  void SetUp() override {
    LoadModule();
    MakeCollectorDirectory();
  }
  void TearDown() override { std::filesystem::remove_all(COLLECTOR_DIRECTORY); }

  static void MakeCollectorDirectory() {
    const std::string directory = std::string(COLLECTOR_DIRECTORY) + "/logs/old";
    std::filesystem::create_directories(directory);
    std::ofstream(directory + "/log") << "x";
  }
  static bool HasCollectorDirectory() { return std::filesystem::exists(COLLECTOR_DIRECTORY); }

  // Expects an action to have that result, and those lines of its own.
  void ExpectAction(
      uint32_t action, uint32_t result, const Lines& lines,
      const std::function<void()>& prepare = [] {}) {
    ExpectLines(LinesOfThisThread(), lines, [&](TraceSession& /*session*/) {
      UnloadModule();
      LoadModule();
      prepare();
      EXPECT_EQ(SetupAction(action), result);
    });
  }

  static Lines Enclosed(const std::string& header, const Lines& work) {
    Lines lines = {{1, header}, {5, "\nEM_TALVOR           : -> SetupAction"}};
    lines.insert(lines.end(), work.begin(), work.end());
    lines.push_back({5, "\nEM_TALVOR           : <- SetupAction"});
    return lines;
  }

  static std::string Known(const std::string& name) {
    return "\n\nEM_TALVOR           : ## Setup action \"" + name +
           "\" - call module specific action function\n";
  }

  static std::string Unknown(const std::string& code) {
    return "\n\nEM_TALVOR           : ## ERROR! Setup action call with unknown action type (" +
           code + ") - call module specific action!\n";
  }
};

}  // namespace

TEST_F(SetupActionsTest, AllButCleanupDoNothing) {
  InstallCollector("");
  std::ofstream(m_strArchive) << "data";
  const std::pair<uint32_t, std::string> cases[] = {
      {0, Unknown("0")},     {1, Known("BACKUP")}, {2, Known("RESTORE")},
      {3, Known("CONVERT")}, {5, Unknown("5")},    {0xFFFFFFFF, Unknown("-1")},
  };
  for (const auto& [action, header] : cases) {
    ExpectAction(action, 0, Enclosed(header, {}));
  }
  EXPECT_TRUE(HasCollectorDirectory());
  EXPECT_TRUE(std::filesystem::exists(m_strArchive));
}

TEST_F(SetupActionsTest, CleanupRemovesTheArchiveAndTheCollectorsDirectory) {
  InstallCollector("");
  ExpectAction(
      CLEANUP, 1,
      Enclosed(
          Known("CLEANUP"),
          {{1, "\nEM_TALVOR (SetupAct): ## Cleanup existing Talvor archive file(s)"},
           {3, "\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"SOFTWARE\\Talvor\""},
           {4, "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"SOFTWARE\\Talvor\\Setup\"..."},
           {4, "\nEM_TALVOR (DataDir) :   query Talvor file root value: \"DataRoot\"..."},
           {3, "\nEM_TALVOR (DataDir) : Talvor data dir:   \"" + m_strDirectory + "\""},
           {3, "\nEM_TALVOR (SetupAct): Talvor archive path: \"" + m_strArchive + "\"\n"},
           {2,
            "\nEM_TALVOR (SetupAct): Remove complete Talvor archive data dir \"/var/log/Talvor\"..."}}),
      [this] {
        MakeCollectorDirectory();
        std::ofstream(m_strArchive) << "data";
      });
  EXPECT_FALSE(HasCollectorDirectory());
  EXPECT_FALSE(std::filesystem::exists(m_strArchive));
  EXPECT_TRUE(std::filesystem::exists(m_strDirectory + "Talvor"));
}

TEST_F(SetupActionsTest, CleanupWithoutTheCollectorsDirectorySucceeds) {
  InstallCollector("");
  std::ofstream(m_strArchive) << "data";
  std::filesystem::remove_all(COLLECTOR_DIRECTORY);
  EXPECT_EQ(SetupAction(CLEANUP), 1U);
  EXPECT_FALSE(std::filesystem::exists(m_strArchive));
  EXPECT_EQ(SetupAction(CLEANUP), 1U);  // nothing is left
}

TEST_F(SetupActionsTest, CleanupFollowsALinkInPlaceOfTheCollectorsDirectory) {
  InstallCollector("");
  const std::filesystem::path target = m_strDirectory + "elsewhere";
  std::filesystem::remove_all(COLLECTOR_DIRECTORY);
  std::filesystem::create_directories(target / "log");
  std::filesystem::create_directory_symlink(target, COLLECTOR_DIRECTORY);
  EXPECT_EQ(SetupAction(CLEANUP), 0U) << "the link itself stays";
  EXPECT_TRUE(std::filesystem::is_empty(target));
}

TEST_F(SetupActionsTest, CleanupLeavesAFileInPlaceOfTheCollectorsDirectoryAlone) {
  InstallCollector("");
  std::filesystem::remove_all(COLLECTOR_DIRECTORY);
  std::ofstream(COLLECTOR_DIRECTORY) << "x";
  EXPECT_EQ(SetupAction(CLEANUP), 1U);
  EXPECT_TRUE(std::filesystem::exists(COLLECTOR_DIRECTORY));
}

TEST_F(SetupActionsTest, CleanupWithoutTheRegistryFailsAndRemovesNothing) {
  ExpectAction(
      CLEANUP, 0,
      Enclosed(
          Known("CLEANUP"),
          {{1, "\nEM_TALVOR (SetupAct): ## Cleanup existing Talvor archive file(s)"},
           {2,
            "\nEM_TALVOR (DataDir) : ## Talvor pointer key not existing - no Corvista component installed."},
           {4,
            "\nEM_TALVOR (DataDir) :   no Talvor data root directory available, take file root..."},
           {2,
            "\nEM_TALVOR (BinDir)  : ## Talvor pointer key not existing - no Corvista component installed."},
           {1, "\nEM_TALVOR (SetupAct): ## ERROR! Talvor path could not be evaluated!"}}));
  EXPECT_TRUE(HasCollectorDirectory());
}

TEST_F(SetupActionsTest, CleanupWithoutTheSetupKeyFailsAndRemovesNothing) {
  WriteRegistryText("FileRoot=s=" + m_strDirectory + "\n", "Talvor=s=SOFTWARE\\Other\n");
  ExpectAction(
      CLEANUP, 0,
      Enclosed(
          Known("CLEANUP"),
          {{1, "\nEM_TALVOR (SetupAct): ## Cleanup existing Talvor archive file(s)"},
           {3, "\nEM_TALVOR (DataDir) : Found Talvor root registry key: \"SOFTWARE\\Other\""},
           {4, "\nEM_TALVOR (DataDir) :   open Talvor setup key: \"SOFTWARE\\Other\\Setup\"..."},
           {1,
            "\nEM_TALVOR (DataDir) : ## ERROR 0xFFFFFFFF! Could not open registry key \"SOFTWARE\\Other\\Setup\"!"},
           {4,
            "\nEM_TALVOR (DataDir) :   no Talvor data root directory available, take file root..."},
           {3, "\nEM_TALVOR (BinDir)  : Found Talvor root registry key: \"SOFTWARE\\Other\""},
           {4, "\nEM_TALVOR (BinDir)  :   open Talvor setup key: \"SOFTWARE\\Other\\Setup\"..."},
           {1,
            "\nEM_TALVOR (BinDir)  : ## ERROR 0xFFFFFFFF! Could not open registry key \"SOFTWARE\\Other\\Setup\"!"},
           {1, "\nEM_TALVOR (SetupAct): ## ERROR! Talvor path could not be evaluated!"}}));
  EXPECT_TRUE(HasCollectorDirectory());
}

TEST_F(SetupActionsTest, CleanupFailsWhenTheDirectoryCannotBeRemoved) {
  InstallCollector("");
  std::ofstream(std::string(COLLECTOR_DIRECTORY) + "/.hidden") << "x";
  EXPECT_EQ(SetupAction(CLEANUP), 0U);
}

TEST_F(SetupActionsTest, ASinkThatThrowsAtEveryLineChangesNoResult) {
  InstallCollector("");
  TraceSession session(5);
  session.CallAtEachLine([](const std::string& /*format*/) { throw std::runtime_error("sink"); });
  EXPECT_EQ(SetupAction(0), 0U);
  EXPECT_EQ(SetupAction(CLEANUP), 1U);
  EXPECT_FALSE(HasCollectorDirectory());
  std::filesystem::remove_all("/etc/qamrel");
  UnloadModule();
  LoadModule();
  EXPECT_EQ(SetupAction(CLEANUP), 0U);
}
