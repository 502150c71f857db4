#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tasks/task_serializer.h"
#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

using testing::ElementsAre;

const auto s_throwError = [](auto&&...) { throw std::runtime_error("test"); };

// The worker when tasks, hooks, events or the sink fail, with all trace lines.
class TaskHandlerFaultTest : public SerializerTest {
 protected:
  TraceSession m_oSession{5};
};

TEST_F(TaskHandlerFaultTest, ATaskThatThrowsIsTracedAndTheNextOneRuns) {
  TestSerializer serializer;
  serializer.onTask = [](Message& message, int32_t) {
    if (message.number == 1) {
      throw std::runtime_error("test");
    }
    if (message.number == 2) {
      throw 2;
    }
  };
  serializer.InsertMany(1, 3);
  m_oSession.Clear();
  serializer.StartSerialization();
  ASSERT_TRUE(m_oSession.WaitFor("hook OnQueueEmpty"));
  serializer.TerminateSerialization();
  EXPECT_EQ(m_oSession.Count(line::EXCEPTION), 2);
  EXPECT_EQ(m_oSession.Count(line::COMPLETED), 1);
  std::vector<std::string> formats = SerializerFormats(m_oSession);
  formats.resize(18);
  EXPECT_THAT(formats,
              ElementsAre(line::START, line::WORKER_START, "hook OnThreadStart",
                          line::WAITING,  //
                          line::WAKEUP, line::CHECKING, line::PROCESS, "hook OnTaskExecution",
                          line::EXCEPTION, line::WAITING, line::WAKEUP, line::CHECKING,
                          line::PROCESS, "hook OnTaskExecution", line::EXCEPTION, line::WAITING,
                          line::WAKEUP, line::CHECKING));
}

TEST_F(TaskHandlerFaultTest, ATaskThatThrowsIsFreedAndItsEventSet) {
  TestSerializer serializer;
  CEvent event(false, true);
  std::atomic<int> aliveAtEnd = -1;
  serializer.onTask = s_throwError;
  serializer.onEmpty = [&](int32_t) { aliveAtEnd = Message::s_alive.load(); };
  serializer.Insert(1, 0, &event);
  serializer.StartSerialization();
  EXPECT_EQ(event.Wait(10'000), EVENT_SIGNALED);
  ASSERT_TRUE(WaitUntil([&] { return aliveAtEnd >= 0; }));
  EXPECT_EQ(aliveAtEnd, 0);
}

TEST_F(TaskHandlerFaultTest, HooksThatThrowDoNotEndTheWorkerNorKeepTheLock) {
  TestSerializer serializer;
  serializer.onStart = s_throwError;
  serializer.onEmpty = s_throwError;
  serializer.onExit = s_throwError;
  serializer.StartSerialization();
  for (int number = 1; number <= 2; ++number) {
    EXPECT_EQ(InsertFromAnotherThread(serializer, number), 1U);
    EXPECT_TRUE(m_oSession.WaitFor("hook OnQueueEmpty", number));
  }
  serializer.TerminateSerialization();
  EXPECT_EQ(m_oSession.Count("hook OnThreadExit"), 1);
  EXPECT_EQ(m_oSession.Count(line::WORKER_EXIT), 1);
  EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 1);
}

// The worker swallows ordinary exceptions; it must not swallow the unwind that ends its thread.
TEST_F(TaskHandlerFaultTest, ATaskMayEndTheThreadAndIsFreed) {
  TestSerializer serializer;
  serializer.onTask = [](Message&, int32_t) { pthread_exit(nullptr); };
  serializer.InsertMany(1, 1);
  serializer.StartSerialization();
  EXPECT_TRUE(WaitUntil([] { return Message::s_alive == 0; }));
  EXPECT_EQ(m_oSession.Count(line::EXCEPTION), 0);
  EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 0);
}

// A line of the worker that the sink throws at.
struct WorkerLine {
  const char* name;
  const char* format;
  bool isAtExit = false;
};

void PrintTo(const WorkerLine& workerLine, std::ostream* stream) { *stream << workerLine.name; }

class TaskHandlerSinkTest : public TaskHandlerFaultTest,
                            public testing::WithParamInterface<WorkerLine> {
 protected:
  void ThrowAtLine() {
    m_oSession.CallAt(GetParam().format, [this] {
      ++m_nThrown;
      throw std::runtime_error("sink");
    });
  }

  std::atomic<int> m_nThrown = 0;
};

TEST_P(TaskHandlerSinkTest, ASinkThatThrowsDoesNotDisturbTheWorker) {
  TestSerializer serializer;
  CEvent first(false, true);
  CEvent second(false, true);
  CEvent closed(false, true);
  closed.Close();
  serializer.onTask = [](Message& message, int32_t) {
    if (message.number == 2) {
      throw std::runtime_error("test");
    }
  };
  if (GetParam().format == line::WORKER_START) {
    ThrowAtLine();
  } else {
    serializer.onStart = [&] { ThrowAtLine(); };  // not earlier: the caller writes such lines too
  }
  serializer.StartSerialization();
  EXPECT_EQ(serializer.Insert(1, 0, &first), 1U);
  EXPECT_EQ(serializer.Insert(2, 0, &closed), 1U);
  EXPECT_EQ(serializer.Insert(3, 0, &second), 1U);
  EXPECT_EQ(first.Wait(10'000), EVENT_SIGNALED);
  EXPECT_EQ(second.Wait(10'000), EVENT_SIGNALED);
  // The worker writes some lines only when it finds its queue empty, or must really wait.
  EXPECT_TRUE(WaitUntil([&] {
    CEvent again(false, true);
    return serializer.Insert(4, 0, &again) == 1 && again.Wait(10'000) == EVENT_SIGNALED &&
           m_oSession.Count("hook OnQueueEmpty") >= 2 && (m_nThrown > 0 || GetParam().isAtExit);
  }));
  serializer.TerminateSerialization();
  EXPECT_GT(m_nThrown, 0);
  EXPECT_EQ(m_oSession.Count("hook OnThreadExit"), 1);
  EXPECT_EQ(m_oSession.Count(line::JOINED), 1);
}

INSTANTIATE_TEST_SUITE_P(
    EachLine, TaskHandlerSinkTest,
    testing::Values(WorkerLine{"WorkerStart", line::WORKER_START},
                    WorkerLine{"Waiting", line::WAITING},
                    WorkerLine{"WaitForever", line::WAIT_FOREVER},
                    WorkerLine{"WaitNotNeeded", line::WAIT_NOT_NEEDED},
                    WorkerLine{"WaitResult", line::WAIT_RESULT}, WorkerLine{"Wakeup", line::WAKEUP},
                    WorkerLine{"Checking", line::CHECKING}, WorkerLine{"Reset", line::RESET},
                    WorkerLine{"Process", line::PROCESS}, WorkerLine{"Completed", line::COMPLETED},
                    WorkerLine{"Exception", line::EXCEPTION},
                    WorkerLine{"EventSet", line::EVENT_SET},
                    WorkerLine{"EventError", line::EVENT_ERROR},
                    WorkerLine{"WorkerExit", line::WORKER_EXIT, true},
                    WorkerLine{"ThreadReturn", line::THREAD_RETURN, true}),
    [](const auto& worker) { return std::string(worker.param.name); });

}  // namespace
