// Launching a program and waiting for its end, in different hosts.

#include <benchmark/benchmark.h>

#include "bench/child_processes.h"
#include "bench/launch_hosts.h"
#include "platform/process/process_control.h"

namespace {

constexpr char PROGRAM[] = "/bin/true";

void RunOurs(benchmark::State& state) {
  for (auto _ : state) {
    if (!RunProcess(PROGRAM, nullptr, false, false)) {
      state.SkipWithError("not launched");
    }
  }
  state.counters["descriptors"] = DescriptorLimit::Get();
}

void Ours(benchmark::State& state, Host host) {
  const HostState hostState(host);
  RunOurs(state);
}
BENCHMARK_CAPTURE(Ours, small, Host::SMALL)->Name("launch_small/ours")->UseRealTime();
BENCHMARK_CAPTURE(Ours, big, Host::BIG)->Name("launch_big/ours")->UseRealTime();
BENCHMARK_CAPTURE(Ours, many, Host::MANY_DESCRIPTORS)
    ->Name("launch_descriptors/ours")
    ->UseRealTime();

void OursByMemory(benchmark::State& state) {
  const TouchedMemory memory(static_cast<size_t>(state.range(0)) << 20);
  Ours(state, Host::SMALL);
}
BENCHMARK(OursByMemory)
    ->Name("growth_launch/ours")
    ->RangeMultiplier(10)
    ->Range(10, 1000)
    ->UseRealTime();

void OursByDescriptors(benchmark::State& state) {
  const DescriptorLimit limit(static_cast<rlim_t>(state.range(0)));
  RunOurs(state);
}
BENCHMARK(OursByDescriptors)
    ->Name("growth_launch_descriptors/ours")
    ->RangeMultiplier(10)
    ->Range(100, 10'000)
    ->UseRealTime();

void PosixSpawn(benchmark::State& state, Host host) {
  const HostState hostState(host);
  for (auto _ : state) {
    WaitFor(Spawn(PROGRAM));
  }
}
BENCHMARK_CAPTURE(PosixSpawn, small, Host::SMALL)->Name("launch_small/posix_spawn")->UseRealTime();
BENCHMARK_CAPTURE(PosixSpawn, big, Host::BIG)->Name("launch_big/posix_spawn")->UseRealTime();
BENCHMARK_CAPTURE(PosixSpawn, many, Host::MANY_DESCRIPTORS)
    ->Name("launch_descriptors/posix_spawn")
    ->UseRealTime();

// Nothing but the three calls.
void Vfork(benchmark::State& state, Host host) {
  const HostState hostState(host);
  char program[] = "/bin/true";
  char* const arguments[] = {program, nullptr};
  for (auto _ : state) {
    const pid_t child = vfork();
    if (child == 0) {
      execv(program, arguments);
      _exit(255);
    }
    WaitFor(child);
  }
}
BENCHMARK_CAPTURE(Vfork, small, Host::SMALL)->Name("launch_small/limit")->UseRealTime();
BENCHMARK_CAPTURE(Vfork, big, Host::BIG)->Name("launch_big/limit")->UseRealTime();
BENCHMARK_CAPTURE(Vfork, many, Host::MANY_DESCRIPTORS)
    ->Name("launch_descriptors/limit")
    ->UseRealTime();

void Fork(benchmark::State& state, Host host, bool closeAll) {
  const HostState hostState(host);
  char program[] = "/bin/true";
  char* const arguments[] = {program, nullptr};
  for (auto _ : state) {
    const pid_t child = fork();
    if (child == 0) {
      const long limit = closeAll ? sysconf(_SC_OPEN_MAX) : 0;
      for (int descriptor = 3; descriptor < limit; ++descriptor) {
        close(descriptor);
      }
      execv(program, arguments);
      _exit(255);
    }
    WaitFor(child);
  }
}
BENCHMARK_CAPTURE(Fork, small, Host::SMALL, false)->Name("launch_small/fork")->UseRealTime();
BENCHMARK_CAPTURE(Fork, big, Host::BIG, false)->Name("launch_big/fork")->UseRealTime();
BENCHMARK_CAPTURE(Fork, many, Host::MANY_DESCRIPTORS, true)
    ->Name("launch_descriptors/close loop")
    ->UseRealTime();

}  // namespace
