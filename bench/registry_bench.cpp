// The registry: loading and saving its file, opening a key, querying a value; RapidJSON on the same
// values.

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "bench/files.h"
#include "bench/memory.h"
#include "bench/registry_texts.h"
#include "platform/registry/registry.h"
#include "platform/registry/registry_file.h"
#include "platform/registry/registry_tree.h"

namespace {

std::string RegistryText(RegistryShape shape) {
  std::string text = "[HKEY_LOCAL_MACHINE]\n";
  Describe(
      shape, [&](const std::string& key) { text += "[" + key + "]\n"; },
      [&](const std::string& name, const std::string& value) {
        text += name + "=s=" + value + "\n";
      },
      [&] { text += "\n"; });
  return text + "\n\n";
}

std::string JsonText(RegistryShape shape) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  writer.StartObject();
  Describe(
      shape,
      [&](const std::string& key) {
        writer.Key(key.c_str());
        writer.StartObject();
      },
      [&](const std::string& name, const std::string& value) {
        writer.Key(name.c_str());
        writer.String(value.c_str());
      },
      [&] { writer.EndObject(); });
  writer.EndObject();
  return {text.GetString(), text.GetSize()};
}

// Frees what was loaded without counting it: every contender is left with a loaded registry.
template <typename Load>
void MeasureLoad(benchmark::State& state, const Load& load) {
  for (auto _ : state) {
    auto loaded = load();
    benchmark::DoNotOptimize(loaded);
    state.PauseTiming();
    loaded.reset();
    state.ResumeTiming();
  }
}

void LoadOurs(benchmark::State& state, RegistryShape shape) {
  const BenchFile file(RegistryText(shape));
  MeasureLoad(state, [&] {
    auto node = std::make_unique<CRegistryNode>();
    CRegistryTree::RestoreNode(file.GetPath().c_str(), *node);
    return node;
  });
}

void LoadRapidJson(benchmark::State& state, RegistryShape shape) {
  const BenchFile file(JsonText(shape));
  MeasureLoad(state, [&] {
    auto document = std::make_unique<rapidjson::Document>();
    document->Parse(file.Read().c_str());
    return document;
  });
}

// The least that a loader must do.
void LoadLines(benchmark::State& state, RegistryShape shape) {
  const BenchFile file(RegistryText(shape));
  for (auto _ : state) {
    const std::string text = file.Read();
    size_t lines = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 1)) {
      ++lines;
    }
    benchmark::DoNotOptimize(lines);
  }
}

// The registry of the process, with the values below HKEY_LOCAL_MACHINE.
void LoadProcessRegistry(RegistryShape shape) {
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  std::ofstream(REGISTRY_FILE) << RegistryText(shape);
  CRegistryTree::Get().Release();
  CRegistryTree::Get().SetupTree(true);
}

void QueryOurs(benchmark::State& state, RegistryShape shape) {
  LoadProcessRegistry(shape);
  CRegistry registry(KeyName(shape.keys / 2).c_str(), HKEY_LOCAL_MACHINE);
  const std::string name = ValueName(shape.total / shape.keys / 3);
  char text[64];
  for (auto _ : state) {
    uint32_t size = sizeof text;
    if (registry.QueryValue(text, name.c_str(), &size) != REGISTRY_OK) {
      state.SkipWithError("not found");
    }
    benchmark::DoNotOptimize(text);
  }
}

void OpenAndQueryOurs(benchmark::State& state, RegistryShape shape) {
  LoadProcessRegistry(shape);
  const std::string key = KeyName(shape.keys / 2);
  const std::string name = ValueName(shape.total / shape.keys / 3);
  char text[64];
  for (auto _ : state) {
    CRegistry registry(key.c_str(), HKEY_LOCAL_MACHINE);
    uint32_t size = sizeof text;
    if (registry.QueryValue(text, name.c_str(), &size) != REGISTRY_OK) {
      state.SkipWithError("not found");
    }
    benchmark::DoNotOptimize(text);
  }
}

void SaveOurs(benchmark::State& state, RegistryShape shape) {
  LoadProcessRegistry(shape);
  for (auto _ : state) {
    CRegistryTree::Get().MarkDirty();
    CRegistryTree::Get().SaveTree();
  }
}

void SaveRapidJson(benchmark::State& state, RegistryShape shape) {
  rapidjson::Document document;
  document.Parse(JsonText(shape).c_str());
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  for (auto _ : state) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    document.Accept(writer);
    WriteAndFlush(REGISTRY_FILE, {text.GetString(), text.GetSize()});
  }
}

void SaveBytes(benchmark::State& state, RegistryShape shape) {
  const std::string text = RegistryText(shape);
  std::filesystem::create_directories(REGISTRY_DIRECTORY);
  for (auto _ : state) {
    WriteAndFlush(REGISTRY_FILE, text);
  }
}

