#include "frame/request_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/frame/records.h"
#include "tests/frame/test_module.h"
#include "tests/support/failing_new.h"
#include "tests/support/level_lines.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"
#include "tests/trace/trace_config_directory.h"
#include "trace/debug_client.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t MEBIBYTE = 1 << 20;

const std::string PLAIN = "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X";
const std::string CABINET =
    "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X";
const std::string INTEGER = " Data %d";
const std::string STRUCTURE = " Data (JSON struct):\n%s";
const std::string LENGTH = " Len %d";

const std::string HEADER = R"("OC":"0x3401","OE":1,"OI":35,"MI":"0x00010002","ST":20)";
const std::string PLAIN_TEXT =
    "\nEM_TALVOR (REQ)     : OC 0x3401-0x0001 OID 0x0023 MID 0x00010002 Stat 0x14";
const std::string CABINET_TEXT =
    "\nEM_TALVOR (REQ)     : OC 0x3401-0x0001 OID 0x0023 CABID 0003 MID 0x00010002 Stat 0x14";

// The data of a command, and what follows the header in its line.
struct Form {
  const char* data;
  const char* text;
};

constexpr Form FORMS[] = {
    {R"(,"DA":7)", " Data 7"},
    {R"(,"DA":{"a":[1]})", " Data (JSON struct):\n{\n    \"a\": [\n        1\n    ]\n}"},
    {R"(,"DA":"abc")", " Len 4"},
    {"", ""},
};

// The one line that a request with that current command writes.
TraceLine TraceCommand(const std::string& command) {
  TestModule module("EM_TALVOR");
  const SipJson request = MakeCommands(R"({"OC":9,"CA":9,"DA":{"decoy":1}},)" + command, 1);
  const TraceSession session(2);
  module.TraceRequest(request, 2);
  const std::vector<TraceLine> lines = session.Lines();
  EXPECT_EQ(lines.size(), 1U);
  return lines.empty() ? TraceLine() : lines[0];
}

// What follows the header in the line of a command with that data: its format and its text.
std::pair<std::string, std::string> TraceData(const std::string& data) {
  const TraceLine line = TraceCommand(R"({"ST":0,"DA":)" + data + "}");
  const std::string header =
      "\nEM_TALVOR (REQ)     : OC 0x0000-0x0000 OID 0x0000 MID 0x00000000 Stat 0x00";
  EXPECT_EQ(line.format.substr(0, PLAIN.size()), PLAIN);
  EXPECT_EQ(line.text.substr(0, header.size()), header);
  return {line.format.substr(PLAIN.size()), line.text.substr(header.size())};
}

// The size of the largest allocation while `action` runs.
size_t LargestTaken(const std::function<void()>& action) {
  size_t largest = 0;
  const auto allocations = calls::malloc.Answer([&](size_t size) {
    largest = std::max(largest, size);
    return calls::malloc.Real(size);
  });
  const auto moves = calls::realloc.Answer([&](void* memory, size_t size) {
    largest = std::max(largest, size);
    return calls::realloc.Real(memory, size);
  });
  largest = 0;  // setting up the answers allocates too
  action();
  return largest;
}

void ExpectData(const std::string& data, const std::string& format, const std::string& text) {
  SCOPED_TRACE(data);
  EXPECT_EQ(TraceData(data), std::pair(format, text));
}

// Data nested that deep; a scalar counts as one level.
std::string Nested(size_t levels) {
  const size_t arrays = levels - 3;
  return R"([{"a":)" + std::string(arrays, '[') + "1" + std::string(arrays, ']') + "}]";
}

// Runs `action` on a thread with as little stack as a frugal host gives its threads.
void RunOnLittleStack(std::function<void()> action) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr size_t STACK_SIZE = 2 << 20;  // sanitizers make frames large
#else
  constexpr size_t STACK_SIZE = 160 << 10;
#endif
  pthread_attr_t attribute;
  pthread_attr_init(&attribute);
  pthread_attr_setstacksize(&attribute, STACK_SIZE);
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  pthread_t thread = 0;
  ASSERT_EQ(pthread_create(&thread, &attribute, run, &action), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attribute);
}

}  // namespace

// Settings that are read again while the module runs.
class RequestTraceSettingsTest : public TraceConfigDirectory {};

