#include "tests/archive_module/call_faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <type_traits>

namespace {

// A function of the table.
class Hook {
 public:
  explicit Hook(const char* name) : m_strName(name) {}

  std::string_view GetName() const { return m_strName; }

  void Arm(int64_t first, int64_t count, int error) {
    m_nCalls = 0;
    m_nFirst = first;
    m_nCount = count;
    m_nError = error;
  }
  void SetAction(std::function<void()> action) {
    const std::lock_guard guard(m_oLock);
    m_oAction = std::make_shared<std::function<void()>>(std::move(action));
    m_bHasAction = true;
  }
  // True when a call has failed.
  bool Disarm() {
    m_nCount = 0;
    m_bHasAction = false;
    return m_bHasFailed.exchange(false);
  }

  // What each call does first, in a forked child too. True, and errno set, when it is to fail.
  bool Fails() {
    if (m_bHasAction) {
      std::unique_lock lock(m_oLock);
      const auto action = m_oAction;
      lock.unlock();
      (*action)();
    }
    const int64_t count = m_nCount;
    const int64_t number = count > 0 ? m_nCalls++ - m_nFirst : 0;
    if (number < 0 || number >= count) {
      return false;
    }
    m_bHasFailed = true;
    errno = m_nError;
    return true;
  }

  // The address of the function itself; null when the module does not import it.
  void* m_pReal = nullptr;
  // Where the module stores that address.
  std::vector<void**> m_oSlots;

 private:
  const std::string_view m_strName;
  std::atomic<int64_t> m_nCalls = 0;
  std::atomic<int64_t> m_nFirst = 0;
  std::atomic<int64_t> m_nCount = 0;
  std::atomic<int> m_nError = 0;
  std::atomic<bool> m_bHasFailed = false;
  std::atomic<bool> m_bHasAction = false;
  std::mutex m_oLock;
  std::shared_ptr<std::function<void()>> m_oAction;
};

// How a function reports a failure.
enum class Failure {
  MINUS_ONE,       // with errno
  NULL_POINTER,    // with errno
  ERROR_NUMBER,    // its result
  BAD_ALLOC,       // thrown
  DONE_MINUS_ONE,  // as MINUS_ONE, but it is done all the same
};

// A string as a template argument.
template <size_t LENGTH>
struct Name {
  constexpr Name(const char (&name)[LENGTH]) { std::copy_n(name, LENGTH, text); }
  char text[LENGTH];
};

// What replaces a function in the module's table.
template <Name NAME, Failure FAILURE, typename Signature>
struct Stand;

template <Name NAME, Failure FAILURE, typename Result, typename... Arguments>
struct Stand<NAME, FAILURE, Result(Arguments...)> {
  static inline Hook hook{NAME.text};

  static Result CallReal(Arguments... arguments) {
    return reinterpret_cast<Result (*)(Arguments...)>(hook.m_pReal)(arguments...);
  }

