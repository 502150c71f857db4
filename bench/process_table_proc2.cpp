#include <benchmark/benchmark.h>
#include <libproc2/pids.h>

#include <cstring>

#include "archive_module/names.h"
#include "bench/child_processes.h"

namespace {

void Find(benchmark::State& state) {
  const SleepingProcesses processes(500);
  for (auto _ : state) {
    pids_item items[] = {PIDS_ID_PID, PIDS_CMD};
    pids_info* info = nullptr;
    Require(procps_pids_new(&info, items, 2) == 0, "libproc2");
    int found = 0;
    while (const pids_stack* stack = procps_pids_get(info, PIDS_FETCH_TASKS_ONLY)) {
      if (strcmp(PIDS_VAL(1, str, stack, info), COLLECTOR_NAME) == 0) {
        found = PIDS_VAL(0, s_int, stack, info);
      }
    }
    benchmark::DoNotOptimize(found);
    procps_pids_unref(&info);
  }
}
BENCHMARK(Find)->Name("process_find/libproc2")->UseRealTime();

}  // namespace
