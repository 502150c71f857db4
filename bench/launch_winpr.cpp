#include <benchmark/benchmark.h>
#include <winpr/handle.h>
#include <winpr/synch.h>
#include <winpr/thread.h>

#include "bench/launch_hosts.h"

namespace {

void Launch(benchmark::State& state, Host host) {
  const HostState hostState(host);
  for (auto _ : state) {
    char program[] = "/bin/true";
    STARTUPINFOA start = {};
    PROCESS_INFORMATION process = {};
    start.cb = sizeof start;
    Require(CreateProcessA(nullptr, program, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start,
                           &process) != 0,
            "CreateProcess");
    WaitForSingleObject(process.hProcess, INFINITE);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
  }
}
BENCHMARK_CAPTURE(Launch, small, Host::SMALL)->Name("launch_small/WinPR")->UseRealTime();
BENCHMARK_CAPTURE(Launch, big, Host::BIG)->Name("launch_big/WinPR")->UseRealTime();
BENCHMARK_CAPTURE(Launch, many, Host::MANY_DESCRIPTORS)
    ->Name("launch_descriptors/WinPR")
    ->UseRealTime();

}  // namespace