TEST(RequestTraceTest, HasEightFormsAtTheLevelOfTheCaller) {
  TestModule module("EM_TALVOR");
  for (const Form& form : FORMS) {
    const SipJson plain = MakeCommands("{" + HEADER + form.data + "}");
    const SipJson cabinet = MakeCommands("{" + HEADER + R"(,"CA":3)" + form.data + "}");
    for (uint32_t level = 1; level <= 5; ++level) {
      ExpectLines({{level, PLAIN_TEXT + form.text}, {level, CABINET_TEXT + form.text}}, [&] {
        module.TraceRequest(plain, level);
        module.TraceRequest(cabinet, level);
      });
    }
  }
}

TEST(RequestTraceTest, MissingFieldsPrintTheirDefaults) {
  EXPECT_EQ(TraceCommand("{}").text,
            "\nEM_TALVOR (REQ)     : OC 0x0000-0x0000 OID 0x0000 MID 0x00000000 Stat 0x16");
}

TEST(RequestTraceTest, FieldsOfAWrongTypePrintTheirDefaults) {
  EXPECT_EQ(
      TraceCommand(R"({"OC":null,"OE":{},"OI":[],"CA":null,"MI":true,"ST":false})").text,
      "\nEM_TALVOR (REQ)     : OC 0x0000-0x0000 OID 0x0000 CABID 0000 MID 0x00000000 Stat 0x16");
}

TEST(RequestTraceTest, FieldsPrintAll32Bits) {
  EXPECT_EQ(TraceCommand(R"({"OC":4294967295,"OE":-1,"OI":2882400001,"CA":4294967295,)"
                         R"("MI":4022250974,"ST":4294967295})")
                .text,
            "\nEM_TALVOR (REQ)     : OC 0xFFFFFFFF-0xFFFFFFFF OID 0xABCDEF01 CABID -001 "
            "MID 0xEFBEADDE Stat 0xFFFFFFFF");
}

TEST(RequestTraceTest, ARecordWithoutACommandPrintsDefaultsOnly) {
  TestModule module("EM_TALVOR");
  const TraceSession session(2);
  module.TraceRequest(SipJson(), 2);
  module.TraceRequest(MakeCommands(R"({"OC":1,"CA":2,"DA":3})", 1), 2);
  module.TraceRequest(MakeCommands("7"), 2);
  const std::string text =
      "\nEM_TALVOR (REQ)     : OC 0x0000-0x0000 OID 0x0000 MID 0x00000000 Stat 0x16";
  EXPECT_THAT(session.Texts(), ElementsAre(text, text, text));
}

TEST(RequestTraceTest, ANumberPrintsItsIntegerData) {
  ExpectData("7", INTEGER, " Data 7");
  ExpectData("-7", INTEGER, " Data -7");
  ExpectData("0", INTEGER, " Data 0");
  ExpectData("4294967295", INTEGER, " Data -1");
}

TEST(RequestTraceTest, AnIntegerOutside32BitsPrints0) {
  ExpectData("4294967296", INTEGER, " Data 0");
  ExpectData("-2147483649", INTEGER, " Data 0");
}

TEST(RequestTraceTest, DataWithoutALengthPrintsNothing) {
  for (const char* data : {"null", "1.5", "[]", R"({"RAW":[]})", R"({"RAW":7})", "[null]"}) {
    ExpectData(data, "", "");
  }
}

TEST(RequestTraceTest, OtherDataPrintsTheLengthOfItsBytes) {
  ExpectData(R"("abc")", LENGTH, " Len 4");
  ExpectData(R"(["a","bc"])", LENGTH, " Len 6");
  ExpectData("[1,300,70000]", LENGTH, " Len 7");
  ExpectData(R"({"RAW":[1,2]})", LENGTH, " Len 2");
}

TEST(RequestTraceTest, ABooleanPrintsLength0) {
  ExpectData("true", LENGTH, " Len 0");
  ExpectData("false", LENGTH, " Len 0");
}

