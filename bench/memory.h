#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

// The bytes that the process has from the allocator.
inline double UsedMemory() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// Counts the bytes of what `make` returns, for each of its `items`.
template <typename Make>
void MeasureMemory(benchmark::State& state, int items, const Make& make) {
  for (auto _ : state) {
    const double before = UsedMemory();
    const auto made = make();
    state.counters["bytes"] = (UsedMemory() - before) / items;
  }
}
