#include <gmock/gmock.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <memory>

#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

std::atomic<pthread_t> s_newestThread = 0;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names.
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attribute,
                          void* (*function)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attribute,
                          void* (*function)(void*), void* argument) {
  const int error = __real_pthread_create(thread, attribute, function, argument);
  s_newestThread = *thread;
  return error;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using testing::ElementsAre;

// A serializer whose worker a task has ended, with all trace lines.
class SerializerEndedWorkerTest : public SerializerTest {
 protected:
  // Starts a worker that a task then ends, behind the serializer's back.
  void StartAndEndWorker(TestSerializer& serializer) {
    serializer.onTask = [](Message& message, int32_t) {
      if (message.number == 0) {
        pthread_exit(nullptr);
      }
    };
    serializer.StartSerialization();
    EXPECT_EQ(serializer.Insert(0), 1U);
    EXPECT_TRUE(WaitUntil([] {
      int policy = 0;
      sched_param parameter = {};
      return pthread_getschedparam(s_newestThread, &policy, &parameter) != 0;
    }));
    m_session.Clear();
  }

  TraceSession m_session{5};
};

TEST_F(SerializerEndedWorkerTest, IsNotTerminatedAndKeepsTheLevelsEnabled) {
  TestSerializer serializer;
  StartAndEndWorker(serializer);
  serializer.TerminateSerialization();
  EXPECT_THAT(m_session.Formats(), ElementsAre(line::TERMINATE, line::TERMINATED));
  serializer.InsertMany(1, 1);
}

TEST_F(SerializerEndedWorkerTest, IsReplacedByTheNextStart) {
  TestSerializer serializer;
  StartAndEndWorker(serializer);
  serializer.InsertMany(1, 1);
  serializer.StartSerialization();
  EXPECT_TRUE(serializer.WaitUntilBegun(2));
  EXPECT_EQ(m_session.Count(line::KILLED), 1);
}

TEST_F(SerializerEndedWorkerTest, IsJoinedByTheDestructionThatFreesTheTasks) {
  auto serializer = std::make_unique<TestSerializer>();
  StartAndEndWorker(*serializer);
  serializer->InsertMany(1, 3);
  serializer.reset();
  EXPECT_EQ(Message::s_alive, 0);
  EXPECT_EQ(m_session.Count(line::KILLED), 1);
}

}  // namespace
