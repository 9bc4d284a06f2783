// Reactor costs:
//  - CrossThreadRunInLoop: from runInLoop on another thread to the functor
//    running on the loop thread. The loop's poll waits up to 1 ms, so this
//    measures the wake-up through the loopback pair.
//  - RunEveryCancel: one runEvery and its cancel on the loop thread, as the
//    front connection re-arms its receive time-out for every message.
// Both report the median (counters "median_us", "median_ns") next to the mean.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "VLNet/EventLoop.h"
#include "VLNet/EventLoopThread.h"

using velmar::net::EventLoop;
using velmar::net::EventLoopThread;
using velmar::net::TimerId;

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> v) {
  if (v.empty()) return 0.0;
  std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
  return v[v.size() / 2];
}

void CrossThreadRunInLoop(benchmark::State& state) {
  EventLoopThread thread;
  EventLoop* loop = thread.startLoop();
  std::vector<double> samples;
  samples.reserve(100000);
  for (auto _ : state) {
    std::atomic<bool> ran{false};
    Clock::time_point ranAt;
    Clock::time_point start = Clock::now();
    loop->runInLoop([&] {
      ranAt = Clock::now();
      ran.store(true, std::memory_order_release);
    });
    while (!ran.load(std::memory_order_acquire)) std::this_thread::yield();
    double seconds = std::chrono::duration<double>(ranAt - start).count();
    state.SetIterationTime(seconds);
    samples.push_back(seconds * 1e6);
  }
  state.counters["median_us"] = median(samples);
  thread.quit();
  thread.join();
}
BENCHMARK(CrossThreadRunInLoop)->UseManualTime()->Unit(benchmark::kMicrosecond);

void RunEveryCancel(benchmark::State& state) {
  EventLoop loop;  // this thread is its loop thread: both calls are synchronous
  constexpr int kBatch = 1000;
  std::vector<double> batches;
  int fired = 0;
  while (state.KeepRunningBatch(kBatch)) {
    Clock::time_point start = Clock::now();
    for (int i = 0; i < kBatch; ++i) {
      TimerId id = loop.runEvery(30.0, [&fired] { ++fired; });
      loop.cancel(id);
    }
    batches.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count() /
                      kBatch);
  }
  benchmark::DoNotOptimize(fired);
  state.counters["median_ns"] = median(batches);
}
BENCHMARK(RunEveryCancel)->Unit(benchmark::kNanosecond);

}  // namespace