TEST(RequestTraceTest, AStructurePrintsJsonIndentedByFour) {
  ExpectData(R"({"a":1,"b":{"c":null,"d":"x%s\n"}})", STRUCTURE,
             " Data (JSON struct):\n"
             "{\n"
             "    \"a\": 1,\n"
             "    \"b\": {\n"
             "        \"c\": null,\n"
             "        \"d\": \"x%s\\n\"\n"
             "    }\n"
             "}");
  ExpectData(R"([{"a":true}])", STRUCTURE,
             " Data (JSON struct):\n"
             "[\n"
             "    {\n"
             "        \"a\": true\n"
             "    }\n"
             "]");
}

TEST(RequestTraceTest, AnEmptyStructureIsPrinted) {
  ExpectData("{}", STRUCTURE, " Data (JSON struct):\n{}");
}

TEST(RequestTraceTest, ANumberThatJsonCannotExpressPrintsAsNull) {
  TestModule module("EM_TALVOR");
  SipJson request = MakeData(R"({"a":1,"b":1.5,"c":2})");
  rapidjson::Value& data = request.m_oDocument["SIP"]["CMD"][0]["DA"];
  data["a"].SetDouble(std::numeric_limits<double>::infinity());
  data["c"].SetDouble(std::numeric_limits<double>::quiet_NaN());
  const TraceSession session(2);
  module.TraceRequest(request, 2);
  EXPECT_THAT(session.Texts(),
              ElementsAre(testing::EndsWith(
                  "(JSON struct):\n{\n    \"a\": null,\n    \"b\": 1.5,\n    \"c\": null\n}")));
}

TEST(RequestTraceTest, TheTextOfAStructureEndsAfterAMebibyte) {
  const std::string before = " Data (JSON struct):\n{\n    \"a\": \"";
  EXPECT_EQ(TraceData(R"({"a":")" + std::string(2 * MEBIBYTE, 'x') + "\"}").second,
            before + std::string(MEBIBYTE - 12, 'x'));
}

// The host has read the record on such a thread too.
TEST(RequestTraceTest, ADeepStructureNeedsLittleStack) {
  RunOnLittleStack([request = MakeData(Nested(2000))] {
    TestModule module;
    const TraceSession session(2);
    module.TraceRequest(request, 2);
    EXPECT_THAT(session.Formats(), ElementsAre(PLAIN + STRUCTURE));
  });
}

TEST(RequestTraceTest, AVeryDeepStructureCostsWhatItsTraceShows) {
  SipJson request = MakeData(R"({"sibling":1})");
  auto& allocator = request.m_oDocument.GetAllocator();
  rapidjson::Value& data = request.m_oDocument["SIP"]["CMD"][0]["DA"];
  for (int level = 0; level < 100'000; ++level) {
    rapidjson::Value outer(rapidjson::kObjectType);
    outer.AddMember("sibling", level, allocator);
    outer.AddMember("inner", data, allocator);
    data = outer;
  }
  TestModule module;
  const TraceSession session(2);
  EXPECT_LT(LargestTaken([&] { module.TraceRequest(request, 2); }), 4 * MEBIBYTE);
  EXPECT_THAT(session.Formats(), ElementsAre(PLAIN + STRUCTURE));
  EXPECT_THAT(session.Texts(), ElementsAre(testing::SizeIs(testing::Lt(2 * MEBIBYTE))));
}

TEST(RequestTraceTest, ARequestAboveTheLevelCostsNothing) {
  TestModule module;
  const SipJson request = MakeData(Nested(2000));
  const TraceSession session(1);
  EXPECT_EQ(LargestTaken([&] { module.TraceRequest(request, 2); }), 0U);
  EXPECT_EQ(module.nameCalls, 0);
  EXPECT_THAT(session.Lines(), IsEmpty());
}

TEST_F(RequestTraceSettingsTest, ANewerLevelHoldsForTheRequestThatFindsIt) {
  const std::string settings =
      "[GlobalDebugSettings]\nDynamicUpdate=1\n[EM_TALVOR]\nFileDebugLevel=";
  Write("global_trace.ini", settings + "1\n");
  TestModule module;
  const SipJson request = MakeData("{}");
  const TraceSession session(1);
  Write("global_trace.ini", settings + "2\n", 2000);
  EXPECT_TRUE(WaitUntil([&] {
    module.TraceRequest(request, 2);
    return !session.Lines().empty();
  }));
}

