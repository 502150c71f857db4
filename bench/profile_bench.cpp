// Profile strings: reading the last key of a file, writing a key into one.

#include <benchmark/benchmark.h>

#include "bench/files.h"
#include "bench/profile_texts.h"
#include "platform/profile/profile_string.h"

namespace {

void ReadOurs(benchmark::State& state) {
  const auto lines = static_cast<int>(state.range(0));
  const BenchFile file(ProfileText(lines));
  const std::string key = ProfileKey(lines - 1);
  const std::string section = LastProfileSection(lines);
  char value[64];
  for (auto _ : state) {
    if (GetPrivateProfileString(section.c_str(), key.c_str(), nullptr, value, sizeof value,
                                file.GetPath().c_str()) == 0) {
      state.SkipWithError("not found");
    }
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(ReadOurs)->Name("profile_read/ours")->Arg(PROFILE_LINES)->UseRealTime();
BENCHMARK(ReadOurs)
    ->Name("growth_profile_read/ours")
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10'000)
    ->UseRealTime();

// The least that a reader must do.
void ReadBytes(benchmark::State& state) {
  const BenchFile file(ProfileText(PROFILE_LINES));
  for (auto _ : state) {
    const std::string text = file.Read();
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(ReadBytes)->Name("profile_read/limit")->UseRealTime();

// Alternates between two values, so that the file changes each time.
void WriteOurs(benchmark::State& state) {
  const auto lines = static_cast<int>(state.range(0));
  const BenchFile file(ProfileText(lines));
  const std::string key = ProfileKey(lines / 2);
  const std::string section = ProfileSection(lines / 2);
  bool isOdd = false;
  for (auto _ : state) {
    isOdd = !isOdd;
    if (WritePrivateProfileString(section.c_str(), key.c_str(), isOdd ? "odd" : "another value",
                                  file.GetPath().c_str()) == 0) {
      state.SkipWithError("not written");
    }
  }
}
BENCHMARK(WriteOurs)->Name("profile_write/ours")->Arg(PROFILE_LINES)->UseRealTime();
BENCHMARK(WriteOurs)
    ->Name("growth_profile_write/ours")
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10'000)
    ->UseRealTime();

}  // namespace
