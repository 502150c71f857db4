// Requests to the loaded module, their immediate and their final answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

class RequestHandlingTest : public ModuleHost {
 protected:
  // Sends one command; returns the module's result and the status that it left.
  std::pair<uint32_t, uint32_t> Send(const std::string& command) {
    SipJson request = MakeRequest(command);
    const uint32_t result = m_module->ModuleRequest(request);
    return {result, StatusOf(request)};
  }
};

// Whether a line of a session contains the text.
bool Shows(const TraceSession& session, const std::string& text) {
  for (const std::string& line : session.Texts()) {
    if (line.find(text) != std::string::npos) {
      return true;
    }
  }
  return false;
}

constexpr char SCRIPT[] = "echo data > \"$archive\"";

}  // namespace

TEST_F(RequestHandlingTest, AnswersTheQueryAtOnce) {
  InstallCollector(SCRIPT);
  const TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(R"({"OC":13312,"DA":{"x":1}})");
  EXPECT_EQ(m_module->ModuleRequest(request), 1U);
  EXPECT_EQ(StatusOf(request), 0U);
  EXPECT_EQ(request.GetCmdUInt(0, "DA", 9), 1U);
  EXPECT_TRUE(Shows(session, "EM_TALVOR (REQ)"));
  EXPECT_TRUE(Shows(session, "EM_TALVOR (RPL)"));
  EXPECT_FALSE(Shows(session, "EM_TALVOR (RET)"));
  EXPECT_THAT(session.Texts(), Contains("\nEM_TALVOR (Request) : -> Talvor is available"));
}

TEST_F(RequestHandlingTest, AnswersWithoutTheCollector) {
  const TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 0U);
  SipJson request = MakeRequest(R"({"OC":13312})");
  EXPECT_EQ(m_module->ModuleRequest(request), 1U);
  EXPECT_EQ(StatusOf(request), 0U);
  EXPECT_EQ(request.GetCmdUInt(0, "DA", 9), 0U);
  EXPECT_EQ(Send(R"({"OC":13313})"), std::make_pair(1U, 3U));
  EXPECT_EQ(Send(R"({"OC":13314})"), std::make_pair(1U, 3U));
  EXPECT_THAT(
      session.Texts(),
      IsSupersetOf(
          {"\nEM_TALVOR (Request) : -> Talvor is NOT available",
           "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot generate Talvor archive",
           "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot transfer archive to BMC"}));
  EXPECT_THAT(m_switch.Answers(), IsEmpty());
}

TEST_F(RequestHandlingTest, RefusesARequestForAnotherCabinetWithoutTheTraceOfAnAnswer) {
  InstallCollector(SCRIPT);
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  m_module->SetCabinetNumber(3);
  EXPECT_EQ(Send(R"({"OC":13313,"CA":2})"), std::make_pair(0U, 20U));
  EXPECT_THAT(session.Texts(),
              Contains("\nEM_TALVOR (Request) : Request not for server cabinet -> refused"));
  EXPECT_TRUE(Shows(session, "(REQ)"));
  EXPECT_FALSE(Shows(session, "(RPL)"));
  EXPECT_EQ(Send(R"({"OC":13312,"CA":"0x3"})"), std::make_pair(1U, 0U));
  m_module->SetCabinetNumber(0);
}

TEST_F(RequestHandlingTest, ReadsTheOpcodeAsANumberInAnyPrefix) {
  ASSERT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(Send(R"({"OC":"0x3400"})"), std::make_pair(1U, 0U));
  EXPECT_EQ(Send(R"({"OC":"013400"})"), std::make_pair(0U, 999U));
}

TEST_F(RequestHandlingTest, TracesAnUnknownOpcodeOfTheFamilyOnly) {
  const TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(Send(R"({"OC":13317})"), std::make_pair(0U, 999U));
  EXPECT_TRUE(Shows(session, "(REQ)"));
  EXPECT_TRUE(Shows(session, "(RPL)"));
  EXPECT_EQ(Send(R"({"OC":13328})"), std::make_pair(0U, 999U));
  EXPECT_FALSE(Shows(session, "0x3410"));
}

TEST_F(RequestHandlingTest, WhatTheSinkThrowsBecomesStatus13) {
  TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 0U);
  session.ThrowAt("\nEM_TALVOR (Request) : -> Talvor is%s available");
  EXPECT_EQ(Send(R"({"OC":13312,"OE":7,"OI":8,"CA":0})"), std::make_pair(1U, 13U));
  EXPECT_THAT(
      session.Texts(),
      Contains(
          "\nEM_TALVOR (Request) : ## EXCEPTION in ModuleRequest()! CABID 0000: OpCode 0x3400-0x0007 ObjId 0x0008 Status 0x0D"));
  session.ThrowAt("\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X");
  EXPECT_EQ(Send(R"({"OC":13312})"), std::make_pair(0U, 13U));
}

