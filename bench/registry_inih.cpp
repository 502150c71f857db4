#include <benchmark/benchmark.h>
#include <ini.h>

#include <map>
#include <memory>
#include <string>

#include "bench/files.h"
#include "bench/memory.h"
#include "bench/registry_texts.h"

namespace {

// The library hands out each line; keeping the values is the user's part.
using Values = std::map<std::string, std::map<std::string, std::string>>;

int Keep(void* values, const char* section, const char* name, const char* value) {
  (*static_cast<Values*>(values))[section][name] = value;
  return 1;
}

std::string IniText(RegistryShape shape) {
  std::string text;
  Describe(
      shape, [&](const std::string& key) { text += "[" + key + "]\n"; },
      [&](const std::string& name, const std::string& value) { text += name + "=" + value + "\n"; },
      [&] { text += "\n"; });
  return text;
}

std::unique_ptr<Values> LoadFile(const BenchFile& file) {
  auto values = std::make_unique<Values>();
  Require(ini_parse(file.GetPath().c_str(), Keep, values.get()) == 0, "ini_parse");
  return values;
}

void Load(benchmark::State& state, RegistryShape shape) {
  const BenchFile file(IniText(shape));
  for (auto _ : state) {
    auto values = LoadFile(file);
    state.PauseTiming();
    values.reset();
    state.ResumeTiming();
  }
}

void Memory(benchmark::State& state) {
  const BenchFile file(IniText(ONE_KEY));
  MeasureMemory(state, ONE_KEY.total, 1, [&] { return LoadFile(file); });
}

BENCHMARK_CAPTURE(Load, one, ONE_KEY)->Name("registry_load_one_key/inih");
BENCHMARK_CAPTURE(Load, th, THOUSAND_KEYS)->Name("registry_load_1000_keys/inih");
BENCHMARK(Memory)->Name("memory_registry_value/inih")->Iterations(1);

}  // namespace
