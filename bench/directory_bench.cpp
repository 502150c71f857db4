// Removing a tree of directories on a file system in memory.

#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "bench/child_processes.h"
#include "platform/directory.h"

namespace {

constexpr char TREE[] = "/dev/shm/em_talvor_bench";
constexpr int FILES_IN_DIRECTORY = 100;

void MakeTree(int64_t files) {
  Require(mkdir(TREE, 0755) == 0, TREE);
  for (int64_t directory = 0; directory < files / FILES_IN_DIRECTORY; ++directory) {
    const std::string path = std::string(TREE) + "/directory" + std::to_string(directory);
    Require(mkdir(path.c_str(), 0755) == 0, path.c_str());
    for (int file = 0; file < FILES_IN_DIRECTORY; ++file) {
      WriteWhole((path + "/file" + std::to_string(file)).c_str(), "x", false);
    }
  }
}

template <typename Remove>
void Measure(benchmark::State& state, const Remove& remove) {
  for (auto _ : state) {
    state.PauseTiming();
    MakeTree(state.range(0));
    state.ResumeTiming();
    remove();
    if (std::filesystem::exists(TREE)) {
      state.SkipWithError("not removed");
    }
  }
}

void RemoveOurs(benchmark::State& state) {
  Measure(state, [] { CDirectory::RemoveDirectory(TREE, true); });
}
BENCHMARK(RemoveOurs)->Name("directory_remove/ours")->Arg(20'000)->UseRealTime();
BENCHMARK(RemoveOurs)
    ->Name("growth_directory_remove/ours")
    ->Arg(200)
    ->Arg(2000)
    ->Arg(20'000)
    ->UseRealTime();

void RemoveStandard(benchmark::State& state) {
  Measure(state, [] { std::filesystem::remove_all(TREE); });
}
BENCHMARK(RemoveStandard)->Name("directory_remove/std::filesystem")->Arg(20'000)->UseRealTime();
BENCHMARK(RemoveStandard)->Name("directory_remove/limit")->Arg(20'000)->UseRealTime();

void RemoveByProgram(benchmark::State& state) {
  Measure(state, [] {
    char program[] = "rm";
    char options[] = "-rf";
    std::string path = TREE;
    char* const arguments[] = {program, options, path.data(), nullptr};
    pid_t child = 0;
    Require(posix_spawnp(&child, program, nullptr, nullptr, arguments, environ) == 0, program);
    WaitFor(child);
  });
}
BENCHMARK(RemoveByProgram)->Name("directory_remove/rm -rf")->Arg(20'000)->UseRealTime();

}  // namespace
