#pragma once

#include <benchmark/benchmark.h>
#include <sched.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "bench/request_texts.h"
#include "frame/sip_json.h"

// What every contender does: one worker thread runs jobs, each of which owns a copy of a record.

constexpr int TASK_COUNT = 100'000;
constexpr int LATENCY_TASKS = 500;

using Clock = std::chrono::steady_clock;

inline SipJson MakeRecord() {
  SipJson record;
  record.m_oDocument.Parse(REQUEST_TEXT);
  return record;
}

// The time from queuing a job to its start on a sleeping worker, the median of many. `queue` takes
// a function that the worker is to call.
template <typename Queue>
void MeasureLatency(benchmark::State& state, const Queue& queue) {
  std::atomic<Clock::rep> begun = 0;
  for (auto _ : state) {
    std::vector<double> times;
    for (int task = 0; task < LATENCY_TASKS; ++task) {
      begun = 0;
      const auto start = Clock::now();
      queue([&begun] { begun = Clock::now().time_since_epoch().count(); });
      const timespec pause = {0, 200'000};
      do {
        nanosleep(&pause, nullptr);
      } while (begun == 0);
      const Clock::time_point begin{Clock::duration(begun)};
      times.push_back(std::chrono::duration<double>(begin - start).count());
    }
    std::nth_element(times.begin(), times.begin() + LATENCY_TASKS / 2, times.end());
    state.SetIterationTime(times[LATENCY_TASKS / 2]);
  }
}

// The time until the last of many jobs has run. `queue` takes a record to be copied and the counter
// of the jobs that ran.
template <typename Queue>
void MeasureThroughput(benchmark::State& state, const Queue& queue) {
  const SipJson record = MakeRecord();
  const auto count = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::atomic<int> done = 0;
    for (int task = 0; task < count; ++task) {
      queue(record, done);
    }
    while (done < count) {
      sched_yield();
    }
  }
}
