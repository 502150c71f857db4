// The module without memory: each allocation of a request and of a job fails in turn.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "tests/archive_module/call_faults.h"
#include "tests/archive_module/module_host.h"
#include "tests/support/failing_new.h"

namespace {

using testing::AnyOf;

class MemoryFaultsTest : public ModuleHost {
 protected:
  MemoryFaultsTest() {
    InstallCollector(GOOD_COLLECTOR);
    m_oSwitch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 0); };
  }
};

}  // namespace

// Allocations that the standard library makes for the module fail here too.

TEST_F(MemoryFaultsTest, AFailedAllocationOfARequestBecomesStatus13) {
  ASSERT_EQ(CreateAndStart(), 1U);
  for (const char* command : {QUERY, CREATE, NAMED_TRANSFER}) {
    bool hasFailed = true;
    for (int64_t successes = 0; hasFailed; ++successes) {
      const size_t answers = m_oSwitch.Answers().size();
      SipJson request = MakeRequest(command);
      FailingNew memory(successes, 1);
      m_pModule->ModuleRequest(request);
      memory.Stop();
      hasFailed = memory.HasFailed();
      const uint32_t status = StatusOf(request);
      EXPECT_THAT(status, AnyOf(command == QUERY ? 0U : 22U, 13U));
      if (status == 22) {
        EXPECT_EQ(m_oSwitch.StatusOf(answers), 0U);
      }
      EXPECT_EQ(Run(CREATE), 0U);
    }
  }
}

TEST_F(MemoryFaultsTest, ARequestThatHasNoMemoryForItsStatusIsSurvived) {
  ASSERT_EQ(CreateAndStart(), 1U);
  SipJson request = MakeRequest(QUERY);
  auto& allocator = request.m_oDocument.GetAllocator();
  while (allocator.Size() < allocator.Capacity()) {
    allocator.Malloc(1);
  }
  CallFaults faults(m_pLibrary);
  faults.Fail("malloc", 0);
  EXPECT_EQ(m_pModule->ModuleRequest(request), 1U);
  EXPECT_TRUE(faults.Stop());
  EXPECT_EQ(StatusOf(request), 999U);
  EXPECT_EQ(m_pModule->ModuleRequest(request), 1U);
  EXPECT_EQ(StatusOf(request), 0U);
}

// The worker runs out of memory after the answer to the job before. Run() may return, and the next
// job be sent, before the switch is done with an answer, so the answer is known by its number.
TEST_F(MemoryFaultsTest, AFailedAllocationOfAJobBecomesStatus6) {
  std::unique_ptr<FailingNew> memory;
  std::atomic<size_t> answersBefore = 0;
  int64_t successes = 0;
  bool hasFailed = false;
  m_oSwitch.onAnswered = [&] {
    if (m_oSwitch.Answers().size() == answersBefore) {
      memory = std::make_unique<FailingNew>(successes, 1);
    }
  };
  m_oSwitch.onAnswer = [&](SipJson& /*answer*/) {
    if (memory) {
      hasFailed = memory->HasFailed();
      memory.reset();
    }
  };
  ASSERT_EQ(CreateAndStart(), 1U);
  for (const char* command : {CREATE, NAMED_TRANSFER}) {
    successes = 0;
    do {
      SCOPED_TRACE(command + std::to_string(successes));
      answersBefore = m_oSwitch.Answers().size() + 1;
      EXPECT_EQ(Run(CREATE), 0U);
      const uint32_t status = Run(command);
      EXPECT_EQ(status, hasFailed ? 6U : 0U);
      ++successes;
    } while (hasFailed && !HasFailure());
    EXPECT_GT(successes, 1);
  }
}
