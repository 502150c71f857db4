#include "tests/support/fault_plan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace {

FaultPlan* g_pPlan = nullptr;
int g_nExchangeError = 0;

template <typename Call>
auto Watched(const char* name, const Call& call) -> decltype(call()) {
  bool isMade = true;
  if (g_pPlan == nullptr || g_pPlan->Enter(name, isMade)) {
    return call();
  }
  if (isMade) {
    const int error = errno;
    call();
    errno = error;
  }
  return -1;
}

}  // namespace

FaultPlan::FaultPlan(int error, Decide decide) : m_decide(std::move(decide)), m_nError(error) {
  g_pPlan = this;
}

FaultPlan::~FaultPlan() { g_pPlan = nullptr; }

bool FaultPlan::Enter(const char* name, bool& isMade) {
  const size_t index = m_calls.size();
  m_calls.emplace_back(name);
  const Outcome outcome = m_decide(index, name);
  isMade = outcome != Outcome::FAILED;
  errno = outcome == Outcome::DONE ? errno : m_nError;
  return outcome == Outcome::DONE;
}

size_t FaultPlan::GetWriteLength(size_t length) const {
  return m_bByteByByte ? std::min<size_t>(length, 1) : length;
}

void RefuseExchange(int error) { g_nExchangeError = error; }

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_open(const char* path, int flags, ...);
int __real_close(int descriptor);
ssize_t __real_write(int descriptor, const void* bytes, size_t length);
int __real_fchmod(int descriptor, mode_t mode);
int __real_fsync(int descriptor);
int __real_stat(const char* path, struct stat* status);
int __real_fstat(int descriptor, struct stat* status);
int __real_rename(const char* from, const char* to);
int __real_renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                     unsigned int flags);
int __real_unlink(const char* path);

int __wrap_open(const char* path, int flags, mode_t mode) {
  return Watched("open", [&] { return __real_open(path, flags, mode); });
}

// A failed close closes all the same.
int __wrap_close(int descriptor) {
  const int result = __real_close(descriptor);
  return Watched("close", [&] { return result; });
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t length) {
  return Watched("write", [&] {
    return __real_write(descriptor, bytes,
                        g_pPlan != nullptr ? g_pPlan->GetWriteLength(length) : length);
  });
}

int __wrap_fchmod(int descriptor, mode_t mode) {
  return Watched("fchmod", [&] { return __real_fchmod(descriptor, mode); });
}

int __wrap_fsync(int descriptor) {
  return Watched("fsync", [&] { return __real_fsync(descriptor); });
}

int __wrap_stat(const char* path, struct stat* status) {
  return Watched("stat", [&] { return __real_stat(path, status); });
}

int __wrap_fstat(int descriptor, struct stat* status) {
  return Watched("fstat", [&] { return __real_fstat(descriptor, status); });
}

int __wrap_rename(const char* from, const char* to) {
  return Watched("rename", [&] { return __real_rename(from, to); });
}

int __wrap_renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                     unsigned int flags) {
  if (g_nExchangeError != 0) {
    errno = g_nExchangeError;
    return -1;
  }
  return Watched("renameat2",
                 [&] { return __real_renameat2(fromDirectory, from, toDirectory, to, flags); });
}

int __wrap_unlink(const char* path) {
  return Watched("unlink", [&] { return __real_unlink(path); });
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
