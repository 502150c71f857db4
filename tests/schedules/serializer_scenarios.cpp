// The serializer: a task that was queued is run once, in its turn, or dropped at the end; its event
// is set only when it ran; nothing runs after the end.

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tasks/task_serializer.h"
#include "tests/schedules/scenario.h"

using schedules::Require;
using schedules::Scenario;
using schedules::Thread;

namespace {

constexpr int FULL_LEVEL = 19;

class Serializer final : public CTaskSerializer<int> {
 public:
  explicit Serializer(int32_t levels) : CTaskSerializer(levels) {}
  ~Serializer() override { Terminate(); }

  void Terminate() {
    TerminateSerialization();
    Require(!m_bRuns, "a task that runs has ended before the serializer");
    m_bHasEnded = true;
  }

  bool HasRun(int task) const { return std::count(run.begin(), run.end(), task) == 1; }

  std::vector<int> run;  // the tasks, in the order run
  std::function<void(int task)> onTask = [](int) {};
  int refusals = 0;

 private:
  void OnTaskExecution(int& message, int32_t /*level*/) override {
    Require(!m_bHasEnded, "nothing runs after the end");
    Require(!m_bRuns, "tasks run one after the other");
    Require(std::count(run.begin(), run.end(), message) == 0, "a task runs once");
    m_bRuns = true;
    run.push_back(message);
    struct End {
      bool& runs;
      ~End() { runs = false; }
    } end{m_bRuns};
    schedules::SwitchPoint("run the task");
    onTask(message);
  }

  void OnQueueFull(const int& /*message*/, int32_t /*level*/) override { ++refusals; }

