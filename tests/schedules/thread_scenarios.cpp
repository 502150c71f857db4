// Threads that are killed or joined while they end, and the re-entrant lock.

#include <unistd.h>

#include "platform/sync/critical_section.h"
#include "platform/sync/event.h"
#include "platform/sync/thread.h"
#include "tests/schedules/scenario.h"

using schedules::Require;
using schedules::Scenario;
using schedules::Thread;

namespace {

// What a thread of the product does, and whether it is gone.
struct Work {
  CEvent* event = nullptr;  // to wait for
  bool hasBegun = false;
  bool hasReturned = false;
  bool isGone = false;
};

void* DoWork(void* argument) {
  auto& work = *static_cast<Work*>(argument);
  struct End {
    bool& isGone;
    ~End() { isGone = true; }
  } end{work.isGone};
  work.hasBegun = true;
  if (work.event != nullptr) {
    work.event->Wait(EVENT_INFINITE);
  }
  work.hasReturned = true;
  return nullptr;
}

bool Start(CThread& thread, Work& work, bool isJoinable) {
  return thread.Start(DoWork, &work, 0, false, 0, 0, isJoinable);
}

// The thread may have ended before; the scheduler reports a cancellation that comes too late.
void KillDetachedThatEnds() {
  Work work;
  CThread thread;
  Require(Start(thread, work, false), "the thread starts");
  Require(thread.Kill(), "a thread that is gone or going counts as killed");
  Require(thread.GetHandle() == 0 && !thread.IsAlive(), "the thread is forgotten");
  schedules::WaitFor([&] { return work.isGone; });
}
const Scenario killDetachedThatEnds("thread-kill-ending", KillDetachedThatEnds);

// Cancelled inside a wait, or before or after it; the event is then free to go.
void KillDetachedThatWaits() {
  CEvent event(false, true);
  Work work;
  work.event = &event;
  CThread thread;
  Require(Start(thread, work, false), "the thread starts");
  schedules::WaitFor([&] { return work.hasBegun; });
  Require(thread.Kill(), "the thread is asked to end");
  event.Set();
  schedules::WaitFor([&] { return work.isGone; });
}
const Scenario killDetachedThatWaits("thread-kill-waiting", KillDetachedThatWaits);

// Only a cancellation ends the wait.
void CancelWait() {
  CEvent event(false, false);
  Work work;
  work.event = &event;
  CThread thread;
  Require(Start(thread, work, false), "the thread starts");
  schedules::WaitFor([&] { return work.hasBegun; });
  Require(thread.Kill(), "the thread is asked to end");
  schedules::WaitFor([&] { return work.isGone; });
  Require(!work.hasReturned, "a cancelled wait does not return");
  Require(event.Create(true, true), "nobody counts as a waiter");
}
const Scenario cancelWait("event-cancel", CancelWait);

// The system may give the id of a thread that has ended to the next one.
void KillSparesTheNextThread() {
  Work work;
  CThread thread;
  Require(Start(thread, work, false), "the thread starts");
  bool isDone = false;
  Thread next("next", [&] {
    usleep(10'000);  // a cancellation would end it here
    isDone = true;
  });
  thread.Kill();
  schedules::WaitFor([&] { return work.isGone; });
  next.Join();
  Require(isDone, "no other thread is killed");
}
const Scenario killSparesTheNextThread("thread-kill-id", KillSparesTheNextThread);

void KillAtRestart() {
  CEvent event(false, true);
  Work first;
  first.event = &event;
  Work second;
  CThread thread(true);
  Require(Start(thread, first, false), "the thread starts");
  Require(Start(thread, second, true), "the next one starts");
  Require(thread.WaitForTermination(CThread::INFINITE_TIME), "it is joined");
  Require(second.hasReturned, "it was not the one killed");
  event.Set();
  schedules::WaitFor([&] { return first.isGone; });
}
const Scenario killAtRestart("thread-restart", KillAtRestart);

void JoinEndingThread() {
  Work work;
  CThread thread;
  Require(Start(thread, work, true), "the thread starts");
  thread.IsAlive();
  Require(thread.Kill(), "the thread is joined");
  Require(work.hasReturned, "a joinable thread is not cancelled");
  Require(thread.WaitForTermination(CThread::INFINITE_TIME), "there is no thread any more");
  Require(!thread.IsAlive(), "and none that lives");
}
const Scenario joinEndingThread("thread-join", JoinEndingThread);

void JoinInSlices() {
  Work work;
  CEvent event(false, true);
  work.event = &event;
  CThread thread;
  Require(Start(thread, work, true), "the thread starts");
  Thread setter("setter", [&] { event.Set(); });
  const bool isJoined = thread.WaitForTermination(
      2000, [](std::chrono::milliseconds waited) { return waited.count() < 30; });
  setter.Join();
  Require(isJoined || thread.WaitForTermination(CThread::INFINITE_TIME), "the thread is joined");
  Require(work.hasReturned, "when it has ended");
}
const Scenario joinInSlices("thread-join-slices", JoinInSlices);

// Acquired twice by each thread; a release by a thread that does not hold it is ignored.
void ReentrantLock() {
  CCriticalSection lock;
  int inside = 0;
  const auto use = [&] {
    lock.Acquire();
    Require(++inside == 1, "one thread holds the lock");
    lock.Acquire();
    schedules::SwitchPoint("hold the lock twice");
    lock.Release();
    schedules::SwitchPoint("hold the lock once");
    Require(inside-- == 1, "the first release keeps the lock");
    lock.Release();
  };
  Thread one("one", use);
  Thread two("two", use);
  lock.Release();
  use();
  lock.Release();
  one.Join();
  two.Join();
}
const Scenario reentrantLock("lock", ReentrantLock);

}  // namespace
