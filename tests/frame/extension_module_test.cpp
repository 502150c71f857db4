#include "frame/extension_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/frame/fake_switch.h"
#include "tests/frame/records.h"
#include "tests/frame/test_module.h"
#include "tests/support/level_lines.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;

constexpr char REGISTER[] = "\n%-20s: Register event log source \"%s\" ...";
constexpr char REGISTERED[] = "\n%-20s: ... event log source \"%s\" registered";
constexpr char CABINET_NUMBER[] = "\n\n%-20s: ## Server cabinet number = %d ##\n";

const std::string AGENTLESS = "Corvista Agentless Service";
const std::string SERVER_CONTROL = "Corvista Server Control";

// Starts a module with a switch that reports these agent types, one per query. Returns the trace
// lines.
std::vector<std::string> TraceStart(const std::vector<uint32_t>& agentTypes) {
  FakeSwitch host;
  size_t questions = 0;
  host.Answer([&](const FakeSwitch::Call&) { return agentTypes.at(questions++); });
  TestModule module;
  const TraceSession session(5);
  EXPECT_EQ(module.Start(host.Get(), 1), 1U);
  EXPECT_EQ(questions, agentTypes.size());
  return session.Texts();
}

std::string RegisterText(const std::string& source) {
  return "\nEM_TEST             : Register event log source \"" + source + "\" ...";
}

std::string RegisteredText(const std::string& source) {
  return "\nEM_TEST             : ... event log source \"" + source + "\" registered";
}

bool IsForServerCabinet(const std::string& command) {
  return TestModule::IsForServerCabinet(MakeCommands(R"({"CA":1},)" + command, 1));
}

}  // namespace

TEST(ExtensionModuleTest, StartTracesTheRegistrationOfTheEventLogSource) {
  EXPECT_THAT(TraceStart({0, 0, 0}),
              ElementsAre(RegisterText(SERVER_CONTROL), RegisteredText(SERVER_CONTROL)));
}

TEST(ExtensionModuleTest, StartNamesTheAgentlessServiceForAgentType5Only) {
  EXPECT_THAT(TraceStart({5, 5, 5}),
              ElementsAre(RegisterText(AGENTLESS), RegisteredText(AGENTLESS)));
  for (const uint32_t type : {1U, 4U, 6U, 0x105U, 0xFFFFFFFFU}) {
    EXPECT_THAT(TraceStart({type, type, type}),
                ElementsAre(RegisterText(SERVER_CONTROL), RegisteredText(SERVER_CONTROL)));
  }
}

// The second query is the registration itself.
TEST(ExtensionModuleTest, StartChoosesTheSourceAgainAfterTheRegistration) {
  EXPECT_THAT(TraceStart({5, 0, 0}),
              ElementsAre(RegisterText(AGENTLESS), RegisteredText(SERVER_CONTROL)));
  EXPECT_THAT(TraceStart({0, 0, 5}),
              ElementsAre(RegisterText(SERVER_CONTROL), RegisteredText(AGENTLESS)));
}

TEST(ExtensionModuleTest, StartWithoutASwitchNamesServerControl) {
  TestModule module;
  ExpectLines({{4, RegisterText(SERVER_CONTROL)}, {4, RegisteredText(SERVER_CONTROL)}},
              [&] { EXPECT_EQ(module.Start(nullptr, 1), 1U); });
}

TEST(ExtensionModuleTest, StartRegistersWhileTracingIsOff) {
  FakeSwitch host;
  TestModule module;
  EXPECT_EQ(module.Start(host.Get(), 1), 1U);
  ASSERT_FALSE(host.Calls().empty());
  EXPECT_EQ(host.Calls().back().position, 27U);
}

