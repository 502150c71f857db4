// Locks and conditions of a schedule, and what is said about a run that fails.

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tests/schedules/memory_watch.h"
#include "tests/schedules/scheduler.h"

const Scheduler::Thread* Scheduler::OwnerOf(const void* mutex) const {
  for (const Owner& owner : m_oOwners) {
    if (owner.mutex == mutex) {
      return owner.owner;
    }
  }
  return nullptr;
}

void Scheduler::SetOwner(const void* mutex, const Thread* thread) {
  for (Owner& owner : m_oOwners) {
    if (owner.mutex == mutex) {
      owner.owner = thread;
      return;
    }
  }
  const QuietScope quiet;
  m_oOwners.push_back({mutex, thread});
}

void Scheduler::Init(const void* object) { SetOwner(object, nullptr); }

void Scheduler::Destroy(const void* object, const char* kind) {
  SwitchPoint("destroy", object);
  if (OwnerOf(object) != nullptr) {
    Fail(std::string("a ") + kind + " is destroyed that is held");
  }
  for (const Thread& thread : m_oThreads) {
    const bool waits = thread.state == State::LOCK || thread.state == State::CONDITION;
    if (waits && (thread.object == object || thread.mutex == object)) {
      Fail(std::string("a ") + kind + " is destroyed that " + thread.name + " waits for");
    }
  }
}

void Scheduler::Lock(const void* mutex) {
  SwitchPoint("lock", mutex);
  if (OwnerOf(mutex) == m_pSelf) {
    Fail("deadlock: " + m_pSelf->name + " locks a lock twice");
  }
  if (OwnerOf(mutex) != nullptr) {
    Block(State::LOCK, mutex, NEVER, "lock");
  }
  SetOwner(mutex, m_pSelf);
}

void Scheduler::Unlock(const void* mutex) {
  if (MemoryWatch::IsFreed(mutex)) {
    Fail("use after free: unlock");
  }
  if (OwnerOf(mutex) != m_pSelf) {
    Fail("a lock is unlocked by " + m_pSelf->name + ", who does not hold it");
  }
  SetOwner(mutex, nullptr);
  SwitchPoint("go on after an unlock", nullptr);
}

// The lock is held again when the thread ends here because it is cancelled.
bool Scheduler::WaitOn(const void* condition, pthread_mutex_t* mutex, int64_t deadline) {
  SwitchPoint("wait on the condition", condition);
  if (OwnerOf(mutex) != m_pSelf) {
    Fail(m_pSelf->name + " waits on a condition without its lock");
  }
  EndSelfWhenCancelled();
  SetOwner(mutex, nullptr);
  m_pSelf->mutex = mutex;
  m_pSelf->isCancellable = true;
  const bool isWoken = Block(State::CONDITION, condition, deadline, "return from the condition");
  m_pSelf->mutex = nullptr;
  SetOwner(mutex, m_pSelf);
  EndSelfWhenCancelled();
  return isWoken;
}

void Scheduler::Wake(const void* condition, bool all) {
  SwitchPoint(all ? "broadcast" : "signal", condition);
  const QuietScope quiet;
  std::vector<Thread*> waiting;
  for (Thread& thread : m_oThreads) {
    if (thread.state == State::CONDITION && thread.object == condition) {
      waiting.push_back(&thread);
    }
  }
  if (!all && !waiting.empty()) {
    // Any of them may be the one.
    waiting = {waiting[Choose(waiting.size())]};
  }
  for (Thread* thread : waiting) {
    thread->state = State::LOCK;
    thread->object = thread->mutex;
    thread->deadline = NEVER;
  }
}

void Scheduler::Fail(const std::string& what) {
  const QuietScope quiet;
  fprintf(stderr, "%s: %s\n%s  schedule: %s:%s\n", m_pScenario, what.c_str(),
          DescribeThreads().c_str(), m_pScenario, m_oChoices.Describe().c_str());
  fflush(nullptr);
  _exit(1);
}

void Scheduler::FailBlocked(const char* why) {
  const bool waits = std::any_of(m_oThreads.begin(), m_oThreads.end(), [](const Thread& thread) {
    return thread.state == State::CONDITION && thread.deadline == NEVER;
  });
  std::string text = waits ? "lost wake-up" : "deadlock";
  if (m_bHasReturned) {
    text = "a thread left behind";
  }
  if (why != nullptr) {
    text += std::string(" (") + why + ")";
  }
  Fail(text);
}

std::string Scheduler::DescribeThreads() const {
  std::string text;
  for (const Thread& thread : m_oThreads) {
    if (thread.state != State::ENDED) {
      text += "  " + thread.name + (&thread == m_pSelf ? " runs: " : ": ") + thread.step + "\n";
    }
  }
  return text;
}

void Scheduler::Tell(const std::string& line) {
  printf("%9.3f s  %-10s %s\n", static_cast<double>(m_nNow - 1'000'000'000'000) / 1e9,
         m_pSelf->name.c_str(), line.c_str());
}
