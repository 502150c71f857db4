#include "platform/process/child_program.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <string_view>
#include <utility>

#include "base/descriptor.h"
#include "base/white_space.h"

namespace {

constexpr uint32_t FIRST_DESCRIPTOR = 3;  // after standard input, output and error
constexpr int CANNOT_EXECUTE = 255;       // exit status

// Keeps signal handlers and cancellation from the calling thread for the life of the object.
class UndisturbedThread {
 public:
  UndisturbedThread() noexcept {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nCancelState);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_oBlocked);
  }
  ~UndisturbedThread() {
    pthread_sigmask(SIG_SETMASK, &m_oBlocked, nullptr);
    pthread_setcancelstate(m_nCancelState, nullptr);
  }
  UndisturbedThread(const UndisturbedThread&) = delete;
  UndisturbedThread& operator=(const UndisturbedThread&) = delete;

  // The signals that the thread itself blocks.
  const sigset_t& GetBlocked() const { return m_oBlocked; }

 private:
  sigset_t m_oBlocked = {};
  int m_nCancelState = PTHREAD_CANCEL_ENABLE;
};

// Unblocks signals that a host blocks in its worker threads: the program would inherit the mask.
sigset_t BlockedInChild(sigset_t blocked) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) {
    sigdelset(&blocked, signal);
  }
  return blocked;
}

// Resets the host's signal handlers, as exec() does, but before signals are unblocked: a handler
// would run in the host's memory.
void ResetHandlers() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
        action.sa_handler != SIG_DFL) {
      action = {};
      sigaction(signal, &action, nullptr);
    }
  }
}

// Done by the child, because its parent's thread is suspended until exec() succeeds, which can take
// long. In a PID namespace of its own, where getppid() returns 0, the child does not know the id
// that the parent needs.
void PublishId(std::atomic<int32_t>& pid) {
  if (getppid() != 0) {
    pid = getpid();
  }
}

constexpr long SMALLEST_LIMIT = 256;
constexpr uint32_t DEFAULT_LIMIT = 1024;

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// The number that an entry of "/proc/self/fd" is named after. False for "." and "..".
bool ParseDescriptor(const char* name, uint32_t& descriptor) {
  if (!IsDigit(*name)) {
    return false;
  }
  descriptor = 0;
  for (; IsDigit(*name); ++name) {
    descriptor = descriptor * 10 + static_cast<uint32_t>(*name - '0');
  }
  return true;
}

void CloseNamed(const dirent64& entry, uint32_t first, int listing) {
  uint32_t descriptor = 0;
  if (ParseDescriptor(entry.d_name, descriptor) && descriptor >= first &&
      static_cast<int>(descriptor) != listing) {
    close(static_cast<int>(descriptor));
  }
}

// Closes what "/proc/self/fd" lists. False when it cannot be listed. Not with readdir(): it
// allocates, which a child must not do before exec().
bool CloseListed(uint32_t first) {
  const CDescriptor listing(open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  alignas(dirent64) char block[4096];
  for (;;) {
    const ssize_t length = getdents64(listing.Get(), block, sizeof block);
    if (length <= 0) {
      return length == 0;
    }
    for (ssize_t offset = 0; offset < length;) {
      const auto& entry = *reinterpret_cast<const dirent64*>(block + offset);
      CloseNamed(entry, first, listing.Get());
      offset += entry.d_reclen;
    }
  }
}

}  // namespace

CChildProgram::CChildProgram(std::vector<std::string> words, bool keepDescriptors)
    : m_oWords(std::move(words)),
      m_pProgram(m_oWords.empty() ? "" : m_oWords.front().c_str()),
      m_bKeepDescriptors(keepDescriptors),
      m_nDescriptorLimit(GetDescriptorLimit()) {
  for (std::string& word : m_oWords) {
    m_oArguments.push_back(word.data());
  }
  m_oArguments.push_back(nullptr);
}

pid_t CChildProgram::Start(std::atomic<int32_t>& pid) const noexcept {
  const UndisturbedThread undisturbed;
  const sigset_t blocked = BlockedInChild(undisturbed.GetBlocked());
  // Not posix_spawn(): when the program cannot be executed it fails, and no child ends with 255.
  // NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)
  pid_t child = vfork();
  if (child == 0) {
    Execute(blocked, pid);
  }
  // NOLINTEND(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)
  if (child < 0) {
    // Where the system refuses to share memory.
    child = fork();
    if (child == 0) {
      Execute(blocked, pid);
    }
  }
  pid = child;
  return child;
}

// The child's side, in the memory of the parent: makes only async-signal-safe calls and changes
// nothing but `pid`.
void CChildProgram::Execute(const sigset_t& blocked, std::atomic<int32_t>& pid) const noexcept {
  PublishId(pid);
  ResetHandlers();
  if (!m_bKeepDescriptors) {
    CloseDescriptors(FIRST_DESCRIPTOR, m_nDescriptorLimit);
  }
  sigprocmask(SIG_SETMASK, &blocked, nullptr);
  // glibc's search of PATH neither allocates nor locks.
  execvp(m_pProgram, m_oArguments.data());
  _exit(CANNOT_EXECUTE);
}

std::vector<std::string> SplitIntoWords(const char* commandLine) {
  std::vector<std::string> words;
  std::string_view rest(commandLine != nullptr ? commandLine : "");
  for (;;) {
    const size_t begin = rest.find_first_not_of(WHITE_SPACE);
    if (begin == std::string_view::npos) {
      return words;
    }
    rest.remove_prefix(begin);
    const std::string_view word = rest.substr(0, rest.find_first_of(WHITE_SPACE));
    words.emplace_back(word);
    rest.remove_prefix(word.size());
  }
}

uint32_t GetDescriptorLimit() {
  const long limit = sysconf(_SC_OPEN_MAX);
  return limit < SMALLEST_LIMIT ? DEFAULT_LIMIT
                                : static_cast<uint32_t>(std::min<long>(limit, INT_MAX));
}

void CloseDescriptors(uint32_t first, uint32_t limit) noexcept {
  if (close_range(first, UINT_MAX, 0) == 0 || CloseListed(first)) {
    return;
  }
  for (uint32_t descriptor = first; descriptor < limit; ++descriptor) {
    close(static_cast<int>(descriptor));
  }
}