// The benchmarks by the number of values in one key.
RegistryShape ShapeOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), 1};
}
void LoadOursBySize(benchmark::State& state) { LoadOurs(state, ShapeOf(state)); }
void QueryOursBySize(benchmark::State& state) { QueryOurs(state, ShapeOf(state)); }
void OpenAndQueryOursByKeys(benchmark::State& state) {
  const auto keys = static_cast<int>(state.range(0));
  OpenAndQueryOurs(state, {100 * keys, keys});
}
void SaveOursBySize(benchmark::State& state) { SaveOurs(state, ShapeOf(state)); }

void MemoryOurs(benchmark::State& state) {
  const BenchFile file(RegistryText(ONE_KEY));
  MeasureMemory(state, ONE_KEY.total, 1, [&] {
    auto node = std::make_unique<CRegistryNode>();
    CRegistryTree::RestoreNode(file.GetPath().c_str(), *node);
    return node;
  });
}

void MemoryRapidJson(benchmark::State& state) {
  const std::string text = JsonText(ONE_KEY);
  MeasureMemory(state, ONE_KEY.total, 1, [&] {
    auto document = std::make_unique<rapidjson::Document>();
    document->Parse(text.c_str());
    return document;
  });
}

BENCHMARK_CAPTURE(LoadOurs, one, ONE_KEY)->Name("registry_load_one_key/ours");
BENCHMARK_CAPTURE(LoadRapidJson, one, ONE_KEY)->Name("registry_load_one_key/RapidJSON");
BENCHMARK_CAPTURE(LoadLines, one, ONE_KEY)->Name("registry_load_one_key/limit");
BENCHMARK_CAPTURE(LoadOurs, many, THOUSAND_KEYS)->Name("registry_load_1000_keys/ours");
BENCHMARK_CAPTURE(LoadRapidJson, many, THOUSAND_KEYS)->Name("registry_load_1000_keys/RapidJSON");
BENCHMARK_CAPTURE(LoadLines, many, THOUSAND_KEYS)->Name("registry_load_1000_keys/limit");
BENCHMARK_CAPTURE(LoadOurs, million, MILLION)->Name("registry_load_million/ours");
BENCHMARK_CAPTURE(LoadRapidJson, million, MILLION)->Name("registry_load_million/RapidJSON");
BENCHMARK_CAPTURE(LoadLines, million, MILLION)->Name("registry_load_million/limit");
BENCHMARK_CAPTURE(QueryOurs, one, ONE_KEY)->Name("registry_query_one_key/ours");
BENCHMARK_CAPTURE(QueryOurs, many, THOUSAND_KEYS)->Name("registry_query_1000_keys/ours");
BENCHMARK_CAPTURE(OpenAndQueryOurs, one, ONE_KEY)->Name("registry_open_query_one_key/ours");
BENCHMARK_CAPTURE(OpenAndQueryOurs, many, THOUSAND_KEYS)
    ->Name("registry_open_query_1000_keys/ours");
BENCHMARK_CAPTURE(SaveOurs, one, ONE_KEY)->Name("registry_save/ours")->UseRealTime();
BENCHMARK_CAPTURE(SaveRapidJson, one, ONE_KEY)->Name("registry_save/RapidJSON")->UseRealTime();
BENCHMARK_CAPTURE(SaveBytes, one, ONE_KEY)->Name("registry_save/limit")->UseRealTime();
BENCHMARK_CAPTURE(SaveOurs, million, MILLION)->Name("registry_save_million/ours")->UseRealTime();
BENCHMARK_CAPTURE(SaveRapidJson, million, MILLION)
    ->Name("registry_save_million/RapidJSON")
    ->UseRealTime();
BENCHMARK_CAPTURE(SaveBytes, million, MILLION)->Name("registry_save_million/limit")->UseRealTime();
BENCHMARK(LoadOursBySize)
    ->Name("growth_registry_load/ours")
    ->RangeMultiplier(10)
    ->Range(1000, 100'000);
BENCHMARK(QueryOursBySize)
    ->Name("growth_registry_query/ours")
    ->RangeMultiplier(10)
    ->Range(1000, 100'000);
BENCHMARK(OpenAndQueryOursByKeys)
    ->Name("growth_registry_open_query/ours")
    ->RangeMultiplier(10)
    ->Range(10, 1000);
BENCHMARK(SaveOursBySize)
    ->Name("growth_registry_save/ours")
    ->RangeMultiplier(10)
    ->Range(1000, 100'000)
    ->UseRealTime();
BENCHMARK(MemoryOurs)->Name("memory_registry_value/ours")->Iterations(1);
BENCHMARK(MemoryRapidJson)->Name("memory_registry_value/RapidJSON")->Iterations(1);

}  // namespace
