// Looking for a process by its name among many, without finding one.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>

#include "archive_module/names.h"
#include "bench/child_processes.h"
#include "platform/process/process_table.h"

namespace {

constexpr int PROCESSES = 500;

void FindOurs(benchmark::State& state) {
  const SleepingProcesses processes(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    int32_t pid = 0;
    benchmark::DoNotOptimize(FindProcessByName(pid, COLLECTOR_NAME));
  }
}
BENCHMARK(FindOurs)->Name("process_find/ours")->Arg(PROCESSES)->UseRealTime();
BENCHMARK(FindOurs)->Name("growth_process_find/ours")->Arg(20)->Arg(200)->Arg(2000)->UseRealTime();

// The least that a search must do: list the processes, and open, read and close one file of each.
void ReadAll(benchmark::State& state) {
  const SleepingProcesses processes(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    DIR* directory = opendir("/proc");
    Require(directory != nullptr, "/proc");
    while (const dirent* entry = readdir(directory)) {
      if (entry->d_name[0] < '1' || entry->d_name[0] > '9') {
        continue;
      }
      char path[32];
      char name[32];
      snprintf(path, sizeof path, "%.16s/comm", entry->d_name);
      const int file = openat(dirfd(directory), path, O_RDONLY | O_CLOEXEC);
      benchmark::DoNotOptimize(read(file, name, sizeof name));
      close(file);
    }
    closedir(directory);
  }
}
BENCHMARK(ReadAll)->Name("process_find/limit")->Arg(PROCESSES)->UseRealTime();

void FindByProgram(benchmark::State& state, const char* program) {
  const SleepingProcesses processes(PROCESSES);
  for (auto _ : state) {
    WaitFor(Spawn(program, COLLECTOR_NAME));
  }
}
BENCHMARK_CAPTURE(FindByProgram, pidof, "pidof")->Name("process_find/pidof")->UseRealTime();
BENCHMARK_CAPTURE(FindByProgram, pgrep, "pgrep")->Name("process_find/pgrep")->UseRealTime();

}  // namespace
