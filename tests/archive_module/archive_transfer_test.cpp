// The job that sends the archive to the BMC, as the host sees it: the request to HTI and the final
// answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Lines = std::vector<LevelLine>;

class ArchiveTransferTest : public ModuleHost {
 protected:
  // A collector is installed and an archive of 3000 bytes lies there.
  ArchiveTransferTest() {
    InstallCollector("");
    std::ofstream(m_strArchive) << std::string(3000, 'x');
    AnswerWith(0);
  }

  // What HTI answers.
  void AnswerWith(uint32_t status) {
    m_oSwitch.onHtiRequest = [status](SipJson& request) { request.SetCmdUInt("ST", status); };
  }

  // Expects a transfer to end with that status and to write those lines between the first one and
  // the trace of the answer.
  void ExpectTransfer(
      const std::string& command, uint32_t status, const std::vector<Lines>& parts,
      const std::function<void()>& prepare = [] {}) {
    Lines lines = {
        {3, "\n"},
        {2, "\nEM_TALVOR (Transfer): Task serializer job - transfer the Talvor archive to BMC"}};
    for (const Lines& part : parts) {
      lines.insert(lines.end(), part.begin(), part.end());
    }
    lines.push_back(
        {2, "\nEM_TALVOR (RET)     : OC 0x3402-0x0000 OID 0x0000 MID 0x00000000 Stat 0x0" +
                std::to_string(status)});
    ExpectLines(LinesOfTheWorker(), lines, [&](TraceSession& /*session*/) {
      ASSERT_EQ(StartAfresh(), 1U);
      prepare();
      EXPECT_EQ(Run(command), status);
    });
  }

  // The lines of a transfer, in their order.

  Lines Begin(int timeout) const {
    return {{3, "\nEM_TALVOR (Transfer): Transfer archive to BMC, timeout=" +
                    std::to_string(timeout) + " sec."},
            {2, "\nEM_TALVOR (Transfer):   archive path: \"" + m_strArchive + "\""}};
  }

  static Lines Name(const std::string& name) {
    return {{3, "\nEM_TALVOR (Transfer):   BMC local name = \"" + name + "\""}};
  }

  static Lines SendDown(int timeout, const std::string& status) {
    return {
        {3,
         "\nEM_TALVOR (Transfer): Sending Talvor archive transfer down to HTI module (AsyncRequest)..."},
        {3, "\nEM_TALVOR (Transfer):   file type: 2 (Talvor)"},
        {3, "\nEM_TALVOR (Transfer):   file size: 2 kBytes"},
        {3, "\nEM_TALVOR (Transfer):   timeout:   " + std::to_string(timeout) + " sec."},
        {3, "\nEM_TALVOR (Transfer): Talvor archive transfer finished, cmd status = " + status}};
  }
};

}  // namespace

TEST_F(ArchiveTransferTest, SendsTheArchiveThroughHti) {
  ExpectTransfer(R"({"OC":13314,"TO":60,"DA":"bmc.zip"})", 0,
                 {Begin(60), Name("bmc.zip"), SendDown(59, "0x00")});
}

TEST_F(ArchiveTransferTest, AsksHtiForThisAndNothingElse) {
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(R"({"OC":13314,"TO":60,"DA":"bmc.zip"})"), 0U);
  EXPECT_THAT(
      m_oSwitch.HtiRequests(),
      ElementsAre(
          R"({"SIP":{"V":1,"CMD":[{"OC":61522,"OE":0,"OI":0,"TO":59,"DA":{"FileType":2,"LocalFilePath":")" +
          m_strArchive + R"(","BmcFilePath":"bmc.zip"}}]}})"));
}

