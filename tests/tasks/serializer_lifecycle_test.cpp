#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tasks/task_serializer.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// The lines that the worker writes on its way to its wait and on its way out.
bool IsWorkerLine(const std::string& format) {
  for (const char* workerLine :
       {line::WORKER_START, line::WAITING, line::WAIT_FOREVER, line::WAIT_NOT_NEEDED,
        line::WAIT_RESULT, line::WAKEUP, line::WORKER_EXIT, line::THREAD_RETURN}) {
    if (format == workerLine) {
      return true;
    }
  }
  return format.starts_with("hook ");
}

// Start, termination and destruction, with all trace lines.
class SerializerLifecycleTest : public SerializerTest {
 protected:
  // Starts and waits until the worker waits.
  void StartAndWaitUntilIdle(TestSerializer& serializer) {
    m_oSession.Clear();
    serializer.StartSerialization();
    EXPECT_TRUE(m_oSession.WaitFor(line::WAIT_FOREVER));
  }

  // The formats of the thread that controls the serializer.
  std::vector<std::string> ControlFormats() const {
    std::vector<std::string> formats = m_oSession.Formats();
    std::erase_if(formats, IsWorkerLine);
    return formats;
  }

  TraceSession m_oSession{5};
};

TEST_F(SerializerLifecycleTest, TheStartResetsTheEventAndStartsAJoinableWorkerOfPriority83) {
  TestSerializer serializer;
  m_oSession.Clear();
  serializer.StartSerialization();
  ASSERT_TRUE(m_oSession.WaitFor(line::WAIT_FOREVER));
  EXPECT_THAT(ControlFormats(),
              ElementsAre(line::START, line::RESET, line::THREAD_NAME, line::THREAD_START,
                          line::KILL, line::NOTHING_TO_KILL, line::THREAD_ATTRIBUTE,
                          line::THREAD_PRIORITY, line::THREAD_CREATED));
  EXPECT_THAT(TextsOf(m_oSession, line::THREAD_NAME),
              ElementsAre("CThread::SetThreadName: ThreadId = 0x00000000, DebugName = EM_TALVOR, "
                          "Qualifier = (_TaskHandler)\n"));
  EXPECT_THAT(TextsOf(m_oSession, line::THREAD_START),
              ElementsAre("\nCThread::Start: Start a thread, Prio=83, Suspend=0, "
                          "StackSize=0x00000000, Waitable=1, KillAliveThread=1"));
}

TEST(SerializerStartTest, AnUnnamedModuleGivesTheWorkerAnEmptyName) {
  const TraceSession session(1, "");
  TestSerializer serializer;
  serializer.StartSerialization();
  EXPECT_THAT(TextsOf(session, line::THREAD_NAME),
              ElementsAre(HasSubstr(", DebugName = , Qualifier = (_TaskHandler)")));
}

