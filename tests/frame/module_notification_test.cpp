// What a module does with a notification of the switch.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frame/extension_module.h"
#include "tests/frame/records.h"
#include "tests/frame/test_module.h"
#include "tests/support/trace_session.h"

namespace {

using testing::ElementsAre;

constexpr char NOTIFY[] = "\n\n%-20s: ## NOTIFY: Code = 0Xx%02X, param = 0x%08X";
constexpr char CALL_HOOK[] = "\n%-20s:   call OnModuleNotification()...";
constexpr char HOOK_COMPLETED[] = "\n%-20s:   ... OnModuleNotification() completed";

// The lines that a notification writes beside those of every notification, with their levels.
struct NotificationLines {
  uint32_t code;
  std::vector<std::pair<const char*, uint32_t>> lines;
};

const NotificationLines NOTIFICATIONS[] = {
    {0x20000,
     {{"\n%-20s: *** SCN_SWITCH_SHUTDOWN *** \n", 1},
      {"\n%-20s: -> SWITCH shutdown notification, set SwitchShutdown flag", 3}}},
    {0x20001,
     {{"\n%-20s: *** SCN_SWITCH_REQUEST_ENABLED *** \n", 1},
      {"\n%-20s: -> SWITCH start completed (all layers started) - requests enabled", 3}}},
    {0x30000, {{"\n%-20s: *** SCN_SYSTEM_SHUTDOWN *** \n", 1}, {"\n%-20s: -> System shutdown", 2}}},
    {0x40000, {{"\n%-20s: *** SCN_POWERSTATE_SUSPEND *** \n", 1}}},
    {0x40001, {{"\n%-20s: *** SCN_POWERSTATE_STANDBY *** \n", 1}}},
    {0x40002, {{"\n%-20s: *** SCN_POWERSTATE_RESUME *** \n", 1}}},
    {0x40003, {{"\n%-20s: *** SCN_POWERSTATE_AC_OFFLINE *** \n", 1}}},
    {0x40004, {{"\n%-20s: *** SCN_POWERSTATE_AC_ONLINE *** \n", 1}}},
    {0, {}},
    {0x1FFFF, {}},
    {0x20002, {}},
    {0x40005, {}},
    {0xFFFFFFFF, {}},
};

}  // namespace

TEST(ModuleNotificationTest, HasTheCodesOfTheSwitch) {
  EXPECT_EQ(SCN_SWITCH_SHUTDOWN, 0x20000U);
  EXPECT_EQ(SCN_SWITCH_REQUEST_ENABLED, 0x20001U);
  EXPECT_EQ(SCN_SYSTEM_SHUTDOWN, 0x30000U);
  EXPECT_EQ(SCN_POWERSTATE_SUSPEND, 0x40000U);
  EXPECT_EQ(SCN_POWERSTATE_STANDBY, 0x40001U);
  EXPECT_EQ(SCN_POWERSTATE_RESUME, 0x40002U);
  EXPECT_EQ(SCN_POWERSTATE_AC_OFFLINE, 0x40003U);
  EXPECT_EQ(SCN_POWERSTATE_AC_ONLINE, 0x40004U);
}

TEST(ModuleNotificationTest, WritesTheLinesOfItsCodeBetweenThoseOfEveryNotification) {
  for (const auto& [code, lines] : NOTIFICATIONS) {
    SCOPED_TRACE(code);
    std::vector<std::string> expected = {NOTIFY};
    for (const auto& line : lines) {
      expected.emplace_back(line.first);
    }
    expected.insert(expected.end(), {CALL_HOOK, HOOK_COMPLETED});
    TestModule module;
    const TraceSession session(5);
    module.ModuleNotification(code, 0, 0);
    EXPECT_EQ(session.Formats(), expected);
  }
}

TEST(ModuleNotificationTest, WritesEachLineAtItsLevel) {
  TestModule module;
  for (const auto& [code, lines] : NOTIFICATIONS) {
    SCOPED_TRACE(code);
    const auto notify = [&, code = code] { module.ModuleNotification(code, 0, 0); };
    EXPECT_EQ(LevelOf(NOTIFY, notify), 2U);
    for (const auto& [format, level] : lines) {
      EXPECT_EQ(LevelOf(format, notify), level) << format;
    }
    EXPECT_EQ(LevelOf(CALL_HOOK, notify), 4U);
    EXPECT_EQ(LevelOf(HOOK_COMPLETED, notify), 4U);
  }
}

