// A trace site while tracing is off. Each benchmark runs many sites at a time: one is shorter than
// the loop around it.

#include <benchmark/benchmark.h>

#include "bench/sites.h"
#include "trace/debug_client.h"

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
