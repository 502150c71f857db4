// Events: a set and the wait that finds it, a wait that finds nothing.

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

#include "platform/sync/event.h"

namespace {

void SetAndWaitOurs(benchmark::State& state) {
  CEvent event(false, false);
  for (auto _ : state) {
    event.Set();
    benchmark::DoNotOptimize(event.Wait(EVENT_INFINITE));
  }
}
BENCHMARK(SetAndWaitOurs)->Name("event_set_wait/ours");

void SetAndWaitAmongOthers(benchmark::State& state) {
  std::deque<CEvent> others;
  for (int64_t index = 0; index < state.range(0); ++index) {
    others.emplace_back(false, false, ("event " + std::to_string(index)).c_str());
  }
  SetAndWaitOurs(state);
}
BENCHMARK(SetAndWaitAmongOthers)->Name("growth_event/ours")->RangeMultiplier(10)->Range(10, 1000);

class PthreadEvent {
 public:
  void Set() {
    pthread_mutex_lock(&m_oMutex);
    m_bSet = true;
    pthread_cond_signal(&m_oCondition);
    pthread_mutex_unlock(&m_oMutex);
  }

  void Wait() {
    pthread_mutex_lock(&m_oMutex);
    while (!m_bSet) {
      pthread_cond_wait(&m_oCondition, &m_oMutex);
    }
    m_bSet = false;
    pthread_mutex_unlock(&m_oMutex);
  }

  bool Look() {
    pthread_mutex_lock(&m_oMutex);
    const bool isSet = m_bSet;
    pthread_mutex_unlock(&m_oMutex);
    return isSet;
  }

 private:
  pthread_mutex_t m_oMutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t m_oCondition = PTHREAD_COND_INITIALIZER;
  bool m_bSet = false;
};

void SetAndWaitPthread(benchmark::State& state) {
  PthreadEvent event;
  for (auto _ : state) {
    event.Set();
    event.Wait();
  }
}
BENCHMARK(SetAndWaitPthread)->Name("event_set_wait/pthread");

void SetYieldAndWaitPthread(benchmark::State& state) {
  PthreadEvent event;
  for (auto _ : state) {
    event.Set();
    sched_yield();
    event.Wait();
  }
}
BENCHMARK(SetYieldAndWaitPthread)->Name("event_set_wait/limit");

void SetAndWaitEventfd(benchmark::State& state) {
  const int event = eventfd(0, EFD_CLOEXEC);
  for (auto _ : state) {
    eventfd_write(event, 1);
    eventfd_t value = 0;
    eventfd_read(event, &value);
  }
  close(event);
}
BENCHMARK(SetAndWaitEventfd)->Name("event_set_wait/eventfd");

void LookOurs(benchmark::State& state) {
  CEvent event(false, false);
  for (auto _ : state) {
    benchmark::DoNotOptimize(event.Wait(0));
  }
}
BENCHMARK(LookOurs)->Name("event_wait_0/ours")->UseRealTime();

void LookPthread(benchmark::State& state) {
  PthreadEvent event;
  for (auto _ : state) {
    benchmark::DoNotOptimize(event.Look());
  }
}
BENCHMARK(LookPthread)->Name("event_wait_0/limit")->UseRealTime();

void LookStandard(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable condition;
  bool isSet = false;
  for (auto _ : state) {
    std::unique_lock lock(mutex);
    benchmark::DoNotOptimize(
        condition.wait_for(lock, std::chrono::milliseconds(0), [&] { return isSet; }));
  }
}
BENCHMARK(LookStandard)->Name("event_wait_0/std::condition_variable")->UseRealTime();

}  // namespace