TEST(RequestTraceTest, TheThreeOperationsHaveTheirTags) {
  TestModule module("EM_OTHER");
  const SipJson request = MakeCommands(R"({"ST":0})");
  const std::string fields = ": OC 0x0000-0x0000 OID 0x0000 MID 0x00000000 Stat 0x00";
  ExpectLines({{2, "\nEM_OTHER (REQ)      " + fields},
               {3, "\nEM_OTHER (RET)      " + fields},
               {4, "\nEM_OTHER (RPL)      " + fields}},
              [&] {
                module.TraceRequest(request, 2);
                module.TraceReturn(request, 3);
                module.TraceReply(request, 4);
              });
}

TEST(RequestTraceTest, ALongLabelIsPrintedWhole) {
  TestModule module("EM_WITH_A_VERY_LONG_NAME");
  const TraceSession session(2);
  module.TraceRequest(MakeCommands("{}"), 2);
  EXPECT_THAT(session.Texts(),
              ElementsAre(testing::StartsWith("\nEM_WITH_A_VERY_LONG_NAME (REQ): OC ")));
}

TEST(RequestTraceTest, TheRequestIsNotChanged) {
  TestModule module;
  const TraceSession session(2);
  for (const char* data : {"7", "{}", R"([{"a":1}])", "\"x\"", "null", R"({"RAW":[1]})"}) {
    const SipJson request = MakeCommands(R"({},{"DA":)" + std::string(data) + "}", 1);
    const std::string before = TextOf(request);
    module.TraceRequest(request, 2);
    module.TraceReturn(request, 2);
    module.TraceReply(request, 2);
    EXPECT_EQ(TextOf(request), before);
    EXPECT_EQ(request.m_nCmdIndex, 1U);
  }
}

TEST(RequestTraceTest, NothingIsBuiltWhileTracingIsOff) {
  TestModule module;
  const SipJson request = MakeCommands(R"({"DA":{"a":1}})");
  const auto trace = [&] {
    module.TraceRequest(request, 2);
    module.TraceReturn(request, 2);
    module.TraceReply(request, 2);
  };
  EXPECT_EQ(LargestTaken(trace), 0U);
  EXPECT_EQ(module.nameCalls, 0);
}

TEST(RequestTraceTest, NothingIsWrittenOnceTracingHasEndedMeanwhile) {
  class EndingModule : public TestModule {
   public:
    const char* GetModuleName() override {
      setenv("CV_LOG_DEBUG_LEVEL", "0", 1);
      g_oDebugClient.Load("EM_TALVOR");
      return TestModule::GetModuleName();
    }
  };
  for (const Form& form : FORMS) {
    for (const char* cabinet : {"", R"(,"CA":3)"}) {
      EndingModule module;
      const TraceSession session(2);
      module.TraceRequest(MakeCommands("{" + HEADER + cabinet + form.data + "}"), 2);
      EXPECT_EQ(module.nameCalls, 1);
      EXPECT_THAT(session.Lines(), IsEmpty()) << form.data << cabinet;
    }
  }
}

TEST(RequestTraceTest, WhatTheSinkThrowsPassesThrough) {
  TestModule module;
  const SipJson request = MakeCommands("{}");
  TraceSession session(2);
  session.ThrowAt(PLAIN);
  EXPECT_THROW(module.TraceRequest(request, 2), std::runtime_error);
}

TEST(RequestTraceTest, TheLengthOfBytesNeedsNoMemory) {
  TestModule module;
  const SipJson request = MakeData("\"" + std::string(8192, 'x') + "\"");
  const TraceSession session(2);
  EXPECT_LT(LargestTaken([&] { module.TraceRequest(request, 2); }), 8192U);
  EXPECT_THAT(session.Texts(), ElementsAre(testing::EndsWith(" Len 8193")));
}

TEST(RequestTraceDeathTest, ExhaustedMemoryForTheTextOfAStructureEndsTheProcess) {
  TestModule module;
  const SipJson request = MakeData(R"({"a":"a text of considerable length"})");
  const TraceSession session(2);
  for (const int successes : {0, 1, 2}) {
    EXPECT_DEATH(
        {
          const FailingNew failing(successes);
          module.TraceRequest(request, 2);
        },
        "terminate called");
  }
  EXPECT_DEATH(
      {
        const auto failing = calls::realloc.Fail(ENOMEM);
        module.TraceRequest(request, 2);
      },
      "terminate called");
}
