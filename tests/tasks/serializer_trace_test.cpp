#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"
#include "tests/tasks/test_serializer.h"

namespace {

// Writes every line of the serializer except the one for an event that throws: events never throw.
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
  const auto systemLog = calls::syslog.Watch();
  std::map<std::string, uint32_t> levels;
  for (uint32_t level = 1; level <= 5; ++level) {
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
  EXPECT_EQ(systemLog.GetCount(), 0) << "a line of level 0";
}

TEST(SerializerTraceTest, NothingIsWrittenWhileTracingIsOff) {
  const TraceSession session(0);
  WriteEveryLine();
  EXPECT_TRUE(session.Lines().empty());
}

}  // namespace