  static Result Call(Arguments... arguments) {
    if (!hook.Fails()) {
      return CallReal(arguments...);
    }
    const int error = errno;
    if constexpr (FAILURE == Failure::BAD_ALLOC) {
      throw std::bad_alloc();
    } else if constexpr (FAILURE == Failure::ERROR_NUMBER) {
      return error;
    } else if constexpr (std::is_pointer_v<Result>) {
      return nullptr;
    } else {
      if constexpr (FAILURE == Failure::DONE_MINUS_ONE) {
        CallReal(arguments...);
        errno = error;
      }
      return -1;
    }
  }
};

// The child of vfork() runs on its parent's stack, so the wrapper may do nothing but jump.

Hook g_vfork{"vfork"};

extern "C" {

[[gnu::used]] int VforkFails() { return g_vfork.Fails() ? 1 : 0; }
[[gnu::used]] void* RealVfork() { return g_vfork.m_pReal; }

int StandForVfork();
#if defined(__x86_64__)
asm(R"(
  .text
  .globl StandForVfork
  .type StandForVfork, @function
StandForVfork:
  endbr64
  sub $8, %rsp
  call VforkFails
  test %eax, %eax
  jnz 1f
  call RealVfork
  add $8, %rsp
  jmp *%rax
1:mov $-1, %eax
  add $8, %rsp
  ret
)");
#elif defined(__aarch64__)
asm(R"(
  .text
  .globl StandForVfork
  .type StandForVfork, @function
StandForVfork:
  hint #34  // bti c
  stp x29, x30, [sp, #-16]!
  bl VforkFails
  cbnz w0, 1f
  bl RealVfork
  ldp x29, x30, [sp], #16
  mov x16, x0
  br x16
1:mov w0, #-1
  ldp x29, x30, [sp], #16
  ret
)");
#endif

}  // extern "C"

struct Entry {
  Hook& hook;
  void* stand;
  int error;  // when none is asked for
};

template <Name NAME, Failure FAILURE, typename Signature>
Entry Standing(int error) {
  using TheStand = Stand<NAME, FAILURE, Signature>;
  return {TheStand::hook, reinterpret_cast<void*>(&TheStand::Call), error};
}

std::vector<Entry>& Table() {
  using enum Failure;
  static std::vector<Entry> table = {
      Standing<"open", MINUS_ONE, int(const char*, int, mode_t)>(EMFILE),
      Standing<"openat", MINUS_ONE, int(int, const char*, int, mode_t)>(EMFILE),
      // What a C library may have for calls that make no file.
      Standing<"__open_2", MINUS_ONE, int(const char*, int)>(EMFILE),
      Standing<"__openat_2", MINUS_ONE, int(int, const char*, int)>(EMFILE),
      Standing<"read", MINUS_ONE, ssize_t(int, void*, size_t)>(EIO),
      Standing<"write", MINUS_ONE, ssize_t(int, const void*, size_t)>(ENOSPC),
      Standing<"close", DONE_MINUS_ONE, int(int)>(EIO),
      Standing<"close_range", MINUS_ONE, int(unsigned, unsigned, int)>(ENOSYS),
      Standing<"stat", MINUS_ONE, int(const char*, struct stat*)>(EACCES),
      Standing<"fstat", MINUS_ONE, int(int, struct stat*)>(EIO),
      Standing<"fstatat", MINUS_ONE, int(int, const char*, struct stat*, int)>(EACCES),
      Standing<"readlink", MINUS_ONE, ssize_t(const char*, char*, size_t)>(EACCES),
      Standing<"getcwd", NULL_POINTER, char*(char*, size_t)>(ENOENT),
      Standing<"chdir", MINUS_ONE, int(const char*)>(EACCES),
      Standing<"fchdir", MINUS_ONE, int(int)>(EACCES),
      Standing<"unlink", MINUS_ONE, int(const char*)>(EACCES),
      Standing<"unlinkat", MINUS_ONE, int(int, const char*, int)>(EACCES),
      Standing<"flock", MINUS_ONE, int(int, int)>(ENOLCK),
      Standing<"access", MINUS_ONE, int(const char*, int)>(EACCES),
      Standing<"rmdir", MINUS_ONE, int(const char*)>(EACCES),
      Standing<"fchmod", MINUS_ONE, int(int, mode_t)>(EPERM),
      Standing<"fchmodat", MINUS_ONE, int(int, const char*, mode_t, int)>(EPERM),
      // A change of a mode for which the C library has no function.
      Standing<"syscall", MINUS_ONE, long(long, long, long, long, long, long, long)>(EPERM),
      Standing<"opendir", NULL_POINTER, DIR*(const char*)>(EMFILE),
      Standing<"readdir", NULL_POINTER, dirent*(DIR*)>(EIO),
      Standing<"getdents64", MINUS_ONE, ssize_t(int, void*, size_t)>(EIO),
      Standing<"scandir", MINUS_ONE, int(const char*, dirent***, void*, void*)>(ENOMEM),
      Standing<"sysconf", MINUS_ONE, long(int)>(EINVAL),
      Standing<"fork", MINUS_ONE, pid_t()>(EAGAIN),
      {g_vfork, reinterpret_cast<void*>(&StandForVfork), EAGAIN},
      Standing<"execvp", MINUS_ONE, int(const char*, char* const*)>(EACCES),
      Standing<"waitpid", MINUS_ONE, pid_t(pid_t, int*, int)>(EINTR),
      Standing<"kill", MINUS_ONE, int(pid_t, int)>(EPERM),
      Standing<"sigprocmask", MINUS_ONE, int(int, const sigset_t*, sigset_t*)>(EINVAL),
      Standing<"sigaction", MINUS_ONE, int(int, const struct sigaction*, struct sigaction*)>(
          EINVAL),
      Standing<"pthread_sigmask", ERROR_NUMBER, int(int, const sigset_t*, sigset_t*)>(EINVAL),
      Standing<"pthread_create", ERROR_NUMBER,
               int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(EAGAIN),
      Standing<"pthread_attr_init", ERROR_NUMBER, int(pthread_attr_t*)>(ENOMEM),
      Standing<"pthread_attr_setdetachstate", ERROR_NUMBER, int(pthread_attr_t*, int)>(EINVAL),
      Standing<"pthread_attr_getschedparam", ERROR_NUMBER,
               int(const pthread_attr_t*, sched_param*)>(EINVAL),
      Standing<"pthread_attr_setschedpolicy", ERROR_NUMBER, int(pthread_attr_t*, int)>(ENOTSUP),
      Standing<"pthread_attr_setschedparam", ERROR_NUMBER,
               int(pthread_attr_t*, const sched_param*)>(EINVAL),
      Standing<"pthread_cond_init", ERROR_NUMBER, int(pthread_cond_t*, const pthread_condattr_t*)>(
          ENOMEM),
      Standing<"pthread_condattr_init", ERROR_NUMBER, int(pthread_condattr_t*)>(ENOMEM),
      Standing<"pthread_condattr_setclock", ERROR_NUMBER, int(pthread_condattr_t*, clockid_t)>(
          EINVAL),
      Standing<"pthread_mutex_init", ERROR_NUMBER,
               int(pthread_mutex_t*, const pthread_mutexattr_t*)>(ENOMEM),
      Standing<"malloc", NULL_POINTER, void*(size_t)>(ENOMEM),
      Standing<"realloc", NULL_POINTER, void*(void*, size_t)>(ENOMEM),
      Standing<"_Znwm", BAD_ALLOC, void*(size_t)>(0),
      Standing<"_Znam", BAD_ALLOC, void*(size_t)>(0),
      Standing<"_ZnwmRKSt9nothrow_t", NULL_POINTER, void*(size_t, const std::nothrow_t&)>(0),
      Standing<"time", MINUS_ONE, time_t(time_t*)>(EFAULT),
      Standing<"clock_gettime", MINUS_ONE, int(clockid_t, timespec*)>(EINVAL),
      Standing<"usleep", MINUS_ONE, int(useconds_t)>(EINTR),
      Standing<"nanosleep", MINUS_ONE, int(const timespec*, timespec*)>(EINTR),
  };
  return table;
}

Entry* Find(std::string_view name) {
  const auto found = std::find_if(Table().begin(), Table().end(),
                                  [&](const Entry& entry) { return entry.hook.GetName() == name; });
  return found != Table().end() ? &*found : nullptr;
}

// The tables of a library that the system's loader has read.
struct DynamicSection {
  explicit DynamicSection(const link_map& library) {
    for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
      values[entry->d_tag < DT_NUM ? static_cast<size_t>(entry->d_tag) : 0] = entry->d_un.d_ptr;
    }
  }
  std::array<uintptr_t, DT_NUM> values = {};
};

// The relocations by which the loader stores such an address.
#if defined(__x86_64__)
constexpr unsigned long TO_CALL = R_X86_64_JUMP_SLOT;
constexpr unsigned long TO_LOAD = R_X86_64_GLOB_DAT;
#elif defined(__aarch64__)
constexpr unsigned long TO_CALL = R_AARCH64_JUMP_SLOT;
constexpr unsigned long TO_LOAD = R_AARCH64_GLOB_DAT;
#endif

// Calls `visit` with the name and the place of each address of a function that the library imports.
template <typename Visit>
void ForEachImport(const link_map& library, const Visit& visit) {
  const DynamicSection section(library);
  const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(section.values[DT_SYMTAB]);
  const auto* names = reinterpret_cast<const char*>(section.values[DT_STRTAB]);
  const std::pair<uintptr_t, uintptr_t> tables[] = {
      {section.values[DT_JMPREL], section.values[DT_PLTRELSZ]},
      {section.values[DT_RELA], section.values[DT_RELASZ]}};
  for (const auto& [address, size] : tables) {
    const auto* relocations = reinterpret_cast<const ElfW(Rela)*>(address);
    for (size_t index = 0; index < size / sizeof(ElfW(Rela)); ++index) {
      const auto type = ELF64_R_TYPE(relocations[index].r_info);
      if (type == TO_CALL || type == TO_LOAD) {
        visit(names + symbols[ELF64_R_SYM(relocations[index].r_info)].st_name,
              reinterpret_cast<void**>(library.l_addr + relocations[index].r_offset));
      }
    }
  }
}

// The table may have been made read-only when the library was loaded.
void Store(void** slot, void* address) {
  const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  auto* page = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(slot) & ~(pageSize - 1));
  mprotect(page, pageSize, PROT_READ | PROT_WRITE);
  *slot = address;
}

}  // namespace

