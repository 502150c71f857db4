#include "costs/meter.h"

#include <valgrind/callgrind.h>

#include <cinttypes>
#include <cstdio>

#include "costs/counted_calls.h"

namespace {

constexpr int WARM_UPS = 3;

CountedCalls g_oBegin;

CountedCalls CallsSoFar() {
  CountedCalls calls;
  if (ReadCountedCalls != nullptr) {
    ReadCountedCalls(&calls);
  }
  return calls;
}

}  // namespace

void meter::Begin() {
  g_oBegin = CallsSoFar();
  CALLGRIND_ZERO_STATS;
}

void meter::End(const char* name) {
  EndOfThread(name);
  EndOfCalls(name);
}

void meter::EndOfThread(const char* name) { CALLGRIND_DUMP_STATS_AT(name); }

void meter::EndOfCalls(const char* name) {
  const CountedCalls end = CallsSoFar();
  printf("%s\t%" PRIu64 "\t%" PRIu64 "\t%" PRIu64 "\n", name,
         end.allocations - g_oBegin.allocations, end.bytes - g_oBegin.bytes,
         end.locks - g_oBegin.locks);
}

void meter::Count(const char* name, const std::function<void()>& operation) {
  for (int count = 0; count < WARM_UPS; ++count) {
    operation();
  }
  Begin();
  operation();
  End(name);
}
