#include "tests/schedules/scheduler.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "tests/schedules/memory_watch.h"

namespace {

// A run that takes longer has no end.
constexpr int64_t LONGEST_TIME = 600'000'000'000;  // nanoseconds
constexpr int64_t MOST_STEPS = 200'000;

thread_local Scheduler* t_scheduler = nullptr;
thread_local int t_quiet = 0;

// Hides the scheduler for the time of its own work.
using Internal = QuietScope;

}  // namespace

void QuietScope::Begin() noexcept { ++t_quiet; }
void QuietScope::End() noexcept { --t_quiet; }

Scheduler* Scheduler::Current() { return t_quiet == 0 ? t_scheduler : nullptr; }

void Scheduler::FailCrashed() {
  if (t_scheduler != nullptr) {
    t_scheduler->Fail("a crash");
  }
}

Scheduler::Scheduler(Choices& choices, const char* scenario, bool isTold)
    : m_oChoices(choices), m_pScenario(scenario), m_bTold(isTold) {}

Scheduler::~Scheduler() = default;

void Scheduler::Run(const std::function<void()>& body) {
  m_pSelf = &m_oThreads.emplace_back();
  m_pSelf->name = "main";
  m_pSelf->os = &OsThread::OfCaller();
  t_scheduler = this;
  body();
  m_bHasReturned = true;
  BlockUntil([this] { return !HasOtherThreadsLeft(); });
  t_scheduler = nullptr;
  Check();
}

bool Scheduler::HasOtherThreadsLeft() const {
  return std::any_of(m_oThreads.begin() + 1, m_oThreads.end(),
                     [](const Thread& thread) { return thread.state != State::ENDED; });
}

// What must hold at the end of every run.
void Scheduler::Check() {
  for (const Thread& thread : m_oThreads) {
    if (thread.id != 0 && !thread.isDetached && !thread.isJoined) {
      Fail("a thread left behind: " + thread.name + " was never joined");
    }
  }
  for (const Owner& owner : m_oOwners) {
    if (owner.owner != nullptr) {
      Fail("a lock left behind: " + owner.owner->name + " holds it");
    }
  }
  if (const size_t blocks = MemoryWatch::End()) {
    Fail("memory left behind: " + std::to_string(blocks) + " blocks");
  }
}

void Scheduler::SwitchPoint(const char* step, const void* object) {
  const Internal internal;
  if (MemoryWatch::IsFreed(object)) {
    Fail(std::string("use after free: ") + step);
  }
  m_pSelf->step = step;
  HandOver();
}

bool Scheduler::Block(State state, const void* object, int64_t deadline, const char* step) {
  {
    const Internal internal;
    m_pSelf->state = state;
    m_pSelf->object = object;
    m_pSelf->deadline = deadline;
    m_pSelf->hasTimedOut = false;
    m_pSelf->step = step;
    HandOver();
    m_pSelf->deadline = NEVER;
    m_pSelf->isCancellable = false;
  }
  return !m_pSelf->hasTimedOut;
}

bool Scheduler::BlockUntil(std::function<bool()> condition, int64_t deadline) {
  const Internal internal;
  m_pSelf->condition = std::move(condition);
  const bool holds = Block(State::UNTIL, nullptr, deadline, "go on when the others are so far");
  m_pSelf->condition = nullptr;
  return holds;
}

size_t Scheduler::Choose(size_t count) {
  const Internal internal;
  return count < 2 ? 0 : m_oChoices.Choose(std::vector<int>(count, 0));
}

bool Scheduler::IsReady(const Thread& thread) const {
  if (thread.isCancellable && thread.isCancelled && thread.cancelsNow &&
      thread.state != State::LOCK) {
    return true;
  }
  switch (thread.state) {
    case State::READY:
      return true;
    case State::LOCK:
      return OwnerOf(thread.object) == nullptr;
    case State::JOIN:
      return static_cast<const Thread*>(thread.object)->state == State::ENDED;
    case State::UNTIL:
      return thread.condition();
    default:
      return false;
  }
}

// Ends the waits whose time has come. One for a condition then waits for its lock.
void Scheduler::Expire() {
  for (Thread& thread : m_oThreads) {
    const bool isCancelled = thread.state == State::CONDITION && thread.isCancellable &&
                             thread.isCancelled && thread.cancelsNow;
    if (thread.deadline > m_nNow && !isCancelled) {
      continue;
    }
    thread.deadline = NEVER;
    thread.hasTimedOut = !isCancelled;
    if (thread.state == State::CONDITION) {
      thread.state = State::LOCK;
      thread.object = thread.mutex;
    } else if (!isCancelled) {
      thread.state = State::READY;
    }
  }
}

bool Scheduler::JumpToNextDeadline() {
  int64_t next = NEVER;
  for (const Thread& thread : m_oThreads) {
    next = std::min(next, thread.deadline);
  }
  if (next == NEVER) {
    return false;
  }
  m_nNow = std::max(m_nNow, next);
  if (m_nNow > LONGEST_TIME + 1'000'000'000'000) {
    FailBlocked("no end in ten minutes");
  }
  return true;
}

