#include "tests/support/system_calls.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <vector>

thread_local AnswerFrame* AnswerFrame::s_pInner = nullptr;

bool AnswerFrame::IsWithin(const void* call) {
  for (const AnswerFrame* frame = s_pInner; frame != nullptr; frame = frame->m_pOuter) {
    if (frame->m_pCall == call) {
      return true;
    }
  }
  return false;
}

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names

// The parameters and arguments of a function, by their number.
#define PARAMETERS_0()
#define PARAMETERS_1(A) A a
#define PARAMETERS_2(A, B) PARAMETERS_1(A), B b
#define PARAMETERS_3(A, B, C) PARAMETERS_2(A, B), C c
#define PARAMETERS_4(A, B, C, D) PARAMETERS_3(A, B, C), D d
#define PARAMETERS_5(A, B, C, D, E) PARAMETERS_4(A, B, C, D), E e
#define PARAMETERS_7(A, B, C, D, E, F, G) PARAMETERS_5(A, B, C, D, E), F f, G g
#define ARGUMENTS_0
#define ARGUMENTS_1 a
#define ARGUMENTS_2 ARGUMENTS_1, b
#define ARGUMENTS_3 ARGUMENTS_2, c
#define ARGUMENTS_4 ARGUMENTS_3, d
#define ARGUMENTS_5 ARGUMENTS_4, e
#define ARGUMENTS_7 ARGUMENTS_5, f, g

// Variadic functions are called with all the arguments that they can take.
#define DEFINE(count, failure, Result, name, ...)                                         \
  extern "C" Result __real_##name(__VA_ARGS__);                                           \
  constinit SystemCall<Result(__VA_ARGS__)> calls::name(Failure::failure, __real_##name); \
  extern "C" Result __wrap_##name(PARAMETERS_##count(__VA_ARGS__)) {                      \
    return calls::name(ARGUMENTS_##count);                                                \
  }
EM_TALVOR_SYSTEM_CALLS(DEFINE)

extern "C" {

void __real_openlog(const char* name, int options, int facility);
void __real_vsyslog(int priority, const char* format, va_list arguments);
void __real_closelog();

void __wrap_openlog(const char* name, int options, int facility) {
  calls::openlog(name, options, facility);
}
void __wrap_closelog() { calls::closelog(); }
void __wrap_vsyslog(int priority, const char* format, va_list arguments);
}

namespace {

[[gnu::format(printf, 2, 3)]] void WriteFormatted(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  __real_vsyslog(priority, format, arguments);
  va_end(arguments);
}

void WriteEntry(int priority, const char* entry) { WriteFormatted(priority, "%s", entry); }

}  // namespace

constinit SystemCall<void(const char*, int, int)> calls::openlog(Failure::ERRNO, __real_openlog);
constinit SystemCall<void(int, const char*)> calls::syslog(Failure::ERRNO, WriteEntry);
constinit SystemCall<void()> calls::closelog(Failure::ERRNO, __real_closelog);

// The forms that take a list of arguments and those that a fortified build calls.
extern "C" {

[[gnu::format(printf, 2, 0)]] void __wrap_vsyslog(int priority, const char* format,
                                                  va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  const int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::vector<char> entry(static_cast<size_t>(length < 0 ? 0 : length) + 1);
  vsnprintf(entry.data(), entry.size(), format, arguments);
  calls::syslog(priority, entry.data());
}

[[gnu::format(printf, 3, 0)]] void __wrap___vsyslog_chk(int priority, int /*flag*/,
                                                        const char* format, va_list arguments) {
  __wrap_vsyslog(priority, format, arguments);
}

[[gnu::format(printf, 2, 3)]] void __wrap_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  __wrap_vsyslog(priority, format, arguments);
  va_end(arguments);
}

[[gnu::format(printf, 3, 4)]] void __wrap___syslog_chk(int priority, int /*flag*/,
                                                       const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  __wrap_vsyslog(priority, format, arguments);
  va_end(arguments);
}

int __real___open_2(const char* path, int flags);
int __wrap___open_2(const char* path, int flags) {
  return calls::open.IsAnswered() ? calls::open(path, flags, 0) : __real___open_2(path, flags);
}

int __real___openat_2(int directory, const char* path, int flags);
int __wrap___openat_2(int directory, const char* path, int flags) {
  return calls::openat.IsAnswered() ? calls::openat(directory, path, flags, 0)
                                    : __real___openat_2(directory, path, flags);
}

ssize_t __real___read_chk(int descriptor, void* buffer, size_t size, size_t room);
ssize_t __wrap___read_chk(int descriptor, void* buffer, size_t size, size_t room) {
  return calls::read.IsAnswered() ? calls::read(descriptor, buffer, size)
                                  : __real___read_chk(descriptor, buffer, size, room);
}

ssize_t __real___pread_chk(int descriptor, void* buffer, size_t size, off_t offset, size_t room);
ssize_t __wrap___pread_chk(int descriptor, void* buffer, size_t size, off_t offset, size_t room) {
  return calls::pread.IsAnswered() ? calls::pread(descriptor, buffer, size, offset)
                                   : __real___pread_chk(descriptor, buffer, size, offset, room);
}

ssize_t __real___readlink_chk(const char* path, char* buffer, size_t size, size_t room);
ssize_t __wrap___readlink_chk(const char* path, char* buffer, size_t size, size_t room) {
  return calls::readlink.IsAnswered() ? calls::readlink(path, buffer, size)
                                      : __real___readlink_chk(path, buffer, size, room);
}

char* __real___getcwd_chk(char* buffer, size_t size, size_t room);
char* __wrap___getcwd_chk(char* buffer, size_t size, size_t room) {
  return calls::getcwd.IsAnswered() ? calls::getcwd(buffer, size)
                                    : __real___getcwd_chk(buffer, size, room);
}

// The error with which vfork() fails, or 0.
std::atomic<int> g_nVforkError = 0;

pid_t AnswerVfork() {
  errno = g_nVforkError;
  return -1;
}

}  // extern "C"

// Jumps, so that neither of the two returns of vfork() goes through a stack frame of this program.
#if defined(__x86_64__)
asm(".text\n"
    ".globl __wrap_vfork\n"
    ".type __wrap_vfork, @function\n"
    "__wrap_vfork:\n"
    "  endbr64\n"
    "  cmpl $0, g_nVforkError(%rip)\n"
    "  jne AnswerVfork\n"
    "  jmp __real_vfork@PLT\n"
    ".size __wrap_vfork, .-__wrap_vfork\n");
#elif defined(__aarch64__)
asm(".text\n"
    ".globl __wrap_vfork\n"
    ".type __wrap_vfork, @function\n"
    "__wrap_vfork:\n"
    "  adrp x9, g_nVforkError\n"
    "  ldr w9, [x9, :lo12:g_nVforkError]\n"
    "  cbnz w9, AnswerVfork\n"
    "  b __real_vfork\n"
    ".size __wrap_vfork, .-__wrap_vfork\n");
#endif

ScopedAnswer calls::RefuseVfork(int error) {
  g_nVforkError = error;
  return {std::make_shared<std::atomic<int>>(0), [] { g_nVforkError = 0; }};
}

// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
