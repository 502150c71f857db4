#include "tests/support/fault_plan.h"

#include <algorithm>
#include <utility>

FaultPlan::FaultPlan(int error, Decide decide)
    : m_oDecide(std::move(decide)),
      m_nError(error),
      m_oAnswers{Plan("open", calls::open),
                 PlanClosing(),
                 PlanWrites(),
                 Plan("fchmod", calls::fchmod),
                 Plan("fsync", calls::fsync),
                 Plan("stat", calls::stat),
                 Plan("fstat", calls::fstat),
                 Plan("rename", calls::rename),
                 Plan("unlink", calls::unlink),
                 PlanExchange()} {}

ScopedAnswer FaultPlan::PlanWrites() {
  return calls::write.Answer([this](int descriptor, const void* bytes, size_t length) {
    return Decided("write", [&] {
      return calls::write.Real(descriptor, bytes, std::min(length, m_nLongestWrite));
    });
  });
}

// A close that fails still closes the descriptor.
ScopedAnswer FaultPlan::PlanClosing() {
  return calls::close.Answer([this](int descriptor) {
    const int result = calls::close.Real(descriptor);
    return Decided("close", [result] { return result; });
  });
}

ScopedAnswer FaultPlan::PlanExchange() {
  return calls::renameat2.Answer(
      [this](int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) {
        if (ExchangeRefusal::GetError() != 0) {
          errno = ExchangeRefusal::GetError();
          return -1;
        }
        return Decided("renameat2", [&] {
          return calls::renameat2.Real(fromDirectory, from, toDirectory, to, flags);
        });
      });
}

ExchangeRefusal::ExchangeRefusal(int error)
    : m_oAnswer(calls::renameat2.Answer([error](int fromDirectory, const char* from,
                                                int toDirectory, const char* to, unsigned flags) {
        if (error != 0) {
          errno = error;
          return -1;
        }
        return calls::renameat2.Real(fromDirectory, from, toDirectory, to, flags);
      })) {
  s_nError = error;
}
