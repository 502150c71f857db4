#include <benchmark/benchmark.h>
#include <winpr/synch.h>

namespace {

void SetAndWait(benchmark::State& state) {
  const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  for (auto _ : state) {
    SetEvent(event);
    benchmark::DoNotOptimize(WaitForSingleObject(event, INFINITE));
  }
  CloseHandle(event);
}
BENCHMARK(SetAndWait)->Name("event_set_wait/WinPR");

void Look(benchmark::State& state) {
  const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  for (auto _ : state) {
    benchmark::DoNotOptimize(WaitForSingleObject(event, 0));
  }
  CloseHandle(event);
}
BENCHMARK(Look)->Name("event_wait_0/WinPR")->UseRealTime();

}  // namespace
