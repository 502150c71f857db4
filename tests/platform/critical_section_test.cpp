#include "platform/critical_section.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "tests/platform/pthread_calls.h"
#include "tests/support/trace_session.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class CriticalSectionTest : public testing::Test {
 protected:
  PthreadCalls m_oCalls;
  CCriticalSection m_oSection;

  // True when another thread finds the lock taken, and once `release` has run gets it.
  bool ExcludesOthersUntil(const std::function<void()>& release) {
    m_oCalls.Take();
    std::atomic<bool> isInside = false;
    std::thread other([&] {
      m_oSection.Acquire();
      isInside = true;
      m_oSection.Release();
    });
    const bool hasAsked = WaitUntil([&] { return m_oCalls.Take().size() == 1; });
    const bool wasExcluded = !isInside;
    release();
    other.join();
    return hasAsked && wasExcluded && isInside;
  }
};

TEST_F(CriticalSectionTest, ExcludesOtherThreadsUntilReleased) {
  m_oSection.Acquire();
  EXPECT_TRUE(ExcludesOthersUntil([&] { m_oSection.Release(); }));
}

TEST_F(CriticalSectionTest, KeepsNestedAcquisitionsUntilTheLastRelease) {
  m_oSection.Acquire();
  m_oSection.Acquire();
  m_oSection.Acquire();
  m_oSection.Release();
  m_oSection.Release();
  EXPECT_TRUE(ExcludesOthersUntil([&] { m_oSection.Release(); }));
}

TEST_F(CriticalSectionTest, LocksItsMutexOnceForNestedAcquisitions) {
  m_oCalls.Take();
  m_oSection.Acquire();
  m_oSection.Acquire();
  m_oSection.Release();
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("mutex_lock"));
  m_oSection.Release();
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("mutex_unlock"));
}

TEST_F(CriticalSectionTest, IgnoresTheReleaseOfAThreadThatDoesNotHoldIt) {
  m_oSection.Acquire();
  m_oCalls.Take();
  std::thread([&] { m_oSection.Release(); }).join();
  EXPECT_THAT(m_oCalls.Take(), IsEmpty());
  m_oSection.Release();
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("mutex_unlock"));
}

TEST_F(CriticalSectionTest, IgnoresAReleaseWhenItIsFree) {
  m_oSection.Acquire();
  m_oSection.Release();
  m_oCalls.Take();
  m_oSection.Release();
  EXPECT_THAT(m_oCalls.Take(), IsEmpty());
  m_oSection.Acquire();
  m_oSection.Release();
  EXPECT_THAT(m_oCalls.Take(), ElementsAre("mutex_lock", "mutex_unlock"));
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
  EXPECT_TRUE(ExcludesOthersUntil([&] { guard.reset(); }));
}

TEST(CriticalSectionEndTest, DestroysItsMutex) {
  PthreadCalls calls;
  { const CCriticalSection section; }
  EXPECT_THAT(calls.Take(), ElementsAre("mutex_init", "mutex_destroy"));
}

TEST(CriticalSectionEndTest, IsFreedWhenTheHolderDestroysIt) {
  PthreadCalls calls;
  {
    CCriticalSection section;
    section.Acquire();
    section.Acquire();
  }
  EXPECT_THAT(calls.Take(),
              ElementsAre("mutex_init", "mutex_lock", "mutex_unlock", "mutex_destroy"));
}

TEST(CriticalSectionEndTest, IsNotFreedWhenAnotherThreadHoldsIt) {
  PthreadCalls calls;
  auto section = std::make_unique<CCriticalSection>();
  std::thread([&] { section->Acquire(); }).join();
  calls.AnswerNext("mutex_destroy", [] { return EBUSY; });
  section.reset();
  EXPECT_THAT(calls.Take(), ElementsAre("mutex_init", "mutex_lock", "mutex_destroy"));
}

TEST(CriticalSectionEndTest, ProtectsNothingWithoutAMutex) {
  PthreadCalls calls;
  calls.FailNext("mutex_init", ENOMEM);
  {
    CCriticalSection section;
    section.Acquire();
    std::thread([&] {
      section.Acquire();
      section.Release();
    }).join();
    section.Release();
  }
  EXPECT_THAT(calls.Take(), ElementsAre("mutex_init"));
}

}  // namespace
