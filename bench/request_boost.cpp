#include <benchmark/benchmark.h>

#include <boost/json/src.hpp>
#include <memory>

#include "bench/memory.h"
#include "bench/request_texts.h"

namespace {

boost::json::value& Command(boost::json::value& request) {
  return request.at("SIP").at("CMD").at(0);
}

void Availability(benchmark::State& state) {
  auto request = boost::json::parse(REQUEST_TEXT);
  for (auto _ : state) {
    const auto opcode = Command(request).at("OC").to_number<unsigned>();
    const auto cabinet = Command(request).at("CA").to_number<unsigned>();
    if (opcode == REQUEST_OPCODE && cabinet == 0) {
      Command(request).at("DA") = 0;
      Command(request).at("ST") = 0;
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Availability)->Name("availability/Boost.JSON");

void Copy(benchmark::State& state) {
  const auto request = boost::json::parse(REQUEST_TEXT);
  for (auto _ : state) {
    const boost::json::value copy(request);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(Copy)->Name("copy/Boost.JSON");

void Memory(benchmark::State& state) {
  const auto request = boost::json::parse(REQUEST_TEXT);
  MeasureMemory(state, 1, 1000, [&] { return std::make_unique<boost::json::value>(request); });
}
BENCHMARK(Memory)->Name("memory_queued_record/Boost.JSON")->Iterations(1);

}  // namespace
