#include "frame/switch_interface.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "tests/frame/fake_switch.h"
#include "tests/frame/records.h"
#include "tests/frame/test_module.h"

namespace {

constexpr uint64_t WIDE_RESULT = 0xF1E2D3C4B5A69788;

uint64_t AddressOf(const void* object) { return reinterpret_cast<uint64_t>(object); }

// The helpers of the base that call the switch, on a module that has one.
class SwitchInterfaceTest : public testing::Test {
 protected:
  SwitchInterfaceTest() {
    m_oModule.Start(m_oSwitch.Get(), 0);
    m_nCallsOfStart = m_oSwitch.Calls().size();
    m_oSwitch.Answer([](const FakeSwitch::Call&) { return WIDE_RESULT; });
  }

  // The only call since the start. It must have reached the operation at `position`, for this
  // module.
  FakeSwitch::Call TakeCall(size_t position) {
    EXPECT_EQ(m_oSwitch.Calls().size(), m_nCallsOfStart + 1);
    const FakeSwitch::Call call = m_oSwitch.Calls().back();
    EXPECT_EQ(call.position, position);
    return call;
  }

  FakeSwitch::Call TakeCallOfModule(size_t position) {
    const FakeSwitch::Call call = TakeCall(position);
    EXPECT_EQ(call.arguments[0], AddressOf(static_cast<CIExtensionModule*>(&m_oModule)));
    return call;
  }

  // The halves of the message id that the switch gets with a request that holds `messageId`.
  void ExpectHalves(const std::string& command, uint32_t high, uint32_t low) {
    SCOPED_TRACE(command);
    SipJson request = MakeCommands("{}," + command, 1);
    m_oModule.ReturnRequest(request);
    const FakeSwitch::Call call = m_oSwitch.Calls().back();
    EXPECT_EQ(static_cast<uint32_t>(call.arguments[2]), high);
    EXPECT_EQ(static_cast<uint32_t>(call.arguments[3]), low);
  }

  FakeSwitch m_oSwitch;
  TestModule m_oModule;
  size_t m_nCallsOfStart = 0;
};

}  // namespace

TEST_F(SwitchInterfaceTest, ARequestGoesToOperation10) {
  SipJson request = MakeCommands("{}");
  EXPECT_EQ(m_oModule.ForwardRequest(request), WIDE_RESULT);
  EXPECT_EQ(TakeCallOfModule(10).arguments[1], AddressOf(&request));
}

TEST_F(SwitchInterfaceTest, AnAsynchronousRequestGoesToOperation10) {
  SipJson request = MakeCommands(R"({"ST":22})");
  EXPECT_EQ(m_oModule.AsyncRequest(request, 5000), WIDE_RESULT);
  EXPECT_EQ(TakeCallOfModule(10).arguments[1], AddressOf(&request));
  EXPECT_EQ(CommandsOf(request), R"([{"ST":22}])");
}

TEST_F(SwitchInterfaceTest, AnAsynchronousRequestIsAnsweredInPlace) {
  SipJson request = MakeCommands(R"({"ST":22})");
  m_oSwitch.Answer([&](const FakeSwitch::Call&) {
    request = MakeCommands(R"({"ST":0,"DA":1})");
    return 1;
  });
  m_oModule.AsyncRequest(request, 0);
  EXPECT_EQ(CommandsOf(request), R"([{"ST":0,"DA":1}])");
}

TEST_F(SwitchInterfaceTest, AFlagGoesToOperation11) {
  for (const bool flag : {true, false}) {
    EXPECT_EQ(m_oModule.ForwardFlag(flag), WIDE_RESULT);
    EXPECT_EQ(TakeCallOfModule(11).arguments[1] & 0xFF, flag ? 1U : 0U);
    ++m_nCallsOfStart;
  }
}

TEST_F(SwitchInterfaceTest, ACallWithoutArgumentsGoesToOperation12) {
  EXPECT_EQ(m_oModule.Forward(), WIDE_RESULT);
  TakeCallOfModule(12);
}

TEST_F(SwitchInterfaceTest, AFinishedRequestGoesToOperation26) {
  SipJson request = MakeCommands(R"({"MI":65538})");
  EXPECT_EQ(m_oModule.ReturnRequest(request), WIDE_RESULT);
  EXPECT_EQ(TakeCallOfModule(26).arguments[1], AddressOf(&request));
}

TEST_F(SwitchInterfaceTest, AFinishedRequestComesWithTheHalvesOfItsMessageId) {
  ExpectHalves(R"({"MI":"0x00010002"})", 1, 2);
  ExpectHalves(R"({"MI":4294901761})", 0xFFFF, 1);
  ExpectHalves(R"({"MI":65535})", 0, 0xFFFF);
  ExpectHalves(R"({"MI":null})", 0, 0);
  ExpectHalves("{}", 0, 0);
  ExpectHalves("7", 0, 0);
}

