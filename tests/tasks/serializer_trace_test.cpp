#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"
#include "trace/debug_client.h"

namespace {

std::atomic<int> s_systemLogLines = 0;

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker gives this name.
extern "C" void __wrap_syslog(int /*priority*/, const char* /*format*/, ...) { ++s_systemLogLines; }

namespace {

constexpr uint32_t HIGHEST_LEVEL = 5;

// Writes every line of the serializer but the one of an exception while an event is set.
void WriteEveryLine() {
  TestSerializer serializer;
  CEvent event(false, true);
  CEvent closed(false, true);
  closed.Close();
  std::atomic<bool> isEmpty = false;
  serializer.onTask = [](Message& message, int32_t) {
    if (message.number == 1) {
      throw std::runtime_error("test");
    }
  };
  serializer.onEmpty = [&](int32_t) { isEmpty = true; };
  EXPECT_EQ(serializer.Insert(0, 1), 0U);
  serializer.InsertMany(1, 1);
  EXPECT_EQ(serializer.Insert(2, 0, &event), 1U);
  EXPECT_EQ(serializer.Insert(3, 0, &closed), 1U);
  serializer.InsertMany(4, 16);
  EXPECT_EQ(serializer.Insert(20), 0U);
  serializer.StartSerialization();
  EXPECT_TRUE(WaitUntil([&] { return isEmpty.load(); }));
  serializer.TerminateSerialization();
}

TEST(SerializerTraceTest, EachLineHasItsLevel) {
  std::map<std::string, uint32_t> levels;
  for (uint32_t level = 1; level <= HIGHEST_LEVEL; ++level) {
    const TraceSession session(level);
    WriteEveryLine();
    for (const std::string& format : SerializerFormats(session)) {
      if (!format.starts_with("hook ")) {
        levels.emplace(format, level);
      }
    }
  }
  const std::map<std::string, uint32_t> expected = {
      {line::ENABLE_ALL, 4},   {line::START, 4},       {line::RAISED, 4},
      {line::LOCKED, 4},       {line::INSERTED, 5},    {line::FULL, 1},
      {line::TERMINATE, 4},    {line::DISABLE_ALL, 4}, {line::ALL_REMOVED, 4},
      {line::TERMINATED, 5},   {line::DESTROYED, 4},   {line::WORKER_START, 4},
      {line::WAITING, 4},      {line::WAKEUP, 4},      {line::CHECKING, 4},
      {line::PROCESS, 5},      {line::COMPLETED, 5},   {line::EXCEPTION, 1},
      {line::EVENT_SET, 5},    {line::EVENT_ERROR, 1}, {line::WORKER_EXIT, 4},
      {line::THREAD_RETURN, 1}};
  EXPECT_EQ(levels, expected);
  EXPECT_EQ(s_systemLogLines, 0) << "a line of level 0";
}

// A set throws at level 5 only, where the sink sees its line; the level sinks just before the
// worker's answer.
TEST(SerializerTraceTest, AnExceptionSettingTheExternalEventIsALineOfLevelOne) {
  TraceSession session(HIGHEST_LEVEL);
  TestSerializer serializer;
  CEvent event(false, true);
  serializer.onTask = [&](Message&, int32_t) {
    session.CallAt(line::SET, [] {
      setenv("CV_LOG_DEBUG_LEVEL", "1", 1);
      g_oDebugClient.Load("EM_TALVOR");
      throw std::runtime_error("test");
    });
  };
  serializer.Insert(1, 0, &event);
  serializer.StartSerialization();
  EXPECT_TRUE(session.WaitFor(line::EVENT_EXCEPTION));
  EXPECT_EQ(s_systemLogLines, 0) << "a line of level 0";
}

TEST(SerializerTraceTest, NothingIsWrittenWhileTracingIsOff) {
  const TraceSession session(0);
  WriteEveryLine();
  EXPECT_TRUE(session.Lines().empty());
}

}  // namespace
