#include <winpr/collections.h>
#include <winpr/synch.h>

#include <functional>
#include <thread>

#include "bench/task_bench.h"

namespace {

using Task = std::function<void()>;

class Worker {
 public:
  ~Worker() {
    MessageQueue_PostQuit(m_pQueue, 0);
    m_oThread.join();
    MessageQueue_Free(m_pQueue);
  }

  void Post(Task task) {
    MessageQueue_Post(m_pQueue, nullptr, 1, new Task(std::move(task)), nullptr);
  }

 private:
  void Run() {
    wMessage message = {};
    while (MessageQueue_Wait(m_pQueue) != 0 && MessageQueue_Peek(m_pQueue, &message, TRUE) != 0) {
      if (message.id == WMQ_QUIT) {
        return;
      }
      const std::unique_ptr<Task> task(static_cast<Task*>(message.wParam));
      (*task)();
    }
  }

  wMessageQueue* const m_pQueue = MessageQueue_New(nullptr);
  std::thread m_oThread{[this] { Run(); }};
};

void Latency(benchmark::State& state) {
  Worker worker;
  MeasureLatency(state, [&](const Task& task) { worker.Post(task); });
}
BENCHMARK(Latency)->Name("task_latency/WinPR")->Iterations(1)->UseManualTime();

void Throughput(benchmark::State& state) {
  Worker worker;
  MeasureThroughput(state, [&](const SipJson& record, std::atomic<int>& done) {
    worker.Post([copy = std::make_shared<SipJson>(record), &done] { ++done; });
  });
}
BENCHMARK(Throughput)->Name("task_throughput/WinPR")->Arg(TASK_COUNT)->UseRealTime();

}  // namespace
