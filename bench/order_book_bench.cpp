// Cost of one message on the book thread (gate, rule and callback, with
// mutex_ taken and given back), and the delay from the receiver's hand-over to
// the book thread picking the node up.
//
// Each benchmark runs with the DEBUG lines off (argument 0) and on, written
// into an output that discards them (argument 1). Times are per message: the
// counter "per_msg" divides by the messages of one iteration.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "VLClientApi/MdApiImpl.h"
#include "support/TestAccess.h"
#include "support/BookMessages.h"
#include "utility/Logging.h"

namespace {

using namespace booktest;
using velmar::mdapi::MdApiImpl;
using velmar::mdapi::OrderBooks;
using velmar::mdapi::TestAccess;
using velmar::mdapi::orderBookNode;
using velmar::utility::Logger;

const std::string kId = "300446";

void discard(const char*, int) {}

/// Sets the log level for one benchmark run and puts it back afterwards.
class LogLevelScope {
 public:
  explicit LogLevelScope(bool debug) : level_(Logger::logLevel()), output_(Logger::output()) {
    Logger::setOutput(&discard);
    Logger::setLogLevel(debug ? Logger::DEBUG : Logger::INFO);
  }
  ~LogLevelScope() {
    Logger::setLogLevel(level_);
    Logger::setOutput(output_);
  }

 private:
  Logger::LogLevel level_;
  Logger::OutputFunc output_;
};

/// A session with one book, seeded by a snapshot with ten levels per side:
/// bids 10.00 down to 9.10, asks 10.10 up to 11.00, 100 shares each.
struct Session {
  MdApiImpl impl;
  velmar::mdapi::VelmarMdSpi spi;  // every callback does nothing
  CVelmarOrderBook* book = nullptr;
  int64_t stamp = 1000;

