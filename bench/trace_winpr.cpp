#include <benchmark/benchmark.h>
#include <winpr/wlog.h>

#include "bench/sites.h"

namespace {

BOOL Drop(const wLogMessage* /*message*/) { return TRUE; }

// Level WLOG_OFF, or one whose lines a callback drops.
void Trace(benchmark::State& state, DWORD level) {
  wLog* log = WLog_Get("bench");
  wLogCallbacks callbacks = {nullptr, Drop, Drop, Drop};
  WLog_SetLogAppenderType(log, WLOG_APPENDER_CALLBACK);
  WLog_ConfigureAppender(WLog_GetLogAppender(log), "callbacks", &callbacks);
  WLog_SetLogLevel(log, level);
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(WLog_Print(log, WLOG_TRACE, "%d %s %d", number, text, number));
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
}
BENCHMARK_CAPTURE(Trace, off, WLOG_OFF)->Name("trace_off/WinPR");
BENCHMARK_CAPTURE(Trace, on, WLOG_TRACE)->Name("trace_line/WinPR");

}  // namespace
