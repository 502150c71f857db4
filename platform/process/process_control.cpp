#include "platform/process/process_control.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>
#include <utility>

#include "base/retry.h"
#include "platform/process/child_program.h"

namespace {

constexpr size_t PATH_SIZE = 4096;
constexpr std::chrono::milliseconds LOOK_INTERVAL(1);

std::mutex g_oDirectoryTurn;

// True when the child ended with exit status 0. Stores the exit status of a normal end.
bool WaitForEnd(int32_t pid, int32_t& exitCode) {
  int status = 0;
  const pid_t ended = RetryInterrupted([&] { return waitpid(pid, &status, 0); });
  if (ended != pid || !WIFEXITED(status)) {
    return false;
  }
  exitCode = WEXITSTATUS(status);
  return exitCode == 0;
}

bool StartAndWait(const CChildProgram& program, std::atomic<int32_t>& pid, int32_t& exitCode,
                  bool detach) {
  const pid_t child = program.Start(pid);
  if (child < 0) {
    return false;
  }
  return detach || WaitForEnd(child, exitCode);
}

bool Launch(const CChildProgram& program, std::atomic<int32_t>& pid, int32_t& exitCode,
            const char* workingDirectory, bool detach) {
  exitCode = -1;
  CWorkingDirectory directory;
  if (!directory.Enter(workingDirectory)) {
    pid = -1;
    return false;
  }
  const bool result = StartAndWait(program, pid, exitCode, detach);
  return directory.Leave() && result;
}

}  // namespace

bool LaunchProcess(const char* commandLine, std::atomic<int32_t>& pid, int32_t& exitCode,
                   const char* workingDirectory, bool /*reserved*/, bool detach,
                   bool keepDescriptors) {
  const CChildProgram program(SplitIntoWords(commandLine), keepDescriptors);
  return Launch(program, pid, exitCode, workingDirectory, detach);
}

bool RunProcess(const char* commandLine, const char* workingDirectory, bool reserved,
                bool keepDescriptors) {
  std::atomic<int32_t> pid = -1;
  int32_t exitCode = -1;
  return LaunchProcess(commandLine, pid, exitCode, workingDirectory, reserved, false,
                       keepDescriptors);
}

bool RunProcess(const char* commandLine, std::atomic<int32_t>& pid, int32_t& exitCode,
                const char* workingDirectory, bool reserved, bool keepDescriptors) {
  return LaunchProcess(commandLine, pid, exitCode, workingDirectory, reserved, false,
                       keepDescriptors);
}

bool StartProcess(const char* commandLine, const char* workingDirectory, bool reserved,
                  bool keepDescriptors) {
  std::atomic<int32_t> pid = -1;
  return StartProcess(commandLine, pid, workingDirectory, reserved, keepDescriptors);
}

bool StartProcess(const char* commandLine, std::atomic<int32_t>& pid, const char* workingDirectory,
                  bool reserved, bool keepDescriptors) {
  int32_t exitCode = -1;
  return LaunchProcess(commandLine, pid, exitCode, workingDirectory, reserved, true,
                       keepDescriptors);
}

bool RunProgram(const char* program, std::atomic<int32_t>& pid, int32_t& exitCode,
                const char* workingDirectory, bool /*reserved*/, bool keepDescriptors) {
  const CChildProgram word({program != nullptr ? program : ""}, keepDescriptors);
  return Launch(word, pid, exitCode, workingDirectory, false);
}

bool WaitProcess(int32_t pid, int32_t& exitCode, uint32_t /*timeoutMilliseconds*/) {
  exitCode = -1;
  if (pid < 1) {
    errno = ECHILD;
    return false;
  }
  return WaitForEnd(pid, exitCode);
}

bool WaitForProcessEnd(int32_t pid, uint32_t milliseconds) {
  if (pid < 1) {
    return false;
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    siginfo_t info = {};
    if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
      return false;
    }
    if (info.si_pid == pid) {
      return true;
    }
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(LOOK_INTERVAL);
  }
}

bool KillProcess(int32_t pid, bool /*force*/) {
  if (pid < 1) {
    errno = ESRCH;
    return false;
  }
  return kill(pid, SIGKILL) == 0;
}

bool GetCurrentDirectory(std::string& path) {
  std::array<char, PATH_SIZE> buffer = {};
  if (getcwd(buffer.data(), buffer.size()) == nullptr || buffer.front() == '\0') {
    return false;
  }
  path = buffer.data();
  return true;
}

bool SetCurrentDirectory(const std::string& path) {
  return !path.empty() && chdir(path.c_str()) == 0;
}

bool CWorkingDirectory::Enter(const char* path) {
  if (path == nullptr || *path == '\0') {
    return true;
  }
  std::unique_lock turn(g_oDirectoryTurn);
  auto old = std::make_unique<CDescriptor>(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (old->Get() < 0 || chdir(path) != 0) {
    return false;
  }
  m_oTurn = std::move(turn);
  m_pOld = std::move(old);
  return true;
}

bool CWorkingDirectory::Leave() {
  const std::unique_lock turn = std::move(m_oTurn);
  const std::unique_ptr<CDescriptor> old = std::move(m_pOld);
  return !old || fchdir(old->Get()) == 0;
}
