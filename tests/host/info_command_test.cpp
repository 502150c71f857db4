#include "host/commands.h"

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include "tests/host/host_program.h"
#include "tests/support/built_files.h"

using InfoCommandTest = HostProgramTest;

TEST_F(InfoCommandTest, ShowsTheNameAndTheIdentificationRecord) {
  const HostResult result = Host("info", {});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, std::string("module         ") + EM_TALVOR_LIBRARY +
                               "\n"
                               "name           EM_TALVOR\n"
                               "record name    EM_TALVOR\n"
                               "description    Talvor extension module\n"
                               "type           2\n"
                               "sets flags     0x03 at byte 8\n"
                               "clears flags   0x03 at byte 21\n"
                               "numbers        0.0.0 at byte 142\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(InfoCommandTest, TheModuleIsTheOneBuiltWithTheProgram) {
  Program program({EM_HOST, "info"});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Output(),
              testing::HasSubstr("/lib/qamrel/em_talvor\nname           EM_TALVOR\n"));
}

TEST_F(InfoCommandTest, JsonGivesTheSame) {
  const HostResult result = Host("info", {"--json"});
  EXPECT_EQ(result.exitCode, 0);
  rapidjson::Document info;
  info.Parse(result.output.c_str());
  ASSERT_TRUE(info.IsObject()) << result.output;
  EXPECT_STREQ(info["name"].GetString(), "EM_TALVOR");
  EXPECT_STREQ(info["description"].GetString(), "Talvor extension module");
  EXPECT_EQ(info["type"].GetUint(), 2U);
  EXPECT_EQ(info["setsFlags"].GetUint(), 3U);
  EXPECT_EQ(info["clearsFlags"].GetUint(), 3U);
}
