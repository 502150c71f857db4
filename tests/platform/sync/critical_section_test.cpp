#include "platform/sync/critical_section.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

namespace {

class CriticalSectionTest : public testing::Test {
 protected:
  CCriticalSection m_oSection;

  // Expects that another thread finds the lock taken, and once `release` has run gets it.
  void ExpectHeldUntil(const std::function<void()>& release) {
    const auto locks = calls::pthread_mutex_lock.Watch();
    std::atomic<bool> isInside = false;
    std::thread other([&] {
      m_oSection.Acquire();
      isInside = true;
      m_oSection.Release();
    });
    EXPECT_TRUE(WaitUntil([&] { return locks.GetCount() == 1; }));
    EXPECT_FALSE(isInside);
    release();
    other.join();
    EXPECT_TRUE(isInside);
  }
};

TEST_F(CriticalSectionTest, ExcludesOtherThreadsUntilReleased) {
  m_oSection.Acquire();
  ExpectHeldUntil([&] { m_oSection.Release(); });
}

TEST_F(CriticalSectionTest, KeepsNestedAcquisitionsUntilTheLastRelease) {
  m_oSection.Acquire();
  m_oSection.Acquire();
  m_oSection.Acquire();
  m_oSection.Release();
  m_oSection.Release();
  ExpectHeldUntil([&] { m_oSection.Release(); });
}

TEST_F(CriticalSectionTest, IgnoresTheReleaseOfAThreadThatDoesNotHoldIt) {
  m_oSection.Acquire();
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  std::thread([&] { m_oSection.Release(); }).join();
  EXPECT_EQ(unlocks.GetCount(), 0);
  ExpectHeldUntil([&] { m_oSection.Release(); });
}

TEST_F(CriticalSectionTest, IgnoresAReleaseWhenItIsFree) {
  m_oSection.Acquire();
  m_oSection.Release();
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  m_oSection.Release();
  EXPECT_EQ(unlocks.GetCount(), 0);
  m_oSection.Acquire();
  ExpectHeldUntil([&] { m_oSection.Release(); });
}

TEST_F(CriticalSectionTest, ExcludesThreadsFromEachOther) {
  int count = 0;
  const auto work = [&] {
    for (int turn = 0; turn < 1000; ++turn) {
      const CCriticalSectionGuard guard(m_oSection);
      ++count;
    }
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(count, 2000);
}

TEST_F(CriticalSectionTest, IsHeldForTheLifeOfAGuard) {
  std::optional<CCriticalSectionGuard> guard(m_oSection);
  ExpectHeldUntil([&] { guard.reset(); });
}

TEST(CriticalSectionEndTest, FreesAndDestroysItsMutexWhenTheHolderDestroysIt) {
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  const auto destroys = calls::pthread_mutex_destroy.Watch();
  {
    CCriticalSection section;
    section.Acquire();
    section.Acquire();
  }
  EXPECT_EQ(unlocks.GetCount(), 1);
  EXPECT_EQ(destroys.GetCount(), 1);
}

TEST(CriticalSectionEndTest, IsNotFreedWhenAnotherThreadHoldsIt) {
  auto section = std::make_unique<CCriticalSection>();
  std::thread([&] { section->Acquire(); }).join();
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  const auto destroys = calls::pthread_mutex_destroy.Fail(EBUSY);
  section.reset();
  EXPECT_EQ(unlocks.GetCount(), 0);
  EXPECT_EQ(destroys.GetCount(), 1);
}

TEST(CriticalSectionEndTest, ProtectsNothingWithoutAMutex) {
  const auto inits = calls::pthread_mutex_init.Fail(ENOMEM);
  const auto locks = calls::pthread_mutex_lock.Watch();
  const auto unlocks = calls::pthread_mutex_unlock.Watch();
  const auto destroys = calls::pthread_mutex_destroy.Watch();
  {
    CCriticalSection section;
    section.Acquire();
    std::thread([&] {
      section.Acquire();
      section.Release();
    }).join();
    section.Release();
  }
  EXPECT_EQ(locks.GetCount() + unlocks.GetCount() + destroys.GetCount(), 0);
}

}  // namespace
