#include <benchmark/benchmark.h>
#include <glib.h>

#include <filesystem>
#include <memory>

#include "bench/files.h"
#include "bench/memory.h"
#include "bench/registry_texts.h"
#include "platform/registry/registry_file.h"

namespace {

struct KeyFileFreer {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, KeyFileFreer>;

std::string KeyFileText(RegistryShape shape) {
  std::string text;
  Describe(
      shape, [&](const std::string& key) { text += "[" + key + "]\n"; },
      [&](const std::string& name, const std::string& value) { text += name + "=" + value + "\n"; },
      [&] { text += "\n"; });
  return text;
}

KeyFile LoadFile(const std::string& path) {
  KeyFile file(g_key_file_new());
  Require(g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr) != 0,
          path.c_str());
  return file;
}

void Load(benchmark::State& state, RegistryShape shape) {
  const BenchFile file(KeyFileText(shape));
  for (auto _ : state) {
    KeyFile loaded = LoadFile(file.GetPath());
    state.PauseTiming();
    loaded.reset();
    state.ResumeTiming();
  }
}

void Query(benchmark::State& state, RegistryShape shape) {
  const BenchFile text(KeyFileText(shape));
  const KeyFile file = LoadFile(text.GetPath());
  const std::string key = KeyName(shape.keys / 2);
  const std::string name = ValueName(shape.total / shape.keys / 3);
  for (auto _ : state) {
    char* value = g_key_file_get_string(file.get(), key.c_str(), name.c_str(), nullptr);
    benchmark::DoNotOptimize(value);
    g_free(value);
  }
}

void Save(benchmark::State& state, RegistryShape shape) {
  const BenchFile text(KeyFileText(shape));
  const KeyFile file = LoadFile(text.GetPath());
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  for (auto _ : state) {
    gsize length = 0;
    char* data = g_key_file_to_data(file.get(), &length, nullptr);
    WriteAndFlush(REGISTRY_FILE, {data, length});
    g_free(data);
  }
}

void Memory(benchmark::State& state) {
  const BenchFile file(KeyFileText(ONE_KEY));
  MeasureMemory(state, ONE_KEY.total, 1, [&] { return LoadFile(file.GetPath()); });
}

BENCHMARK_CAPTURE(Load, one, ONE_KEY)->Name("registry_load_one_key/GKeyFile");
BENCHMARK_CAPTURE(Load, th, THOUSAND_KEYS)->Name("registry_load_1000_keys/GKeyFile");
BENCHMARK_CAPTURE(Load, million, MILLION)->Name("registry_load_million/GKeyFile");
// A query finds the group as well.
BENCHMARK_CAPTURE(Query, one, ONE_KEY)->Name("registry_open_query_one_key/GKeyFile");
BENCHMARK_CAPTURE(Query, th, THOUSAND_KEYS)->Name("registry_open_query_1000_keys/GKeyFile");
BENCHMARK_CAPTURE(Query, one, ONE_KEY)->Name("registry_query_one_key/GKeyFile");
BENCHMARK_CAPTURE(Query, th, THOUSAND_KEYS)->Name("registry_query_1000_keys/GKeyFile");
BENCHMARK_CAPTURE(Save, one, ONE_KEY)->Name("registry_save/GKeyFile")->UseRealTime();
BENCHMARK_CAPTURE(Save, million, MILLION)->Name("registry_save_million/GKeyFile")->UseRealTime();
BENCHMARK(Memory)->Name("memory_registry_value/GKeyFile")->Iterations(1);

}  // namespace