  Session() {
    impl.RegisterSpi(&spi);
    {
      velmar::utility::MutexLockGuard lock(TestAccess::core(impl).mutex_);
      books().addOrderBook(Id16(kId).bytes);
    }
    book = books().findBook(kId);
    Bytes snap = snapshotBody(fullSnapshot());
    handle(snap, orderBookNode::kSnapshot);
  }
  Snapshot fullSnapshot() {
    Snapshot s = tenLevelSnapshot(kId, ++stamp);
    s.numTrades = 10;
    s.totalVolumeTrade = 100000;
    s.totalValueTrade = 10000000;
    return s;
  }
  OrderBooks& books() { return TestAccess::books(impl); }
  bool handle(const Bytes& body, int32_t kind) {
    orderBookNode node;
    node.data = body.data();
    node.kind = kind;
    return books().handleBookNode(node);
  }
};

void setI64(Bytes& b, size_t at, int64_t v) {
  std::memcpy(&b[at], &v, 8);
}

constexpr size_t kOrderSeq = 2, kOrderTime = 42, kTradeTime = 58, kTradeBid = 13, kSnapTime = 0;

void reportPerMessage(benchmark::State& state, int perIteration) {
  state.counters["per_msg"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * perIteration,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// An insertion at level 5 of a full buy side (level 9 falls off), the
// execution that deletes it again (level 9 cleared), and a buy order that
// refills level 9 as the first empty level: two inserts and one execution.
void BM_OrderInsertCycle(benchmark::State& state) {
  LogLevelScope log(state.range(0) != 0);
  Session s;
  Bytes insert = orderBody(kId, 0, '1', 95500, 10000, 0);
  Bytes execute = tradeBody(kId, 'F', 0, 0, 95500, 10000, 0);
  Bytes refill = orderBody(kId, 0, '1', 91000, 10000, 0);
  int64_t seq = 100000000;
  for (auto _ : state) {
    setI64(insert, kOrderSeq, ++seq);
    setI64(insert, kOrderTime, ++s.stamp);
    s.handle(insert, orderBookNode::kOrder);
    setI64(execute, kTradeTime, ++s.stamp);
    s.handle(execute, orderBookNode::kTrade);
    setI64(refill, kOrderSeq, ++seq);
    setI64(refill, kOrderTime, ++s.stamp);
    s.handle(refill, orderBookNode::kOrder);
  }
  if (s.book->Bid[9] != 9.1 || s.book->Bid[5] != 9.5) state.SkipWithError("cycle broke");
  reportPerMessage(state, 3);
}
BENCHMARK(BM_OrderInsertCycle)->Arg(0)->Arg(1);

// Buy orders joining level 3; its list is reset every 16 joins so that it
// stays at a realistic length.
void BM_OrderJoin(benchmark::State& state) {
  LogLevelScope log(state.range(0) != 0);
  Session s;
  Bytes join = orderBody(kId, 0, '1', 97000, 10000, 0);
  int64_t seq = 100000000;
  for (auto _ : state) {
    setI64(join, kOrderSeq, ++seq);
    setI64(join, kOrderTime, ++s.stamp);
    s.handle(join, orderBookNode::kOrder);
    if ((seq & 15) == 0) s.book->BidOrders[3].assign(1, ',');
  }
  reportPerMessage(state, 1);
}
BENCHMARK(BM_OrderJoin)->Arg(0)->Arg(1);

// Executions on the sell side at level 4: the scan passes four indexes of
// both sides, then reduces the level.
void BM_ExecutionReduce(benchmark::State& state) {
  LogLevelScope log(state.range(0) != 0);
  Session s;
  Bytes execute = tradeBody(kId, 'F', 0, 0, 105000, 100, 0);
  setI64(execute, kTradeTime, INT64_MAX);  // trades don't move the book's time
  s.book->AskQty[4] = INT64_MAX / 2;       // never reduced to nothing
  for (auto _ : state) s.handle(execute, orderBookNode::kTrade);
  reportPerMessage(state, 1);
}
BENCHMARK(BM_ExecutionReduce)->Arg(0)->Arg(1);

/// Gives every level of the buy side a list of ten orders with numbers like
/// the exchange's (eight digits).
void fillLists(CVelmarOrderBook& book) {
  int64_t seq = 73000000;
  for (int i = 0; i < 10; ++i) {
    book.BidOrders[i] = ",";
    for (int k = 0; k < 10; ++k) book.BidOrders[i] += std::to_string(seq++) + ",";
  }
}

// A cancellation whose number stands in none of the ten lists of ten
// entries: the whole side is searched.
void BM_CancelMiss(benchmark::State& state) {
  LogLevelScope log(state.range(0) != 0);
  Session s;
  fillLists(*s.book);
  Bytes cancel = tradeBody(kId, '4', 73000100, 0, 0, 100, INT64_MAX);
  for (auto _ : state) s.handle(cancel, orderBookNode::kTrade);
  reportPerMessage(state, 1);
}
BENCHMARK(BM_CancelMiss)->Arg(0)->Arg(1);

// A cancellation that finds its order in the middle of level 9's list (so all
// ten lists are searched and one entry is cut out), followed by the order
// that puts the same number back at the end of that list.
void BM_CancelHitAndRejoin(benchmark::State& state) {
  LogLevelScope log(state.range(0) != 0);
  Session s;
  fillLists(*s.book);
  s.book->BidQty[9] = 1000000;
  int64_t victim = 73000095;
  Bytes cancel = tradeBody(kId, '4', victim, 0, 0, 100, INT64_MAX);
  Bytes rejoin = orderBody(kId, victim, '1', 91000, 100, 0);
  for (auto _ : state) {
    s.handle(cancel, orderBookNode::kTrade);
    setI64(rejoin, kOrderTime, ++s.stamp);
    s.handle(rejoin, orderBookNode::kOrder);
    // next time, the entry now at the middle of the list
    victim = victim == 73000099 ? 73000090 : victim + 1;
    setI64(cancel, kTradeBid, victim);
    setI64(rejoin, kOrderSeq, victim);
  }
  if (s.book->BidOrders[9].size() != s.book->BidOrders[8].size())
    state.SkipWithError("list length drifted");
  reportPerMessage(state, 2);
}
BENCHMARK(BM_CancelHitAndRejoin)->Arg(0)->Arg(1);

// A snapshot with ten levels per side.
void BM_SnapshotRefresh(benchmark::State& state) {
  LogLevelScope log(state.range(0) != 0);
  Session s;
  Bytes snap = snapshotBody(s.fullSnapshot());
  for (auto _ : state) {
    setI64(snap, kSnapTime, ++s.stamp);
    s.handle(snap, orderBookNode::kSnapshot);
  }
  reportPerMessage(state, 1);
}
BENCHMARK(BM_SnapshotRefresh)->Arg(0)->Arg(1);

// The receiver's hand-over (key look-up, copy into pooled bytes, enqueue)
// alone, with a book thread draining the queue on another core.
void BM_HandOverCost(benchmark::State& state) {
  LogLevelScope log(false);
  Session s;
  std::atomic<bool> stop{false};
  std::thread books([&] {
    while (!stop.load(std::memory_order_relaxed)) s.books().pollBookQueue();
  });
  Bytes order = orderBody(kId, 1, 'G', 100000, 100, 0);
  for (auto _ : state) {
    setI64(order, kOrderTime, ++s.stamp);
    s.books().handOverToBooks(order.data(), orderBookNode::kOrder);
  }
  stop = true;
  books.join();
  s.books().drainBookQueue();
}
BENCHMARK(BM_HandOverCost);

// From the receiver's enqueue to the moment the book thread has the node in
// hand, one message at a time (the queue is empty at each hand-over). The
// message carries its send time in OrderTime; Side "G" leaves the book as it
// is. Reports the median and the 99th percentile over all samples.
void BM_HandOverLatency(benchmark::State& state) {
  LogLevelScope log(false);
  Session s;
  using Clock = std::chrono::steady_clock;
  auto nowNs = [] {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
  };
  std::vector<int64_t> samples;
  samples.reserve(1 << 20);
  std::atomic<int64_t> handled{0};
  std::atomic<bool> stop{false};
  std::thread books([&] {
    orderBookNode node;
    while (!stop.load(std::memory_order_relaxed)) {
      if (!TestAccess::takeNode(s.books(), &node)) continue;
      const int64_t picked = nowNs();
      int64_t sent;
      std::memcpy(&sent, node.data + kOrderTime, 8);
      samples.push_back(picked - sent);
      s.books().handleBookNode(node);
      TestAccess::releaseNode(s.books(), node);
      handled.fetch_add(1, std::memory_order_release);
    }
  });
  Bytes order = orderBody(kId, 1, 'G', 100000, 100, 0);
  int64_t sent = 0;
  for (auto _ : state) {
    setI64(order, kOrderTime, nowNs());
    s.books().handOverToBooks(order.data(), orderBookNode::kOrder);
    ++sent;
    while (handled.load(std::memory_order_acquire) != sent) {
    }
  }
  stop = true;
  books.join();
  if (!samples.empty()) {
    std::sort(samples.begin(), samples.end());
    state.counters["median_ns"] = static_cast<double>(samples[samples.size() / 2]);
    state.counters["p99_ns"] = static_cast<double>(samples[samples.size() * 99 / 100]);
  }
}
BENCHMARK(BM_HandOverLatency)->Iterations(200000);

/// Resident memory of the process in MiB, or -1 where /proc is missing.
double residentMiB() {
  long pages = -1, resident = -1;
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (f == nullptr) return -1;
  const int n = std::fscanf(f, "%ld %ld", &pages, &resident);
  std::fclose(f);
  if (n != 2) return -1;
  return static_cast<double>(resident) * 4096.0 / (1024.0 * 1024.0);
}

// A burst of 1,000,000 orders handed over while the book thread stands still
// (a slow OnRtnOrderBook), then drained: resident memory before, at the
// peak and after the drain, without a queue limit (argument 0) and with a
// limit of 65536 (argument 65536). The drain counts as the iteration's time.
// Each run builds a session of its own, so the queue's blocks start empty.
void BM_BurstMemory(benchmark::State& state) {
  LogLevelScope log(false);
  const uint32_t limit = static_cast<uint32_t>(state.range(0));
  constexpr int kBurst = 1000000;
  double before = 0, peak = 0, after = 0;
  uint64_t dropped = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto s = std::unique_ptr<Session>(new Session());
    velmar::mdapi::SessionOptions options;
    options.bookQueueLimit = limit;
    s->books().configure(options);
    before = residentMiB();
    Bytes order = orderBody(kId, 1, 'G', 100000, 100, 0);
    for (int i = 0; i < kBurst; ++i) {
      setI64(order, kOrderTime, ++s->stamp);
      s->books().handOverToBooks(order.data(), orderBookNode::kOrder);
    }
    peak = residentMiB();
    state.ResumeTiming();
    while (s->books().pollBookQueue()) {
    }
    state.PauseTiming();
    after = residentMiB();
    dropped = TestAccess::counters(s->impl).receiver.bookNodesDropped.load();
    s.reset();
    state.ResumeTiming();
  }
  state.counters["rss_before_MiB"] = before;
  state.counters["rss_peak_MiB"] = peak;
  state.counters["rss_drained_MiB"] = after;
  state.counters["dropped"] = static_cast<double>(dropped);
}
BENCHMARK(BM_BurstMemory)->Arg(0)->Arg(65536)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
