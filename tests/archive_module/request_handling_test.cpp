// Requests to the loaded module and what it answers at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <filesystem>

#include "tests/archive_module/module_host.h"
#include "tests/archive_module/module_trace.h"
#include "tests/support/trace_session.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class RequestHandlingTest : public ModuleHost {
 protected:
  // Expects a request of a started module to have that result and that status, and those lines.
  void ExpectRequest(const std::string& command, uint32_t result, uint32_t status,
                     const std::vector<LevelLine>& lines) {
    ExpectLines(LinesOfThisThread(), lines, [&](TraceSession& session) {
      StartAfresh();
      session.Clear();
      EXPECT_EQ(Send(command), std::make_pair(result, status));
    });
  }
};

// The line of a request without data.
std::string Record(const std::string& tag, const std::string& opcode, const std::string& status) {
  return "\nEM_TALVOR (" + tag + ")     : OC " + opcode +
         "-0x0000 OID 0x0000 MID 0x00000000 Stat " + status;
}

}  // namespace

TEST_F(RequestHandlingTest, AnswersTheQueryAtOnce) {
  InstallCollector(GOOD_COLLECTOR);
  ExpectRequest(QUERY, 1, 0,
                {{2, Record("REQ", "0x3400", "0x16")},
                 {2, "\nEM_TALVOR (Request) : -> Talvor is available"},
                 {2, Record("RET", "0x3400", "0x00") + " Data 1"}});
  SipJson request = MakeRequest(R"({"OC":13312,"DA":{"x":1}})");
  EXPECT_EQ(m_pModule->ModuleRequest(request), 1U);
  EXPECT_EQ(request.GetCmdUInt(0, "DA", 9), 1U);
  EXPECT_TRUE(request.FindCmdMember(0, "DA")->IsUint());
}

TEST_F(RequestHandlingTest, AnswersTheQueryWithoutTheCollector) {
  ExpectRequest(QUERY, 1, 0,
                {{2, Record("REQ", "0x3400", "0x16")},
                 {2, "\nEM_TALVOR (Request) : -> Talvor is NOT available"},
                 {2, Record("RET", "0x3400", "0x00") + " Data 0"}});
  SipJson request = MakeRequest(QUERY);
  m_pModule->ModuleRequest(request);
  EXPECT_EQ(request.GetCmdUInt(0, "DA", 9), 0U);
}

TEST_F(RequestHandlingTest, QueuesACreation) {
  InstallCollector(GOOD_COLLECTOR);
  ExpectRequest(
      R"({"OC":13313})", 1, 22,
      {{2, Record("REQ", "0x3401", "0x16")},
       {2,
        "\nEM_TALVOR (Request) : -> Initiate Talvor archive creation task, may take several minutes (queue this request)"},
       {4, "\nCTaskSerializer     : Task at level 0 raised"},
       {5, "\nCTaskSerializer     : Task with priority 0 inserted into task queue!"},
       {2, Record("RET", "0x3401", "0x16")}});
}

TEST_F(RequestHandlingTest, QueuesATransfer) {
  InstallCollector(GOOD_COLLECTOR);
  ExpectRequest(TRANSFER, 1, 22,
                {{2, Record("REQ", "0x3402", "0x16")},
                 {2, "\nEM_TALVOR (Request) : -> Initiate Talvor archive transfer to BMC task"},
                 {4, "\nCTaskSerializer     : Task at level 0 raised"},
                 {5, "\nCTaskSerializer     : Task with priority 0 inserted into task queue!"},
                 {2, Record("RET", "0x3402", "0x16")}});
}

TEST_F(RequestHandlingTest, RefusesACreationWithoutTheCollector) {
  ExpectRequest(
      R"({"OC":13313})", 1, 3,
      {{2, Record("REQ", "0x3401", "0x16")},
       {1,
        "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot generate Talvor archive"},
       {2, Record("RET", "0x3401", "0x03")}});
  m_pModule->Stop();
  EXPECT_THAT(m_oSwitch.Answers(), IsEmpty());
}

TEST_F(RequestHandlingTest, RefusesATransferWithoutTheCollector) {
  ExpectRequest(
      TRANSFER, 1, 3,
      {{2, Record("REQ", "0x3402", "0x16")},
       {1,
        "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot transfer archive to BMC"},
       {2, Record("RET", "0x3402", "0x03")}});
  m_pModule->Stop();
  EXPECT_THAT(m_oSwitch.Answers(), IsEmpty());
}

