#include "tasks/task_serializer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr int FULL_LEVEL = 19;

std::vector<int> Numbers(int first, int count) {
  std::vector<int> numbers(static_cast<size_t>(count));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

// The queuing side, with all trace lines.
class TaskSerializerTest : public SerializerTest {
 protected:
  TraceSession m_oSession{5};
};

// Starts the worker, which stops at the gate inside task 0, and fills level 0.
void FillBehindABusyWorker(TestSerializer& serializer, Gate& gate) {
  serializer.onTask = [&](Message& message, int32_t) {
    if (message.number == 0) {
      gate.Pass();
    }
  };
  serializer.StartSerialization();
  serializer.Insert(0);
  ASSERT_TRUE(gate.WaitUntilReached());
  serializer.InsertMany(1, FULL_LEVEL);
}

TEST_F(TaskSerializerTest, ConstructionCreatesTheWakeUpEventAndEnablesTheLevels) {
  const TestSerializer serializer;
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::CREATING, line::ENABLE_ALL));
  EXPECT_THAT(TextsOf(m_oSession, line::CREATING),
              ElementsAre(testing::EndsWith("<anon> (IsSignaled=0)\n")));
}

TEST_F(TaskSerializerTest, AnAcceptedTaskIsRaisedAndInsertedAndSetsTheWakeUpEvent) {
  TestSerializer serializer(3);
  m_oSession.Clear();
  EXPECT_EQ(serializer.Insert(1, 2), 1U);
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::RAISED, line::INSERTED, line::SET));
  EXPECT_THAT(TextsOf(m_oSession, line::RAISED),
              ElementsAre("\nCTaskSerializer     : Task at level 2 raised"));
  EXPECT_THAT(
      TextsOf(m_oSession, line::INSERTED),
      ElementsAre("\nCTaskSerializer     : Task with priority 2 inserted into task queue!"));
}

TEST_F(TaskSerializerTest, ALevelThatDoesNotExistIsRefused) {
  constexpr int32_t LOWEST = std::numeric_limits<int32_t>::min();
  constexpr int32_t HIGHEST = std::numeric_limits<int32_t>::max();
  TestSerializer serializer(1);
  for (const int32_t level : {-1, 1, 2, LOWEST, HIGHEST}) {
    m_oSession.Clear();
    EXPECT_EQ(serializer.Insert(1, level), 0U);
    EXPECT_EQ(Message::s_alive, 0);
    const std::string shown = std::to_string(level);
    EXPECT_THAT(m_oSession.Texts(),
                ElementsAre("\nCTaskSerializer     : Task at level " + shown + " raised",
                            "\nCTaskSerializer     : Manager locked for Tasks at level " + shown +
                                ". Task ignored!"));
  }
}

TEST_F(TaskSerializerTest, WithoutLevelsEveryTaskIsRefused) {
  TestSerializer serializer(0);
  EXPECT_EQ(serializer.Insert(1, 0), 0U);
  EXPECT_EQ(serializer.Insert(1, -1), 0U);
  EXPECT_EQ(m_oSession.Count(line::LOCKED), 2);
}

TEST_F(TaskSerializerTest, TheHighestLevelIsTheLevelCountMinusOne) {
  TestSerializer serializer(3);
  EXPECT_EQ(serializer.Insert(1, 2), 1U);
  EXPECT_EQ(serializer.Insert(1, 3), 0U);
}

TEST_F(TaskSerializerTest, ATaskHoldsACopyOfTheMessage) {
  TestSerializer serializer;
  {
    Message message(5);
    EXPECT_EQ(serializer.InsertTask(message, 0, nullptr), 1U);
    EXPECT_EQ(Message::s_alive, 2);
    message.number = 6;
  }
  EXPECT_EQ(Message::s_alive, 1);
  serializer.StartSerialization();
  ASSERT_TRUE(serializer.WaitUntilBegun(1));
  EXPECT_THAT(serializer.Begun(), ElementsAre(5));
}

TEST_F(TaskSerializerTest, ATwentiethWaitingTaskIsRefused) {
  TestSerializer serializer;
  serializer.InsertMany(1, FULL_LEVEL);
  EXPECT_EQ(m_oSession.Count(line::FULL), 0);
  m_oSession.Clear();
  EXPECT_EQ(serializer.Insert(FULL_LEVEL + 1), 0U);
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::RAISED, line::FULL, "hook OnQueueFull"));
  EXPECT_EQ(Message::s_alive, FULL_LEVEL);
}

TEST_F(TaskSerializerTest, ABusyWorkerLeavesRoomForNineteenTasks) {
  TestSerializer serializer;
  Gate gate;
  FillBehindABusyWorker(serializer, gate);
  EXPECT_EQ(serializer.Insert(FULL_LEVEL + 1), 0U);
  EXPECT_THAT(TextsOf(m_oSession, line::FULL),
              ElementsAre("\nCTaskSerializer     : ## ERROR! Task queue for priority 0 is full"));
  gate.Open();
  ASSERT_TRUE(serializer.WaitUntilBegun(FULL_LEVEL + 1));
  EXPECT_THAT(serializer.Begun(), ElementsAreArray(Numbers(0, FULL_LEVEL + 1)));
}

// The worker makes room in the queue while the message is being copied.
TEST_F(TaskSerializerTest, ATaskIsRefusedOnlyWhenTheLevelIsFullAtTheTimeOfQueuing) {
  TestSerializer serializer;
  Gate gate;
  FillBehindABusyWorker(serializer, gate);
  Message::s_onCopy = [&] {
    gate.Open();
    EXPECT_TRUE(serializer.WaitUntilBegun(2));
  };
  EXPECT_EQ(serializer.Insert(FULL_LEVEL + 1), 1U);
  EXPECT_EQ(m_oSession.Count(line::FULL), 0);
}

