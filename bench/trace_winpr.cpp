#include <benchmark/benchmark.h>
#include <winpr/wlog.h>

#include "bench/sites.h"

namespace {

void Trace(benchmark::State& state) {
  wLog* log = WLog_Get("bench");
  WLog_SetLogLevel(log, WLOG_OFF);
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(WLog_Print(log, WLOG_TRACE, "%d %s %d", number, text, number));
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
}
BENCHMARK(Trace)->Name("trace_off/WinPR");

}  // namespace
