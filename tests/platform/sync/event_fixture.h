#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/sync/event.h"
#include "tests/support/level_lines.h"
#include "tests/support/system_calls.h"
#include "tests/support/trace_session.h"

// What the tests of events share: the formats of their lines, and questions to an event.

inline constexpr char CREATING[] = "creating event %p <%s> (IsSignaled=%d)\n";
inline constexpr char OPENING[] = "refCount for event %p <%s> incremented (IsSignaled=%d)\n";
inline constexpr char MISMATCH[] = "WARNING: manual setting mismatch for event %p <%s>\n";
inline constexpr char SHARING[] = "incr refcount on event %p <%s> (IsSignaled=%d,IsManual=%d)\n";
inline constexpr char DROPPING[] = "decr refcount on event %p <%s> (IsSignaled=%d)\n";
inline constexpr char DELETING[] = "deleting event %p <%s> (IsSignaled=%d)\n";
inline constexpr char CHANGING[] =
    "Create event %p <%s>, changing attributes (IsSignaled=%d,IsManual=%d) --> "
    "(IsSignaled=%d,IsManual=%d)\n";
inline constexpr char SETTING[] = "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n";
inline constexpr char PULSING[] = "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n";
inline constexpr char RESETTING[] = "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n";
inline constexpr char CLOSING[] = "Close event %p <%s> IsSignaled=%d --> IsSignaled=1\n";
inline constexpr char CHECKING[] = "Check event %p <%s> (IsSignaled=%d)\n";
inline constexpr char FOREVER[] = "\nwaiting forever on event %p";
inline constexpr char BEGIN[] = "\nwaiting %dms on event %p";
inline constexpr char PREPARE[] =
    "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> "
    "(ts:sec=%ld,ts:nsec=%ld)\n";
inline constexpr char ALREADY[] =
    "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n";
inline constexpr char ENDING[] = "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n";

// The session's lines with the address of the first event in them written as "EVENT"; those of
// other events stay.
inline std::vector<std::string> EventTexts(const TraceSession& session) {
  const std::string before = "event ";
  std::vector<std::string> texts = session.Texts();
  std::string address;
  for (std::string& text : texts) {
    if (const size_t place = text.find(before + "0x"); address.empty() && place < text.size()) {
      const size_t start = place + before.size();
      const size_t end = text.find_first_not_of("0123456789abcdefx", start);
      address = text.substr(start, end - start);
    }
    const size_t place = address.empty() ? std::string::npos : text.find(address);
    if (place != std::string::npos) {
      text.replace(place, address.size(), "EVENT");
    }
  }
  return texts;
}

// Expects the lines of `operations`, which concern one event, written as "EVENT".
inline void ExpectEventLines(const std::vector<LevelLine>& lines,
                             const std::function<void()>& operations) {
  ExpectLines(lines, operations, EventTexts);
}

inline bool IsSame(CEvent& one, CEvent& other) {
  one.Reset();
  other.Set();
  const bool isSame = one.Check();
  other.Reset();
  return isSame;
}

inline bool IsAutoReset(CEvent& event) {
  event.Set();
  event.Wait(0);
  return !event.Check();
}

// Long enough never to pass in a test.
inline constexpr uint32_t LONG = 100'000;

// Waits until a thread counts as waiting on the event, which is not signalled and of that kind of
// reset: that is when changing nothing is refused. The thread may not block yet.
inline bool HasWaiter(CEvent& event, bool isManualReset) {
  return WaitUntil([&] { return !event.Create(false, isManualReset); });
}

// The monotonic clock of the program stands still.
inline ScopedAnswer StopClockAt(const timespec& now) {
  return calls::clock_gettime.Answer([now](clockid_t clock, timespec* time) {
    if (clock != CLOCK_MONOTONIC) {
      return calls::clock_gettime.Real(clock, time);
    }
    *time = now;
    return 0;
  });
}

// Expects what a handle answers that is closed or empty, without a line.
inline void ExpectEverythingRefused(CEvent& event) {
  const TraceSession session(5);
  EXPECT_FALSE(event.Set());
  EXPECT_FALSE(event.Pulse());
  EXPECT_FALSE(event.Reset());
  EXPECT_FALSE(event.Check());
  EXPECT_FALSE(event.Create(false, false));
  EXPECT_FALSE(event.Create(true, true));
  EXPECT_FALSE(event.Close());
  EXPECT_EQ(event.Wait(0, true), EVENT_FAILED);
  EXPECT_EQ(event.Wait(EVENT_INFINITE, true), EVENT_FAILED);
  EXPECT_THAT(session.Lines(), testing::IsEmpty());
}

// Some events are never destroyed: assignment takes the one that the target held before out of
// everybody's reach, and one whose mutex has failed counts a waiter for ever. The leak checker
// accepts what an object that lives on still refers to.
inline CEvent& KeepReachable(const CEvent& event) {
  static std::vector<CEvent*>& kept = *new std::vector<CEvent*>;
  kept.push_back(new CEvent(event));
  return *kept.back();
}

inline void InManyThreads(const std::function<void()>& work) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back(work);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}
