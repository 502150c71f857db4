#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/trace/next_sink.h"
#include "tests/trace/taken_system_log.h"
#include "trace/debug_client.h"
#include "trace/trace_sink.h"

using Texts = std::vector<std::string>;

// A sink that may be invalid, and that tells its two outputs apart.
class Sink final : public ITraceSink {
 public:
  void Placeholder0() override { m_oLines.emplace_back("placeholder"); }
  void Placeholder1() override { m_oLines.emplace_back("placeholder"); }
  bool IsValid() override {
    ++m_nValidityTests;
    return m_bValid;
  }
  void Placeholder3() override { m_oLines.emplace_back("placeholder"); }
  void Placeholder4() override { m_oLines.emplace_back("placeholder"); }
  void Placeholder5() override { m_oLines.emplace_back("placeholder"); }
  void Placeholder6() override { m_oLines.emplace_back("placeholder"); }

  [[gnu::format(printf, 2, 0)]] void PlainOutput(const char* format, va_list arguments,
                                                 const char* moduleName) override {
    Add("plain", format, arguments, moduleName);
  }
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* moduleName) override {
    Add("leveled", format, arguments, moduleName);
  }

  std::atomic<bool> m_bValid = true;
  std::atomic<int> m_nValidityTests = 0;
  Texts m_oLines;

 private:
  [[gnu::format(printf, 3, 0)]] void Add(const char* operation, const char* format,
                                         va_list arguments, const char* moduleName) {
    char text[100];
    vsnprintf(text, sizeof text, format, arguments);
    m_oLines.push_back(std::string(operation) + " " + moduleName + ": " + text);
  }
};

// The object that the trace client finds first; a library that this program is linked to exports
// the next one.
Sink Debug;

namespace {

class DebugClientSinkTest : public testing::Test {
 protected:
  DebugClientSinkTest() {
    Debug.m_bValid = true;
    Debug.m_nValidityTests = 0;
    Debug.m_oLines.clear();
    SetNextSinkValid(true);
    TakeLinesOfNextSink();
    m_oClient.Load("EM_TALVOR");
  }
  ~DebugClientSinkTest() override { m_oClient.Release(); }

  TakenSystemLog m_oLog;
  CDebugClient m_oClient;
};

// The position in the virtual table, from the ABI's form of a pointer to a virtual member: the
// offset, to which x86 adds 1 as the mark of a virtual one. ARM has the mark in the second word.
template <typename Operation>
size_t PositionOf(Operation operation) {
  static_assert(sizeof operation == 2 * sizeof(size_t));
  size_t words[2];
  std::memcpy(words, &operation, sizeof words);
  return words[0] / sizeof(void*);
}

TEST_F(DebugClientSinkTest, OperationsLieWhereTheHostHasThem) {
  EXPECT_EQ(PositionOf(&ITraceSink::IsValid), 2U);
  EXPECT_EQ(PositionOf(&ITraceSink::PlainOutput), 7U);
  EXPECT_EQ(PositionOf(&ITraceSink::Output), 8U);
}

TEST_F(DebugClientSinkTest, TraceCallGoesToTheOutputWithTheModuleName) {
  m_oClient.Trace(0, "line %d", 1);
  EXPECT_EQ(Debug.m_oLines, Texts({"leveled EM_TALVOR: line 1"}));
  EXPECT_EQ(TakeLinesOfNextSink(), 0);
}

TEST_F(DebugClientSinkTest, PlainOperationsGoToThePlainOutput) {
  m_oClient.Print("first %d", 1);
  m_oClient.PrintFor(4711, "second %d", 2);
  EXPECT_EQ(Debug.m_oLines, Texts({"plain EM_TALVOR: first 1", "plain EM_TALVOR: second 2"}));
}

TEST_F(DebugClientSinkTest, IsLookedUpAtTheFirstLineOnly) {
  EXPECT_EQ(Debug.m_nValidityTests, 0);
  m_oClient.Trace(1, "dropped");
  EXPECT_EQ(Debug.m_nValidityTests, 0);
  m_oClient.Trace(0, "line");
  m_oClient.Trace(0, "line");
  m_oClient.Print("line");
  EXPECT_EQ(Debug.m_nValidityTests, 1);
  Debug.m_bValid = false;
  m_oClient.Trace(0, "line");
  EXPECT_EQ(Debug.m_oLines.size(), 4U);
}

TEST_F(DebugClientSinkTest, PlainOperationLooksItUpToo) {
  m_oClient.Print("line");
  m_oClient.Trace(0, "line");
  EXPECT_EQ(Debug.m_nValidityTests, 1);
  EXPECT_EQ(Debug.m_oLines.size(), 2U);
}

TEST_F(DebugClientSinkTest, NextObjectInSearchOrderStandsInForAnInvalidOne) {
  Debug.m_bValid = false;
  m_oClient.Trace(0, "line");
  EXPECT_EQ(TakeLinesOfNextSink(), 1);
  Debug.m_bValid = true;
  m_oClient.Print("line");
  EXPECT_EQ(TakeLinesOfNextSink(), 1) << "it was found and stays";
  EXPECT_EQ(Debug.m_oLines, Texts());
}

TEST_F(DebugClientSinkTest, LosesTheLineWhenNoObjectIsValidAndLooksAgainAtTheNext) {
  Debug.m_bValid = false;
  SetNextSinkValid(false);
  m_oClient.Trace(0, "lost");
  m_oClient.Print("lost");
  m_oClient.PrintFor(0, "lost");
  EXPECT_EQ(TakeLinesOfNextSink(), 0);
  EXPECT_EQ(m_oLog.entries.size(), 1U) << "the line of level 0 is in the system log";
  Debug.m_bValid = true;
  m_oClient.Trace(0, "line");
  EXPECT_EQ(Debug.m_oLines, Texts({"leveled EM_TALVOR: line"}));
}

TEST_F(DebugClientSinkTest, TestOfValidityThatThrowsCachesNothing) {
  Debug.m_bValid = false;
  SetNextSinkThrowing(true);
  EXPECT_ANY_THROW(m_oClient.Trace(0, "lost"));
  {
    const CTraceShield shield;
    EXPECT_NO_THROW(m_oClient.Trace(0, "lost"));
  }
  SetNextSinkThrowing(false);
  m_oClient.Trace(0, "line");
  EXPECT_EQ(TakeLinesOfNextSink(), 1);
}

TEST_F(DebugClientSinkTest, ThreadsThatStartTogetherFindIt) {
  std::atomic<int> ready = 0;
  const auto trace = [&] {
    ++ready;
    while (ready < 2) {
      std::this_thread::yield();
    }
    m_oClient.Trace(1, "dropped");
    m_oClient.Trace(0, "line");
  };
  Debug.m_bValid = false;
  std::thread first(trace);
  std::thread second(trace);
  first.join();
  second.join();
  EXPECT_EQ(TakeLinesOfNextSink(), 2);
}

}  // namespace
