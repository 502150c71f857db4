#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <functional>

#include "tests/tasks/test_serializer.h"

namespace {

std::atomic<bool> s_refuseEvents = false;

// What the thread does before it locks the same mutex for the second time; unset again by then.
thread_local std::function<void()>* t_beforeSecondLock = nullptr;
thread_local pthread_mutex_t* t_firstMutex = nullptr;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names.
extern "C" {

int __real_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock) noexcept;
int __wrap_pthread_condattr_setclock(pthread_condattr_t* attribute, clockid_t clock) noexcept {
  return s_refuseEvents ? EINVAL : __real_pthread_condattr_setclock(attribute, clock);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex) noexcept;
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  if (t_beforeSecondLock != nullptr) {
    if (t_firstMutex == nullptr) {
      t_firstMutex = mutex;
    } else if (t_firstMutex == mutex) {
      const std::function<void()>* action = t_beforeSecondLock;
      t_beforeSecondLock = nullptr;
      (*action)();
    }
  }
  return __real_pthread_mutex_lock(mutex);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using testing::ElementsAre;

using SerializerWakeUpTest = SerializerTest;

// After the last task the worker locks the event for its wait, scans, and locks the event again to
// reset it: the moment at which a new task would be lost if the reset were not part of the scan.
TEST_F(SerializerWakeUpTest, ATaskQueuedBetweenAnEmptyScanAndTheResetIsNotLost) {
  TestSerializer serializer;
  BlockedInsertion insertion;
  std::function<void()> insert = [&] { insertion.Begin(serializer, 2, 0); };
  serializer.onEmpty = [&](int32_t) {
    if (serializer.Begun().size() == 1) {
      t_beforeSecondLock = &insert;
    }
  };
  serializer.StartSerialization();
  serializer.InsertMany(1, 1);
  ASSERT_TRUE(serializer.WaitUntilBegun(2));
  EXPECT_TRUE(insertion.WasBlocked());
}

TEST_F(SerializerWakeUpTest, WithoutAnEventTheWorkerSpinsAndServesTheTasks) {
  s_refuseEvents = true;
  TestSerializer serializer;
  s_refuseEvents = false;
  serializer.StartSerialization();
  serializer.InsertMany(1, 3);
  ASSERT_TRUE(serializer.WaitUntilBegun(3));
  EXPECT_THAT(serializer.Begun(), ElementsAre(1, 2, 3));
  serializer.TerminateSerialization();
  EXPECT_EQ(serializer.Insert(4), 0U);
}

}  // namespace
