// Requests: the availability request, through the built module's exported interface, and the deep
// copy of a record; and the loading of the module.

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <memory>
#include <string_view>

#include "bench/memory.h"
#include "bench/request_texts.h"
#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"

namespace {

// The built module, created and not started: no collector is needed to say that there is none.
class Module {
 public:
  Module() : m_pLibrary(dlopen(EM_TALVOR_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    Call<uint32_t (*)(CIExtensionModule**, void*)>("EM_Create")(&m_pModule, nullptr);
  }
  ~Module() {
    Call<uint32_t (*)()>("EM_Delete")();
    dlclose(m_pLibrary);
  }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  CIExtensionModule* operator->() const { return m_pModule; }

 private:
  template <typename Function>
  Function Call(const char* name) const {
    return reinterpret_cast<Function>(dlsym(m_pLibrary, name));
  }

  void* const m_pLibrary;
  CIExtensionModule* m_pModule = nullptr;
};

void LoadAndUnload(benchmark::State& state, const char* library) {
  for (auto _ : state) {
    void* loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
      state.SkipWithError("not loaded");
      break;
    }
    dlclose(loaded);
  }
}
BENCHMARK_CAPTURE(LoadAndUnload, ours, EM_TALVOR_LIBRARY)->Name("module_load/ours");
BENCHMARK_CAPTURE(LoadAndUnload, empty, EMPTY_LIBRARY)->Name("module_load/limit");

void AvailabilityOurs(benchmark::State& state) {
  const Module module;
  SipJson request;
  request.m_oDocument.Parse(REQUEST_TEXT);
  for (auto _ : state) {
    if (module->ModuleRequest(request) != 1) {
      state.SkipWithError("refused");
    }
  }
}
BENCHMARK(AvailabilityOurs)->Name("availability/ours");

void AvailabilityOursBySize(benchmark::State& state) {
  const Module module;
  SipJson request;
  request.m_oDocument.Parse(RequestText(state.range(0)).c_str());
  request.m_nCmdIndex = static_cast<uint32_t>(state.range(0)) - 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(module->ModuleRequest(request));
  }
}
BENCHMARK(AvailabilityOursBySize)
    ->Name("growth_availability/ours")
    ->RangeMultiplier(10)
    ->Range(1, 100);

void AvailabilityRapidJson(benchmark::State& state) {
  rapidjson::Document request;
  request.Parse(REQUEST_TEXT);
  for (auto _ : state) {
    const unsigned opcode = request["SIP"]["CMD"][0]["OC"].GetUint();
    const unsigned cabinet = request["SIP"]["CMD"][0]["CA"].GetUint();
    if (opcode == REQUEST_OPCODE && cabinet == 0) {
      request["SIP"]["CMD"][0]["DA"].SetUint(0);
      request["SIP"]["CMD"][0]["ST"].SetUint(0);
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(AvailabilityRapidJson)->Name("availability/RapidJSON");

// The least that finds the members: the two of the way to the command, and then each of the
// command's own is compared with the four names once.
void AvailabilityOnePass(benchmark::State& state) {
  rapidjson::Document request;
  request.Parse(REQUEST_TEXT);
  for (auto _ : state) {
    rapidjson::Value& command = request["SIP"]["CMD"][0];
    for (auto member = command.MemberBegin(); member != command.MemberEnd(); ++member) {
      const std::string_view name(member->name.GetString(), member->name.GetStringLength());
      if (name == "DA" || name == "ST") {
        member->value.SetUint(0);
      } else if (name == "OC" || name == "CA") {
        unsigned number = member->value.GetUint();
        benchmark::DoNotOptimize(number);
      }
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(AvailabilityOnePass)->Name("availability/limit");

void CopyOurs(benchmark::State& state) {
  SipJson request;
  request.m_oDocument.Parse(REQUEST_TEXT);
  for (auto _ : state) {
    const SipJson copy(request);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(CopyOurs)->Name("copy/ours");

void CopyOursBySize(benchmark::State& state) {
  SipJson request;
  request.m_oDocument.Parse(RequestText(state.range(0)).c_str());
  for (auto _ : state) {
    const SipJson copy(request);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(CopyOursBySize)->Name("growth_copy/ours")->RangeMultiplier(10)->Range(1, 100);

void MemoryOurs(benchmark::State& state) {
  SipJson request;
  request.m_oDocument.Parse(REQUEST_TEXT);
  MeasureMemory(state, 1, 1000, [&] { return std::make_unique<SipJson>(request); });
}
BENCHMARK(MemoryOurs)->Name("memory_queued_record/ours")->Iterations(1);

void MemoryRapidJson(benchmark::State& state) {
  rapidjson::Document request;
  request.Parse(REQUEST_TEXT);
  MeasureMemory(state, 1, 1000, [&] {
    auto copy = std::make_unique<rapidjson::Document>();
    copy->CopyFrom(request, copy->GetAllocator());
    return copy;
  });
}
BENCHMARK(MemoryRapidJson)->Name("memory_queued_record/RapidJSON")->Iterations(1);

void CopyRapidJson(benchmark::State& state) {
  rapidjson::Document request;
  request.Parse(REQUEST_TEXT);
  for (auto _ : state) {
    rapidjson::Document copy;
    copy.CopyFrom(request, copy.GetAllocator());
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(CopyRapidJson)->Name("copy/RapidJSON");

}  // namespace