TEST_F(TaskSerializerTest, EachLevelIsFullOnItsOwn) {
  TestSerializer serializer(2);
  serializer.InsertMany(1, FULL_LEVEL, 1);
  EXPECT_EQ(serializer.Insert(0, 1), 0U);
  EXPECT_THAT(TextsOf(m_oSession, line::FULL),
              ElementsAre("\nCTaskSerializer     : ## ERROR! Task queue for priority 1 is full"));
  serializer.InsertMany(1, FULL_LEVEL, 0);
  EXPECT_EQ(serializer.Insert(0, 0), 0U);
}

TEST_F(TaskSerializerTest, ARefusedMessageIsHandedToOnQueueFullOnTheQueuingThread) {
  TestSerializer serializer(2);
  serializer.InsertMany(1, FULL_LEVEL, 1);
  const Message* refused = nullptr;
  int32_t refusedLevel = -1;
  std::thread::id thread;
  serializer.onFull = [&](const Message& message, int32_t level) {
    refused = &message;
    refusedLevel = level;
    thread = std::this_thread::get_id();
  };
  const Message message(99);
  EXPECT_EQ(serializer.InsertTask(message, 1, nullptr), 0U);
  EXPECT_EQ(refused, &message);
  EXPECT_EQ(message.number, 99);
  EXPECT_EQ(refusedLevel, 1);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(TaskSerializerTest, OnQueueFullRunsUnderTheLock) {
  TestSerializer serializer(2);
  serializer.InsertMany(1, FULL_LEVEL, 0);
  BlockedInsertion insertion;
  serializer.onFull = [&](const Message&, int32_t) { insertion.Begin(serializer, 1, 1); };
  EXPECT_EQ(serializer.Insert(0), 0U);
  EXPECT_TRUE(insertion.WasBlocked());
}

TEST_F(TaskSerializerTest, AnExceptionOfOnQueueFullReachesTheCallerAndLeavesTheLockFree) {
  TestSerializer serializer(2);
  serializer.InsertMany(1, FULL_LEVEL);
  serializer.onFull = [](const Message&, int32_t) { throw std::runtime_error("full"); };
  EXPECT_THROW(serializer.Insert(0), std::runtime_error);
  EXPECT_EQ(Message::s_alive, FULL_LEVEL);
  EXPECT_EQ(InsertFromAnotherThread(serializer, 1, 1), 1U);
}

TEST_F(TaskSerializerTest, AMessageThatCannotBeCopiedIsNotQueued) {
  TestSerializer serializer;
  Message::s_onCopy = [] { throw std::bad_alloc(); };
  EXPECT_THROW(serializer.Insert(1), std::bad_alloc);
  Message::s_onCopy = nullptr;
  EXPECT_EQ(Message::s_alive, 0);
  EXPECT_EQ(InsertFromAnotherThread(serializer, 2), 1U);
  serializer.StartSerialization();
  ASSERT_TRUE(serializer.WaitUntilBegun(1));
  EXPECT_THAT(serializer.Begun(), ElementsAre(2));
}

TEST_F(TaskSerializerTest, WhatTheSinkThrowsBeforeATaskIsQueuedReachesTheCaller) {
  TestSerializer serializer(2);
  serializer.InsertMany(1, FULL_LEVEL, 0);
  for (const auto& [format, level] :
       {std::pair{line::RAISED, 1}, {line::LOCKED, 2}, {line::FULL, 0}}) {
    m_oSession.ThrowAt(format);
    EXPECT_THROW(serializer.Insert(0, level), std::runtime_error) << format;
    m_oSession.CallAt(format, nullptr);
    EXPECT_EQ(Message::s_alive, FULL_LEVEL);
  }
  EXPECT_EQ(InsertFromAnotherThread(serializer, 1, 1), 1U);
}

TEST_F(TaskSerializerTest, WhatTheSinkThrowsOnceATaskIsQueuedStaysHidden) {
  for (const char* format : {line::INSERTED, line::SET}) {
    TestSerializer serializer;
    serializer.StartSerialization();
    m_oSession.ThrowAt(format);
    EXPECT_EQ(serializer.Insert(1), 1U) << format;
    EXPECT_TRUE(serializer.WaitUntilBegun(1)) << format;
    m_oSession.CallAt(format, nullptr);
  }
}

TEST_F(TaskSerializerTest, DestructionWithoutAStartFreesTheQueuedTasks) {
  auto serializer = std::make_unique<TestSerializer>(3);
  serializer->InsertMany(1, FULL_LEVEL, 0);
  serializer->InsertMany(1, 2, 2);
  EXPECT_EQ(Message::s_alive, FULL_LEVEL + 2);
  serializer.reset();
  EXPECT_EQ(Message::s_alive, 0);
}

TEST(TaskSerializerThreadsTest, TakesEveryTaskOnceFromManyThreads) {
  constexpr int THREADS = 4;
  constexpr int TASKS = 100;
  TestSerializer serializer;
  serializer.StartSerialization();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < THREADS; ++thread) {
    threads.emplace_back([&serializer, thread] {
      for (int task = 0; task < TASKS; ++task) {
        EXPECT_TRUE(WaitUntil([&] { return serializer.Insert(thread * TASKS + task) == 1; }));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  ASSERT_TRUE(serializer.WaitUntilBegun(THREADS * TASKS));
  std::vector<int> begun = serializer.Begun();
  std::sort(begun.begin(), begun.end());
  EXPECT_THAT(begun, ElementsAreArray(Numbers(0, THREADS * TASKS)));
}

}  // namespace
