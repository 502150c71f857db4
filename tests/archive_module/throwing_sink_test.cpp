// A trace sink of the host that throws, at each line of the module in turn: the host survives,
// every operation has its result, and nothing stays locked.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <stdexcept>

#include "tests/archive_module/module_host.h"
#include "tests/support/trace_session.h"

namespace {

constexpr char NO_TASK[] = "\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##";

class ThrowingSinkTest : public ModuleHost {
 protected:
  ThrowingSinkTest() {
    InstallCollector(GOOD_COLLECTOR);
    m_oSwitch.onHtiRequest = [](SipJson& request) { request.SetCmdUInt("ST", 0); };
  }

  // Makes the sink throw at the counted line with that number during the operation.
  template <typename IsCounted, typename Operation>
  auto WithThrowAt(int line, const IsCounted& isCounted, const Operation& operation) {
    struct Disarm {
      TraceSession& session;
      ~Disarm() { session.CallAtEachLine(nullptr); }
    } const disarm{m_oSession};
    m_nLines = 0;
    m_oSession.CallAtEachLine([this, line, isCounted](const std::string& format) {
      if (isCounted(format) && m_nLines++ == line) {
        m_bHasThrown = true;
        throw std::runtime_error("sink");
      }
    });
    return operation();
  }

  // Makes the sink throw at that line of the operation, on this thread.
  template <typename Operation>
  auto WithThrow(int line, const Operation& operation) {
    return WithThrowAt(
        line,
        [thread = std::this_thread::get_id()](const std::string& /*format*/) {
          return thread == std::this_thread::get_id();
        },
        operation);
  }

  // Sends a job and waits until it has ended. Makes the sink throw at that line of the job.
  void RunJob(int line, const char* command) {
    const auto isOfJob = [thread = std::this_thread::get_id()](const std::string& format) {
      return thread != std::this_thread::get_id() &&
             (format == "\n" || format.find("EM_TALVOR") != std::string::npos ||
              format.find("%-20s") != std::string::npos);
    };
    WithThrowAt(line, isOfJob, [&] {
      const size_t answers = m_oSwitch.Answers().size();
      m_oSession.Clear();
      EXPECT_EQ(Send(command), std::make_pair(1U, 22U));
      EXPECT_TRUE(WaitUntil(
          [&] { return m_oSwitch.Answers().size() > answers || m_oSession.Count(NO_TASK) > 0; }));
    });
    EXPECT_EQ(Run(CREATE), 0U) << "after a job with an exception at line " << line;
  }

  // Whether the sink has thrown since the last call, so that there may be more lines.
  bool HasThrown() { return m_bHasThrown.exchange(false); }

  TraceSession m_oSession{5};

 private:
  std::atomic<int> m_nLines = 0;
  std::atomic<bool> m_bHasThrown = false;
};

// Each line costs a start and a stop, so the lines are split among this many cases.
constexpr int SHARDS = 4;

class ThrowingSinkLifecycleTest : public ThrowingSinkTest,
                                  public testing::WithParamInterface<int> {};

}  // namespace

TEST_P(ThrowingSinkLifecycleTest, IsSurvivedAtEachLine) {
  int line = GetParam();
  do {
    LoadModule();
    EXPECT_EQ(WithThrow(line, [this] { return Create(&m_pModule, nullptr); }), 1U);
    ASSERT_NE(m_pModule, nullptr);
    EXPECT_EQ(WithThrow(line, [this] { return m_pModule->Start(&m_oSwitch, 1); }), 1U);
    EXPECT_EQ(WithThrow(line, [this] { return m_pModule->SetCabinetNumber(0); }), 1U);
    EXPECT_EQ(WithThrow(line, [this] { return m_pModule->ModuleNotification(0x20001, 0, 0); }), 0U);
    EXPECT_EQ(Run(CREATE), 0U) << line;
    EXPECT_EQ(WithThrow(line, [this] { return m_pModule->Stop(); }), 1U);
    // The lines of the entry point itself make it fail, before or after the deletion.
    if (WithThrow(line, [this] { return Delete(); }) == 0) {
      Delete();
    }
    m_pModule = nullptr;
    EXPECT_EQ(Delete(), 0U);
    UnloadModule();
    ASSERT_FALSE(IsLoaded());
    line += SHARDS;
  } while (HasThrown());
  EXPECT_FALSE(HasChildren());
}

INSTANTIATE_TEST_SUITE_P(Lines, ThrowingSinkLifecycleTest, testing::Range(0, SHARDS));

TEST_F(ThrowingSinkTest, IsSurvivedAtEachLineOfARequest) {
  ASSERT_EQ(CreateAndStart(), 1U);
  for (const char* command :
       {QUERY, CREATE, TRANSFER, R"({"OC":13312,"CA":1})", R"({"OC":13317})"}) {
    bool hasThrown = true;
    for (int line = 0; hasThrown; ++line) {
      const size_t answers = m_oSwitch.Answers().size();
      m_oSession.Clear();
      const auto [result, status] = WithThrow(line, [&] { return Send(command); });
      hasThrown = HasThrown();
      // A request whose task was taken before the sink threw is answered all the same.
      if (m_oSession.Count(
              "\nCTaskSerializer     : Task with priority %d inserted into task queue!") > 0) {
        EXPECT_TRUE(WaitUntil([&] { return m_oSwitch.Answers().size() > answers; }));
      }
      EXPECT_TRUE(!hasThrown || status == 13 || status == 22) << command << " at " << line;
      EXPECT_LE(result, 1U);
      EXPECT_EQ(Send(QUERY), std::make_pair(1U, 0U));
    }
  }
  EXPECT_EQ(Run(TRANSFER), 0U);
}

TEST_F(ThrowingSinkTest, IsSurvivedAtEachLineOfAJob) {
  ASSERT_EQ(CreateAndStart(), 1U);
  for (const char* command : {CREATE, TRANSFER}) {
    int line = 0;
    do {
      RunJob(line++, command);
    } while (HasThrown());
  }
}
