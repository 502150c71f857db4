#include "tasks/task_serializer.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// The worker, with all trace lines.
class TaskHandlerTest : public SerializerTest {
 protected:
  // Waits until the worker has found the queues empty after the start, and waits again.
  bool WaitUntilIdle() const {
    return m_oSession.WaitFor(line::RESET, 2) && WaitUntil([&] {
             const std::vector<std::string> formats = m_oSession.Formats();
             const auto reset = std::find(formats.rbegin(), formats.rend(), line::RESET);
             return std::find(formats.rbegin(), reset, line::WAIT_FOREVER) != reset;
           });
  }

  // What the worker writes up to its first wait, for one task, and when it ends.
  const std::vector<std::string> m_oStartLines = {line::START, line::WORKER_START,
                                                  "hook OnThreadStart", line::WAITING};
  const std::vector<std::string> m_oTaskLines = {line::WAKEUP, line::CHECKING, line::PROCESS,
                                                 "hook OnTaskExecution", line::COMPLETED};
  const std::vector<std::string> m_oExitLines = {"hook OnThreadExit", line::WORKER_EXIT,
                                                 line::THREAD_RETURN};

  TraceSession m_oSession{5};
};

std::vector<std::string> operator+(std::vector<std::string> left,
                                   const std::vector<std::string>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(TaskHandlerTest, AnIdleWorkerStartsAndWaits) {
  TestSerializer serializer;
  m_oSession.Clear();
  serializer.StartSerialization();
  ASSERT_TRUE(m_oSession.WaitFor(line::WAIT_FOREVER));
  EXPECT_THAT(SerializerFormats(m_oSession), ElementsAreArray(m_oStartLines));
}

TEST_F(TaskHandlerTest, ThreeTasksRunOneAfterTheOtherAndAnEmptyScanResetsTheEvent) {
  TestSerializer serializer;
  serializer.InsertMany(1, 3);
  m_oSession.Clear();
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  const std::vector<std::string> next = {line::WAITING};
  const std::vector<std::string> emptied = {"hook OnQueueEmpty", line::WAITING, line::WAKEUP,
                                            line::CHECKING, line::WAITING};
  EXPECT_THAT(SerializerFormats(m_oSession),
              ElementsAreArray(m_oStartLines + m_oTaskLines + next + m_oTaskLines + next +
                               m_oTaskLines + emptied));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1, 2, 3));
  EXPECT_THAT(TextsOf(m_oSession, line::RESET),
              Contains(EndsWith("IsSignaled=1 --> IsSignaled=0\n")));
}

TEST_F(TaskHandlerTest, EachWaitIsWithoutLimitAndTraced) {
  TestSerializer serializer;
  serializer.InsertMany(1, 2);
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  EXPECT_EQ(m_oSession.Count(line::WAIT_FOREVER), 4);
  EXPECT_EQ(m_oSession.Count(line::WAITING), 4);
  EXPECT_THAT(TextsOf(m_oSession, line::WAIT_NOT_NEEDED),
              AllOf(testing::SizeIs(3),
                    Each(HasSubstr("(IsManual=1) has been already signaled --> New state: "
                                   "IsSignaled=1"))));
}

TEST_F(TaskHandlerTest, ATaskIsTracedWithItsRecordAndLevel) {
  TestSerializer serializer(3);
  std::atomic<const Message*> copy = nullptr;
  serializer.onTask = [&](Message& message, int32_t) { copy = &message; };
  serializer.InsertMany(1, 1, 2);
  serializer.StartSerialization();
  ASSERT_TRUE(m_oSession.WaitFor(line::COMPLETED));
  const std::string process = TextsOf(m_oSession, line::PROCESS).at(0);
  const std::string begin = "\nCTaskSerializer     : Process Task (Record ";
  ASSERT_TRUE(process.starts_with(begin));
  const auto record = static_cast<uint32_t>(std::stoul(process.substr(begin.size()), nullptr, 16));
  const auto shownCopy = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(copy.load()));
  EXPECT_LT(shownCopy - record, 64U) << "the message is a part of the record";
  EXPECT_EQ(process, begin + Hex(record) + ") at level 2");
  EXPECT_THAT(TextsOf(m_oSession, line::COMPLETED),
              ElementsAre("\nCTaskSerializer     : Task (Record " + Hex(record) +
                          ") at level 2 completed"));
}

