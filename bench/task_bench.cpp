// Tasks: from queuing one to its start, and many through the queue. Next to the task serializer, a
// simple queue under a mutex and the bare wake-up of a thread.

#include "bench/task_bench.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "tasks/task_serializer.h"

namespace {

class Serializer : public CTaskSerializer<SipJson> {
 public:
  Serializer() : CTaskSerializer(1) { StartSerialization(); }
  ~Serializer() override { TerminateSerialization(); }

  std::function<void()> onTask;

 protected:
  void OnTaskExecution(SipJson& /*message*/, int32_t /*level*/) override { onTask(); }
};

void LatencyOurs(benchmark::State& state) {
  const SipJson record = MakeRecord();
  Serializer serializer;
  MeasureLatency(state, [&](const std::function<void()>& task) {
    serializer.onTask = task;
    serializer.InsertTask(record, 0, nullptr);
  });
}
BENCHMARK(LatencyOurs)->Name("task_latency/ours")->Iterations(1)->UseManualTime();

void ThroughputOurs(benchmark::State& state) {
  Serializer serializer;
  std::atomic<std::atomic<int>*> counter = nullptr;
  serializer.onTask = [&] { ++*counter.load(); };
  MeasureThroughput(state, [&](const SipJson& record, std::atomic<int>& done) {
    counter = &done;
    while (serializer.InsertTask(record, 0, nullptr) == 0) {
      sched_yield();
    }
  });
}
// Once in each run: on a busy machine, where every yield gives the processor away, many take long.
BENCHMARK(ThroughputOurs)
    ->Name("task_throughput/ours")
    ->Arg(TASK_COUNT)
    ->Iterations(1)
    ->UseRealTime();
BENCHMARK(ThroughputOurs)
    ->Name("growth_tasks/ours")
    ->RangeMultiplier(10)
    ->Range(100, 10'000)
    ->Iterations(10)
    ->UseRealTime();

class PlainQueue {
 public:
  ~PlainQueue() {
    Push(nullptr);
    m_oThread.join();
  }

  void Push(std::function<void()> task) {
    const std::lock_guard guard(m_oLock);
    m_oTasks.push_back(std::move(task));
    m_oChanged.notify_one();
  }

 private:
  void Run() {
    for (;;) {
      std::unique_lock lock(m_oLock);
      m_oChanged.wait(lock, [this] { return !m_oTasks.empty(); });
      const std::function<void()> task = std::move(m_oTasks.front());
      m_oTasks.pop_front();
      lock.unlock();
      if (!task) {
        return;
      }
      task();
    }
  }

  std::mutex m_oLock;
  std::condition_variable m_oChanged;
  std::deque<std::function<void()>> m_oTasks;
  std::thread m_oThread{[this] { Run(); }};
};

void LatencyPlain(benchmark::State& state) {
  PlainQueue queue;
  MeasureLatency(state, [&](const std::function<void()>& task) { queue.Push(task); });
}
BENCHMARK(LatencyPlain)->Name("task_latency/mutex and condition")->Iterations(1)->UseManualTime();

void ThroughputPlain(benchmark::State& state) {
  PlainQueue queue;
  MeasureThroughput(state, [&](const SipJson& record, std::atomic<int>& done) {
    queue.Push([copy = std::make_shared<SipJson>(record), &done] { ++done; });
  });
}
BENCHMARK(ThroughputPlain)
    ->Name("task_throughput/mutex and condition")
    ->Arg(TASK_COUNT)
    ->UseRealTime();

// The least of a queue that yields after each task, as ours does.
void ThroughputYielding(benchmark::State& state) {
  PlainQueue queue;
  MeasureThroughput(state, [&](const SipJson& record, std::atomic<int>& done) {
    queue.Push([copy = std::make_shared<SipJson>(record), &done] { ++done; });
    sched_yield();
  });
}
BENCHMARK(ThroughputYielding)->Name("task_throughput/limit")->Arg(TASK_COUNT)->UseRealTime();

// A thread asleep on a futex, woken for each task.
class FutexWorker {
 public:
  ~FutexWorker() {
    m_bEnd = true;
    Wake();
    m_oThread.join();
  }

  void Run(const std::function<void()>& task) {
    m_fnTask = task;
    Wake();
  }

 private:
  void Wake() {
    ++m_nTurn;
    syscall(SYS_futex, &m_nTurn, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    sched_yield();
  }

  void Loop() {
    for (int seen = 0;; ++seen) {
      while (m_nTurn == seen) {
        syscall(SYS_futex, &m_nTurn, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
      }
      if (m_bEnd) {
        return;
      }
      m_fnTask();
    }
  }

  std::atomic<int> m_nTurn = 0;
  std::atomic<bool> m_bEnd = false;
  std::function<void()> m_fnTask;
  std::thread m_oThread{[this] { Loop(); }};
};

void LatencyFutex(benchmark::State& state) {
  FutexWorker worker;
  MeasureLatency(state, [&](const std::function<void()>& task) { worker.Run(task); });
}
BENCHMARK(LatencyFutex)->Name("task_latency/limit")->Iterations(1)->UseManualTime();

}  // namespace
