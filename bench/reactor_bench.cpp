// Reactor costs:
//  - CrossThreadRunInLoop: from runInLoop on another thread to the functor
//    running on the loop thread. The loop's poll waits up to 1 ms, so this
//    measures the wake-up through the loopback pair.
//  - BareLoopbackWake: the floor under it, in the same run: a plain thread in
//    poll on a loopback pair like the loop's, woken by an 8-byte send.
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
#include "utility/Platform.h"

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

void BareLoopbackWake(benchmark::State& state) {
  int pair[2];
  if (velmar::net::createLoopbackPair(pair) != 0) return state.SkipWithError("no loopback pair");
  std::atomic<bool> stop{false}, woke{false};
  Clock::time_point wokeAt;
  std::thread waiter([&] {
    while (!stop.load(std::memory_order_relaxed)) {
      velmar::platform::PollFd entry{};
      velmar::platform::setPollHandle(entry, pair[0]);
      entry.events = velmar::platform::kPollRdNorm;
      if (velmar::platform::pollSockets(&entry, 1, 1) <= 0) continue;
      char bytes[8];
      velmar::platform::recvSocket(pair[0], bytes, sizeof bytes);
      wokeAt = Clock::now();
      woke.store(true, std::memory_order_release);
    }
  });
  std::vector<double> samples;
  samples.reserve(100000);
  const char bytes[8] = {1};
  for (auto _ : state) {
    woke.store(false, std::memory_order_relaxed);
    Clock::time_point start = Clock::now();
    velmar::platform::sendSocket(pair[1], bytes, sizeof bytes);
    while (!woke.load(std::memory_order_acquire)) std::this_thread::yield();
    double seconds = std::chrono::duration<double>(wokeAt - start).count();
    state.SetIterationTime(seconds);
    samples.push_back(seconds * 1e6);
  }
  state.counters["median_us"] = median(samples);
  stop = true;
  waiter.join();
  velmar::platform::closeSocket(pair[0]);
  velmar::platform::closeSocket(pair[1]);
}
BENCHMARK(BareLoopbackWake)->UseManualTime()->Unit(benchmark::kMicrosecond);

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