TEST_F(SerializerLifecycleTest, StartAndTerminationSleepATenthOfASecondEach) {
  std::vector<useconds_t> sleeps;
  const auto sleeping = calls::usleep.Answer([&](useconds_t time) {
    sleeps.push_back(time);
    return 0;
  });
  TestSerializer serializer;
  serializer.StartSerialization();
  EXPECT_THAT(sleeps, ElementsAre(100'000U));
  serializer.StartSerialization();
  EXPECT_THAT(sleeps, ElementsAre(100'000U));
  serializer.TerminateSerialization();
  EXPECT_THAT(sleeps, ElementsAre(100'000U, 100'000U));
  serializer.TerminateSerialization();
  EXPECT_EQ(sleeps.size(), 2U);
}

TEST_F(SerializerLifecycleTest, TheSecondStartFindsTheWorkerAliveAndOnlyTraces) {
  TestSerializer serializer;
  StartAndWaitUntilIdle(serializer);
  m_oSession.Clear();
  serializer.StartSerialization();
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::START));
}

TEST_F(SerializerLifecycleTest, TasksQueuedBeforeTheStartRunAfterIt) {
  TestSerializer serializer(2);
  serializer.InsertMany(1, 2, 0);
  serializer.InsertMany(3, 1, 1);
  m_oSession.Clear();
  serializer.StartSerialization();
  ASSERT_TRUE(serializer.WaitUntilBegun(3));
  EXPECT_THAT(serializer.Begun(), ElementsAre(3, 1, 2));
  EXPECT_THAT(m_oSession.Formats()[1], line::RESET);
  EXPECT_THAT(m_oSession.Texts()[1], HasSubstr("IsSignaled=1 -->"));
  EXPECT_THAT(m_oSession.Formats()[2], line::SET);
}

TEST_F(SerializerLifecycleTest, ATaskOfTheLowestLevelAloneIsFoundAtTheStart) {
  TestSerializer serializer(3);
  serializer.InsertMany(1, 1, 0);
  serializer.StartSerialization();
  EXPECT_TRUE(serializer.WaitUntilBegun(1));
}

TEST_F(SerializerLifecycleTest, WithoutThreadsTheTasksWaitForALaterStart) {
  TestSerializer serializer;
  serializer.InsertMany(1, 1);
  m_oSession.Clear();
  auto refusing = calls::pthread_create.Fail(EAGAIN);
  serializer.StartSerialization();
  refusing.End();
  EXPECT_THAT(TextsOf(m_oSession, line::THREAD_NOT_CREATED),
              ElementsAre("\npthread_create failed: " + std::to_string(EAGAIN)));
  m_oSession.Clear();
  serializer.TerminateSerialization();
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::TERMINATE, line::TERMINATED));
  serializer.StartSerialization();
  EXPECT_TRUE(serializer.WaitUntilBegun(1));
}

TEST_F(SerializerLifecycleTest, TerminationWithoutAWorkerKeepsLevelsEnabledAndTasksQueued) {
  TestSerializer serializer;
  serializer.InsertMany(1, 1);
  m_oSession.Clear();
  serializer.TerminateSerialization();
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::TERMINATE, line::TERMINATED));
  serializer.InsertMany(2, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(serializer.WaitUntilBegun(2));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1, 2));
}

TEST_F(SerializerLifecycleTest, TerminationDisablesEmptiesAndJoins) {
  TestSerializer serializer;
  StartAndWaitUntilIdle(serializer);
  m_oSession.Clear();
  serializer.TerminateSerialization();
  EXPECT_THAT(ControlFormats(), ElementsAre(line::TERMINATE, line::DISABLE_ALL, line::ALL_REMOVED,
                                            line::SET, line::NO_TIMEOUT, line::JOINED, line::KILL,
                                            line::NOTHING_TO_KILL, line::TERMINATED));
  EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 1);
}

TEST_F(SerializerLifecycleTest, ATerminatedWorkerReturnsNull) {
  TestSerializer serializer;
  StartAndWaitUntilIdle(serializer);
  serializer.TerminateSerialization();
  EXPECT_THAT(TextsOf(m_oSession, line::JOINED), ElementsAre(EndsWith("pstat=(nil)")));
}

TEST_F(SerializerLifecycleTest, TheSecondTerminationFindsNoWorker) {
  TestSerializer serializer;
  serializer.StartSerialization();
  serializer.TerminateSerialization();
  m_oSession.Clear();
  serializer.TerminateSerialization();
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::TERMINATE, line::TERMINATED));
}

TEST_F(SerializerLifecycleTest, TerminationWaitsForTheRunningTaskAndDropsTheOthers) {
  TestSerializer serializer(2);
  Gate gate;
  std::atomic<bool> hasEnded = false;
  serializer.onTask = [&](Message&, int32_t) {
    gate.Pass();
    hasEnded = true;
  };
  serializer.StartSerialization();
  serializer.InsertMany(1, 1);
  ASSERT_TRUE(gate.WaitUntilReached());
  serializer.InsertMany(2, 2, 0);
  serializer.InsertMany(4, 3, 1);
  m_oSession.CallAt(line::NO_TIMEOUT, [&] { gate.Open(); });
  serializer.TerminateSerialization();
  EXPECT_TRUE(hasEnded);
  EXPECT_THAT(serializer.Begun(), ElementsAre(1));
  EXPECT_EQ(m_oSession.Count(line::COMPLETED), 1);
}

