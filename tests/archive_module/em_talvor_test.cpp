// The module as a whole: its identification, its operations by position, and what is left of it
// when the host unloads it or ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

class EmTalvorTest : public ModuleHost {
 protected:
  // Everything that a host does with a module, once.
  void RunWholeRoad() {
    ASSERT_EQ(CreateAndStart(), 1U);
    m_pModule->SetCabinetNumber(0);
    m_pModule->ModuleNotification(0x20001, 0, 0);
    EXPECT_EQ(Send(QUERY), std::make_pair(1U, 0U));
    EXPECT_EQ(Run(CREATE), 0U);
    EXPECT_EQ(Run(TRANSFER), 22U);
    EXPECT_EQ(Send(R"({"OC":13313,"CA":1})"), std::make_pair(0U, 20U));
    m_pModule->ModuleNotification(0x20000, 0, 0);
    EXPECT_EQ(Run(CREATE), 6U);
    EXPECT_EQ(m_pModule->Stop(), 1U);
    EXPECT_EQ(DeleteModule(), 1U);
    EXPECT_EQ(SetupAction(4), 1U);
    UnloadModule();
  }
};

using EmTalvorDeathTest = EmTalvorTest;

// What shows whether a file or directory was changed or replaced.
std::vector<int64_t> StateOf(const char* path) {
  struct stat status = {};
  EXPECT_EQ(stat(path, &status), 0) << path;
  return {static_cast<int64_t>(status.st_ino),
          status.st_size,
          status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec,
          status.st_ctim.tv_sec,
          status.st_ctim.tv_nsec,
          static_cast<int64_t>(status.st_mode)};
}

// Lets the process end without a leak check, which crashes on a thread that has thread-local
// objects of a loaded library. The check runs here instead, as it can run only once.
void CheckLeaksNow() {
#ifdef __SANITIZE_ADDRESS__
  __lsan_do_leak_check();
#endif
}

// The bytes that the program has allocated; a sanitizer's allocator does not count them.
size_t AllocatedBytes() { return mallinfo2().uordblks; }

}  // namespace

TEST_F(EmTalvorTest, FillsTheIdentificationRecordByteByByte) {
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  for (const uint32_t before : {0x00U, 0xFFU, 0xA5U}) {
    for (const uint32_t size : {246U, 247U, 300U, 0xFFFFFFFFU}) {
      std::array<uint8_t, 300> record = {};
      record.fill(static_cast<uint8_t>(before));
      std::memcpy(record.data(), &size, sizeof(size));
      std::array<uint8_t, 300> expected = record;
      expected[8] = static_cast<uint8_t>(before | 0x03U);
      expected[21] = static_cast<uint8_t>(before & 0xFCU);
      std::memset(&expected[42], 0, 204);
      expected[42] = 2;
      std::memcpy(&expected[46], "EM_TALVOR", 9);
      std::memcpy(&expected[146], "Talvor extension module", 23);
      EXPECT_EQ(m_pModule->GetModuleInfo(record.data()), 1U);
      EXPECT_EQ(record, expected);
    }
  }
}

TEST_F(EmTalvorTest, LeavesASmallerIdentificationRecordUntouched) {
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  for (const uint32_t size : {0U, 4U, 245U}) {
    std::array<uint8_t, 246> record = {};
    record[0] = static_cast<uint8_t>(size);
    const std::array<uint8_t, 246> before = record;
    EXPECT_EQ(m_pModule->GetModuleInfo(record.data()), 0U);
    EXPECT_EQ(record, before);
  }
  EXPECT_EQ(m_pModule->GetModuleInfo(nullptr), 0U);
}

