// What a module does with a notification of the switch.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "frame/extension_module.h"
#include "tests/frame/records.h"
#include "tests/frame/test_module.h"
#include "tests/support/level_lines.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char NOTIFY[] = "\n\n%-20s: ## NOTIFY: Code = 0Xx%02X, param = 0x%08X";
constexpr char CALL_HOOK[] = "\n%-20s:   call OnModuleNotification()...";
constexpr char HOOK_COMPLETED[] = "\n%-20s:   ... OnModuleNotification() completed";

constexpr char LABEL[] = "EM_TEST             : ";

// The lines that only this notification writes, without the label.
struct NotificationLines {
  uint32_t code;
  std::vector<LevelLine> lines;
};

const NotificationLines NOTIFICATIONS[] = {
    {0x20000,
     {{1, "*** SCN_SWITCH_SHUTDOWN *** \n"},
      {3, "-> SWITCH shutdown notification, set SwitchShutdown flag"}}},
    {0x20001,
     {{1, "*** SCN_SWITCH_REQUEST_ENABLED *** \n"},
      {3, "-> SWITCH start completed (all layers started) - requests enabled"}}},
    {0x30000, {{1, "*** SCN_SYSTEM_SHUTDOWN *** \n"}, {2, "-> System shutdown"}}},
    {0x40000, {{1, "*** SCN_POWERSTATE_SUSPEND *** \n"}}},
    {0x40001, {{1, "*** SCN_POWERSTATE_STANDBY *** \n"}}},
    {0x40002, {{1, "*** SCN_POWERSTATE_RESUME *** \n"}}},
    {0x40003, {{1, "*** SCN_POWERSTATE_AC_OFFLINE *** \n"}}},
    {0x40004, {{1, "*** SCN_POWERSTATE_AC_ONLINE *** \n"}}},
    {0, {}},
    {0x1FFFF, {}},
    {0x20002, {}},
    {0x40005, {}},
    {0xFFFFFFFF, {}},
};

}  // namespace

TEST(ModuleNotificationTest, WritesTheLinesOfItsCodeBetweenThoseOfEveryNotification) {
  TestModule module;
  for (const auto& notification : NOTIFICATIONS) {
    std::array<char, 100> notify;
    snprintf(notify.data(), notify.size(), "\n\n%s## NOTIFY: Code = 0Xx%02X, param = 0x00000ABC",
             LABEL, notification.code);
    std::vector<LevelLine> expected = {{2, notify.data()}};
    for (const LevelLine& line : notification.lines) {
      expected.push_back({line.level, "\n" + (LABEL + line.text)});
    }
    expected.push_back({4, std::string("\n") + LABEL + "  call OnModuleNotification()..."});
    expected.push_back({4, std::string("\n") + LABEL + "  ... OnModuleNotification() completed"});
    ExpectLines(expected,
                [&] { module.ModuleNotification(notification.code, 0x1234567800000ABC, 7); });
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
  const CabinetReset reset;
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
  for (const char* format : {NOTIFY, "\n%-20s: *** SCN_SWITCH_SHUTDOWN *** \n",
                             "\n%-20s: -> SWITCH shutdown notification, set SwitchShutdown flag",
                             CALL_HOOK, HOOK_COMPLETED}) {
    SCOPED_TRACE(format);
    TestModule module;
    module.hook = [](uint32_t, uintptr_t, uintptr_t) -> uintptr_t { return 5; };
    TraceSession session(5);
    session.ThrowAt(format);
    EXPECT_EQ(module.ModuleNotification(SCN_SWITCH_SHUTDOWN, 0, 0), 5U);
    EXPECT_TRUE(module.IsSwitchShutdown());
  }
}
