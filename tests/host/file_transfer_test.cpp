#include "host/file_transfer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/scratch_directory.h"
#include "tests/support/system_calls.h"

namespace {

class FileTransferTest : public testing::Test {
 protected:
  FileTransferTest() {
    std::filesystem::create_directory(m_oFiles.Path("bmc"));
    m_oFiles.Write("archive", "data");
  }

  // The status of the answer.
  uint32_t Transfer(const std::string& from) {
    SipJson request;
    const std::string record = R"({"SIP":{"CMD":[{"OC":61522,"DA":{"LocalFilePath":")" +
                               m_oFiles.Path(from) + R"(","BmcFilePath":"copy"}}]}})";
    request.m_oDocument.Parse(record.c_str());
    m_oTransfer.Answer(request);
    return request.GetCmdUInt(0, "ST", 999);
  }

  const ScratchDirectory m_oFiles;
  std::vector<std::string> m_oReports;
  CFileTransfer m_oTransfer = {m_oFiles.Path("bmc"), [this](const std::string& sentence) {
                                 m_oReports.push_back(sentence);
                               }};
};

}  // namespace

TEST_F(FileTransferTest, CopiesContentAndMode) {
  std::filesystem::permissions(m_oFiles.Path("archive"), std::filesystem::perms(0640));
  EXPECT_EQ(Transfer("archive"), 0U);
  EXPECT_EQ(m_oFiles.Read("bmc/copy"), "data");
  EXPECT_EQ(std::filesystem::status(m_oFiles.Path("bmc/copy")).permissions(),
            std::filesystem::perms(0640));
  EXPECT_EQ(m_oTransfer.GetLastFile(), m_oFiles.Path("bmc/copy"));
}

TEST_F(FileTransferTest, WritesNothingThroughALinkThatTheDirectorysOwnerPutsInPlaceOfTheNewFile) {
  m_oFiles.Write("precious", "untouched");
  const auto swap = calls::mkostemp.Answer([this](char* path, int flags) {
    const int descriptor = calls::mkostemp.Real(path, flags);
    std::filesystem::remove(path);
    std::filesystem::create_symlink(m_oFiles.Path("precious"), path);
    return descriptor;
  });
  Transfer("archive");
  EXPECT_EQ(m_oFiles.Read("precious"), "untouched");
}

TEST_F(FileTransferTest, RefusesWhatIsNoFileAndLeavesNothingBehind) {
  ASSERT_EQ(mkfifo(m_oFiles.Path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(Transfer("pipe"), 6U);
  EXPECT_EQ(Transfer("missing"), 6U);
  ASSERT_EQ(m_oReports.size(), 2U);
  EXPECT_NE(m_oReports[0].find("(Invalid argument)"), std::string::npos) << m_oReports[0];
  EXPECT_NE(m_oReports[1].find("(No such file or directory)"), std::string::npos) << m_oReports[1];
  EXPECT_TRUE(std::filesystem::is_empty(m_oFiles.Path("bmc")));
}
