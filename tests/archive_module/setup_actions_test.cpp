#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr char COLLECTOR_DIRECTORY[] = "/var/log/Talvor";

class SetupActionsTest : public ModuleHost {
 protected:
  void SetUp() override {
    LoadModule();
    std::filesystem::create_directories(COLLECTOR_DIRECTORY);
    std::ofstream(std::string(COLLECTOR_DIRECTORY) + "/log") << "x";
  }
  void TearDown() override { std::filesystem::remove_all(COLLECTOR_DIRECTORY); }

  static bool HasCollectorDirectory() { return std::filesystem::exists(COLLECTOR_DIRECTORY); }
};

}  // namespace

TEST_F(SetupActionsTest, AllButCleanupDoNothing) {
  InstallCollector("");
  std::ofstream(m_archive) << "data";
  const TraceSession session(1);
  for (const uint32_t action : {0U, 1U, 2U, 3U, 5U, 0xFFFFFFFFU}) {
    EXPECT_EQ(SetupAction(action), 0U);
  }
  EXPECT_TRUE(HasCollectorDirectory());
  EXPECT_TRUE(std::filesystem::exists(m_archive));
  EXPECT_THAT(
      session.Texts(),
      ElementsAre(
          "\n\nEM_TALVOR           : ## ERROR! Setup action call with unknown action type (0) - call module specific action!\n",
          "\n\nEM_TALVOR           : ## Setup action \"BACKUP\" - call module specific action function\n",
          "\n\nEM_TALVOR           : ## Setup action \"RESTORE\" - call module specific action function\n",
          "\n\nEM_TALVOR           : ## Setup action \"CONVERT\" - call module specific action function\n",
          "\n\nEM_TALVOR           : ## ERROR! Setup action call with unknown action type (5) - call module specific action!\n",
          "\n\nEM_TALVOR           : ## ERROR! Setup action call with unknown action type (-1) - call module specific action!\n"));
}

TEST_F(SetupActionsTest, CleanupRemovesTheArchiveAndTheCollectorsDirectory) {
  InstallCollector("");
  std::ofstream(m_archive) << "data";
  const TraceSession session(5);
  EXPECT_NE(SetupAction(4), 0U);
  EXPECT_FALSE(HasCollectorDirectory());
  EXPECT_FALSE(std::filesystem::exists(m_archive));
  EXPECT_THAT(
      session.Texts(),
      testing::IsSupersetOf(
          {std::string(
               "\n\nEM_TALVOR           : ## Setup action \"CLEANUP\" - call module specific action function\n"),
           std::string("\nEM_TALVOR           : -> SetupAction"),
           std::string("\nEM_TALVOR (SetupAct): ## Cleanup existing Talvor archive file(s)"),
           "\nEM_TALVOR (SetupAct): Talvor archive path: \"" + m_archive + "\"\n",
           std::string(
               "\nEM_TALVOR (SetupAct): Remove complete Talvor archive data dir \"/var/log/Talvor\"..."),
           std::string("\nEM_TALVOR           : <- SetupAction")}));
}

TEST_F(SetupActionsTest, CleanupWithoutTheCollectorsDirectorySucceeds) {
  InstallCollector("");
  std::filesystem::remove_all(COLLECTOR_DIRECTORY);
  EXPECT_NE(SetupAction(4), 0U);
}

TEST_F(SetupActionsTest, CleanupWithoutTheRegistryFailsAndRemovesNothing) {
  const TraceSession session(1);
  EXPECT_EQ(SetupAction(4), 0U);
  EXPECT_TRUE(HasCollectorDirectory());
  EXPECT_THAT(session.Texts(),
              Contains("\nEM_TALVOR (SetupAct): ## ERROR! Talvor path could not be evaluated!"));
}

TEST_F(SetupActionsTest, CleanupFailsWhenTheDirectoryCannotBeRemoved) {
  InstallCollector("");
  std::ofstream(std::string(COLLECTOR_DIRECTORY) + "/.hidden") << "x";
  EXPECT_EQ(SetupAction(4), 0U);
}

TEST_F(SetupActionsTest, LinesHaveTheirLevels) {
  InstallCollector("");
  const auto cleanup = [this] {
    UnloadModule();  // tracing is configured on the first use
    LoadModule();
    std::filesystem::create_directories(COLLECTOR_DIRECTORY);
    SetupAction(4);
  };
  EXPECT_EQ(LevelOf("\n\n%-20s: ## Setup action \"%s\" - call module specific action function\n",
                    cleanup),
            1U);
  EXPECT_EQ(LevelOf("\nEM_TALVOR (SetupAct): ## Cleanup existing Talvor archive file(s)", cleanup),
            1U);
  EXPECT_EQ(
      LevelOf("\nEM_TALVOR (SetupAct): Remove complete Talvor archive data dir \"%s\"...", cleanup),
      2U);
  EXPECT_EQ(LevelOf("\nEM_TALVOR (SetupAct): Talvor archive path: \"%s\"\n", cleanup), 3U);
  EXPECT_EQ(LevelOf("\nEM_TALVOR           : -> SetupAction", cleanup), 5U);
}
