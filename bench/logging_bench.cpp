// Cost of a log statement on the calling thread: an enabled line of about 80
// bytes with two numbers into an output that discards it, and a statement
// below the level.
#include <benchmark/benchmark.h>

#include "utility/Logging.h"

namespace {

void discard(const char* msg, int len) {
  benchmark::DoNotOptimize(msg);
  benchmark::DoNotOptimize(len);
}

struct Output {
  Output() : previous(velmar::utility::Logger::output()) {
    velmar::utility::Logger::setOutput(discard);
  }
  ~Output() { velmar::utility::Logger::setOutput(previous); }
  velmar::utility::Logger::OutputFunc previous;
};

void BM_EnabledLine(benchmark::State& state) {
  Output out;
  velmar::utility::Logger::setLogLevel(velmar::utility::Logger::INFO);
  int64_t seq = 1000;
  for (auto _ : state) {
    LOG_INFO << "ORDER_LOST SecurityID: 300446 pre_seq " << seq << " , Applseqnum " << seq - 1;
    ++seq;
  }
}

void BM_DisabledLine(benchmark::State& state) {
  Output out;
  velmar::utility::Logger::setLogLevel(velmar::utility::Logger::INFO);
  int64_t seq = 1000;
  for (auto _ : state) {
    LOG_DEBUG << "[Test]start to refresh orderbook by entrust!data->Side:" << seq;
    benchmark::DoNotOptimize(seq);
  }
}

}  // namespace

BENCHMARK(BM_EnabledLine);
BENCHMARK(BM_DisabledLine);
