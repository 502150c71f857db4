#include "trace/trace_shield.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/trace_session.h"
#include "trace/debug_client.h"

namespace {

int CancelState() {
  int state = -1;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  pthread_setcancelstate(state, nullptr);
  return state;
}

// Runs `body` on a thread and returns whether the thread was unwound instead of running to the end.
bool IsUnwound(const std::function<void()>& body) {
  bool isUnwound = true;
  std::thread([&] {
    body();
    isUnwound = false;
  }).join();
  return isUnwound;
}

// Sets a flag when it is destroyed.
class Mark {
 public:
  explicit Mark(bool& flag) : m_bFlag(flag) {}
  ~Mark() { m_bFlag = true; }
  Mark(const Mark&) = delete;
  Mark& operator=(const Mark&) = delete;

 private:
  bool& m_bFlag;
};

TEST(TraceShieldTest, IsUpWhileItLives) {
  EXPECT_FALSE(CTraceShield::IsUp());
  {
    const CTraceShield outer;
    EXPECT_TRUE(CTraceShield::IsUp());
    {
      const CTraceShield inner;
      EXPECT_TRUE(CTraceShield::IsUp());
    }
    EXPECT_TRUE(CTraceShield::IsUp());
  }
  EXPECT_FALSE(CTraceShield::IsUp());
}

TEST(TraceShieldTest, StandsOnItsOwnThreadOnly) {
  const CTraceShield shield;
  std::thread([] { EXPECT_FALSE(CTraceShield::IsUp()); }).join();
}

TEST(TraceShieldTest, EndsAnExceptionOfTheSinkInTheTraceCall) {
  TraceSession session(1);
  session.ThrowAt("line");
  session.CallAt("number", [] { throw 5; });
  const CTraceShield shield;
  EXPECT_NO_THROW(DEBUG_TRACE(1, "line"));
  EXPECT_NO_THROW(DEBUG_TRACE(1, "number"));
  EXPECT_NO_THROW(g_oDebugClient.Print("line"));
  EXPECT_NO_THROW(g_oDebugClient.PrintFor(0, "line"));
  DEBUG_TRACE(1, "next");
  EXPECT_EQ(session.Texts(), std::vector<std::string>({"next"}));
}

TEST(TraceShieldTest, IsGoneWhenAnotherExceptionLeavesItsScope) {
  TraceSession session(1);
  session.ThrowAt("line");
  EXPECT_THROW(
      {
        const CTraceShield shield;
        throw std::logic_error("elsewhere");
      },
      std::logic_error);
  EXPECT_FALSE(CTraceShield::IsUp());
  EXPECT_THROW(DEBUG_TRACE(1, "line"), std::runtime_error);
}

TEST(TraceShieldTest, InnerShieldLeavesTheOuterOneUp) {
  TraceSession session(1);
  session.ThrowAt("line");
  const CTraceShield outer;
  { const CTraceShield inner; }
  EXPECT_NO_THROW(DEBUG_TRACE(1, "line"));
}

TEST(TraceShieldTest, HoldsCancellationBackUntilItIsGone) {
  bool isHeldBack = false;
  bool isDestroyed = false;
  TraceSession session(1);
  session.CallAt("line", [] {
    pthread_cancel(pthread_self());
    pthread_testcancel();
  });
  EXPECT_TRUE(IsUnwound([&] {
    // Without an object to destroy here, the address sanitizer misses that the frame goes.
    const Mark mark(isDestroyed);
    {
      const CTraceShield shield;
      DEBUG_TRACE(1, "line");
      pthread_testcancel();
      isHeldBack = true;
    }
    pthread_testcancel();
  }));
  EXPECT_TRUE(isHeldBack);
  EXPECT_TRUE(isDestroyed);
  EXPECT_EQ(session.Count("line"), 1);
}

TEST(TraceShieldTest, CancellationInTheSinkPassesWithoutAShield) {
  TraceSession session(1);
  session.CallAt("line", [] {
    pthread_cancel(pthread_self());
    pthread_testcancel();
  });
  EXPECT_TRUE(IsUnwound([] { DEBUG_TRACE(1, "line"); }));
  EXPECT_EQ(session.Count("line"), 0);
  session.CallAt("line", [] {});
  DEBUG_TRACE(1, "line");
  EXPECT_EQ(session.Count("line"), 1);
}

TEST(TraceShieldTest, RestoresTheCancelStateThatItFound) {
  EXPECT_EQ(CancelState(), PTHREAD_CANCEL_ENABLE);
  {
    const CTraceShield outer;
    EXPECT_EQ(CancelState(), PTHREAD_CANCEL_DISABLE);
    { const CTraceShield inner; }
    EXPECT_EQ(CancelState(), PTHREAD_CANCEL_DISABLE);
  }
  EXPECT_EQ(CancelState(), PTHREAD_CANCEL_ENABLE);
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  { const CTraceShield shield; }
  EXPECT_EQ(CancelState(), PTHREAD_CANCEL_DISABLE);
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}

TEST(TraceShieldTest, SinkThatEndsTheThreadUnwindsItInSpiteOfTheShield) {
  TraceSession session(1);
  session.CallAt("line", [] { pthread_exit(nullptr); });
  EXPECT_TRUE(IsUnwound([] {
    const CTraceShield shield;
    DEBUG_TRACE(1, "line");
  }));
  EXPECT_TRUE(IsUnwound([] { DEBUG_TRACE_NOTHROW(1, "line"); }));
}

}  // namespace