TEST_F(RequestHandlingTest, LeavesAnUnknownOpcodeOfTheFamilyWithoutAStatus) {
  ExpectRequest(R"({"OC":13317})", 0, 999,
                {{2, Record("REQ", "0x3405", "0x16")}, {2, Record("RET", "0x3405", "0x16")}});
  ExpectRequest(R"({"OC":13327})", 0, 999,
                {{2, Record("REQ", "0x340F", "0x16")}, {2, Record("RET", "0x340F", "0x16")}});
}

TEST_F(RequestHandlingTest, TracesNothingOfAnOpcodeOutsideTheFamily) {
  ExpectRequest(R"({"OC":13328})", 0, 999, {});
  ExpectRequest(R"({"OC":13311})", 0, 999, {});
  ExpectRequest(R"({"OI":1})", 0, 999, {});
}

TEST_F(RequestHandlingTest, ReadsTheOpcodeInAnyPrefix) {
  ASSERT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(Send(R"({"OC":"0x3400"})"), std::make_pair(1U, 0U));
  EXPECT_EQ(Send(R"({"OC":"0X3400"})"), std::make_pair(1U, 0U));
  EXPECT_EQ(Send(R"({"OC":"032000"})"), std::make_pair(1U, 0U));
  EXPECT_EQ(Send(R"({"OC":"13312"})"), std::make_pair(1U, 0U));
  EXPECT_EQ(Send(R"({"OC":"013400"})"), std::make_pair(0U, 999U));
}

TEST_F(RequestHandlingTest, AnswersTheCurrentCommandOnly) {
  ASSERT_EQ(CreateAndStart(), 0U);
  SipJson request = MakeRequest(R"({"OC":13313},{"OC":13312})");
  request.m_nCmdIndex = 1;
  EXPECT_EQ(m_pModule->ModuleRequest(request), 1U);
  EXPECT_FALSE(request.HasCmdMember(0, "ST"));
  EXPECT_EQ(request.GetCmdUInt(1, "ST", 999), 0U);
  EXPECT_TRUE(request.HasCmdMember(1, "DA"));
}

TEST_F(RequestHandlingTest, RefusesARequestForAnotherCabinetWithoutTheTraceOfAnAnswer) {
  InstallCollector(GOOD_COLLECTOR);
  ExpectLines(
      LinesOfThisThread(),
      {{2,
        "\nEM_TALVOR (REQ)     : OC 0x3401-0x0000 OID 0x0000 CABID 0002 MID 0x00000000 Stat 0x16"},
       {4, "\nEM_TALVOR (Request) : Request not for server cabinet -> refused"}},
      [this](TraceSession& session) {
        ASSERT_EQ(StartAfresh(), 1U);
        m_pModule->SetCabinetNumber(3);
        session.Clear();
        EXPECT_EQ(Send(R"({"OC":13313,"CA":2})"), std::make_pair(0U, 20U));
      });
  EXPECT_EQ(Send(R"({"OC":99,"CA":2})"), std::make_pair(0U, 20U));
  EXPECT_EQ(Send(R"({"OC":13312,"CA":"0x3"})"), std::make_pair(1U, 0U));
  m_pModule->Stop();
  EXPECT_THAT(m_oSwitch.Answers(), IsEmpty());
}

TEST_F(RequestHandlingTest, AFullQueueKeepsTheAnswerPendingAndNoOtherFollows) {
  InstallCollector("touch \"$D/runs\"; while test ! -e \"$D/go\"; do sleep 0.1; done");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(CREATE);
  ASSERT_TRUE(WaitForCollector());
  for (int count = 0; count < 20; ++count) {
    EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
  }
  EXPECT_EQ(session.Count("\nCTaskSerializer     : ## ERROR! Task queue for priority %d is full"),
            1);
  std::filesystem::create_directory(m_strDirectory + "go");
  EXPECT_EQ(m_oSwitch.StatusOf(19), 6U);
  m_pModule->Stop();
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(20));
}

