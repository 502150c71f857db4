#include "host/program_output.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/descriptor.h"
#include "base/retry.h"
#include "host/host_error.h"

namespace {

constexpr size_t OUTPUT_BLOCK_SIZE = 4096;

[[noreturn]] void ThrowCannotRun(const std::string& program, const std::string& reason) {
  throw CHostError(EX_OSERR, program + " cannot be run (" + reason +
                                 "): install the package em-talvor again, with what it needs.");
}

class CSpawnActions {
 public:
  CSpawnActions() { posix_spawn_file_actions_init(&m_oActions); }
  ~CSpawnActions() { posix_spawn_file_actions_destroy(&m_oActions); }
  CSpawnActions(const CSpawnActions&) = delete;
  CSpawnActions& operator=(const CSpawnActions&) = delete;

  posix_spawn_file_actions_t* Get() { return &m_oActions; }

 private:
  posix_spawn_file_actions_t m_oActions = {};
};

}  // namespace

std::string ProgramOutput(std::vector<std::string> command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& word : command) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    ThrowCannotRun(command.front(), strerror(errno));
  }
  const CDescriptor reading(ends[0]);
  CSpawnActions actions;
  posix_spawn_file_actions_adddup2(actions.Get(), ends[1], STDOUT_FILENO);
  pid_t child = 0;
  int error = 0;
  {
    const CDescriptor writing(ends[1]);
    error = posix_spawnp(&child, command.front().c_str(), actions.Get(), nullptr, arguments.data(),
                         environ);
  }
  if (error != 0) {
    ThrowCannotRun(command.front(), strerror(error));
  }
  std::string output;
  std::array<char, OUTPUT_BLOCK_SIZE> block;
  for (;;) {
    const ssize_t count =
        RetryInterrupted([&] { return read(reading.Get(), block.data(), block.size()); });
    if (count <= 0) {
      break;
    }
    output.append(block.data(), static_cast<size_t>(count));
  }
  int status = 0;
  RetryInterrupted([&] { return waitpid(child, &status, 0); });
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    ThrowCannotRun(command.front(), "it fails");
  }
  return output;
}