// The order and the widths of the members are fixed: modules derive from the base in binary form.
TEST(ExtensionModuleTest, KeepsSwitchIdentityAndFlagInTheirOrder) {
  struct Layout {
    const void* table;
    const void* pSwitch;
    uint16_t low;
    uint16_t high;
    bool shutdown;
  };
  const auto read = [](const CExtensionModule& module) {
    Layout layout;
    std::memcpy(&layout, static_cast<const void*>(&module), sizeof(layout));
    return layout;
  };
  ASSERT_EQ(sizeof(CExtensionModule), sizeof(Layout));
  FakeSwitch host;
  CExtensionModule module;
  EXPECT_EQ(read(module).pSwitch, nullptr);
  EXPECT_EQ(read(module).low, 0);
  EXPECT_EQ(read(module).high, 0);
  EXPECT_FALSE(read(module).shutdown);
  module.Start(host.Get(), 0x12345678);
  module.ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
  EXPECT_EQ(read(module).pSwitch, host.Get());
  EXPECT_EQ(read(module).low, 0x5678);
  EXPECT_EQ(read(module).high, 0x1234);
  EXPECT_TRUE(read(module).shutdown);
}

TEST(ExtensionModuleTest, ABaseModuleIsNamedEmXxxInItsLines) {
  CExtensionModule module;
  const TraceSession session(5);
  module.ModuleNotification(0, 0, 0);
  EXPECT_EQ(session.Texts().front(),
            "\n\nEM_XXX              : ## NOTIFY: Code = 0Xx00, param = 0x00000000");
}

TEST(ExtensionModuleTest, TracesTheCabinetNumber) {
  const CabinetReset reset;
  TestModule module;
  ExpectLines({{2, "\n\nEM_TEST             : ## Server cabinet number = 3 ##\n"},
               {2, "\n\nEM_TEST             : ## Server cabinet number = -1 ##\n"}},
              [&] {
                EXPECT_EQ(module.SetCabinetNumber(3), 1U);
                EXPECT_EQ(module.SetCabinetNumber(0xFFFFFFFF), 1U);
              });
}

TEST(ExtensionModuleTest, ServesCabinet0UntilTold) {
  EXPECT_TRUE(IsForServerCabinet(R"({"CA":0})"));
  EXPECT_FALSE(IsForServerCabinet(R"({"CA":1})"));
}

TEST(ExtensionModuleTest, ACabinetThatIsNoNumberCountsAs0) {
  const CabinetReset reset;
  TestModule module;
  for (const uint32_t number : {0U, 1U}) {
    module.SetCabinetNumber(number);
    EXPECT_EQ(IsForServerCabinet(R"({"CA":null})"), number == 0);
    EXPECT_EQ(IsForServerCabinet(R"({"CA":"x"})"), number == 0);
  }
}

TEST(ExtensionModuleTest, ServesTheLastCabinetToldToAnyModule) {
  const CabinetReset reset;
  TestModule first;
  TestModule second;
  first.SetCabinetNumber(2);
  second.SetCabinetNumber(3);
  EXPECT_TRUE(IsForServerCabinet(R"({"CA":3})"));
  EXPECT_TRUE(IsForServerCabinet(R"({"CA":"0x3"})"));
  EXPECT_FALSE(IsForServerCabinet(R"({"CA":2})"));
  EXPECT_FALSE(IsForServerCabinet(R"({"CA":0})"));
  EXPECT_FALSE(IsForServerCabinet(R"({"CA":null})"));
}

TEST(ExtensionModuleTest, ServesARequestThatNamesNoCabinet) {
  const CabinetReset reset;
  TestModule module;
  module.SetCabinetNumber(3);
  EXPECT_TRUE(IsForServerCabinet(R"({"OC":1})"));
  EXPECT_TRUE(IsForServerCabinet("7"));
  EXPECT_TRUE(TestModule::IsForServerCabinet(SipJson()));
  EXPECT_TRUE(TestModule::IsForServerCabinet(MakeRecord(R"({"SIP":{}})")));
  EXPECT_TRUE(TestModule::IsForServerCabinet(MakeRecord(R"({"SIP":{"CMD":7}})")));
  EXPECT_TRUE(TestModule::IsForServerCabinet(MakeCommands(R"({"CA":1})", 1)));
  EXPECT_TRUE(TestModule::IsForServerCabinet(MakeCommands(R"({"CA":1})", 0xFFFFFFFF)));
}

TEST(ExtensionModuleTest, AnswersARequestWithStatus1) {
  CExtensionModule module;
  for (const char* command : {R"({"OC":1})", R"({"OC":1,"ST":22})", R"({"OC":1,"ST":"x"})"}) {
    SipJson request = MakeCommands("{}," + std::string(command), 1);
    EXPECT_EQ(module.ModuleRequest(request), 0U);
    EXPECT_EQ(CommandsOf(request), R"([{},{"OC":1,"ST":1}])");
  }
}

