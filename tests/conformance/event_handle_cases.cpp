// Names and handles of events. What ends a handle is its destruction; Close() does more.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>

#include "tests/conformance/conformance.h"
#include "tests/conformance/event_answers.h"

namespace {

constexpr char NO_OPENING[] = "an event is opened by creating it again";
constexpr char TRACED_ONLY[] = "a creation tells its success only; the trace has the rest";
constexpr char ANY_NAME[] = "a name is any string and has no directories";
constexpr char IN_ONE_PROCESS[] = "events live in the memory of one process";
constexpr char CLOSE_SIGNALS[] = "Close() signals the event, so that its waiters leave";
constexpr char COPY_IS_OPEN[] = "a copy is open whatever its original is";
constexpr char END_WAITS[] =
    "the last handle waits, looking once a second, until nobody is inside a wait";

std::string YesOrNo(bool answer) { return answer ? "yes" : "no"; }

std::string SetThroughAnother(const char* name, const char* otherName) {
  CEvent event(false, false, name);
  CEvent other(false, false, otherName);
  other.Set();
  return WaitResult(event);
}

// The waits through a second creation, which asks for something else.
std::string CreateAgain(bool isSignalled, bool isManual, bool nextSignalled, bool nextManual) {
  const CEvent event(isSignalled, isManual, "name");
  CEvent next(nextSignalled, nextManual, "name");
  return WaitResults(next, 2);
}

std::string ToldThatItExists() {
  const CEvent event(false, false, "name");
  const TraceSession session(3);
  const CEvent next(false, false, "name");
  return session.Count("refCount for event %p <%s> incremented (IsSignaled=%d)\n") == 1
             ? "told in the trace"
             : "not told";
}

std::string FreshAfterTheLastHandle() {
  { const CEvent event(true, true, "name"); }
  CEvent next(false, false, "name");
  const std::string fresh = WaitResult(next);
  next.Set();
  return fresh + ", " + WaitResults(next, 2);
}

std::string KeptByAnotherHandle() {
  auto event = std::make_unique<CEvent>(true, true, "name");
  const CEvent other(false, false, "name");
  event.reset();
  CEvent next(false, false, "name");
  return WaitResults(next, 2);
}

std::string KeptByACopy() {
  auto event = std::make_unique<CEvent>(true, true, "name");
  const CEvent copy(*event);  // NOLINT(performance-unnecessary-copy-initialization)
  event.reset();
  CEvent next(false, false, "name");
  return WaitResults(next, 2);
}

std::string SetInAnotherProcess() {
  CEvent event(false, false, "name");
  const pid_t child = fork();
  if (child == 0) {
    CEvent(false, false, "name").Set();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  return WaitResult(event);
}

std::string SetThroughACopy() {
  CEvent event(false, false);
  CEvent copy(event);
  copy.Set();
  return WaitResult(event);
}

std::string CopyOfAClosedHandle() {
  CEvent event(false, true);
  event.Close();
  CEvent copy(event);
  return copy.Set() ? "open" : "refused";
}

// An operation through a handle that was closed.
std::function<std::string()> OnClosed(bool (CEvent::*operation)()) {
  return [operation] {
    CEvent event(false, true);
    event.Close();
    return YesOrNo((event.*operation)());
  };
}

std::string WaitOnClosed(uint32_t milliseconds) {
  CEvent event(true, true);
  event.Close();
  return WaitResult(event, milliseconds);
}

// What the other handle finds after one was closed.
std::string StateAfterClose(bool isManual) {
  CEvent event(false, isManual);
  CEvent other(event);
  event.Close();
  return WaitResult(other);
}

std::string StateAfterDestruction(bool isSignalled) {
  auto event = std::make_unique<CEvent>(isSignalled, true);
  CEvent other(*event);
  event.reset();
  return WaitResult(other);
}

std::string SetThroughTheOther(bool isClosed) {
  auto event = std::make_unique<CEvent>(false, false);
  CEvent other(*event);
  if (isClosed) {
    event->Close();
    other.Reset();
  } else {
    event.reset();
  }
  other.Set();
  return WaitResults(other, 2);
}

// If the end of the other handle released the thread, the signal that follows would find nobody and
// stay.
std::string WaitWhileAnotherGoes() {
  CEvent event(false, false);
  std::optional<CEvent> other(event);
  EventWaiters waiters;
  waiters.Start(event, 1);
  other.reset();
  event.Set();
  waiters.Join();
  return WaitResult(event) == "time-out" ? "goes on waiting" : "released";
}

std::string WaitWhileAnotherIsClosed() {
  CEvent event(false, false);
  CEvent other(event);
  EventWaiters waiters;
  waiters.Start(event, 1);
  other.Close();
  const bool isReleased = waiters.WaitForReleased(1);
  event.Set();
  waiters.Join();
  return isReleased ? "released" : "goes on waiting";
}

struct DestroyedWhileWaitedFor {
  std::string result;        // of the wait
  bool isWaitedFor = false;  // by the destruction
};

// The wait ends, with a time-out, when the destruction has found it: it cannot end before.
DestroyedWhileWaitedFor DestroyWhileWaitedFor() {
  struct Shared {
    std::atomic<bool> blocked = false;
    std::atomic<bool> found = false;
  };
  const auto shared = std::make_shared<Shared>();
  const auto sleep = calls::sleep.Answer([shared](unsigned) {
    shared->found = true;
    return 0U;
  });
  const auto wait = calls::pthread_cond_timedwait.Answer(
      [shared](pthread_cond_t*, pthread_mutex_t* mutex, const timespec*) {
        pthread_mutex_unlock(mutex);
        shared->blocked = true;
        WaitUntil([&] { return shared->found.load(); });
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
      });
  std::optional<CEvent> event(std::in_place, false, true);
  DestroyedWhileWaitedFor answer;
  std::thread waiter([&] { answer.result = WaitResult(*event, 100'000); });
  WaitUntil([&] { return shared->blocked.load(); });
  event.reset();
  waiter.join();
  answer.isWaitedFor = shared->found;
  return answer;
}

}  // namespace

ConformanceCases EventHandleCases() {
  return {
      {"name of an existing event, set through the second handle",
       [] { return SetThroughAnother("name", "name"); }, "signalled"},
      {"name of an existing event, other state asked for",
       [] { return CreateAgain(false, false, true, false); }, "time-out, time-out"},
      {"name of an existing event, which is signalled",
       [] { return CreateAgain(true, false, false, false); }, "signalled, time-out"},
      {"name of an existing manual event, auto asked for",
       [] { return CreateAgain(true, true, true, false); }, "signalled, signalled"},
      {"name of an existing auto event, manual asked for",
       [] { return CreateAgain(true, false, true, true); }, "signalled, time-out"},
      {"name of an existing event, does the creation tell", &ToldThatItExists,
       "told as the last error", Deliberate{"told in the trace", TRACED_ONLY}},
      {"name in other case", [] { return SetThroughAnother("name", "NAME"); }, "time-out"},
      {"name that only begins so", [] { return SetThroughAnother("name", "name2"); }, "time-out"},
      {"names null", [] { return SetThroughAnother(nullptr, nullptr); }, "time-out"},
      {"name with a backslash that ends no prefix",
       [] { return CEvent(false, false, "a\\b").IsEmpty() ? "refused" : "created"; }, "refused",
       Deliberate{"created", ANY_NAME}},
      {"name that is not there, opened",
       [] { return CEvent(false, false, "name").IsEmpty() ? "failure" : "a new event"; }, "failure",
       Deliberate{"a new event", NO_OPENING}},
      {"name after the last handle has gone, created otherwise", &FreshAfterTheLastHandle,
       "time-out, signalled, time-out"},
      {"name after one of two handles has gone", &KeptByAnotherHandle, "signalled, signalled"},
      {"name after the first handle has gone, with a copy of it", &KeptByACopy,
       "signalled, signalled"},
      {"name in another process, set there", &SetInAnotherProcess, "signalled",
       Deliberate{"time-out", IN_ONE_PROCESS}},
      {"copy of a handle, set through it", &SetThroughACopy, "signalled"},
      {"copy of a closed handle", &CopyOfAClosedHandle, "refused",
       Deliberate{"open", COPY_IS_OPEN}},
      {"closed handle, wait", [] { return WaitOnClosed(0); }, "failed"},
      {"closed handle, wait without limit", [] { return WaitOnClosed(EVENT_INFINITE); }, "failed"},
      {"closed handle, does set succeed", OnClosed(&CEvent::Set), "no"},
      {"closed handle, does reset succeed", OnClosed(&CEvent::Reset), "no"},
      {"closed handle, does pulse succeed", OnClosed(&CEvent::Pulse), "no"},
      {"closed handle, does closing succeed", OnClosed(&CEvent::Close), "no"},
      {"manual, not signalled, after one of two handles was closed",
       [] { return StateAfterClose(true); }, "time-out", Deliberate{"signalled", CLOSE_SIGNALS}},
      {"auto, not signalled, after one of two handles was closed",
       [] { return StateAfterClose(false); }, "time-out", Deliberate{"signalled", CLOSE_SIGNALS}},
      {"not signalled, after one of two handles has gone",
       [] { return StateAfterDestruction(false); }, "time-out"},
      {"signalled, after one of two handles has gone", [] { return StateAfterDestruction(true); },
       "signalled"},
      {"other handle of a closed one, reset, set, two waits",
       [] { return SetThroughTheOther(true); }, "signalled, time-out"},
      {"other handle of one that has gone, set, two waits",
       [] { return SetThroughTheOther(false); }, "signalled, time-out"},
      {"thread that waits while another handle goes", &WaitWhileAnotherGoes, "goes on waiting"},
      {"thread that waits while another handle is closed", &WaitWhileAnotherIsClosed,
       "goes on waiting", Deliberate{"released", CLOSE_SIGNALS}},
      {"thread that waits while the last handle goes, its wait",
       [] { return DestroyWhileWaitedFor().result; }, "time-out"},
      {"thread that waits while the last handle goes, the end of the handle",
       [] { return DestroyWhileWaitedFor().isWaitedFor ? "waits for the thread" : "at once"; },
       "at once", Deliberate{"waits for the thread", END_WAITS}},
  };
}