TEST_F(RequestHandlingTest, WhatTheSinkThrowsBecomesStatus13) {
  InstallCollector(GOOD_COLLECTOR);
  constexpr char RECORD[] =
      "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X";
  const struct {
    const char* opcode;
    int cabinet;
    const char* line;
    uint32_t result;  // 0 when the line comes before the cabinet test
  } cases[] = {
      {"0x3400", 3, RECORD, 0},
      {"0x3400", 2, RECORD, 0},
      {"0x3400", 2, "\nEM_TALVOR (Request) : Request not for server cabinet -> refused", 1},
      {"0x3400", 3, "\nEM_TALVOR (Request) : -> Talvor is%s available", 1},
      {"0x3400", 3,
       "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Data %d", 1},
      {"0x3401", 3,
       "\nEM_TALVOR (Request) : -> Initiate Talvor archive creation task, may take several minutes (queue this request)",
       1},
      {"0x3402", 3, "\nEM_TALVOR (Request) : -> Initiate Talvor archive transfer to BMC task", 1},
      {"0x3402", 3, "\nCTaskSerializer     : Task at level %d raised", 1},
  };
  for (const auto& test : cases) {
    TraceSession session(4);
    ASSERT_EQ(StartAfresh(), 1U);
    m_pModule->SetCabinetNumber(3);
    session.ThrowAt(test.line);
    const std::string cabinet = std::to_string(test.cabinet);
    const std::string opcode = test.opcode;
    EXPECT_EQ(Send(R"({"OC":")" + opcode + R"(","OE":7,"OI":8,"CA":)" + cabinet + "}"),
              std::make_pair(test.result, 13U))
        << test.line;
    EXPECT_THAT(session.Texts(),
                Contains("\nEM_TALVOR (Request) : ## EXCEPTION in ModuleRequest()! CABID 000" +
                         cabinet + ": OpCode " + opcode + "-0x0007 ObjId 0x0008 Status 0x0D"));
    m_pModule->Stop();
    EXPECT_THAT(m_oSwitch.Answers(), IsEmpty());
  }
}

TEST_F(RequestHandlingTest, TheLineOfAnExceptionIsAnErrorAndMayThrowItself) {
  constexpr char REFUSED[] =
      "\nEM_TALVOR (Request) : ## ERROR! Talvor is not available - cannot generate Talvor archive";
  constexpr char EXCEPTION[] =
      "\nEM_TALVOR (Request) : ## EXCEPTION in ModuleRequest()! CABID %04d: OpCode 0x%04X-0x%04X ObjId 0x%04X Status 0x%02X";
  TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 0U);
  session.ThrowAt(REFUSED);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 13U));
  EXPECT_EQ(session.Count(EXCEPTION), 1);
  session.ThrowAt(EXCEPTION);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 13U));
  EXPECT_EQ(session.Count(EXCEPTION), 1);
}

TEST_F(RequestHandlingTest, NothingOfARequestIsLostWhenItsTaskCannotBeTaken) {
  InstallCollector(GOOD_COLLECTOR);
  TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  session.ThrowAt("\nCTaskSerializer     : Task at level %d raised");
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 13U));
  session.CallAt("\nCTaskSerializer     : Task at level %d raised", [] {});
  EXPECT_EQ(Run(CREATE), 0U);
  m_pModule->Stop();
  EXPECT_THAT(m_oSwitch.Answers(), SizeIs(1));
}

TEST_F(RequestHandlingTest, AQueuedRequestSharesNothingWithTheOneThatTheHostKeeps) {
  InstallCollector("while test ! -e \"$D/go\"; do sleep 0.1; done; echo data > \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(R"({"OC":13313,"DA":"a text that is not short"})");
  EXPECT_EQ(m_pModule->ModuleRequest(request), 1U);
  request.SetCmdUInt("DA", 7);
  std::filesystem::create_directory(m_strDirectory + "go");
  EXPECT_EQ(m_oSwitch.StatusOf(0), 0U);
  EXPECT_THAT(m_oSwitch.Answers().back(), HasSubstr(R"("DA":"a text that is not short","ST":0)"));
  EXPECT_EQ(StatusOf(request), 22U);
}

TEST_F(RequestHandlingTest, AThreadOfTheHostMayEndWithinARequest) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP()
      << "the sanitizer takes what ends a thread, which is no object, for a null reference";
#endif
  InstallCollector(GOOD_COLLECTOR);
  TraceSession session(4);
  ASSERT_EQ(CreateAndStart(), 1U);
  for (
      const char* line :
      {"\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X",
       "\nEM_TALVOR (Request) : -> Initiate Talvor archive creation task, may take several minutes (queue this request)",
       "\nCTaskSerializer     : Task at level %d raised"}) {
    session.CallAt(line, [] { pthread_exit(nullptr); });
    bool hasReturned = false;
    std::thread([&] {
      Send(CREATE);
      hasReturned = true;
    }).join();
    EXPECT_FALSE(hasReturned) << line;
    session.CallAt(line, [] {});
    EXPECT_EQ(Run(CREATE), 0U) << line;
  }
  EXPECT_EQ(
      session.Count(
          "\nEM_TALVOR (Request) : ## EXCEPTION in ModuleRequest()! CABID %04d: OpCode 0x%04X-0x%04X ObjId 0x%04X Status 0x%02X"),
      0);
}
