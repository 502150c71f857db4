#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>

#include "tests/support/system_calls.h"
#include "tests/tasks/test_serializer.h"

namespace {

using testing::ElementsAre;

using SerializerWakeUpTest = SerializerTest;

// After the last task the worker locks the queues, scans, and locks the event to reset it: a task
// queued at that moment would be lost if the scan did not include the reset.
TEST_F(SerializerWakeUpTest, ATaskQueuedBetweenAnEmptyScanAndTheResetIsNotLost) {
  std::atomic<std::thread::id> worker;  // once it has done its first task
  int locks = 0;
  BlockedInsertion insertion;
  TestSerializer serializer;
  const auto locking = calls::pthread_mutex_lock.Answer([&](pthread_mutex_t* mutex) {
    if (worker.load() == std::this_thread::get_id() && ++locks == 2) {
      worker = std::thread::id();
      insertion.Begin(serializer, 2, 0);
    }
    return calls::pthread_mutex_lock.Real(mutex);
  });
  serializer.onEmpty = [&](int32_t) {
    if (serializer.Begun().size() == 1) {
      worker = std::this_thread::get_id();
    }
  };
  serializer.StartSerialization();
  serializer.InsertMany(1, 1);
  ASSERT_TRUE(serializer.WaitUntilBegun(2));
  EXPECT_TRUE(insertion.WasBlocked());
  serializer.TerminateSerialization();
}

TEST_F(SerializerWakeUpTest, WithoutAnEventTheWorkerSpinsAndServesTheTasks) {
  auto refusing = calls::pthread_condattr_setclock.Fail(EINVAL);
  TestSerializer serializer;
  refusing.End();
  serializer.StartSerialization();
  serializer.InsertMany(1, 3);
  ASSERT_TRUE(serializer.WaitUntilBegun(3));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1, 2, 3));
  serializer.TerminateSerialization();
  EXPECT_EQ(serializer.Insert(4), 0U);
}

}  // namespace
