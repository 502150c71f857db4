// Changes at the same time.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "base/descriptor.h"
#include "tests/support/trace_session.h"
#include "tests/tools/qamreg_program.h"

namespace {

using testing::HasSubstr;

constexpr char LOCK_FILE[] = "/etc/qamrel/registry.lock";

// Waits until the process has come to its lock.
bool WaitForWaiter(pid_t pid) {
  const std::filesystem::path descriptors = "/proc/" + std::to_string(pid) + "/fd";
  return WaitUntil([&] {
    return std::any_of(std::filesystem::directory_iterator(descriptors), {}, [](const auto& entry) {
      std::error_code gone;
      return std::filesystem::read_symlink(entry, gone) == LOCK_FILE;
    });
  });
}

TEST_F(QamregTest, AChangeIsMadeToTheRegistryAsTheFormerOneLeftIt) {
  CDescriptor lock(open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(lock.Get(), LOCK_EX), 0);
  Program program(Command({"add", "HKLM\\A", "-v", "second", "-d", "x"}));
  ASSERT_TRUE(WaitForWaiter(program.GetPid()));
  WriteTree("[A]\nfirst=s=x\n\n");
  ASSERT_TRUE(lock.Close());
  EXPECT_EQ(program.Wait(), 0) << program.Errors();
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\nfirst=s=x\nsecond=s=x\n\n"));
}

TEST_F(QamregTest, AChangeThatWaitsSaysSo) {
  CDescriptor lock(open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(lock.Get(), LOCK_EX), 0);
  Program program(Command({"add", "HKLM\\A"}));
  EXPECT_TRUE(WaitUntil([&] {
    return program.Errors() == std::string("qamreg: Waiting for another process, which holds ") +
                                   LOCK_FILE + " (lslocks names it).\n";
  })) << program.Errors();
  ASSERT_TRUE(lock.Close());
  EXPECT_EQ(program.Wait(), 0);
}

TEST_F(QamregTest, AChangeWaitsNoLongerThanItsLimit) {
  const CDescriptor lock(open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(lock.Get(), LOCK_EX), 0);
  EXPECT_EQ(
      Fail(2, {"add", "HKLM\\A", "--wait", "0"}),
      std::string("qamreg: Another process has held ") + LOCK_FILE +
          " for 0 s. Nothing was changed: see with lslocks which one it is, or allow more with "
          "--wait.\n");
}

TEST_F(QamregTest, NoReaderWaitsForAChange) {
  const CDescriptor lock(open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(lock.Get(), LOCK_EX), 0);
  EXPECT_EQ(Print({"query", "HKU"}), "HKEY_USERS\n");
  EXPECT_THAT(Print({"export", "HKU"}), HasSubstr("[HKEY_USERS]"));
}

TEST_F(QamregTest, ChangesAtTheSameTimeAllStay) {
  std::vector<std::unique_ptr<Program>> programs;
  std::string values;
  for (char name = 'a'; name <= 't'; ++name) {
    programs.push_back(
        std::make_unique<Program>(Command({"add", "HKLM\\A", "-v", std::string(1, name)})));
    values += std::string(1, name) + "=s=\n";
  }
  for (const auto& program : programs) {
    EXPECT_EQ(program->Wait(), 0) << program->Errors();
  }
  EXPECT_EQ(ReadFile(REGISTRY_FILE), TreeText("[A]\n" + values + "\n"));
}

}  // namespace