TEST_F(ArchiveTransferTest, AsksHtiInUnsignedNumbers) {
  bool areUnsigned = false;
  m_oSwitch.onHtiRequest = [&](SipJson& request) {
    const auto& sip = request.m_oDocument["SIP"];
    const auto& command = sip["CMD"][0];
    EXPECT_EQ(request.m_nCmdIndex, 0U);
    areUnsigned = sip["V"].IsUint() && command["OC"].IsUint() && command["OE"].IsUint() &&
                  command["OI"].IsUint() && command["TO"].IsUint() &&
                  command["DA"]["FileType"].IsUint();
    request.SetCmdUInt("ST", 0);
  };
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(TRANSFER), 0U);
  EXPECT_TRUE(areUnsigned);
}

TEST_F(ArchiveTransferTest, TheFinalAnswerIsTheRequestWithoutItsData) {
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(R"({"OC":13314,"TO":60,"DA":"bmc.zip","ST":9})"), 0U);
  EXPECT_THAT(m_oSwitch.Answers(),
              ElementsAre(R"({"SIP":{"V":1,"CMD":[{"OC":13314,"TO":60,"ST":0}],"C":true}})"));
}

TEST_F(ArchiveTransferTest, WithoutANameForTheBmcThereIsNoLineOfIt) {
  ExpectTransfer(TRANSFER, 0, {Begin(0), SendDown(0, "0x00")});
  EXPECT_THAT(m_oSwitch.HtiRequests().back(), HasSubstr(R"("BmcFilePath":"")"));
}

TEST_F(ArchiveTransferTest, DoesNotTransferWhileTheSwitchShutsDown) {
  ExpectTransfer(
      TRANSFER, 6,
      {{{2,
         "\n\nEM_TALVOR (Transfer): ## ERROR: SWITCH shutdown in progress - do not transfer archive"}}},
      [this] { m_pModule->ModuleNotification(0x20000, 0, 0); });
  EXPECT_THAT(m_oSwitch.HtiRequests(), IsEmpty());
}

TEST_F(ArchiveTransferTest, AnArchiveThatDoesNotExistIsNotTransferred) {
  std::filesystem::remove(m_strArchive);
  ExpectTransfer(R"({"OC":13314,"TO":5})", 3,
                 {Begin(5),
                  {{1, "\n\nEM_TALVOR (Transfer): ## ERROR! Talvor archive \"" + m_strArchive +
                           "\" does not exist - cannot transfer file!\n"}}});
  EXPECT_THAT(m_oSwitch.HtiRequests(), IsEmpty());
}

// The data is removed only after the request to HTI.
TEST_F(ArchiveTransferTest, AnAnswerWithoutHtiKeepsTheData) {
  std::filesystem::remove(m_strArchive);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(R"({"OC":13314,"DA":"x"})"), 3U);
  EXPECT_THAT(m_oSwitch.Answers(),
              ElementsAre(R"({"SIP":{"V":1,"CMD":[{"OC":13314,"DA":"x","ST":3}],"C":true}})"));
}

TEST_F(ArchiveTransferTest, PassesTheStatusOfHtiThrough) {
  AnswerWith(5);
  ExpectTransfer(R"({"OC":13314,"DA":"x"})", 5, {Begin(0), Name("x"), SendDown(0, "0x05")});
  EXPECT_EQ(m_oSwitch.Answers().back(), R"({"SIP":{"V":1,"CMD":[{"OC":13314,"ST":5}],"C":true}})");
  AnswerWith(0xABCDEF01);
  EXPECT_EQ(Run(TRANSFER), 0xABCDEF01);
}

TEST_F(ArchiveTransferTest, AStatusThatHtiDidNotWriteIsPending) {
  m_oSwitch.onHtiRequest = nullptr;
  const TraceSession session(3);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(TRANSFER), 22U);
  EXPECT_THAT(session.Texts(),
              testing::Contains(
                  "\nEM_TALVOR (Transfer): Talvor archive transfer finished, cmd status = 0x16"));
}

