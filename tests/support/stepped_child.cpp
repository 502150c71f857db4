#include "tests/support/stepped_child.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace {

constexpr int SYSTEM_CALL_STOP = SIGTRAP | 0x80;  // as PTRACE_O_TRACESYSGOOD marks it

}  // namespace

SteppedChild::SteppedChild(const std::function<void()>& action) : m_nChild(fork()) {
  if (m_nChild == 0) {
    action();
    _exit(0);
  }
  int status = 0;
  if (m_nChild < 0 || waitpid(m_nChild, &status, 0) != m_nChild || !WIFSTOPPED(status) ||
      ptrace(PTRACE_SETOPTIONS, m_nChild, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
    Kill();
    throw std::runtime_error("the child cannot be traced");
  }
}

SteppedChild::~SteppedChild() { Kill(); }

void SteppedChild::Begin() {
  if (ptrace(PTRACE_TRACEME, 0, 0, 0) == 0) {
    raise(SIGSTOP);
  }
}

bool SteppedChild::Step() {
  while (RunToStop()) {
    __ptrace_syscall_info call = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, m_nChild, sizeof(call), &call);
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
      m_nSystemCall = call.entry.nr;
      std::copy_n(call.entry.args, m_oArguments.size(), m_oArguments.begin());
      return true;
    }
    m_nResult = call.exit.rval;
  }
  return false;
}

// Runs to the next entry or exit of a system call. False when the child has ended.
bool SteppedChild::RunToStop() {
  int status = 0;
  if (ptrace(PTRACE_SYSCALL, m_nChild, 0, 0) != 0 || waitpid(m_nChild, &status, 0) != m_nChild) {
    throw std::runtime_error("the child is lost");
  }
  if (WIFSTOPPED(status) && WSTOPSIG(status) == SYSTEM_CALL_STOP) {
    return true;
  }
  if (!WIFEXITED(status)) {
    throw std::runtime_error("a signal stopped the child");
  }
  m_nExitCode = WEXITSTATUS(status);
  m_nChild = -1;
  return false;
}

uint64_t SteppedChild::ReadWord(uint64_t address) const {
  errno = 0;
  const long word = ptrace(PTRACE_PEEKDATA, m_nChild, address, 0);
  if (errno != 0) {
    throw std::runtime_error("the child's memory cannot be read");
  }
  return static_cast<uint64_t>(word);
}

// Only whole words can be read, which never cross into a page that the child may not have.
std::string SteppedChild::ReadMemory(uint64_t address, size_t size) const {
  std::string bytes;
  const uint64_t offset = address % sizeof(uint64_t);
  for (uint64_t at = address - offset; at < address + size; at += sizeof(uint64_t)) {
    const uint64_t word = ReadWord(at);
    char piece[sizeof(word)];
    std::memcpy(piece, &word, sizeof(word));
    bytes.append(piece, sizeof(word));
  }
  return bytes.substr(offset, size);
}

std::string SteppedChild::ReadText(uint64_t address) const {
  std::string text;
  while (text.find('\0') == std::string::npos) {
    text += ReadMemory(address + text.size(), 1);
  }
  text.pop_back();
  return text;
}

void SteppedChild::Kill() {
  if (m_nChild > 0) {
    kill(m_nChild, SIGKILL);
    waitpid(m_nChild, nullptr, 0);
    m_nChild = -1;
  }
}