TEST_F(SerializerLifecycleTest, ATerminationThatIsGivenUpLeavesTheWorkerToTheDestruction) {
  auto serializer = std::make_unique<TestSerializer>();
  Gate gate;
  serializer->onTask = [&](Message&, int32_t) { gate.Pass(); };
  serializer->StartSerialization();
  serializer->InsertMany(1, 1);
  ASSERT_TRUE(gate.WaitUntilReached());
  m_oSession.Clear();
  std::vector<std::chrono::milliseconds> times;
  serializer->TerminateSerialization([&](std::chrono::milliseconds waited) {
    times.push_back(waited);
    return times.size() < 3;
  });
  EXPECT_THAT(ControlFormats(), ElementsAre(line::TERMINATE, line::DISABLE_ALL, line::ALL_REMOVED,
                                            line::SET, line::NO_TIMEOUT, line::TERMINATED));
  ASSERT_EQ(times.size(), 3U);
  EXPECT_GE(times.front(), std::chrono::milliseconds(110));
  gate.Open();
  serializer.reset();
  EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 1);
  EXPECT_EQ(m_oSession.Count(line::JOINED) + m_oSession.Count(line::KILLED), 1);
}

// The insertion finds its level enabled before the termination and reaches the lock during it.
TEST_F(SerializerLifecycleTest, TerminationEmptiesTheQueuesUnderTheLock) {
  TestSerializer serializer;
  serializer.StartSerialization();
  Gate gate;
  bool wasBlocked = false;
  Message::s_onCopy = [&] { gate.Pass(); };
  auto insertion = std::async(std::launch::async, [&] { return serializer.Insert(1); });
  ASSERT_TRUE(gate.WaitUntilReached());
  m_oSession.CallAt(line::ALL_REMOVED, [&] {
    gate.Open();
    wasBlocked = insertion.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready;
  });
  serializer.TerminateSerialization();
  EXPECT_EQ(insertion.get(), 1U);
  EXPECT_TRUE(wasBlocked);
}

TEST_F(SerializerLifecycleTest, DroppedTasksLiveUntilTheDestruction) {
  auto serializer = std::make_unique<TestSerializer>(2);
  Gate gate;
  serializer->onTask = [&](Message&, int32_t) { gate.Pass(); };
  serializer->StartSerialization();
  serializer->InsertMany(1, 1);
  ASSERT_TRUE(gate.WaitUntilReached());
  serializer->InsertMany(2, 2, 0);
  serializer->InsertMany(4, 3, 1);
  m_oSession.CallAt(line::NO_TIMEOUT, [&] { gate.Open(); });
  serializer->TerminateSerialization();
  EXPECT_EQ(Message::s_alive, 5);
  serializer.reset();
  EXPECT_EQ(Message::s_alive, 0);
}

TEST_F(SerializerLifecycleTest, ATerminatedSerializerRefusesEveryTask) {
  TestSerializer serializer(2);
  serializer.StartSerialization();
  serializer.TerminateSerialization();
  for (const int32_t level : {0, 1}) {
    m_oSession.Clear();
    EXPECT_EQ(serializer.Insert(1, level), 0U);
    EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::RAISED, line::LOCKED));
  }
}

TEST_F(SerializerLifecycleTest, AStartAfterTheTerminationStartsAWorkerButEnablesNoLevel) {
  TestSerializer serializer;
  serializer.StartSerialization();
  serializer.TerminateSerialization();
  StartAndWaitUntilIdle(serializer);
  EXPECT_THAT(m_oSession.Texts()[1],
              AllOf(StartsWith("Reset event"), HasSubstr("IsSignaled=1 -->")));
  EXPECT_EQ(m_oSession.Count(line::SET), 0);
  EXPECT_EQ(serializer.Insert(1), 0U);
  serializer.TerminateSerialization();
  EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 1);
}