TEST_F(RequestHandlingTest, AnswersACreationTwice) {
  InstallCollector(SCRIPT);
  std::ofstream(m_archive) << "old";
  const TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Send(R"({"OC":13313,"MI":"0x00010002","TO":"0x1001E"})"), std::make_pair(1U, 22U));
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
  EXPECT_THAT(
      m_switch.Answers(),
      ElementsAre(
          R"({"SIP":{"V":1,"CMD":[{"OC":13313,"MI":"0x00010002","TO":"0x1001E","ST":0}],"C":true}})"));
  const std::vector<std::string> texts = session.Texts();
  EXPECT_THAT(
      texts,
      IsSupersetOf(
          {std::string(
               "\nEM_TALVOR (Request) : -> Initiate Talvor archive creation task, may take several minutes (queue this request)"),
           std::string("\nEM_TALVOR (Create)  : Task serializer job - create Talvor archive..."),
           std::string("\nEM_TALVOR (Create)  : Archive creation request, timeout=30 sec."),
           std::string("\nEM_TALVOR (Create)  : Start Talvor archive creation..."),
           "\nEM_TALVOR (Create)  :   archive path: \"" + m_archive + "\"",
           std::string(
               "\nEM_TALVOR (Create)  : Checking whether another Talvor is already running..."),
           std::string(
               "\nEM_TALVOR (Create)  : No other Talvor process is running; can run Talvor..."),
           "\nEM_TALVOR           :   delete previous Talvor archive " + m_archive,
           std::string("\nEM_TALVOR           :   previous Talvor archive deleted"),
           "\nEM_TALVOR (Create)  : Create Talvor process; command line: " + m_directory + "Talvor",
           std::string("\nEM_TALVOR (Create)  : Talvor process exit"),
           std::string("\nEM_TALVOR (Create)  : -> Talvor archive creation finished"),
           "\nEM_TALVOR (Create)  :     file path: \"" + m_archive + "\"",
           std::string("\nEM_TALVOR (Create)  :     file size: 0 kBytes")}));
  EXPECT_TRUE(Shows(session, "EM_TALVOR (RET)"));
}

TEST_F(RequestHandlingTest, StartsACollectorWhosePathContainsBlanks) {
  m_directory += "two words/";
  std::filesystem::create_directories(m_directory);
  m_archive = m_directory + "Talvor_Data.zip";
  InstallCollector(SCRIPT);
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(R"({"OC":13313})");
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
}

TEST_F(RequestHandlingTest, ACollectorThatFailsGivesStatus6WithoutALineOfItsOwn) {
  InstallCollector("exit 2");
  const TraceSession session(5);
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(R"({"OC":13313})");
  EXPECT_EQ(m_switch.StatusOf(0), 6U);
  EXPECT_FALSE(Shows(session, "process exit"));
}

TEST_F(RequestHandlingTest, ACollectorThatLeavesNoArchiveGivesStatus6) {
  InstallCollector("exit 0");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(R"({"OC":13313})");
  EXPECT_EQ(m_switch.StatusOf(0), 6U);
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Create)  : ## FATAL ERROR! Talvor archive process finished successfully, but archive not created!\n"),
      1);
}

TEST_F(RequestHandlingTest, AForeignCollectorGivesStatus5) {
  InstallCollector(SCRIPT);
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  std::filesystem::create_directory(m_directory + "other");
  std::ofstream(m_directory + "other/Talvor") << "#!/bin/sh\nread line\n";
  std::filesystem::permissions(m_directory + "other/Talvor", std::filesystem::perms::all);
  FILE* foreign = popen(("exec '" + m_directory + "other/Talvor'").c_str(), "w");
  ASSERT_NE(foreign, nullptr);
  ASSERT_TRUE(WaitUntil([] { return system("grep -qx Talvor /proc/[0-9]*/comm") == 0; }));
  Send(R"({"OC":13313})");
  EXPECT_EQ(m_switch.StatusOf(0), 5U);
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Create)  : ## ERROR! Foreign Talvor process already running - cannot start another Talvor instance!"),
      1);
  pclose(foreign);
}

TEST_F(RequestHandlingTest, AQueuedCreationRunsAfterTheFirst) {
  InstallCollector("sleep 1; echo data >> \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(R"({"OC":13313})");
  Send(R"({"OC":13313})");
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
  EXPECT_EQ(m_switch.StatusOf(1), 0U);
  EXPECT_EQ(std::filesystem::file_size(m_archive), 5U);
}

TEST_F(RequestHandlingTest, ASwitchThatShutsDownGetsNoMoreJobsDone) {
  InstallCollector(SCRIPT);
  const TraceSession session(2);
  ASSERT_EQ(CreateAndStart(), 1U);
  m_module->ModuleNotification(0x20000, 0, 0);
  Send(R"({"OC":13313})");
  Send(R"({"OC":13314})");
  EXPECT_EQ(m_switch.StatusOf(0), 6U);
  EXPECT_EQ(m_switch.StatusOf(1), 6U);
  EXPECT_THAT(m_switch.HtiRequests(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(m_archive));
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Create)  : ## NOTE: SWITCH shutdown in progress - do not create archive"),
      1);
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Transfer): ## ERROR: SWITCH shutdown in progress - do not transfer archive"),
      1);
}

