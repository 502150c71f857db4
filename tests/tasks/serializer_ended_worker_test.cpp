#include <gmock/gmock.h>
#include <pthread.h>
#include <sched.h>

#include <memory>

#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

using testing::ElementsAre;

// A serializer whose worker a task has ended, with all trace lines.
class SerializerEndedWorkerTest : public SerializerTest {
 protected:
  // Starts a worker that a task then ends without the serializer's knowledge.
  void StartAndEndWorker(TestSerializer& serializer) {
    serializer.onTask = [](Message& message, int32_t) {
      if (message.number == 0) {
        pthread_exit(nullptr);
      }
    };
    pthread_t worker = 0;
    const auto creation = calls::pthread_create.Answer([&](pthread_t* thread, auto... arguments) {
      const int error = calls::pthread_create.Real(thread, arguments...);
      worker = *thread;
      return error;
    });
    serializer.StartSerialization();
    EXPECT_EQ(serializer.Insert(0), 1U);
    EXPECT_TRUE(WaitUntil([&] {
      int policy = 0;
      sched_param parameter = {};
      return pthread_getschedparam(worker, &policy, &parameter) != 0;
    }));
    m_oSession.Clear();
  }

  TraceSession m_oSession{5};
};

TEST_F(SerializerEndedWorkerTest, IsNotTerminatedAndKeepsTheLevelsEnabled) {
  TestSerializer serializer;
  StartAndEndWorker(serializer);
  serializer.TerminateSerialization();
  EXPECT_THAT(m_oSession.Formats(), ElementsAre(line::TERMINATE, line::TERMINATED));
  serializer.InsertMany(1, 1);
}

TEST_F(SerializerEndedWorkerTest, IsReplacedByTheNextStart) {
  TestSerializer serializer;
  StartAndEndWorker(serializer);
  serializer.InsertMany(1, 1);
  serializer.StartSerialization();
  EXPECT_TRUE(serializer.WaitUntilBegun(2));
  EXPECT_EQ(m_oSession.Count(line::KILLED), 1);
}

TEST_F(SerializerEndedWorkerTest, IsJoinedByTheDestructionThatFreesTheTasks) {
  auto serializer = std::make_unique<TestSerializer>();
  StartAndEndWorker(*serializer);
  serializer->InsertMany(1, 3);
  serializer.reset();
  EXPECT_EQ(Message::s_alive, 0);
  EXPECT_EQ(m_oSession.Count(line::KILLED), 1);
}

}  // namespace