CallFaults::CallFaults(void* library) {
  link_map* map = nullptr;
  dlinfo(library, RTLD_DI_LINKMAP, static_cast<void*>(&map));
  ForEachImport(*map, [](const char* name, void** slot) {
    if (Entry* entry = Find(name)) {
      entry->hook.m_pReal = *slot;
      entry->hook.m_oSlots.push_back(slot);
      Store(slot, entry->stand);
    }
  });
}

CallFaults::~CallFaults() {
  Stop();
  for (const Entry& entry : Table()) {
    for (void** slot : entry.hook.m_oSlots) {
      Store(slot, entry.hook.m_pReal);
    }
    entry.hook.m_oSlots.clear();
  }
}

std::vector<std::string> CallFaults::AllNames() {
  std::vector<std::string> names;
  for (const Entry& entry : Table()) {
    names.emplace_back(entry.hook.GetName());
  }
  return names;
}

std::vector<std::string> CallFaults::ImportedNames() const {
  std::vector<std::string> names;
  for (const Entry& entry : Table()) {
    if (!entry.hook.m_oSlots.empty()) {
      names.emplace_back(entry.hook.GetName());
    }
  }
  return names;
}

void CallFaults::Fail(const std::string& name, int64_t first, int64_t count, int error) {
  if (Entry* entry = Find(name)) {
    entry->hook.Arm(first, count, error != 0 ? error : entry->error);
  }
}

void CallFaults::CallAt(const std::string& name, std::function<void()> action) {
  if (Entry* entry = Find(name)) {
    entry->hook.SetAction(std::move(action));
  }
}

bool CallFaults::Stop() {
  bool hasFailed = false;
  for (const Entry& entry : Table()) {
    hasFailed = entry.hook.Disarm() || hasFailed;
  }
  return hasFailed;
}
