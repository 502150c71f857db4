#include <benchmark/benchmark.h>
#include <glib.h>

namespace {

void SetAndWait(benchmark::State& state) {
  GMutex mutex;
  GCond condition;
  g_mutex_init(&mutex);
  g_cond_init(&condition);
  bool isSet = false;
  for (auto _ : state) {
    g_mutex_lock(&mutex);
    isSet = true;
    g_cond_signal(&condition);
    g_mutex_unlock(&mutex);
    g_mutex_lock(&mutex);
    while (!isSet) {
      g_cond_wait(&condition, &mutex);
    }
    isSet = false;
    g_mutex_unlock(&mutex);
  }
}
BENCHMARK(SetAndWait)->Name("event_set_wait/GLib");

void Look(benchmark::State& state) {
  GMutex mutex;
  GCond condition;
  g_mutex_init(&mutex);
  g_cond_init(&condition);
  for (auto _ : state) {
    g_mutex_lock(&mutex);
    benchmark::DoNotOptimize(g_cond_wait_until(&condition, &mutex, g_get_monotonic_time()));
    g_mutex_unlock(&mutex);
  }
}
BENCHMARK(Look)->Name("event_wait_0/GLib")->UseRealTime();

}  // namespace
