#include "tests/support/program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

Program::Program(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& argument : command) {
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);

  constexpr int WRITE = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_oFiles.Path("output").c_str(), WRITE,
                                   0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, m_oFiles.Path("errors").c_str(), WRITE,
                                   0600);
  const int error =
      posix_spawn(&m_nPid, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error(command[0] + ": " + std::strerror(error));
  }
}

Program::~Program() {
  if (m_nPid > 0) {
    Signal(SIGKILL);
    Wait();
  }
}

void Program::Signal(int signal) const { kill(m_nPid, signal); }

int Program::Wait() {
  if (m_nPid > 0) {
    int status = 0;
    waitpid(m_nPid, &status, 0);
    m_nPid = 0;
    m_nExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return m_nExitCode;
}
