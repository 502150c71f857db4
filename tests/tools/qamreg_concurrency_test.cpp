// Changes at the same time.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/qamreg_program.h"
#include "trace/descriptor.h"

namespace {

using testing::HasSubstr;

constexpr char LOCK_FILE[] = "/etc/qamrel/registry.lock";

// Waits until a process waits for a lock on a file.
bool WaitForWaiter(pid_t pid) {
  const std::string waiter = "-> FLOCK  ADVISORY  WRITE " + std::to_string(pid) + " ";
  for (int attempt = 0; attempt < 1000; ++attempt) {
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
      if (line.find(waiter) != std::string::npos) {
        return true;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
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