TEST_F(TaskHandlerTest, LevelsAreServedFromTheHighestAndEachInItsOrder) {
  TestSerializer serializer(3);
  std::vector<int32_t> levels;
  serializer.onTask = [&](Message&, int32_t level) { levels.push_back(level); };
  serializer.InsertMany(1, 2, 0);
  serializer.InsertMany(3, 2, 2);
  serializer.InsertMany(5, 2, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(serializer.WaitUntilBegun(6));
  serializer.TerminateSerialization();
  EXPECT_THAT(serializer.Begun(), ElementsAre(3, 4, 5, 6, 1, 2));
  EXPECT_THAT(levels, ElementsAre(2, 2, 1, 1, 0, 0));
}

TEST_F(TaskHandlerTest, ATaskQueuedAtAHigherLevelMeanwhileIsTheNext) {
  TestSerializer serializer(2);
  Gate gate;
  serializer.onTask = [&](Message&, int32_t) { gate.Pass(); };
  serializer.InsertMany(1, 2, 0);
  serializer.StartSerialization();
  ASSERT_TRUE(gate.WaitUntilReached());
  serializer.InsertMany(3, 1, 1);
  gate.Open();
  ASSERT_TRUE(serializer.WaitUntilBegun(3));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1, 3, 2));
}

TEST_F(TaskHandlerTest, TasksKeepTheirOrderHoweverOftenTheQueueWraps) {
  constexpr int TASKS = 200;
  TestSerializer serializer;
  serializer.StartSerialization();
  std::vector<int> numbers;
  for (int number = 0; number < TASKS; ++number) {
    numbers.push_back(number);
    ASSERT_TRUE(WaitUntil([&] { return serializer.Insert(number) == 1; }));
  }
  ASSERT_TRUE(serializer.WaitUntilBegun(TASKS));
  EXPECT_THAT(serializer.Begun(), ElementsAreArray(numbers));
}

TEST_F(TaskHandlerTest, AllTasksAndThreadHooksRunOnOneThreadOfTheirOwn) {
  TestSerializer serializer;
  std::vector<pthread_t> threads;
  const auto note = [&](auto&&...) { threads.push_back(pthread_self()); };
  serializer.onStart = note;
  serializer.onTask = note;
  serializer.onEmpty = note;
  serializer.onExit = note;
  serializer.InsertMany(1, 2);
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  serializer.TerminateSerialization();
  ASSERT_EQ(threads.size(), 5U);
  EXPECT_THAT(threads, Each(threads.front()));
  EXPECT_NE(threads.front(), pthread_self());
  EXPECT_THAT(TextsOf(m_oSession, line::THREAD_RETURN),
              ElementsAre("THREAD_RETURN: ## INFO: Thread = " + Hex(threads.front(), 8) +
                          " exited, Return = 0x00000000##\n"));
}

TEST_F(TaskHandlerTest, TasksCanBeQueuedWhileOneRuns) {
  TestSerializer serializer;
  std::atomic<uint32_t> fromTask = 0;
  std::atomic<uint32_t> fromOther = 0;
  serializer.onTask = [&](Message& message, int32_t) {
    if (message.number == 1) {
      fromTask = serializer.Insert(2);
      fromOther = InsertFromAnotherThread(serializer, 3);
    }
  };
  serializer.StartSerialization();
  serializer.Insert(1);
  ASSERT_TRUE(serializer.WaitUntilBegun(3));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1, 2, 3));
  EXPECT_EQ(fromTask, 1U);
  EXPECT_EQ(fromOther, 1U);
}