TEST_F(RequestHandlingTest, TransfersTheArchiveThroughHti) {
  InstallCollector(SCRIPT);
  std::ofstream(m_archive) << std::string(3000, 'x');
  m_switch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 0); };
  const TraceSession session(3);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Send(R"({"OC":13314,"TO":60,"DA":"bmc.zip"})"), std::make_pair(1U, 22U));
  EXPECT_EQ(m_switch.StatusOf(0), 0U);
  EXPECT_THAT(
      m_switch.HtiRequests(),
      ElementsAre(
          R"({"SIP":{"V":1,"CMD":[{"OC":61522,"OE":0,"OI":0,"TO":59,"DA":{"FileType":2,"LocalFilePath":")" +
          m_archive + R"(","BmcFilePath":"bmc.zip"}}]}})"));
  EXPECT_THAT(m_switch.Answers(),
              ElementsAre(R"({"SIP":{"V":1,"CMD":[{"OC":13314,"TO":60,"ST":0}],"C":true}})"));
  EXPECT_THAT(
      session.Texts(),
      IsSupersetOf(
          {std::string("\nEM_TALVOR (Transfer): Transfer archive to BMC, timeout=60 sec."),
           std::string("\nEM_TALVOR (Transfer):   BMC local name = \"bmc.zip\""),
           std::string(
               "\nEM_TALVOR (Transfer): Sending Talvor archive transfer down to HTI module (AsyncRequest)..."),
           std::string("\nEM_TALVOR (Transfer):   file type: 2 (Talvor)"),
           std::string("\nEM_TALVOR (Transfer):   file size: 2 kBytes"),
           std::string("\nEM_TALVOR (Transfer):   timeout:   59 sec."),
           std::string(
               "\nEM_TALVOR (Transfer): Talvor archive transfer finished, cmd status = 0x00")}));
}

TEST_F(RequestHandlingTest, TakesTheNameForTheBmcFromEveryFormOfTheData) {
  InstallCollector(SCRIPT);
  std::ofstream(m_archive) << "data";
  m_switch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 0); };
  const TraceSession session(3);
  ASSERT_EQ(CreateAndStart(), 1U);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"OC":13314,"TO":1,"DA":{"RAW":[97,98,0,99]}})",
       R"("TO":1,"DA":{"FileType":2,"LocalFilePath":")" + m_archive + R"(","BmcFilePath":"ab"})"},
      {R"({"OC":13314,"DA":{"RAW":[-1,98]}})", R"("BmcFilePath":"")"},
      {R"({"OC":13314,"DA":{"RAW":[]}})", R"("BmcFilePath":"")"},
      {R"({"OC":13314,"DA":{"x":1}})", R"("BmcFilePath":"")"},
      {R"({"OC":13314,"DA":null})", R"("BmcFilePath":"")"},
      {R"({"OC":13314})", R"("TO":0,)"},
  };
  for (size_t index = 0; index < cases.size(); ++index) {
    Send(cases[index].first);
    ASSERT_EQ(m_switch.StatusOf(index), 0U);
    EXPECT_THAT(m_switch.HtiRequests()[index], HasSubstr(cases[index].second));
  }
  EXPECT_EQ(session.Count("\nEM_TALVOR (Transfer):   BMC local name = \"%s\""), 1);
}

TEST_F(RequestHandlingTest, AMissingArchiveIsNotTransferred) {
  InstallCollector(SCRIPT);
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(R"({"OC":13314,"DA":"x"})");
  EXPECT_EQ(m_switch.StatusOf(0), 3U);
  EXPECT_THAT(m_switch.HtiRequests(), IsEmpty());
  EXPECT_EQ(
      session.Count(
          "\n\nEM_TALVOR (Transfer): ## ERROR! Talvor archive \"%s\" does not exist - cannot transfer file!\n"),
      1);
}

TEST_F(RequestHandlingTest, PassesTheStatusOfHtiThrough) {
  InstallCollector(SCRIPT);
  std::ofstream(m_archive) << "data";
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(R"({"OC":13314})");
  EXPECT_EQ(m_switch.StatusOf(0), 22U);
  m_switch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 77); };
  Send(R"({"OC":13314})");
  EXPECT_EQ(m_switch.StatusOf(1), 77U);
}