// A task accepted just before the termination, and queued just after it.
TEST_F(SerializerLifecycleTest, ATaskThatOvertakesTheTerminationRunsAfterTheNextStart) {
  TestSerializer serializer;
  serializer.StartSerialization();
  Message::s_onCopy = [&] { serializer.TerminateSerialization(); };
  EXPECT_EQ(serializer.Insert(1), 1U);
  Message::s_onCopy = nullptr;
  EXPECT_THAT(serializer.Begun(), IsEmpty());
  serializer.StartSerialization();
  EXPECT_TRUE(serializer.WaitUntilBegun(1));
}

TEST_F(SerializerLifecycleTest, ATaskThatOvertakesTheTerminationIsFreedByTheDestruction) {
  auto serializer = std::make_unique<TestSerializer>();
  serializer->StartSerialization();
  Message::s_onCopy = [&] { serializer->TerminateSerialization(); };
  EXPECT_EQ(serializer->Insert(1), 1U);
  Message::s_onCopy = nullptr;
  EXPECT_EQ(Message::s_alive, 1);
  serializer.reset();
  EXPECT_EQ(Message::s_alive, 0);
}

TEST_F(SerializerLifecycleTest, DestructionTerminatesFreesAndKills) {
  class Plain : public CTaskSerializer<Message> {
   public:
    Plain() : CTaskSerializer(1) {}

   private:
    void OnTaskExecution(Message& /*message*/, int32_t /*level*/) override {}
  };
  auto serializer = std::make_unique<Plain>();
  serializer->InsertTask(Message(1), 0, nullptr);
  m_oSession.Clear();
  int aliveAtEnd = -1;
  m_oSession.CallAt(line::DESTROYED, [&] { aliveAtEnd = Message::s_alive; });
  serializer.reset();
  EXPECT_EQ(aliveAtEnd, 0);
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::TERMINATE, line::TERMINATED, line::DESTROYED,
                                                line::KILL, line::NOTHING_TO_KILL, line::DELETING));
}

TEST_F(SerializerLifecycleTest, WhatTheSinkThrowsDuringTheDestructionStaysHidden) {
  for (const char* format : {line::TERMINATE, line::DISABLE_ALL, line::ALL_REMOVED, line::SET,
                             line::NO_TIMEOUT, line::JOINED, line::TERMINATED, line::DESTROYED,
                             line::KILL, line::NOTHING_TO_KILL, line::DELETING}) {
    auto serializer = std::make_unique<TestSerializer>();
    StartAndWaitUntilIdle(*serializer);
    m_oSession.ThrowAt(format);
    serializer.reset();
    m_oSession.CallAt(format, nullptr);
    EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 1) << format;
  }
}

TEST_F(SerializerLifecycleTest, WhatTheSinkThrowsDuringTheStartReachesTheCallerAndIsNoHarm) {
  for (const char* format :
       {line::START, line::THREAD_NAME, line::THREAD_START, line::KILL, line::THREAD_CREATED}) {
    TestSerializer serializer;
    serializer.InsertMany(1, 1);
    m_oSession.ThrowAt(format);
    EXPECT_THROW(serializer.StartSerialization(), std::runtime_error) << format;
    m_oSession.CallAt(format, nullptr);
    EXPECT_EQ(InsertFromAnotherThread(serializer, 2), 1U) << format;
    serializer.StartSerialization();
    EXPECT_TRUE(serializer.WaitUntilBegun(2)) << format;
  }
}

TEST_F(SerializerLifecycleTest, WhatTheSinkThrowsDuringTheTerminationReachesTheCallerAndIsNoHarm) {
  for (const char* format : {line::TERMINATE, line::DISABLE_ALL, line::ALL_REMOVED,
                             line::NO_TIMEOUT, line::JOINED, line::TERMINATED}) {
    TestSerializer serializer;
    StartAndWaitUntilIdle(serializer);
    m_oSession.ThrowAt(format);
    EXPECT_THROW(serializer.TerminateSerialization(), std::runtime_error) << format;
    m_oSession.CallAt(format, nullptr);
    serializer.TerminateSerialization();
    EXPECT_TRUE(m_oSession.WaitFor(line::THREAD_RETURN)) << format;
    EXPECT_EQ(m_oSession.Count(line::THREAD_RETURN), 1) << format;
  }
}

}  // namespace