TEST_F(EmTalvorTest, KeepsTheOperationsThatItDoesNotOverride) {
  LoadModule();
  ASSERT_EQ(Create(&m_pModule, nullptr), 1U);
  EXPECT_EQ(m_pModule->Placeholder3(), 1U);
  m_pModule->Placeholder6();
  m_pModule->Placeholder7();
  EXPECT_EQ(m_pModule->Placeholder9(), 0U);
  EXPECT_EQ(m_pModule->Placeholder11(), 0U);
  EXPECT_EQ(m_pModule->Placeholder12(), 0U);
  m_pModule->Placeholder15();
  m_pModule->Placeholder16();
  m_pModule->Placeholder17();
  m_pModule->Placeholder18();
  EXPECT_EQ(m_pModule->Placeholder19(), 0U);
  EXPECT_EQ(m_pModule->Placeholder20(), 0U);
  EXPECT_EQ(m_pModule->Placeholder21(), 0U);
  EXPECT_EQ(m_pModule->Placeholder22(), 0U);
  EXPECT_EQ(m_pModule->OnModuleNotification(0x20000, 0, 0), 0U);
  EXPECT_STREQ(m_pModule->GetModuleName(), "EM_TALVOR");
}

TEST_F(EmTalvorTest, NothingOfTheRegistryIsMadeOrTouched) {
  InstallCollector(GOOD_COLLECTOR);
  const std::vector<int64_t> directory = StateOf("/etc/qamrel");
  const std::vector<int64_t> registry = StateOf("/etc/qamrel/registry");
  RunWholeRoad();
  EXPECT_EQ(StateOf("/etc/qamrel"), directory);
  EXPECT_EQ(StateOf("/etc/qamrel/registry"), registry);
}

TEST_F(EmTalvorTest, WithoutARegistryNoneIsMade) {
  EXPECT_EQ(CreateAndStart(), 0U);
  EXPECT_EQ(m_pModule->Stop(), 1U);
  EXPECT_EQ(SetupAction(4), 0U);
  UnloadModule();
  EXPECT_FALSE(std::filesystem::exists("/etc/qamrel"));
}

TEST_F(EmTalvorTest, IsGoneFromTheProcessWhenItIsUnloaded) {
  InstallCollector(GOOD_COLLECTOR);
  RunWholeRoad();
  EXPECT_FALSE(IsLoaded());
  std::ifstream maps("/proc/self/maps");
  const std::string mapped(std::istreambuf_iterator<char>(maps), {});
  EXPECT_THAT(mapped, testing::Not(testing::HasSubstr("em_talvor.so")));
}

TEST_F(EmTalvorTest, TwentyRoundsLeaveNothingBehind) {
  InstallCollector(GOOD_COLLECTOR);
  size_t threads = 0;
  ptrdiff_t descriptors = 0;
  size_t bytes = 0;
  for (int round = 0; round < 20; ++round) {
    RunWholeRoad();
    EXPECT_FALSE(IsLoaded());
    m_oSwitch.Forget();
    if (round == 5) {
      threads = CountThreads();
      descriptors = CountDescriptors();
      bytes = AllocatedBytes();
    }
  }
  EXPECT_TRUE(HasOnlyThreads(threads));
  EXPECT_EQ(CountDescriptors(), descriptors);
  EXPECT_FALSE(HasChildren());
  EXPECT_LE(AllocatedBytes(), bytes + 2048);
}

// The collector outlives the host, which was not asked to stop it.
TEST_F(EmTalvorDeathTest, AHostThatEndsWithACollectorRunningEndsWithItsOwnCode) {
  InstallCollector("touch \"$D/runs\"; while test -e \"$D/runs\"; do sleep 0.1; done");
  EXPECT_EXIT(
      {
        CheckLeaksNow();
        StartAfresh();
        Send(CREATE);
        Send(TRANSFER);
        exit(WaitForCollector() ? 7 : 8);
      },
      testing::ExitedWithCode(7), "");
  std::filesystem::remove(m_strDirectory + "runs");
  EXPECT_TRUE(WaitUntil([] { return system("grep -qsx Talvor /proc/[0-9]*/comm") != 0; }));
}

// What the worker does while the process ends finds the module's static objects still usable.
TEST_F(EmTalvorDeathTest, AJobMayEndWhileItsHostEnds) {
  InstallCollector("touch \"$D/runs\"; sleep 0.5; echo data > \"$archive\"");
  EXPECT_EXIT(
      {
        static TestSwitch& hosts = m_oSwitch;
        const TraceSession session(5);
        std::atexit([] { _exit(hosts.StatusOf(0) == 0 ? 7 : 9); });
        StartAfresh();
        Send(CREATE);
        exit(WaitForCollector() ? 7 : 8);
      },
      testing::ExitedWithCode(7), "");
}
