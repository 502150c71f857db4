#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include "bench/sites.h"

namespace {

void Trace(benchmark::State& state) {
  const auto logger = spdlog::null_logger_mt("bench");
  logger->set_level(spdlog::level::off);
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(logger->debug("{} {} {}", number, text, number));
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
  spdlog::drop("bench");
}
BENCHMARK(Trace)->Name("trace_off/spdlog");

}  // namespace
