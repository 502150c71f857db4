#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/system_calls.h"

// What becomes of a system call.
enum class Outcome {
  DONE,            // the call is made
  FAILED,          // it fails and does nothing
  DONE_AND_FAILED  // it is made, and fails nevertheless, as on network file systems
};

// For the life of the object, decides by their order what happens to the calls that replace a file.
// There may be one object at a time, used on the thread that created it.
class FaultPlan {
 public:
  using Decide = std::function<Outcome(size_t index, const std::string& name)>;

  // Calls that fail do so with `error`. `decide` is called before each call, from index 0.
  FaultPlan(int error, Decide decide);
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  // Each write takes one byte only.
  void WriteByteByByte() { m_nLongestWrite = 1; }

  // The calls so far, by name.
  const std::vector<std::string>& GetCalls() const { return m_oCalls; }

 private:
  template <typename Result, typename... Arguments>
  ScopedAnswer Plan(const char* name, SystemCall<Result(Arguments...)>& call) {
    return call.Answer([this, name, &call](Arguments... arguments) {
      return Decided(name, [&] { return call.Real(arguments...); });
    });
  }
  ScopedAnswer PlanWrites();
  ScopedAnswer PlanClosing();
  ScopedAnswer PlanExchange();

  template <typename Call>
  auto Decided(const char* name, const Call& call) -> decltype(call()) {
    const int errnoBefore = errno;
    const Outcome outcome = m_oDecide(m_oCalls.size(), name);
    m_oCalls.emplace_back(name);
    errno = errnoBefore;
    if (outcome == Outcome::DONE) {
      return call();
    }
    if (outcome == Outcome::DONE_AND_FAILED) {
      call();
    }
    errno = m_nError;
    return -1;
  }

  const Decide m_oDecide;
  const int m_nError;
  size_t m_nLongestWrite = SIZE_MAX;  // bytes
  std::vector<std::string> m_oCalls;
  const ScopedAnswer m_oAnswers[10];
};

// For the life of the object, exchanging two files fails with that error (0: it does not fail).
class ExchangeRefusal {
 public:
  explicit ExchangeRefusal(int error);
  ~ExchangeRefusal() { s_nError = 0; }
  ExchangeRefusal(const ExchangeRefusal&) = delete;
  ExchangeRefusal& operator=(const ExchangeRefusal&) = delete;

  static int GetError() { return s_nError; }

 private:
  static inline int s_nError = 0;

  const ScopedAnswer m_oAnswer;
};
