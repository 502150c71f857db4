#include "host/execution_probe.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "base/descriptor.h"
#include "base/retry.h"

namespace {

// The child's side: a traced process stops when it executes a program. Reports why it does not.
[[noreturn]] void Execute(const char* program, int report) {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
    const std::array<char*, 2> arguments = {const_cast<char*>(program), nullptr};
    execvp(program, arguments.data());
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(report, &error, sizeof(error));
  }
  _exit(0);
}

}  // namespace

int ProbeExecution(const std::string& program) {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return 0;
  }
  const CDescriptor reader(ends[0]);
  CDescriptor writer(ends[1]);
  const pid_t child = fork();
  if (child == 0) {
    Execute(program.c_str(), writer.Get());
  }
  writer.Close();
  int error = 0;
  if (child < 0 || read(reader.Get(), &error, sizeof(error)) != sizeof(error)) {
    error = 0;
  }
  if (child > 0) {
    kill(child, SIGKILL);
    int status = 0;
    do {
      RetryInterrupted([&] { return waitpid(child, &status, 0); });
    } while (WIFSTOPPED(status));
  }
  return error;
}