  bool m_bRuns = false;
  bool m_bHasEnded = false;
};

void TwoLevels() {
  Serializer serializer(2);
  serializer.StartSerialization();
  Thread high("high",
              [&] { Require(serializer.InsertTask(2, 1, nullptr) == 1, "a task is queued"); });
  Require(serializer.InsertTask(1, 0, nullptr) == 1, "a task is queued");
  high.Join();
  schedules::WaitFor([&] { return serializer.run.size() == 2; });
}
const Scenario twoLevels("serializer-levels", TwoLevels);

void OrderOfALevel() {
  Serializer serializer(2);
  serializer.StartSerialization();
  Thread producer("producer", [&] {
    for (const int task : {1, 2, 3}) {
      Require(serializer.InsertTask(task, task == 3 ? 1 : 0, nullptr) == 1, "a task is queued");
    }
  });
  producer.Join();
  schedules::WaitFor([&] { return serializer.run.size() == 3; });
  const auto one = std::find(serializer.run.begin(), serializer.run.end(), 1);
  Require(std::find(one, serializer.run.end(), 2) != serializer.run.end(), "in the order queued");
}
const Scenario orderOfALevel("serializer-order", OrderOfALevel);

// The first task runs, a place is free, and two tasks come for it. With `makesRoom` the worker goes
// on meanwhile and takes one more.
void FullLevel(bool makesRoom) {
  Serializer serializer(1);
  bool mayGoOn = false;
  bool areQueued = false;
  serializer.onTask = [&](int task) {
    if (task == 0) {
      schedules::WaitFor([&] { return mayGoOn; });
    } else if (task == 1) {
      schedules::WaitFor([&] { return areQueued; });
      schedules::SleepFor(50);
    }
  };
  for (int task = 0; task < FULL_LEVEL; ++task) {
    Require(serializer.InsertTask(task, 0, nullptr) == 1, "a level holds 19 tasks");
  }
  Require(serializer.InsertTask(FULL_LEVEL, 0, nullptr) == 0, "and not 20");
  serializer.StartSerialization();
  schedules::WaitFor([&] { return serializer.run.size() == 1; });
  uint32_t queued = 0;
  Thread other("other", [&] { queued += serializer.InsertTask(101, 0, nullptr); });
  mayGoOn = makesRoom;
  queued += serializer.InsertTask(102, 0, nullptr);
  other.Join();
  Require(queued == 1 || (makesRoom && queued == 2), "each free place is taken once");
  Require(serializer.refusals == 3 - static_cast<int>(queued), "each refusal is told once");
  mayGoOn = true;
  areQueued = true;
  serializer.Terminate();
}
const Scenario fullLevel("serializer-full", [] { FullLevel(false); });
const Scenario fullLevelWithRoom("serializer-full-room", [] { FullLevel(true); });

void ThrowingTask() {
  Serializer serializer(1);
  serializer.onTask = [](int task) {
    if (task == 1) {
      throw std::runtime_error("task");
    }
  };
  CEvent first(false, true);
  CEvent second(false, true);
  serializer.StartSerialization();
  Thread producer("producer", [&] { serializer.InsertTask(1, 0, &first); });
  serializer.InsertTask(2, 0, &second);
  producer.Join();
  Require(first.Wait(EVENT_INFINITE) == EVENT_SIGNALED, "a task that throws sets its event");
  Require(second.Wait(EVENT_INFINITE) == EVENT_SIGNALED, "the next one runs");
  Require(serializer.HasRun(1) && serializer.HasRun(2), "an event tells that its task ran");
}
const Scenario throwingTask("serializer-throw", ThrowingTask);

void InsertAgainstStart() {
  Serializer serializer(1);
  Thread producer("producer",
                  [&] { Require(serializer.InsertTask(1, 0, nullptr) == 1, "a task is queued"); });
  serializer.StartSerialization();
  producer.Join();
  schedules::WaitFor([&] { return serializer.run.size() == 1; });
}
const Scenario insertAgainstStart("serializer-start", InsertAgainstStart);

// The worker may be alive for the second start or not: one of them serves the task.
void StartTwice() {
  Serializer serializer(1);
  serializer.StartSerialization();
  Thread producer("producer", [&] { serializer.InsertTask(1, 0, nullptr); });
  serializer.StartSerialization();
  producer.Join();
  schedules::WaitFor([&] { return serializer.run.size() == 1; });
}
const Scenario startTwice("serializer-start-twice", StartTwice);

void InsertAgainstTerminate() {
  CEvent event(false, true);
  Serializer serializer(1);
  serializer.StartSerialization();
  uint32_t queued = 0;
  Thread producer("producer", [&] { queued = serializer.InsertTask(1, 0, &event); });
  serializer.Terminate();
  producer.Join();
  const bool hasRun = serializer.HasRun(1);
  Require(queued == 1 || !hasRun, "a task that is refused does not run");
  Require(event.Check() == hasRun, "an event tells that its task ran");
  Require(serializer.InsertTask(2, 0, nullptr) == 0, "a terminated serializer refuses tasks");
}
const Scenario insertAgainstTerminate("serializer-terminate", InsertAgainstTerminate);

// One task runs, one waits; the first ends before the serializer does, the second never runs.
void TerminateDuringTask() {
  CEvent first(false, true);
  CEvent second(false, true);
  Serializer serializer(1);
  bool isOver = false;
  serializer.onTask = [&](int task) {
    Require(task == 1, "a task that waits is dropped");
    schedules::WaitFor([&] { return isOver; });
  };
  serializer.InsertTask(1, 0, &first);
  serializer.InsertTask(2, 0, &second);
  serializer.StartSerialization();
  schedules::WaitFor([&] { return serializer.run.size() == 1; });
  schedules::StretchJoins(100);
  Thread stopper("stopper", [&] { serializer.Terminate(); });
  schedules::WaitFor([&] {
    const std::string step = stopper.GetStep();
    return step == "end of a sleep" || step == "return from the join";  // the tasks are dropped
  });
  isOver = true;
  stopper.Join();
  Require(first.Check() && !second.Check(), "an event tells that its task ran");
}
const Scenario terminateDuringTask("serializer-terminate-task", TerminateDuringTask);

void TerminateDuringStart() {
  Serializer serializer(1);
  serializer.StartSerialization();
  serializer.Terminate();
  serializer.StartSerialization();
  Require(serializer.InsertTask(1, 0, nullptr) == 0, "nothing enables the levels again");
  serializer.Terminate();
}
const Scenario terminateDuringStart("serializer-restart", TerminateDuringStart);

}  // namespace