TEST(ExtensionModuleTest, GrowsTheCommandsBeforeItAnswers) {
  CExtensionModule module;
  SipJson request = MakeCommands(R"({"OC":1})", 2);
  EXPECT_EQ(module.ModuleRequest(request), 0U);
  EXPECT_EQ(CommandsOf(request), R"([{"OC":1},{},{"ST":1}])");
}

TEST(ExtensionModuleTest, LeavesARequestWithoutTheShapeAlone) {
  CExtensionModule module;
  for (const char* document :
       {"null", "{}", R"({"SIP":{}})", R"({"SIP":{"CMD":{}}})", R"({"SIP":{"CMD":[7]}})"}) {
    SipJson request = MakeRecord(document);
    EXPECT_EQ(module.ModuleRequest(request), 0U);
    EXPECT_EQ(TextOf(request), document);
  }
}

TEST(ExtensionModuleTest, SetsTheStatus) {
  SipJson request = MakeCommands(R"({"MI":7},{"MI":8})", 1);
  TestModule::SetCmdStatus(request, 20);
  EXPECT_EQ(CommandsOf(request), R"([{"MI":7},{"MI":8,"ST":20}])");
}

TEST(ExtensionModuleTest, ResetsTheCabinetToAllOnes) {
  SipJson request = MakeCommands(R"({"CA":3,"MI":7},{"MI":8})");
  TestModule::ResetCabinet(request, 20);
  request.m_nCmdIndex = 1;
  TestModule::ResetCabinet(request, 21);
  EXPECT_EQ(CommandsOf(request),
            R"([{"CA":4294967295,"MI":7,"ST":20},{"MI":8,"CA":4294967295,"ST":21}])");
}

TEST(ExtensionModuleTest, ResetsTheMessageIdToAllOnes) {
  SipJson request = MakeCommands(R"({"CA":3,"MI":"0x7"},{"CA":4})");
  TestModule::ResetMessageId(request, 20);
  request.m_nCmdIndex = 1;
  TestModule::ResetMessageId(request, 21);
  EXPECT_EQ(CommandsOf(request),
            R"([{"CA":3,"MI":4294967295,"ST":20},{"CA":4,"MI":4294967295,"ST":21}])");
}

TEST(ExtensionModuleTest, WritersLeaveARequestWithoutTheShapeAlone) {
  for (const char* document : {"{}", R"({"SIP":{"CMD":{}}})", R"({"SIP":{"CMD":[7]}})"}) {
    SipJson request = MakeRecord(document);
    TestModule::SetCmdStatus(request, 1);
    TestModule::ResetCabinet(request, 1);
    TestModule::ResetMessageId(request, 1);
    EXPECT_EQ(TextOf(request), document);
  }
}

TEST(ExtensionModuleTest, AnotherThreadSeesTheSwitchOfTheStart) {
  FakeSwitch host;
  host.Answer([](const FakeSwitch::Call&) { return 7; });
  TestModule module;
  std::atomic<bool> hasSeen = false;
  std::thread observer([&] { hasSeen = WaitUntil([&] { return module.Forward() == 7; }); });
  module.Start(host.Get(), 1);
  observer.join();
  EXPECT_TRUE(hasSeen);
}

TEST(ThrowingSinkTest, DoesNotDisturbAStart) {
  FakeSwitch host;
  for (const char* format : {REGISTER, REGISTERED}) {
    TestModule module;
    TraceSession session(5);
    session.ThrowAt(format);
    EXPECT_EQ(module.Start(host.Get(), 1), 1U) << format;
  }
}

TEST(ThrowingSinkTest, DoesNotDisturbTheCabinetNumber) {
  const CabinetReset reset;
  TestModule module;
  TraceSession session(5);
  session.ThrowAt(CABINET_NUMBER);
  EXPECT_EQ(module.SetCabinetNumber(3), 1U);
  EXPECT_TRUE(IsForServerCabinet(R"({"CA":3})"));
}
