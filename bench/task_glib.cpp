#include <glib.h>

#include <functional>

#include "bench/task_bench.h"

namespace {

using Task = std::function<void()>;

class Pool {
 public:
  Pool()
      : m_pPool(g_thread_pool_new(
            [](gpointer data, gpointer) {
              const std::unique_ptr<Task> task(static_cast<Task*>(data));
              (*task)();
            },
            nullptr, 1, TRUE, nullptr)) {}
  ~Pool() { g_thread_pool_free(m_pPool, FALSE, TRUE); }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  void Push(Task task) { g_thread_pool_push(m_pPool, new Task(std::move(task)), nullptr); }

 private:
  GThreadPool* const m_pPool;
};

void Latency(benchmark::State& state) {
  Pool pool;
  MeasureLatency(state, [&](const Task& task) { pool.Push(task); });
}
BENCHMARK(Latency)->Name("task_latency/GLib pool")->Iterations(1)->UseManualTime();

void Throughput(benchmark::State& state) {
  Pool pool;
  MeasureThroughput(state, [&](const SipJson& record, std::atomic<int>& done) {
    pool.Push([copy = std::make_shared<SipJson>(record), &done] { ++done; });
  });
}
BENCHMARK(Throughput)->Name("task_throughput/GLib pool")->Arg(TASK_COUNT)->UseRealTime();

}  // namespace
