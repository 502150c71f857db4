// A host that exports classes, functions and objects under the names that the module has for its
// own: the module takes none of them.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "tests/archive_module/module_host.h"
#include "tests/support/built_files.h"
#include "tests/support/trace_session.h"

namespace {

class HostSymbolsTest : public ModuleHost {
 protected:
  // The loader treats what is opened globally like symbols of the host.
  void SetUp() override {
    m_pImpostors = dlopen(IMPOSTORS_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(m_pImpostors, nullptr) << dlerror();
  }
  void TearDown() override {
    UnloadModule();
    dlclose(m_pImpostors);
  }

 private:
  void* m_pImpostors = nullptr;
};

}  // namespace

TEST_F(HostSymbolsTest, TheHostExportsTheNamesOfTheModule) {
  for (const char* name :
       {"_ZN9EM_TALVOR4StopEv", "_ZTV9EM_TALVOR", "_ZN16CExtensionModule5StartEP8CISwitchj",
        "_ZN15CTaskSerializerI7SipJsonE11TaskHandlerEPv", "_ZN7SipJsonC1ERKS_", "_ZN6CEvent3SetEv",
        "_ZN7CThread4KillEv", "_ZN9CRegistry5CloseEv", "_ZN10CDirectory15RemoveDirectoryEPKcb",
        "_ZN12CDebugClient5TraceEjPKcz", "_Z11SetupActionj", "g_oDebugClient"}) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
  }
}

TEST_F(HostSymbolsTest, TheModuleNeedsNoNameOfItsOwnFromOutside) {
  const std::string command = std::string("! nm -D --undefined-only ") + EM_TALVOR_LIBRARY +
                              " | c++filt | grep -E 'EM_TALVOR|SipJson|[ :]C[A-Z][a-z]'";
  EXPECT_EQ(system(command.c_str()), 0);
}

// The loader would allocate that memory at a thread's first use, and abort when there is none.
TEST_F(HostSymbolsTest, TheModuleNeedsNoMemoryForAThread) {
  const std::string command =
      std::string("! nm -D --undefined-only ") + EM_TALVOR_LIBRARY + " | grep __tls_get_addr";
  EXPECT_EQ(system(command.c_str()), 0);
}

TEST_F(HostSymbolsTest, TheModuleBringsNoRuntimeOfItsOwn) {
  for (const std::string library : {"libstdc++.so", "libc.so"}) {
    const std::string command = std::string("readelf --dynamic ") + EM_TALVOR_LIBRARY +
                                " | grep -qF 'Shared library: [" + library + "'";
    EXPECT_EQ(system(command.c_str()), 0) << library;
  }
}

TEST_F(HostSymbolsTest, TheModuleRunsOnItsOwnCode) {
  InstallCollector(GOOD_COLLECTOR);
  std::filesystem::create_directories("/var/log/Talvor/logs");
  const TraceSession session(5);
  m_oSwitch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 0); };
  ASSERT_EQ(CreateAndStart(), 1U);
  std::array<uint8_t, 246> record = {246};
  EXPECT_EQ(m_pModule->GetModuleInfo(record.data()), 1U);
  EXPECT_EQ(m_pModule->SetCabinetNumber(0), 1U);
  EXPECT_EQ(m_pModule->ModuleNotification(0x20001, 0, 0), 0U);
  EXPECT_EQ(Send(QUERY), std::make_pair(1U, 0U));
  EXPECT_EQ(Send(R"({"OC":13312,"CA":1})"), std::make_pair(0U, 20U));
  EXPECT_EQ(Send(R"({"OC":13317,"DA":{"a":[1,2.5,"x"]}})"), std::make_pair(0U, 999U));
  EXPECT_EQ(Run(CREATE), 0U);
  EXPECT_EQ(Run(R"({"OC":13314,"DA":{"RAW":[97,98,0]},"TO":"0x10"})"), 0U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_STREQ(GetModuleName(), "EM_TALVOR");
  EXPECT_EQ(SetupAction(4), 1U);
  EXPECT_FALSE(std::filesystem::exists("/var/log/Talvor"));
  UnloadModule();
  EXPECT_FALSE(IsLoaded());
}

TEST_F(HostSymbolsTest, TheModuleEndsARunningCollectorOnItsOwnCode) {
  InstallCollector("touch \"$D/runs\"; exec sleep 60");
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 22U));
  ASSERT_TRUE(WaitForCollector());
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
}

TEST_F(HostSymbolsTest, TheModuleIsRefusedItsStartOnItsOwnCode) {
  EXPECT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(Send(CREATE), std::make_pair(1U, 3U));
  EXPECT_EQ(m_pModule->Stop(), 1U);
}
