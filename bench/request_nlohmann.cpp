#include <benchmark/benchmark.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "bench/memory.h"
#include "bench/request_texts.h"

namespace {

void Availability(benchmark::State& state) {
  auto request = nlohmann::json::parse(REQUEST_TEXT);
  for (auto _ : state) {
    const auto opcode = request["SIP"]["CMD"][0]["OC"].get<unsigned>();
    const auto cabinet = request["SIP"]["CMD"][0]["CA"].get<unsigned>();
    if (opcode == REQUEST_OPCODE && cabinet == 0) {
      request["SIP"]["CMD"][0]["DA"] = 0;
      request["SIP"]["CMD"][0]["ST"] = 0;
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Availability)->Name("availability/nlohmann");

void Copy(benchmark::State& state) {
  const auto request = nlohmann::json::parse(REQUEST_TEXT);
  for (auto _ : state) {
    const nlohmann::json copy(request);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(Copy)->Name("copy/nlohmann");

void Memory(benchmark::State& state) {
  const auto request = nlohmann::json::parse(REQUEST_TEXT);
  MeasureMemory(state, 1, 1000, [&] { return std::make_unique<nlohmann::json>(request); });
}
BENCHMARK(Memory)->Name("memory_queued_record/nlohmann")->Iterations(1);

}  // namespace
