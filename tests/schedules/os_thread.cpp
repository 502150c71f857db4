#include "tests/schedules/os_thread.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "tests/support/system_calls.h"

namespace {

std::vector<OsThread*>& Idle() {
  static auto& idle = *new std::vector<OsThread*>;
  return idle;
}

long Futex(std::atomic<int>& word, int operation, int value) {
  return calls::syscall.Real(SYS_futex, reinterpret_cast<long>(&word), operation, value, 0, 0, 0);
}

}  // namespace

OsThread& OsThread::Take() {
  if (!Idle().empty()) {
    OsThread& thread = *Idle().back();
    Idle().pop_back();
    return thread;
  }
  auto& thread = *new OsThread;
  pthread_attr_t attribute;
  pthread_attr_init(&attribute);
  pthread_attr_setdetachstate(&attribute, PTHREAD_CREATE_DETACHED);
  if (calls::pthread_create.Real(&thread.m_nHandle, &attribute, &OsThread::Run, &thread) != 0) {
    abort();
  }
  pthread_attr_destroy(&attribute);
  return thread;
}

OsThread& OsThread::OfCaller() {
  static auto& thread = *new OsThread;
  thread.m_nHandle = pthread_self();
  return thread;
}

void OsThread::GiveBack() { Idle().push_back(this); }

void OsThread::GoOn() {
  m_nBaton.store(1);
  Futex(m_nBaton, FUTEX_WAKE_PRIVATE, 1);
}

void OsThread::Wait() {
  while (m_nBaton.exchange(0) == 0) {
    Futex(m_nBaton, FUTEX_WAIT_PRIVATE, 0);
  }
}

void* OsThread::Run(void* thread) {
  auto& self = *static_cast<OsThread*>(thread);
  for (;;) {
    self.Wait();
    self.m_fnWork(self.m_pArgument);
  }
}
