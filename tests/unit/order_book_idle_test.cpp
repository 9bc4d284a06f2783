// The book thread's options: how it idles (book.idle), how many nodes may
// wait for it (book.queue_limit), its counters, and the callback lock it
// takes when callbacks are not serialized. A thread of the test plays the
// book thread with the loop of runOrderBook, which itself never returns.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "VLClientApi/SessionCounters.h"
#include "VLClientApi/SessionOptions.h"
#include "support/BookHarness.h"
#include "support/TestAccess.h"
#include "utility/Platform.h"
#include "utility/ThreadCpuTime.h"

namespace {

using namespace booktest;
using velmar::mdapi::BookBytesPool;
using velmar::mdapi::SessionCounters;
using velmar::mdapi::SessionOptions;
using velmar::mdapi::TestAccess;
using velmar::utility::MutexLockGuard;
using Idle = SessionOptions::BookIdle;

const std::string kId = "000001";

/// Each published book as text, in the order of the callbacks.
struct RecordingSpi : velmar::mdapi::VelmarMdSpi {
  std::vector<std::string> books;
  std::atomic<int> count{0};
  void OnRtnOrderBook(CVelmarOrderBook* b) override {
    books.push_back(std::to_string(b->UpdateTime) + " " + std::to_string(b->TotalVolume) + " | " +
                    bids(*b) + " | " + asks(*b));
    count.fetch_add(1, std::memory_order_release);
  }
};

/// The loop of runOrderBook on a thread of the test, until stop().
class BookThread {
 public:
  explicit BookThread(OrderBooks& books) : books_(books) {
    thread_ = std::thread([this] {
      id_.store(velmar::platform::currentThreadId());
      while (!stop_.load()) {
        if (!books_.pollBookQueue()) books_.idle();
      }
    });
    while (id_.load() == 0) std::this_thread::yield();
  }
  ~BookThread() { stop(); }
  void stop() {
    if (!thread_.joinable()) return;
    stop_ = true;
    // A thread about to sleep has not announced it yet: wake until it's out.
    std::atomic<bool> out{false};
    std::thread waker([&] {
      while (!out.load()) {
        books_.wakeBookThread();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
    thread_.join();
    out = true;
    waker.join();
  }
  uint64_t id() const { return id_.load(); }

 private:
  OrderBooks& books_;
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> id_{0};
  std::thread thread_;
};

void configure(BookHarness& h, Idle idle, uint32_t queueLimit = SessionOptions::kUnboundedQueue) {
  SessionOptions options;
  options.bookIdle = idle;
  options.bookQueueLimit = queueLimit;
  h.books.configure(options);
}

/// A seeded book, then orders and trades that move it, as the receiver hands
/// them over.
std::vector<std::pair<Bytes, orderBookNode::Kind>> messages() {
  std::vector<std::pair<Bytes, orderBookNode::Kind>> out;
  out.emplace_back(snapshotBody(tenLevelSnapshot(kId, 100)), orderBookNode::kSnapshot);
  for (int64_t i = 0; i < 60; ++i) {
    const int64_t stamp = 101 + i;
    if (i % 3 == 2) {
      out.emplace_back(tradeBody(kId, 'F', 0, 0, 100000, 100, stamp), orderBookNode::kTrade);
    } else {
      out.emplace_back(orderBody(kId, 1000 + i, i % 2 ? '1' : '2',
                                 static_cast<uint64_t>(99000 + 100 * (i % 7)), 100 + i, stamp),
                       orderBookNode::kOrder);
    }
  }
  return out;
}

template <class Predicate>
bool waitFor(Predicate done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto until = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

// Each idle mode publishes exactly the books of the book thread's step taken
// by hand, whether the messages come in a burst or one at a time with the
// book thread gone to sleep in between.
TEST(OrderBookIdle, EveryModePublishesTheSameBooks) {
  const auto sequence = messages();
  RecordingSpi reference;
  {
    BookHarness h;
    h.core.spi_ = &reference;
    h.add(kId);
    for (const auto& m : sequence) {
      orderBookNode node;
      node.data = m.first.data();
      node.kind = m.second;
      h.books.handleBookNode(node);
    }
  }
  ASSERT_GT(reference.books.size(), 40u);

  const struct {
    const char* name;
    Idle idle;
    int pauseEvery;  // messages between pauses of a few milliseconds; 0: a burst
  } cases[] = {{"spin, burst", Idle::kSpin, 0},   {"yield, burst", Idle::kYield, 0},
               {"block, burst", Idle::kBlock, 0}, {"block, paused", Idle::kBlock, 1},
               {"block, pauses", Idle::kBlock, 7}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingSpi spi;
    BookHarness h;
    h.core.spi_ = &spi;
    configure(h, c.idle);
    h.add(kId);
    BookThread thread(h.books);
    for (size_t i = 0; i < sequence.size(); ++i) {
      h.books.handOverToBooks(sequence[i].first.data(), sequence[i].second);
      if (c.pauseEvery != 0 && i % c.pauseEvery == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_TRUE(waitFor([&] {
      return h.counters.books.nodesHandled.load() == sequence.size();
    }));
    thread.stop();
    EXPECT_EQ(reference.books, spi.books);
    EXPECT_EQ(sequence.size(), h.counters.receiver.bookNodesQueued.load());
    EXPECT_EQ(reference.books.size(), h.counters.books.published.load());
    EXPECT_EQ(reference.books.size(), h.counters.books.callbacksOrderBook.load());
    EXPECT_EQ(BookBytesPool::kSlots, TestAccess::bookBytes(h.books).freeSlots());
  }
}

// A sleeping book thread uses (next to) no CPU, and wakes for the next node.
TEST(OrderBookIdle, BlockedThreadSleepsWhileIdle) {
  // The measurement itself: a thread that works shows its time.
  const uint64_t self = velmar::platform::currentThreadId();
  const int64_t busyStart = velmar::platform::threadCpuTimeNs(self);
  ASSERT_GE(busyStart, 0) << "no CPU time for threads on this system";
  const auto busyUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
  volatile uint64_t spin = 0;
  while (std::chrono::steady_clock::now() < busyUntil) spin = spin + 1;
  EXPECT_GT(velmar::platform::threadCpuTimeNs(self) - busyStart, 10000000);

  RecordingSpi spi;
  BookHarness h;
  h.core.spi_ = &spi;
  configure(h, Idle::kBlock);
  h.add(kId);
  BookThread thread(h.books);
  const auto sequence = messages();
  h.books.handOverToBooks(sequence[0].first.data(), sequence[0].second);
  ASSERT_TRUE(waitFor([&] { return spi.count.load() == 1; }));

  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // past its polling
  const int64_t before = velmar::platform::threadCpuTimeNs(thread.id());
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const int64_t after = velmar::platform::threadCpuTimeNs(thread.id());
  ASSERT_GE(before, 0);
  // A spinning thread would show most of the 1.5 s; a sleeping one wakes a
  // few times for its time-out only.
  EXPECT_LT(after - before, 30000000) << "ns of CPU over 1.5 s idle";

  EXPECT_TRUE(TestAccess::bookThreadSleeping(h.books)) << "asleep, not polling";
  h.books.handOverToBooks(sequence[1].first.data(), sequence[1].second);
  EXPECT_TRUE(waitFor([&] { return spi.count.load() == 2; }));
}

// Past the limit the receiver drops the node (no bytes taken), counts it,
// and takes nodes again as soon as the book thread has caught up.
TEST(OrderBookQueueLimit, DropsPastTheLimitAndRecovers) {
  const auto sequence = messages();
  const struct {
    const char* name;
    uint32_t limit;
    uint64_t queued, dropped;
  } cases[] = {{"unbounded", SessionOptions::kUnboundedQueue, 10, 0},
               {"limit 4", 4, 4, 6},
               {"limit 1", 1, 1, 9},
               {"limit 10", 10, 10, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BookHarness h;
    configure(h, Idle::kSpin, c.limit);
    h.add(kId);
    // No book thread yet: everything stays in flight.
    for (int i = 0; i < 10; ++i)
      h.books.handOverToBooks(sequence[i].first.data(), sequence[i].second);
    const SessionCounters& n = h.counters;
    EXPECT_EQ(c.queued, n.receiver.bookNodesQueued.load());
    EXPECT_EQ(c.dropped, n.receiver.bookNodesDropped.load());
    EXPECT_EQ(c.queued, n.receiver.bookQueueHighWater.load());
    EXPECT_EQ(c.queued, TestAccess::queuedNodes(h.books));
    EXPECT_EQ(BookBytesPool::kSlots - c.queued, TestAccess::bookBytes(h.books).freeSlots())
        << "a dropped node takes no bytes";

    uint64_t handled = 0;
    while (h.books.pollBookQueue()) ++handled;
    EXPECT_EQ(c.queued, handled);
    EXPECT_EQ(c.queued, n.books.nodesHandled.load());
    EXPECT_EQ(c.queued, n.books.published.load()) << "every message that got through is accepted";

    // Caught up: the next message is taken again.
    h.books.handOverToBooks(sequence[10].first.data(), sequence[10].second);
    EXPECT_EQ(c.queued + 1, n.receiver.bookNodesQueued.load());
    EXPECT_EQ(c.dropped, n.receiver.bookNodesDropped.load());
    EXPECT_TRUE(h.books.pollBookQueue());
  }
}

// While callbacks are serialized, OnRtnOrderBook gets the live book under
// mutex_; otherwise a copy under the books' own lock, and mutex_ is free for
// the front while the callback runs, even to drop the book.
TEST(OrderBookCallbackLock, SerializedOrNot) {
  for (const bool serialize : {true, false}) {
    SCOPED_TRACE(serialize ? "serialized" : "not serialized");
    struct SlowSpi : velmar::mdapi::VelmarMdSpi {
      BookHarness* h = nullptr;
      std::promise<void> entered;
      std::shared_future<void> release;
      bool sessionLockHeld = false, booksLockHeld = false, live = false;
      int64_t updateTimeAfter = 0;
      void OnRtnOrderBook(CVelmarOrderBook* b) override {
        sessionLockHeld = h->core.mutex_.isLockedByThisThread();
        booksLockHeld = h->core.booksCallbackMutex_.isLockedByThisThread();
        live = h->books.findBook(kId) == b;
        const int64_t before = b->UpdateTime;
        entered.set_value();
        release.wait();
        updateTimeAfter = b->UpdateTime == before ? before : -1;
      }
    } spi;
    std::promise<void> release;
    spi.release = release.get_future().share();
    BookHarness h;
    spi.h = &h;
    h.core.spi_ = &spi;
    h.core.serializeCallbacks_ = serialize;
    h.add(kId);
    const Bytes snapshot = snapshotBody(tenLevelSnapshot(kId, 100));
    std::thread bookThread([&] {
      orderBookNode node;
      node.data = snapshot.data();
      node.kind = orderBookNode::kSnapshot;
      h.books.handleBookNode(node);
    });
    spi.entered.get_future().wait();
    const bool frontGotTheLock = h.core.mutex_.native().try_lock();
    if (frontGotTheLock) {
      h.core.mutex_.assignHolder();
      h.books.clearOrderBooks();  // frees the live book
      h.core.mutex_.unlock();
    }
    release.set_value();
    bookThread.join();
    EXPECT_EQ(!serialize, frontGotTheLock);
    EXPECT_EQ(serialize, spi.sessionLockHeld);
    EXPECT_EQ(!serialize, spi.booksLockHeld);
    EXPECT_EQ(serialize, spi.live) << "the live book only under mutex_";
    EXPECT_EQ(100, spi.updateTimeAfter) << "the book did not change during the call";
    EXPECT_EQ(1u, h.counters.books.callbacksOrderBook.load());
  }
}

}  // namespace