TEST(ModuleNotificationTest, LinesShowNameAndCodeAndTheLow32BitsOfTheParameter) {
  TestModule module;
  const TraceSession session(5);
  module.ModuleNotification(SCN_SYSTEM_SHUTDOWN, 0x1234567800000ABC, 7);
  EXPECT_THAT(
      session.Texts(),
      ElementsAre("\n\nEM_TEST             : ## NOTIFY: Code = 0Xx30000, param = 0x00000ABC",
                  "\nEM_TEST             : *** SCN_SYSTEM_SHUTDOWN *** \n",
                  "\nEM_TEST             : -> System shutdown",
                  "\nEM_TEST             :   call OnModuleNotification()...",
                  "\nEM_TEST             :   ... OnModuleNotification() completed"));
}

TEST(ModuleNotificationTest, EveryLineOfACodeIsLabelledWithTheName) {
  TestModule module("EM_LABEL");
  const TraceSession session(5);
  for (const auto& notification : NOTIFICATIONS) {
    module.ModuleNotification(notification.code, 0, 0);
  }
  for (const std::string& text : session.Texts()) {
    EXPECT_THAT(text, testing::HasSubstr("\nEM_LABEL            : "));
  }
}

TEST(ModuleNotificationTest, EveryCodeReachesTheHookBetweenItsLines) {
  for (const auto& notification : NOTIFICATIONS) {
    SCOPED_TRACE(notification.code);
    TestModule module;
    const TraceSession session(5);
    int calls = 0;
    module.hook = [&](uint32_t code, uintptr_t parameter, uintptr_t extra) -> uintptr_t {
      ++calls;
      EXPECT_EQ(code, notification.code);
      EXPECT_EQ(parameter, 0x123456789ABCDEF0);
      EXPECT_EQ(extra, 0xFEDCBA9876543210);
      EXPECT_EQ(session.Formats().back(), CALL_HOOK);
      return 0x1122334455667788;
    };
    EXPECT_EQ(module.ModuleNotification(notification.code, 0x123456789ABCDEF0, 0xFEDCBA9876543210),
              0x1122334455667788U);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(session.Formats().back(), HOOK_COMPLETED);
  }
}

TEST(ModuleNotificationTest, TheHookRunsWhileTracingIsOff) {
  TestModule module;
  module.hook = [](uint32_t, uintptr_t, uintptr_t) -> uintptr_t { return 5; };
  EXPECT_EQ(module.ModuleNotification(0, 0, 0), 5U);
  EXPECT_EQ(module.nameCalls, 0);
}

TEST(ModuleNotificationTest, OnlyTheSwitchShutdownSetsTheFlagAndNothingResetsIt) {
  TestModule module;
  for (const auto& notification : NOTIFICATIONS) {
    if (notification.code != SCN_SWITCH_SHUTDOWN) {
      module.ModuleNotification(notification.code, 1, 1);
      EXPECT_FALSE(module.IsSwitchShutdown()) << notification.code;
    }
  }
  for (const auto& notification : NOTIFICATIONS) {
    module.ModuleNotification(notification.code, 0, 0);
    EXPECT_TRUE(module.IsSwitchShutdown()) << notification.code;
  }
  module.Start(nullptr, 1);
  module.Stop();
  EXPECT_TRUE(module.IsSwitchShutdown());
}

TEST(ModuleNotificationTest, EachModuleHasItsOwnFlag) {
  TestModule notified;
  const TestModule other;
  notified.ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
  EXPECT_FALSE(other.IsSwitchShutdown());
}

TEST(ModuleNotificationTest, TheFlagIsSetBeforeTheHookRuns) {
  TestModule module;
  bool isSet = false;
  module.hook = [&](uint32_t, uintptr_t, uintptr_t) -> uintptr_t {
    isSet = module.IsSwitchShutdown();
    return 0;
  };
  module.ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
  EXPECT_TRUE(isSet);
}

TEST(ModuleNotificationTest, AnotherThreadSeesFlagAndCabinet) {
  TestModule module;
  const SipJson request = MakeCommands(R"({"CA":7})");
  std::atomic<bool> hasSeen = false;
  std::thread observer([&] {
    hasSeen = WaitUntil(
        [&] { return module.IsSwitchShutdown() && TestModule::IsForServerCabinet(request); });
  });
  module.SetCabinetNumber(7);
  module.ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0);
  observer.join();
  EXPECT_TRUE(hasSeen);
}

TEST(ModuleNotificationTest, AThrowingSinkDoesNotDisturb) {
  for (const char* format : {NOTIFY, NOTIFICATIONS[0].lines[0].first,
                             NOTIFICATIONS[0].lines[1].first, CALL_HOOK, HOOK_COMPLETED}) {
    SCOPED_TRACE(format);
    TestModule module;
    module.hook = [](uint32_t, uintptr_t, uintptr_t) -> uintptr_t { return 5; };
    TraceSession session(5);
    session.ThrowAt(format);
    EXPECT_EQ(module.ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0), 5U);
    EXPECT_TRUE(module.IsSwitchShutdown());
  }
}