// Who goes on; makes it ready. The order of the alternatives depends on nothing but the choices
// before.
Scheduler::Thread* Scheduler::ChooseNext() {
  if (++m_nSteps > MOST_STEPS) {
    FailBlocked("no end after 200,000 steps");
  }
  for (;;) {
    Expire();
    m_oAlternatives.clear();
    m_oCosts.clear();
    const bool canGoOn = IsReady(*m_pSelf) && m_pSelf->state == State::READY;
    if (canGoOn) {
      m_oAlternatives.push_back(m_pSelf);
      m_oCosts.push_back(0);
    }
    for (Thread& thread : m_oThreads) {
      if (!(canGoOn && &thread == m_pSelf) && IsReady(thread)) {
        m_oAlternatives.push_back(&thread);
        m_oCosts.push_back(canGoOn ? 1 : 0);
      }
    }
    if (!m_oAlternatives.empty()) {
      break;
    }
    if (!JumpToNextDeadline()) {
      FailBlocked(nullptr);
    }
  }
  for (Thread& thread : m_oThreads) {
    const bool canExpire = thread.state != State::CONDITION || OwnerOf(thread.mutex) == nullptr;
    if (thread.deadline != NEVER && canExpire && !IsReady(thread)) {
      m_oAlternatives.push_back(&thread);
      m_oCosts.push_back(1);
    }
  }
  Thread* next = m_oAlternatives.front();
  if (m_oAlternatives.size() > 1) {
    next = m_oAlternatives[m_oChoices.Choose(m_oCosts)];
  }
  if (next->deadline != NEVER && !IsReady(*next)) {
    m_nNow = std::max(m_nNow, next->deadline);
    Expire();
  }
  return next;
}

void Scheduler::HandOver() {
  Thread& self = *m_pSelf;
  Thread& next = *ChooseNext();
  next.state = State::READY;
  if (&next == &self) {
    return;
  }
  m_pSelf = &next;
  if (m_bTold) {
    Tell(std::string("---- goes on with: ") + next.step);
  }
  next.os->GoOn();
  self.os->Wait();
}

Scheduler::Thread& Scheduler::Spawn(const std::string& name, std::function<void*()> body,
                                    bool isDetached) {
  const Internal internal;
  struct Work {
    Scheduler* scheduler;
    Thread* thread;
    std::function<void*()> body;
  };
  Thread& thread = m_oThreads.emplace_back();
  thread.id = static_cast<int>(m_oThreads.size()) - 1;
  thread.name = name.empty() ? "thread " + std::to_string(thread.id) : name;
  thread.isDetached = isDetached;
  thread.step = "begin";
  thread.os = &OsThread::Take();
  thread.os->SetWork(
      [](void* argument) {
        Work work = std::move(*static_cast<Work*>(argument));
        delete static_cast<Work*>(argument);
        // Also runs when the thread is cancelled.
        struct End {
          Work& work;
          bool isReturning = false;
          ~End() {
            work.body = nullptr;
            Thread& ended = *work.thread;
            if (!isReturning) {
              ended.os = nullptr;
            }
            work.scheduler->EndThread(ended);
          }
        };
        t_scheduler = work.scheduler;
        End end{work};
        work.thread->exitValue = work.body();
        end.isReturning = true;
      },
      new Work{this, &thread, std::move(body)});
  return thread;
}

void Scheduler::EndThread(Thread& thread) {
  const Internal internal;
  t_scheduler = nullptr;
  thread.state = State::ENDED;
  thread.deadline = NEVER;
  if (thread.isDetached && thread.os != nullptr) {
    thread.os->GiveBack();
  }
  Thread& next = *ChooseNext();
  next.state = State::READY;
  m_pSelf = &next;
  if (m_bTold) {
    Tell(std::string("---- goes on with: ") + next.step);
  }
  next.os->GoOn();
}

Scheduler::Thread* Scheduler::Find(pthread_t handle) {
  for (Thread& thread : m_oThreads) {
    const bool isGone = thread.isJoined || (thread.isDetached && thread.state == State::ENDED);
    if (!isGone && thread.os != nullptr && pthread_equal(thread.os->GetHandle(), handle) != 0) {
      return &thread;
    }
  }
  return nullptr;
}

void Scheduler::Join(Thread& thread) {
  const Internal internal;
  thread.isJoined = true;
  if (thread.os != nullptr) {
    thread.os->GiveBack();
  }
}

void Scheduler::Cancel(Thread& thread) { thread.isCancelled = true; }

void Scheduler::EndSelfWhenCancelled() {
  if (m_pSelf->isCancelled && m_pSelf->cancelsNow) {
    m_pSelf->cancelsNow = false;
    pthread_exit(PTHREAD_CANCELED);
  }
}
