#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include "bench/sites.h"

namespace {

void Trace(benchmark::State& state, spdlog::level::level_enum level) {
  const auto logger = spdlog::null_logger_mt("bench");
  logger->set_level(level);
  int number = 1;
  const char* text = "text";
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    SITES(logger->debug("{} {} {}", number, text, number));
  }
  state.SetItemsProcessed(state.iterations() * SITE_COUNT);
  spdlog::drop("bench");
}
BENCHMARK_CAPTURE(Trace, off, spdlog::level::off)->Name("trace_off/spdlog");
BENCHMARK_CAPTURE(Trace, on, spdlog::level::trace)->Name("trace_line/spdlog");

}  // namespace