TEST_F(ArchiveTransferTest, WithoutASwitchTheStatusIs6) {
  const TraceSession session(3);
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  ASSERT_EQ(m_pModule->Start(nullptr, 1), 1U);
  Send(TRANSFER);
  EXPECT_TRUE(
      session.WaitFor("\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X", 3));
  EXPECT_THAT(
      session.Texts(),
      testing::IsSupersetOf(
          {"\nEM_TALVOR (Transfer): Talvor archive transfer finished, cmd status = 0x06",
           "\nEM_TALVOR (RET)     : OC 0x3402-0x0000 OID 0x0000 MID 0x00000000 Stat 0x06"}));
}

TEST_F(ArchiveTransferTest, HtiGivesUpOneSecondBeforeTheCaller) {
  ASSERT_EQ(CreateAndStart(), 1U);
  const std::pair<const char*, const char*> cases[] = {
      {"0", "0"},
      {"1", "1"},
      {"2", "1"},
      {"60", "59"},
      {"65535", "65534"},
      {"65536", "0"},
      {R"("0x1003C")", "59"},
  };
  for (const auto& [timeout, passed] : cases) {
    EXPECT_EQ(Run(R"({"OC":13314,"TO":)" + std::string(timeout) + "}"), 0U);
    EXPECT_THAT(m_oSwitch.HtiRequests().back(), HasSubstr("\"TO\":" + std::string(passed) + ","));
  }
}

TEST_F(ArchiveTransferTest, TakesTheNameForTheBmcFromEveryFormOfTheData) {
  ASSERT_EQ(CreateAndStart(), 1U);
  const std::pair<const char*, const char*> cases[] = {
      {R"("bmc.zip")", "bmc.zip"},
      {R"("bmc\u0000.zip")", "bmc\\u0000.zip"},
      {R"("")", ""},
      {R"({"RAW":[98,109,99,0,0]})", "bmc"},
      {R"({"RAW":[98,109,99]})", "bmc"},
      {R"({"RAW":[97,98,0,99]})", "ab"},
      {R"({"RAW":[354,-158,99.0]})", "bbc"},
      {R"({"RAW":[0,98]})", ""},
      {R"({"RAW":[-1,98]})", ""},
      {R"({"RAW":[98,"99",99]})", "b"},
      {R"({"RAW":["98",98]})", ""},
      {R"({"RAW":[]})", ""},
      {R"({"RAW":98})", ""},
      {R"({"x":1})", ""},
      {R"([98,98])", ""},
      {"98", ""},
      {"true", ""},
      {"null", ""},
  };
  for (const auto& [data, name] : cases) {
    EXPECT_EQ(Run(R"({"OC":13314,"DA":)" + std::string(data) + "}"), 0U);
    EXPECT_THAT(m_oSwitch.HtiRequests().back(),
                HasSubstr(R"("BmcFilePath":")" + std::string(name) + "\""))
        << data;
    EXPECT_EQ(m_oSwitch.Answers().back(), R"({"SIP":{"V":1,"CMD":[{"OC":13314,"ST":0}],"C":true}})")
        << data;
  }
}

TEST_F(ArchiveTransferTest, ACreationWaitsUntilHtiHasAnswered) {
  InstallCollector(GOOD_COLLECTOR);
  ASSERT_EQ(CreateAndStart(), 1U);
  m_oSwitch.onHtiRequest = [this](SipJson& request) {
    EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(std::filesystem::file_size(m_strArchive), 3000U);
    request.SetCmdUInt("ST", 0);
  };
  EXPECT_EQ(Run(TRANSFER), 0U);
  EXPECT_EQ(m_oSwitch.StatusOf(1), 0U);
  EXPECT_EQ(std::filesystem::file_size(m_strArchive), 5U);
}

TEST_F(ArchiveTransferTest, AnHtiThatThrowsCostsTheAnswerAndNotTheWorker) {
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  m_oSwitch.onHtiRequest = [](SipJson& /*request*/) { throw std::runtime_error("HTI"); };
  Send(TRANSFER);
  EXPECT_TRUE(session.WaitFor("\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##"));
  AnswerWith(0);
  EXPECT_EQ(Run(TRANSFER), 0U);
  EXPECT_EQ(m_oSwitch.Answers().size(), 1U);
}
