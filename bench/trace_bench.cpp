// A trace site while tracing is off, and while it is on and the sink drops the line. Each benchmark
// runs many sites at a time: one is shorter than the loop around it.

#include <benchmark/benchmark.h>

#include <cstdlib>

#include "bench/sites.h"
#include "tests/support/default_sink.h"
#include "trace/debug_client.h"

// The trace client looks this name up.
[[gnu::visibility("default")]] constinit DefaultSink Debug;

namespace {

void TraceOurs(benchmark::State& state) {
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(DEBUG_TRACE(3, "\nEM_TALVOR (Start)   : %d %s %d", number, text, number));
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
}
BENCHMARK(TraceOurs)->Name("trace_off/ours");

// Tracing at level 5 for the life of the object.
class Tracing {
 public:
  Tracing() { Load("5"); }
  ~Tracing() { Load("0"); }
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;

 private:
  static void Load(const char* level) {
    setenv("CV_LOG_DEBUG_LEVEL", level, 1);
    g_oDebugClient.Load("bench");
  }
};

void LineOurs(benchmark::State& state) {
  const Tracing tracing;
  if (!g_oDebugClient.Accepts(5)) {
    state.SkipWithError("tracing is off");
  }
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(DEBUG_TRACE(5, "\nEM_TALVOR (Start)   : %d %s %d", number, text, number));
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
}
BENCHMARK(LineOurs)->Name("trace_line/ours");

std::atomic<bool> g_bOn = false;

[[gnu::noinline]] void Write(int number, const char* text, int other) {
  benchmark::DoNotOptimize(number);
  benchmark::DoNotOptimize(text);
  benchmark::DoNotOptimize(other);
}

void TraceGuard(benchmark::State& state) {
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(if (g_bOn.load(std::memory_order_relaxed)) [[unlikely]] { Write(number, text, number); });
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
}
BENCHMARK(TraceGuard)->Name("trace_off/limit");

}  // namespace
