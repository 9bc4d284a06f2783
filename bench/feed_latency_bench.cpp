// Latency of the feed path: a datagram sent on loopback multicast to the
// moment the application's callback sees it, next to a bare blocking
// recvfrom loop that receives the same bytes in the same run.
//
// Each sample is one datagram: the sender takes the time, sends, and waits
// until the receiving side has taken its own time. Both sides read the same
// steady clock. The sender waits for each answer before the next datagram, so
// queueing in the socket never enters a sample.
//
// How long a blocked receiver takes to wake depends on how long its processor
// has been idle, and on a virtual machine that time has modes far apart (here
// about 10, 25 and 60 us). Bare and library samples alternate and take turns
// going first, so both meet the same conditions; compare the figures of one
// run with each other rather than across runs. For the ticks the sender spins
// while it waits, which keeps the machine in one mode. For the books it sleeps
// instead: the book thread already keeps one core busy for good, and a second
// spinning thread would leave the receivers none on a two-core machine.
//
// The bare loop is a thread blocked in recvfrom on a socket of its own (same
// group, another port); its time is taken right after the call returns. Each
// iteration sends the same datagram to the bare loop and to the library.
//
//   BM_FeedToTickByTick    the library's receiver thread; time taken inside
//                          OnRtnTickByTick for a Shenzhen order.
//   BM_FeedToOrderBook     the same receiver, the hand-over to the book thread
//                          and the book rule; time taken inside OnRtnOrderBook.
//                          Argument 0: log level INFO. Argument 1: DEBUG, as
//                          Init leaves it, the book thread's lines built and
//                          handed to an output that discards them.
//
//   BM_FeedToOrderBookIdle the book path with the book thread spinning and
//                          sleeping (book.idle=block) by turns, four samples
//                          per iteration. How long a datagram follows the one
//                          before decides how deep the receiver (and, with
//                          block, the book thread) sleeps, so each mode is
//                          measured at the same two spacings: back to back,
//                          sent as soon as the previous one was published, as
//                          the other benchmarks send (*_b2b; the book thread
//                          of block may still be polling), and 200 us apart
//                          (*_spaced; the book thread of block is asleep and
//                          pays the wake-up). Then 10 s without traffic, and
//                          the book thread's CPU time over them. Its book
//                          thread runs the loop of runOrderBook with the mode
//                          chosen per sample, and the books are configured
//                          for block throughout, so the spin samples include
//                          the receiver's wake check too. Run it alone
//                          (--benchmark_filter=Idle): the other book benchmark
//                          starts today's spinning thread for good.
//
// The session keeps its statistics as always and has a status callback object
// registered, so gap tracking runs with OnFeedGap ready to be called; the
// counters gaps and datagrams (GetStatistics, taken at the end) show it.
// Build the same file against an older version of the library to compare.
//
// Counters: median_us and p99_us of the library, bare_median_us and
// bare_p99_us of the bare loop, vs_bare the ratio of the two medians. The book
// benchmark adds book_hop_us, the median time from OnRtnTickByTick of a
// datagram (the receiver thread, after its hand-over) to its OnRtnOrderBook.
//
// Datagrams go to a group of 239.255.0.0/16 through 127.0.0.1 with TTL 0 only.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/MdApiImpl.h"
#include "support/TestAccess.h"
#include "sim/MulticastSender.h"
#include "support/BookMessages.h"
#include "utility/Logging.h"
#include "utility/Platform.h"
#include "utility/ThreadCpuTime.h"

