#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <functional>
#include <thread>

#include "bench/task_bench.h"

namespace {

class Worker {
 public:
  ~Worker() {
    m_oWork.reset();
    m_oThread.join();
  }

  template <typename Task>
  void Post(Task&& task) {
    boost::asio::post(m_oContext, std::forward<Task>(task));
  }

 private:
  boost::asio::io_context m_oContext;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_oWork{
      m_oContext.get_executor()};
  std::thread m_oThread{[this] { m_oContext.run(); }};
};

void Latency(benchmark::State& state) {
  Worker worker;
  MeasureLatency(state, [&](const std::function<void()>& task) { worker.Post(task); });
}
BENCHMARK(Latency)->Name("task_latency/Boost.Asio")->Iterations(1)->UseManualTime();

void Throughput(benchmark::State& state) {
  Worker worker;
  MeasureThroughput(state, [&](const SipJson& record, std::atomic<int>& done) {
    worker.Post([copy = std::make_shared<SipJson>(record), &done] { ++done; });
  });
}
BENCHMARK(Throughput)->Name("task_throughput/Boost.Asio")->Arg(TASK_COUNT)->UseRealTime();

}  // namespace
