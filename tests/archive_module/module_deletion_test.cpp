// The deletion of a module that was not stopped: what becomes of the worker, of a running collector
// and of queued jobs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

class ModuleDeletionTest : public ModuleHost {};

}  // namespace

TEST_F(ModuleDeletionTest, LeavesTheIdOfAFailedRunAlone) {
  InstallCollector("exit 2");
  const TraceSession session(1);
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(Run(CREATE), 6U);
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_EQ(session.Count(TERMINATE_FORMAT), 0);
}

TEST_F(ModuleDeletionTest, EndsARunningCollectorAndDropsWhatIsQueued) {
  InstallCollector(LONG_RUN);
  const TraceSession session(1);
  const size_t threads = CountThreads();
  StartWithRunningCollector();
  Send(CREATE);
  Send(TRANSFER);
  const std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
  EXPECT_EQ(DeleteModule(), 1U);
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time, STOP_GRACE);
  EXPECT_LT(time, STOP_GRACE + LOAD_DELAY);
  EXPECT_THAT(m_oSwitch.Answers(), testing::SizeIs(1));
  EXPECT_EQ(m_oSwitch.StatusOf(0), 6U);
  EXPECT_TRUE(HasOnlyThreads(threads));
  EXPECT_FALSE(HasChildren());
  EXPECT_EQ(session.Count("\nEM DLL (%-10s) : .. Module destroyed successfully!"), 1);
}

TEST_F(ModuleDeletionTest, LetsACollectorEndWithinTheGrace) {
  InstallCollector(SHORT_RUN);
  StartWithRunningCollector();
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_EQ(m_oSwitch.StatusOf(0), 0U);
}

TEST_F(ModuleDeletionTest, WaitsLongerThanStopForAHandBack) {
  InstallCollector(GOOD_COLLECTOR);
  const TraceSession session(1);
  std::promise<void> begun;
  std::atomic<bool> isDestroyed = false;
  m_oSwitch.onAnswer = [&](SipJson& /*answer*/) {
    begun.set_value();
    std::this_thread::sleep_for(std::chrono::seconds(8));
    isDestroyed = session.Count("\nEM_TALVOR           : CLASS DESTROYED!") != 0;
  };
  ASSERT_EQ(CreateAndStart(), 1U);
  Send(CREATE);
  begun.get_future().wait();
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_FALSE(isDestroyed);
  EXPECT_THAT(m_oSwitch.Answers(), testing::SizeIs(1));
}

TEST_F(ModuleDeletionTest, EndsAnIdleWorker) {
  InstallCollector("");
  const size_t threads = CountThreads();
  ASSERT_EQ(CreateAndStart(), 1U);
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_TRUE(HasOnlyThreads(threads));
}

TEST_F(ModuleDeletionTest, DropsJobsThatComeMeanwhile) {
  InstallCollector("touch \"$archive\"");
  ASSERT_EQ(CreateAndStart(), 1U);
  for (int count = 0; count < 19; ++count) {
    Send(CREATE);
  }
  EXPECT_EQ(DeleteModule(), 1U);
  EXPECT_FALSE(HasChildren());
  UnloadModule();
  EXPECT_FALSE(IsLoaded());
}