TEST_F(SwitchInterfaceTest, TheAgentTypeComesFromOperation27) {
  EXPECT_EQ(m_oModule.GetAgentType(), static_cast<uint32_t>(WIDE_RESULT));
  TakeCall(27);
}

TEST_F(SwitchInterfaceTest, ASwitchThatThrowsLeavesTheAgentTypeUnknownAndTheStartGoesOn) {
  m_oSwitch.Answer([](const FakeSwitch::Call&) -> uint64_t { throw std::runtime_error("switch"); });
  EXPECT_EQ(m_oModule.GetAgentType(), 0U);
  EXPECT_EQ(m_oModule.Start(m_oSwitch.Get(), 0), 1U);
}

TEST_F(SwitchInterfaceTest, ASwitchMayEndTheThreadThatAsksForTheAgentType) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP()
      << "the sanitizer takes what ends a thread, which is no object, for a null reference";
#endif
  m_oSwitch.Answer([](const FakeSwitch::Call&) -> uint64_t { pthread_exit(nullptr); });
  bool hasReturned = false;
  std::thread([&] {
    m_oModule.GetAgentType();
    hasReturned = true;
  }).join();
  EXPECT_FALSE(hasReturned);
}

TEST_F(SwitchInterfaceTest, TheLastStartDecidesTheSwitch) {
  FakeSwitch another;
  m_oModule.Start(another.Get(), 0);
  m_oModule.Forward();
  EXPECT_EQ(m_oSwitch.Calls().size(), m_nCallsOfStart);
  EXPECT_EQ(another.Calls().back().position, 12U);
}

TEST(UnstartedModuleTest, HelpersReturnZeroAndDoNothing) {
  TestModule module;
  SipJson request = MakeCommands(R"({"OC":1,"MI":65538})");
  EXPECT_EQ(module.ForwardRequest(request), 0U);
  EXPECT_EQ(module.ForwardFlag(true), 0U);
  EXPECT_EQ(module.Forward(), 0U);
  EXPECT_EQ(module.ReturnRequest(request), 0U);
  EXPECT_EQ(module.GetAgentType(), 0U);
  EXPECT_EQ(CommandsOf(request), R"([{"OC":1,"MI":65538}])");
}

TEST(UnstartedModuleTest, AnAsynchronousRequestFailsWithStatus6) {
  TestModule module;
  SipJson request = MakeCommands(R"({"OC":1},{"OC":2,"ST":22})", 1);
  EXPECT_EQ(module.AsyncRequest(request, 5000), 0U);
  EXPECT_EQ(CommandsOf(request), R"([{"OC":1},{"OC":2,"ST":6}])");
}

TEST(UnstartedModuleTest, AStartWithoutASwitchLeavesItUnstarted) {
  TestModule module;
  EXPECT_EQ(module.Start(nullptr, 1), 1U);
  EXPECT_EQ(module.Forward(), 0U);
  SipJson request = MakeCommands("{}");
  EXPECT_EQ(module.AsyncRequest(request, 0), 0U);
  EXPECT_EQ(CommandsOf(request), R"([{"ST":6}])");
}

// What a host gets that overrides nothing.
TEST(SwitchBaseTest, AnswersNothingToEverything) {
  class BareSwitch final : public CSwitchBase {
  } bare;
  TestModule module;
  module.Start(&bare, 1);
  SipJson request = MakeCommands("{}");
  EXPECT_EQ(module.ForwardRequest(request), 0U);
  EXPECT_EQ(module.ForwardFlag(true), 0U);
  EXPECT_EQ(module.Forward(), 0U);
  EXPECT_EQ(module.ReturnRequest(request), 0U);
  EXPECT_EQ(module.GetAgentType(), 0U);
  for (const auto placeholder :
       {&CISwitch::Placeholder0,  &CISwitch::Placeholder1,  &CISwitch::Placeholder2,
        &CISwitch::Placeholder3,  &CISwitch::Placeholder4,  &CISwitch::Placeholder5,
        &CISwitch::Placeholder6,  &CISwitch::Placeholder7,  &CISwitch::Placeholder8,
        &CISwitch::Placeholder9,  &CISwitch::Placeholder13, &CISwitch::Placeholder14,
        &CISwitch::Placeholder15, &CISwitch::Placeholder16, &CISwitch::Placeholder17,
        &CISwitch::Placeholder18, &CISwitch::Placeholder19, &CISwitch::Placeholder20,
        &CISwitch::Placeholder21, &CISwitch::Placeholder22, &CISwitch::Placeholder23,
        &CISwitch::Placeholder24, &CISwitch::Placeholder25}) {
    (bare.*placeholder)();
  }
  EXPECT_EQ(CommandsOf(request), "[{}]");
}