namespace {

using namespace booktest;
using velmar::mdapi::MdApiImpl;
namespace platform = velmar::platform;

const char* const kGroup = "239.255.61.7";
const char* const kLoopback = "127.0.0.1";
const std::string kTickId = "000001";  // ticks only, no book
const std::string kBookId = "300446";  // has a book
constexpr int kSamples = 10000;
constexpr int kWarmUp = 300;

int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

/// What a receiving side publishes for each datagram it has handled.
struct Arrivals {
  std::atomic<int64_t> lastNs{0};
  std::atomic<uint64_t> count{0};
  void mark() {
    lastNs.store(nowNs(), std::memory_order_relaxed);
    count.fetch_add(1, std::memory_order_release);
  }
};

/// Two distinct free UDP ports on this host, found by binding to port 0.
void freePorts(uint16_t* first, uint16_t* second) {
  int fds[2];
  uint16_t* ports[2] = {first, second};
  for (int i = 0; i < 2; ++i) {
    fds[i] = platform::createSocket(AF_INET, SOCK_DGRAM, 0);
    struct sockaddr_in local;
    std::memset(&local, 0, sizeof local);
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    platform::bindSocket(fds[i], local);
    platform::localAddress(fds[i], &local);
    *ports[i] = ntohs(local.sin_port);
  }
  for (int fd : fds) platform::closeSocket(fd);
}

/// The bare loop: a socket bound to the port and joined to the group on
/// 127.0.0.1, read by one thread in blocking recvfrom for ever.
void runBareLoop(int fd, Arrivals* arrivals) {
  std::unique_ptr<char[]> buffer(new char[velmar::mdapi::feed::kReceiveSize]);
  for (;;) {
    if (platform::receiveDatagram(fd, buffer.get(), velmar::mdapi::feed::kReceiveSize) > 0)
      arrivals->mark();
  }
}

int openBareSocket(uint16_t port) {
  int fd = platform::createSocket(AF_INET, SOCK_DGRAM, 0);
  int reuse = 1;
  platform::setSocketOption(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  struct sockaddr_in local;
  std::memset(&local, 0, sizeof local);
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  local.sin_port = htons(port);
  if (platform::bindSocket(fd, local) < 0) return -1;
  struct ip_mreq membership;
  std::memset(&membership, 0, sizeof membership);
  membership.imr_multiaddr.s_addr = ::inet_addr(kGroup);
  membership.imr_interface.s_addr = ::inet_addr(kLoopback);
  if (platform::setSocketOption(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership,
                                sizeof membership) < 0)
    return -1;
  return fd;
}

/// Registered as the status callbacks; a gap here would be a fault of the rig.
class GapSpi : public velmar::mdapi::VelmarMdStatusSpi {
 public:
  void OnFeedGap(int, int64_t, int64_t) override { gaps.fetch_add(1); }
  std::atomic<uint64_t> gaps{0};
};

/// Times taken in the callbacks.
class TimingSpi : public velmar::mdapi::VelmarMdSpi {
 public:
  void OnRtnTickByTick(CVelmarTickByTick*) override { ticks.mark(); }
  void OnRtnOrderBook(CVelmarOrderBook*) override { books.mark(); }
  Arrivals ticks;
  Arrivals books;
};

void discard(const char*, int) {}

/// Set before the rig is built: its books wake a sleeping book thread.
bool g_blockableBooks = false;

/// Everything the benchmarks share, built on first use and kept for the life
/// of the process (the library's threads never end).
struct Rig {
  velmar::sim::MulticastSender toBare;
  velmar::sim::MulticastSender toLibrary;
  uint16_t barePort = 0;
  uint16_t libraryPort = 0;
  Arrivals bare;
  MdApiImpl* impl = nullptr;  // leaked on purpose: its threads outlive main
  TimingSpi* spi = nullptr;
  GapSpi* status = nullptr;
  bool bookThreadStarted = false;
  bool idleBookThreadStarted = false;
  bool blockableBooks = false;
  /// The loop of startIdleBookThread sleeps on an empty queue while set.
  std::atomic<bool> blockMode{false};
  std::atomic<uint64_t> bookThreadId{0};
  bool spinWait = false;  // how sendAndWait waits: spinning, or sleeping
  int64_t seq = 1000;    // ApplSeqNum on channel 2011, rising across all datagrams
  int64_t stamp = 1000;  // order, trade and snapshot times, rising
  std::string error;

  Rig() {
    velmar::utility::Logger::setOutput(&discard);
    velmar::utility::Logger::setLogLevel(velmar::utility::Logger::INFO);
    freePorts(&barePort, &libraryPort);
    if (!toBare.open(kGroup, barePort, kLoopback, &error) ||
        !toLibrary.open(kGroup, libraryPort, kLoopback, &error))
      return;

    int fd = openBareSocket(barePort);
    if (fd < 0) {
      error = "bare socket: cannot bind or join";
      return;
    }
    std::thread(runBareLoop, fd, &bare).detach();

    impl = new MdApiImpl();
    spi = new TimingSpi();
    impl->RegisterSpi(spi);
    status = new GapSpi();
    impl->RegisterStatusSpi(status);
    using velmar::mdapi::TestAccess;
    TestAccess::feed(*impl).setGroup(kGroup, std::to_string(libraryPort), {kLoopback});
    velmar::mdapi::SessionCore& core = TestAccess::core(*impl);
    core.connected_ = true;
    core.loggedIn_ = true;
    core.allTickExchange2_ = true;
    {
      velmar::utility::MutexLockGuard lock(core.mutex_);
      velmar::mdapi::TestAccess::books(*impl).addOrderBook(Id16(kBookId).bytes);
    }
    blockableBooks = g_blockableBooks;
    if (blockableBooks) {
      velmar::mdapi::SessionOptions options;
      options.bookIdle = velmar::mdapi::SessionOptions::BookIdle::kBlock;
      TestAccess::books(*impl).configure(options);
    }
    std::thread([this] { velmar::mdapi::TestAccess::feed(*impl).runUdpExanic(); }).detach();
    // The receiver joins the group on its own thread: until a datagram comes
    // back, it may not have.
    for (int i = 0; i < 100; ++i) {
      const Bytes probe = orderDatagram(kTickId, '1', 95500);
      if (sendAndWait(toLibrary, probe, spi->ticks, 20000000) >= 0) return;
    }
    error = "the library's receiver never got a datagram";
  }

  void startBookThread() {
    if (bookThreadStarted) return;
    bookThreadStarted = true;
    std::thread([this] { velmar::mdapi::TestAccess::books(*impl).runOrderBook(); }).detach();
  }

  /// The loop of runOrderBook, spinning or sleeping as blockMode says.
  void startIdleBookThread() {
    if (idleBookThreadStarted) return;
    idleBookThreadStarted = true;
    std::thread([this] {
      velmar::mdapi::OrderBooks& books = velmar::mdapi::TestAccess::books(*impl);
      bookThreadId.store(platform::currentThreadId());
      for (;;) {
        if (books.pollBookQueue()) continue;
        if (blockMode.load(std::memory_order_relaxed)) books.idle();
      }
    }).detach();
    while (bookThreadId.load() == 0) std::this_thread::yield();
  }

  /// Sends one datagram and waits for `arrivals` to move on. The latency in
  /// nanoseconds, or -1 if nothing arrived within the time limit.
  int64_t sendAndWait(velmar::sim::MulticastSender& out, const Bytes& datagram,
                      Arrivals& arrivals, int64_t limitNs = 1000000000) {
    const uint64_t before = arrivals.count.load(std::memory_order_acquire);
    const int64_t sent = nowNs();
    if (!out.send(reinterpret_cast<const uint8_t*>(datagram.data()), datagram.size())) return -1;
    const int64_t deadline = sent + limitNs;
    while (arrivals.count.load(std::memory_order_acquire) == before) {
      if (nowNs() > deadline) return -1;
      if (spinWait) continue;
      std::this_thread::sleep_for(std::chrono::microseconds(2));
    }
    return arrivals.lastNs.load(std::memory_order_relaxed) - sent;
  }

  Bytes orderDatagram(const std::string& id, char side, uint64_t price) {
    return wire(kOrderType, orderBody(id, ++seq, side, price, 10000, ++stamp));
  }
  Bytes tradeDatagram(const std::string& id, uint64_t price) {
    return wire(kTradeType, tradeBody(id, 'F', 0, 0, price, 10000, ++stamp, ++seq));
  }
  Bytes snapshotDatagram(const std::string& id) {
    return wire(kSnapshotType, snapshotBody(tenLevelSnapshot(id, ++stamp)));
  }
  /// The message type and the body: the datagram exactly as the feed sends it.
  static Bytes wire(uint32_t type, const Bytes& body) {
    Bytes d(4 + body.size());
    put32(d, 0, type);
    std::memcpy(&d[4], body.data(), body.size());
    return d;
  }
};

Rig& rig() {
  static Rig* r = new Rig();  // never destroyed: receiver threads use it
  return *r;
}

/// Median and 99th percentile of samples in nanoseconds, in microseconds.
struct Figures {
  double median = 0, p99 = 0;
};
Figures figures(std::vector<int64_t>& samples) {
  std::sort(samples.begin(), samples.end());
  return {samples[samples.size() / 2] / 1000.0, samples[samples.size() * 99 / 100] / 1000.0};
}

/// The side-by-side run: every iteration sends one datagram to the bare loop
/// and one to the library, in turns which goes first, so both see the same
/// machine at the same moment. `library` sends a datagram to the library and returns its latency;
/// the bare loop gets the same bytes. The iteration's time is the library's.
template <typename Next>
void sideBySide(benchmark::State& state, Next next, Arrivals& libraryArrivals) {
  Rig& r = rig();
  std::vector<int64_t> bare, library, hop;
  bare.reserve(kSamples);
  library.reserve(kSamples);
  for (int i = 0; i < kWarmUp; ++i) {
    const Bytes d = next();
    if (r.sendAndWait(r.toBare, d, r.bare) < 0 ||
        r.sendAndWait(r.toLibrary, d, libraryArrivals) < 0)
      return state.SkipWithError("a datagram was lost");
  }
  bool bareFirst = true;
  for (auto _ : state) {
    const Bytes d = next();
    int64_t b, l;
    if (bareFirst) {
      b = r.sendAndWait(r.toBare, d, r.bare);
      l = r.sendAndWait(r.toLibrary, d, libraryArrivals);
    } else {
      l = r.sendAndWait(r.toLibrary, d, libraryArrivals);
      b = r.sendAndWait(r.toBare, d, r.bare);
    }
    bareFirst = !bareFirst;
    if (b < 0 || l < 0) return state.SkipWithError("a datagram was lost");
    bare.push_back(b);
    library.push_back(l);
    if (&libraryArrivals == &r.spi->books)
      hop.push_back(r.spi->books.lastNs.load(std::memory_order_relaxed) -
                    r.spi->ticks.lastNs.load(std::memory_order_relaxed));
    state.SetIterationTime(static_cast<double>(l) * 1e-9);
  }
  const Figures fb = figures(bare), fl = figures(library);
  state.counters["median_us"] = fl.median;
  state.counters["p99_us"] = fl.p99;
  state.counters["bare_median_us"] = fb.median;
  state.counters["bare_p99_us"] = fb.p99;
  state.counters["vs_bare"] = fl.median / fb.median;
  if (!hop.empty()) state.counters["book_hop_us"] = figures(hop).median;
  CVelmarStatistics statistics;
  std::memset(&statistics, 0, sizeof statistics);
  statistics.Size = sizeof statistics;
  r.impl->GetStatistics(&statistics);
  state.counters["datagrams"] = static_cast<double>(statistics.DatagramsReceived);
  state.counters["gaps"] = static_cast<double>(statistics.SequenceGaps);
}

void BM_FeedToTickByTick(benchmark::State& state) {
  Rig& r = rig();
  if (!r.error.empty()) return state.SkipWithError(r.error.c_str());
  r.spinWait = true;
  sideBySide(state, [&] { return r.orderDatagram(kTickId, '1', 95500); }, r.spi->ticks);
  r.spinWait = false;
}
BENCHMARK(BM_FeedToTickByTick)
    ->Iterations(kSamples)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// The book benchmarks' datagrams, in turn: a bid at a new level, a trade
// that takes it, a bid that refills level 9.
std::function<Bytes()> bookSequence(Rig& r) {
  auto turn = std::make_shared<int>(0);
  return [&r, turn] {
    switch ((*turn)++ % 3) {
      case 0:
        return r.orderDatagram(kBookId, '1', 95500);
      case 1:
        return r.tradeDatagram(kBookId, 95500);
      default:
        return r.orderDatagram(kBookId, '1', 91000);
    }
  };
}

// Each turn of the cycle publishes three books: a buy order inserted at level
// 5 (level 9 falls off), the execution that removes it, and a buy order that
// refills level 9. A snapshot seeds the book first. From here on the book
// thread polls on a core of its own, for the bare loop's samples too.
void BM_FeedToOrderBook(benchmark::State& state) {
  Rig& r = rig();
  if (!r.error.empty()) return state.SkipWithError(r.error.c_str());
  r.startBookThread();
  velmar::utility::Logger::setLogLevel(state.range(0) != 0 ? velmar::utility::Logger::DEBUG
                                                           : velmar::utility::Logger::INFO);
  if (r.sendAndWait(r.toLibrary, r.snapshotDatagram(kBookId), r.spi->books) < 0)
    return state.SkipWithError("the seeding snapshot was not published");
  auto next = bookSequence(r);
  sideBySide(state, next, r.spi->books);
  velmar::utility::Logger::setLogLevel(velmar::utility::Logger::INFO);
}
BENCHMARK(BM_FeedToOrderBook)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(kSamples)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

void BM_FeedToOrderBookIdle(benchmark::State& state) {
  g_blockableBooks = true;
  Rig& r = rig();
  if (!r.error.empty()) return state.SkipWithError(r.error.c_str());
  if (r.bookThreadStarted || !r.blockableBooks)
    return state.SkipWithError("run alone: --benchmark_filter=Idle");
  r.startIdleBookThread();
  velmar::mdapi::OrderBooks& books = velmar::mdapi::TestAccess::books(*r.impl);
  if (r.sendAndWait(r.toLibrary, r.snapshotDatagram(kBookId), r.spi->books) < 0)
    return state.SkipWithError("the seeding snapshot was not published");
  auto next = bookSequence(r);
  auto asleep = [&] {
    const int64_t deadline = nowNs() + 1000000000;
    while (!velmar::mdapi::TestAccess::bookThreadSleeping(books))
      if (nowNs() > deadline) return false;
    return true;
  };
  constexpr auto kSpacing = std::chrono::microseconds(200);
  std::vector<int64_t> spinB2b, spinSpaced, blockB2b, blockSpaced;
  for (auto* v : {&spinB2b, &spinSpaced, &blockB2b, &blockSpaced}) v->reserve(kSamples);
  for (int i = 0; i < kWarmUp; ++i) {
    if (r.sendAndWait(r.toLibrary, next(), r.spi->books) < 0)
      return state.SkipWithError("a datagram was lost");
  }
  for (auto _ : state) {
    r.blockMode = false;
    books.wakeBookThread();
    std::this_thread::sleep_for(kSpacing);
    const int64_t ss = r.sendAndWait(r.toLibrary, next(), r.spi->books);
    const int64_t sb = r.sendAndWait(r.toLibrary, next(), r.spi->books);
    r.blockMode = true;
    const int64_t bb = r.sendAndWait(r.toLibrary, next(), r.spi->books);
    const auto spaced = std::chrono::steady_clock::now() + kSpacing;
    if (!asleep()) return state.SkipWithError("the book thread does not sleep");
    std::this_thread::sleep_until(spaced);
    const int64_t bs = r.sendAndWait(r.toLibrary, next(), r.spi->books);
    if (ss < 0 || sb < 0 || bb < 0 || bs < 0) return state.SkipWithError("a datagram was lost");
    spinSpaced.push_back(ss);
    spinB2b.push_back(sb);
    blockB2b.push_back(bb);
    blockSpaced.push_back(bs);
    state.SetIterationTime(static_cast<double>(bb) * 1e-9);
  }
  // Idle: no traffic for 10 s, the book thread asleep.
  r.blockMode = true;
  const uint64_t tid = r.bookThreadId.load();
  const int64_t before = velmar::platform::threadCpuTimeNs(tid);
  std::this_thread::sleep_for(std::chrono::seconds(10));
  const int64_t after = velmar::platform::threadCpuTimeNs(tid);
  const Figures fsb = figures(spinB2b), fss = figures(spinSpaced), fbb = figures(blockB2b),
                fbs = figures(blockSpaced);
  state.counters["spin_b2b_median_us"] = fsb.median;
  state.counters["block_b2b_median_us"] = fbb.median;
  state.counters["block_vs_spin_b2b"] = fbb.median / fsb.median;
  state.counters["spin_spaced_median_us"] = fss.median;
  state.counters["block_spaced_median_us"] = fbs.median;
  state.counters["block_vs_spin_spaced"] = fbs.median / fss.median;
  state.counters["block_spaced_p99_us"] = fbs.p99;
  state.counters["spin_spaced_p99_us"] = fss.p99;
  if (before >= 0 && after >= 0)
    state.counters["idle_10s_cpu_ms"] = static_cast<double>(after - before) / 1e6;
}
BENCHMARK(BM_FeedToOrderBookIdle)
    ->Iterations(kSamples)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