TEST_F(TaskHandlerTest, ATaskIsFreedBeforeItsLevelIsReportedEmpty) {
  TestSerializer serializer;
  std::atomic<int> aliveInTask = -1;
  std::atomic<int> aliveAtEnd = -1;
  serializer.onTask = [&](Message&, int32_t) { aliveInTask = Message::s_alive.load(); };
  serializer.onEmpty = [&](int32_t) { aliveAtEnd = Message::s_alive.load(); };
  serializer.InsertMany(1, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  EXPECT_EQ(aliveInTask, 1);
  EXPECT_EQ(aliveAtEnd, 0);
}

TEST_F(TaskHandlerTest, OnlyTheLevelJustServedIsReportedEmpty) {
  TestSerializer serializer(3);
  std::vector<std::pair<int32_t, size_t>> empties;
  serializer.onEmpty = [&](int32_t level) {
    empties.emplace_back(level, serializer.Begun().size());
  };
  serializer.InsertMany(1, 2, 0);
  serializer.InsertMany(3, 2, 2);
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  serializer.TerminateSerialization();
  EXPECT_THAT(empties, ElementsAre(std::pair(2, 2U), std::pair(0, 4U)));
}

TEST_F(TaskHandlerTest, OnQueueEmptyRunsUnderTheLock) {
  TestSerializer serializer(2);
  BlockedInsertion insertion;
  serializer.onEmpty = [&](int32_t level) {
    if (level == 0) {
      insertion.Begin(serializer, 2, 1);
    }
  };
  serializer.InsertMany(1, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(serializer.WaitUntilBegun(2));
  EXPECT_TRUE(insertion.WasBlocked());
}

TEST_F(TaskHandlerTest, TheExternalEventIsSetAfterTheTaskAndBeforeTheRecordIsFreed) {
  TestSerializer serializer;
  CEvent event(false, true);
  std::atomic<bool> isSetInTask = true;
  std::atomic<bool> isSetAtEnd = false;
  serializer.onTask = [&](Message&, int32_t) {
    isSetInTask = event.Check();
    Message::s_onDestruction = [&] { isSetAtEnd = event.Check(); };
  };
  EXPECT_EQ(serializer.Insert(1, 0, &event), 1U);
  serializer.StartSerialization();
  EXPECT_EQ(event.Wait(10'000), EVENT_SIGNALED);
  ASSERT_TRUE(WaitUntilIdle());
  serializer.TerminateSerialization();
  EXPECT_FALSE(isSetInTask);
  EXPECT_TRUE(isSetAtEnd);
  EXPECT_THAT(TextsOf(m_oSession, line::EVENT_SET),
              ElementsAre("\nCTaskSerializer     : External event object " +
                          Hex(reinterpret_cast<uintptr_t>(&event)) + " set!"));
  const std::vector<std::string> formats = SerializerFormats(m_oSession);
  const auto completed = std::find(formats.begin(), formats.end(), line::COMPLETED);
  ASSERT_NE(completed, formats.end());
  EXPECT_EQ(*(completed + 1), line::EVENT_SET);
}

TEST_F(TaskHandlerTest, AnEventThatCannotBeSetIsTraced) {
  TestSerializer serializer;
  CEvent event(false, true);
  event.Close();
  serializer.Insert(1, 0, &event);
  serializer.InsertMany(2, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  EXPECT_THAT(TextsOf(m_oSession, line::EVENT_ERROR),
              ElementsAre("\nCTaskSerializer     : ERROR setting external event object " +
                          Hex(reinterpret_cast<uintptr_t>(&event)) + "!"));
  EXPECT_EQ(m_oSession.Count(line::EVENT_SET), 0);
  EXPECT_EQ(m_oSession.Count(line::COMPLETED), 2);
}

TEST_F(TaskHandlerTest, WithoutAnExternalEventNothingIsSet) {
  TestSerializer serializer;
  serializer.InsertMany(1, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(WaitUntilIdle());
  EXPECT_THAT(SerializerFormats(m_oSession), Not(Contains(HasSubstr("external event object"))));
}

TEST_F(TaskHandlerTest, TerminationWhileIdleWakesTheWorkerWhichExitsWithoutScanning) {
  TestSerializer serializer;
  serializer.StartSerialization();
  ASSERT_TRUE(m_oSession.WaitFor(line::WAIT_FOREVER));
  m_oSession.Clear();
  serializer.TerminateSerialization();
  const std::vector<std::string> begin = {line::TERMINATE, line::DISABLE_ALL, line::ALL_REMOVED,
                                          line::WAKEUP};
  const std::vector<std::string> terminated = {line::TERMINATED};
  EXPECT_THAT(SerializerFormats(m_oSession), ElementsAreArray(begin + m_oExitLines + terminated));
}

TEST_F(TaskHandlerTest, TerminationDuringATaskLetsItEndAndRunsNoOther) {
  TestSerializer serializer;
  Gate gate;
  serializer.onTask = [&](Message&, int32_t) { gate.Pass(); };
  serializer.InsertMany(1, 3);
  serializer.StartSerialization();
  ASSERT_TRUE(gate.WaitUntilReached());
  m_oSession.Clear();
  m_oSession.CallAt(line::NO_TIMEOUT, [&] { gate.Open(); });
  serializer.TerminateSerialization();
  const std::vector<std::string> begin = {line::TERMINATE, line::DISABLE_ALL, line::ALL_REMOVED,
                                          line::COMPLETED, "hook OnQueueEmpty"};
  const std::vector<std::string> terminated = {line::TERMINATED};
  EXPECT_THAT(SerializerFormats(m_oSession), ElementsAreArray(begin + m_oExitLines + terminated));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1));
}

TEST_F(TaskHandlerTest, TerminationDuringAnEmptyScanEndsTheWorker) {
  TestSerializer serializer;
  std::future<void> termination;
  serializer.InsertMany(1, 1);
  m_oSession.CallAt(line::CHECKING, [&] {
    if (serializer.Begun().empty()) {
      return;  // this scan finds the task
    }
    const int sets = m_oSession.Count(line::SET);
    termination = std::async(std::launch::async, [&] { serializer.TerminateSerialization(); });
    EXPECT_TRUE(m_oSession.WaitFor(line::SET, sets + 1));
  });
  serializer.StartSerialization();
  ASSERT_TRUE(m_oSession.WaitFor(line::TERMINATED));
  termination.get();
  const std::vector<std::string> formats = SerializerFormats(m_oSession);
  const auto removed = std::find(formats.begin(), formats.end(), line::ALL_REMOVED);
  const std::vector<std::string> checking = {line::CHECKING};
  const std::vector<std::string> terminated = {line::TERMINATED};
  ASSERT_NE(removed, formats.end());
  EXPECT_THAT(std::vector(removed + 1, formats.end()),
              ElementsAreArray(checking + m_oExitLines + terminated));
}

}  // namespace
