// WinPR reads its registry once in the life of a process, from one place, so each measurement runs
// in a child. It reads no strings from a file, so it gets as many numbers instead; of a key with
// very many only a tenth, and only once, because it needs time in proportion to their square.

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>
#include <winpr/registry.h>

#include <chrono>
#include <filesystem>
#include <functional>

#include "bench/files.h"
#include "bench/registry_texts.h"

namespace {

constexpr char DIRECTORY[] = "/etc/winpr";
constexpr char FILE_PATH[] = "/etc/winpr/HKLM.reg";

void WriteRegistry(RegistryShape shape) {
  std::string text = "Windows Registry Editor Version 5.00\n\n";
  Describe(
      shape, [&](const std::string& key) { text += "[HKEY_LOCAL_MACHINE\\" + key + "]\n"; },
      [&](const std::string& name, const std::string& /*value*/) {
        text += '"' + name + "\"=dword:00000001\n";
      },
      [&] { text += "\n"; });
  std::filesystem::create_directories(DIRECTORY);
  WriteWhole(FILE_PATH, text, false);
}

HKEY Open(RegistryShape shape) {
  HKEY key = nullptr;
  const std::string name = KeyName(shape.keys / 2);
  Require(RegOpenKeyExA(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS,
          "RegOpenKeyExA");
  return key;
}

// In seconds.
double Time(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double TimeQuery(RegistryShape shape) {
  constexpr int QUERIES = 10'000;
  const HKEY key = Open(shape);
  const std::string name = ValueName(shape.total / shape.keys / 3);
  const double total = Time([&] {
    for (int query = 0; query < QUERIES; ++query) {
      DWORD number = 0;
      DWORD size = sizeof number;
      Require(RegQueryValueExA(key, name.c_str(), nullptr, nullptr,
                               reinterpret_cast<BYTE*>(&number), &size) == ERROR_SUCCESS,
              "RegQueryValueExA");
      benchmark::DoNotOptimize(number);
    }
  });
  return total / QUERIES;
}

// What `measure` returns in a child.
double InChild(const std::function<double()>& measure) {
  int ends[2] = {};
  Require(pipe(ends) == 0, "pipe");
  const pid_t child = fork();
  Require(child >= 0, "fork");
  double seconds = 0;
  if (child == 0) {
    seconds = measure();
    _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  close(ends[1]);
  Require(read(ends[0], &seconds, sizeof seconds) == sizeof seconds, "a measuring child");
  close(ends[0]);
  Require(waitpid(child, nullptr, 0) == child, "waitpid");
  return seconds;
}

void Load(benchmark::State& state, RegistryShape shape) {
  WriteRegistry(shape);
  for (auto _ : state) {
    state.SetIterationTime(InChild([&] { return Time([&] { Open(shape); }); }));
  }
}

void Query(benchmark::State& state, RegistryShape shape) {
  WriteRegistry(shape);
  for (auto _ : state) {
    state.SetIterationTime(InChild([&] { return TimeQuery(shape); }));
  }
}

constexpr RegistryShape TENTH = {ONE_KEY.total / 10, ONE_KEY.keys};

void RunSome(benchmark::internal::Benchmark* benchmark) {
  benchmark->Iterations(1)->UseManualTime();
}

void RunOnce(benchmark::internal::Benchmark* benchmark) {
  benchmark->Iterations(1)->UseManualTime()->Repetitions(1);
}

BENCHMARK_CAPTURE(Load, one, TENTH)
    ->Name("registry_load_one_key/WinPR (10,000 numbers)")
    ->Apply(RunOnce);
BENCHMARK_CAPTURE(Load, th, THOUSAND_KEYS)
    ->Name("registry_load_1000_keys/WinPR (numbers)")
    ->Apply(RunSome);
BENCHMARK_CAPTURE(Query, one, TENTH)
    ->Name("registry_query_one_key/WinPR (10,000 numbers)")
    ->Apply(RunOnce);
BENCHMARK_CAPTURE(Query, th, THOUSAND_KEYS)
    ->Name("registry_query_1000_keys/WinPR (numbers)")
    ->Apply(RunSome);

}  // namespace
