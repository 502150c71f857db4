#include "host/commands.h"

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "archive_module/names.h"
#include "tests/host/host_program.h"

namespace {

class SetupCommandTest : public HostProgramTest {
 protected:
  SetupCommandTest() {
    InstallCollector("");
    m_oFiles.Write(ARCHIVE_FILE, "data");
    std::filesystem::create_directories(COLLECTOR_DIRECTORY);
  }
  ~SetupCommandTest() override { std::filesystem::remove_all(COLLECTOR_DIRECTORY); }

  bool IsCleanedUp() const {
    return !std::filesystem::exists(m_strArchive) && !std::filesystem::exists(COLLECTOR_DIRECTORY);
  }
};

}  // namespace

TEST_F(SetupCommandTest, CleanupRemovesTheArchiveAndTheDirectory) {
  const HostResult result = Host("setup", {"cleanup"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output,
              testing::StartsWith("cleanup: archive and data directory are removed (result "));
  EXPECT_TRUE(IsCleanedUp());
}

TEST_F(SetupCommandTest, TheOtherActionsDoNothing) {
  for (const std::string action : {"backup", "restore", "convert"}) {
    const HostResult result = Host("setup", {action});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, action + ": nothing to do for this module (result 0)\n");
  }
  EXPECT_TRUE(std::filesystem::exists(m_strArchive));
  EXPECT_TRUE(std::filesystem::exists(COLLECTOR_DIRECTORY));
}

TEST_F(SetupCommandTest, EachActionReachesTheModule) {
  for (const std::string action : {"backup", "restore", "convert", "cleanup"}) {
    std::string name = action;
    std::transform(name.begin(), name.end(), name.begin(), toupper);
    EXPECT_THAT(Host("setup", {"--trace", "1", action}).errors,
                testing::HasSubstr("## Setup action \"" + name + "\""));
  }
}

TEST_F(SetupCommandTest, JsonGivesAnObject) {
  rapidjson::Document result;
  result.Parse(Host("setup", {"--json", "backup"}).output.c_str());
  ASSERT_TRUE(result.IsObject());
  EXPECT_STREQ(result["action"].GetString(), "backup");
  EXPECT_EQ(result["result"].GetUint(), 0U);
}

TEST_F(SetupCommandTest, CleanupWithoutARegistryTellsWhatIsMissing) {
  std::filesystem::remove_all("/etc/qamrel");
  const HostResult result = Host("setup", {"cleanup"});
  EXPECT_EQ(result.exitCode, 71);
  EXPECT_EQ(result.output, "cleanup: failed (result 0)\n");
  EXPECT_THAT(result.errors, testing::StartsWith(
                                 "em_host: Nothing was cleaned up: the data directory of Talvor is "
                                 "not known. There is no registry /etc/qamrel/registry: "));
}

TEST_F(SetupCommandTest, CleanupThatEndsAtALinkNamesIt) {
  const std::string directory = COLLECTOR_DIRECTORY;
  m_oFiles.Write("bmc/inside", "x");
  std::filesystem::create_directories(directory + "/b");
  std::filesystem::create_directory_symlink(m_strBmc, directory + "/b/link");
  std::filesystem::create_directory_symlink("/none", directory + "/a");
  EXPECT_EQ(Host("setup", {"cleanup"}).errors,
            "em_host: The directory /var/log/Talvor could not be removed completely: "
            "/var/log/Talvor/b/link is a link to the directory " +
                m_strBmc +
                ". What that held is gone, and the clean-up ended there: remove the link, and try "
                "again.\n");
  EXPECT_FALSE(std::filesystem::exists(m_strBmc + "/inside"));
}

TEST_F(SetupCommandTest, CleanupTellsWhenSomethingIsLeft) {
  std::ofstream(std::string(COLLECTOR_DIRECTORY) + "/.hidden") << "x";
  const HostResult result = Host("setup", {"cleanup"});
  EXPECT_EQ(result.exitCode, 71);
  EXPECT_THAT(result.errors,
              testing::StartsWith(
                  "em_host: The directory /var/log/Talvor could not be removed completely: "));
}
