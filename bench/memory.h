#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <vector>

// The bytes that the process has from the allocator.
inline double UsedMemory() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// The bytes that one of the `items` in what `make` returns takes. Calls `make` `count` times, so
// that memory which the allocator already had is a small part.
template <typename Make>
void MeasureMemory(benchmark::State& state, int items, int count, const Make& make) {
  std::vector<decltype(make())> made(static_cast<size_t>(count));
  for (auto _ : state) {
    const double before = UsedMemory();
    for (auto& one : made) {
      one = make();
    }
    state.counters["bytes"] = (UsedMemory() - before) / items / count;
  }
}
