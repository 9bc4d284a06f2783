// The book thread's side: the front's changes of the map, the gate, the
// hand-over on the receiver thread, and all of it running at once. The feed's
// path into the queue is checked end to end (tests/standalone).
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "VLClientApi/OrderBookRules.h"
#include "support/BookHarness.h"
#include "support/TestAccess.h"

namespace {

using namespace booktest;
using velmar::mdapi::BookBytesPool;
using velmar::mdapi::TestAccess;
using velmar::utility::MutexLockGuard;

const std::string kId = "000001";

Snapshot seeded(int64_t origTime, const std::string& id = kId) {
  return tenLevelSnapshot(id, origTime);
}

TEST(OrderBookMap, AddAndReplace) {
  BookHarness h;
  LogCapture capture(velmar::utility::Logger::INFO);
  char id16[16];
  std::memcpy(id16, "000001\0\0\0\0\0\0\0\0\0\x7f", 16);  // bytes behind the NUL are kept
  {
    MutexLockGuard lock(h.core.mutex_);
    h.books.addOrderBook(id16);
  }
  const CVelmarOrderBook* b = h.book();
  ASSERT_NE(nullptr, b);
  EXPECT_EQ(2u, b->ExchangeID);
  EXPECT_EQ(0, std::memcmp(b->SecurityID, id16, 16));
  EXPECT_EQ(0, b->UpdateTime + b->LastPrice + b->TotalValue + b->TotalVolume + b->NumTrades);
  EXPECT_EQ("", bids(*b)) << "every level price 0, quantity 0, list \",\"";
  EXPECT_EQ("", asks(*b));
  EXPECT_EQ(std::vector<std::string>{"szseOrderBookMap_ add subInstrumentID:000001"},
            LogCapture::messages("szseOrderBookMap_"));
  EXPECT_NE(std::string::npos, LogCapture::text().find(" INFO "));

  // A second grant starts a Fresh book.
  ASSERT_TRUE(h.snapshot(snapshotBody(seeded(100))));
  ASSERT_TRUE(h.order(orderBody(kId, 1, '1', 100500, 100, 110)));
  h.add(kId);
  EXPECT_EQ(0, h.book()->UpdateTime);
  EXPECT_EQ("", bids(*h.book()));
  EXPECT_FALSE(h.order(orderBody(kId, 2, '1', 100500, 100, 120))) << "Fresh again";
}

TEST(OrderBookGate, Table) {
  const int32_t order = orderBookNode::kOrder, trade = orderBookNode::kTrade,
                snapshot = orderBookNode::kSnapshot;
  struct {
    const char* name;
    bool withBook;
    int64_t seedTime;  // 0: the book stays Fresh
    int32_t kind;
    int64_t stamp;
    uint32_t lastPx;  // snapshots only
    bool published;
  } const cases[] = {
      {"order, no book", false, 0, order, 200, 0, false},
      {"order on a Fresh book", true, 0, order, 200, 0, false},
      {"trade on a Fresh book", true, 0, trade, 200, 0, false},
      {"snapshot seeds a Fresh book", true, 0, snapshot, 1, 10000000, true},
      {"snapshot with OrigTime 0 on a Fresh book", true, 0, snapshot, 0, 10000000, false},
      {"snapshot with a negative OrigTime on a Fresh book", true, 0, snapshot, -1, 10000000, false},
      {"snapshot with LastPx 0 on a Fresh book", true, 0, snapshot, 200, 0, false},
      {"snapshot with LastPx 0 on a Seeded book", true, 100, snapshot, 200, 0, false},
      {"order, stamp above", true, 100, order, 101, 0, true},
      {"order, stamp equal", true, 100, order, 100, 0, false},
      {"order, stamp below", true, 100, order, 99, 0, false},
      {"order, stamp negative (signed compare)", true, 100, order, INT64_MIN, 0, false},
      {"trade, stamp above", true, 100, trade, 101, 0, true},
      {"snapshot, stamp above", true, 100, snapshot, INT64_MAX, 10000000, true},
      {"snapshot, stamp equal", true, 100, snapshot, 100, 10000000, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BookHarness h;
    if (c.withBook) h.add(kId);
    if (c.seedTime != 0) {
      ASSERT_TRUE(h.snapshot(snapshotBody(seeded(c.seedTime))));
    }
    Bytes body;
    if (c.kind == order) {
      body = orderBody(kId, 1, '1', 100500, 100, c.stamp);
    } else if (c.kind == trade) {
      body = tradeBody(kId, 'F', 0, 0, 100000, 100, c.stamp);
    } else {
      Snapshot s = seeded(c.stamp);
      s.lastPx = c.lastPx;
      s.bidPx[0] = 10010000;
      body = snapshotBody(s);
    }
    const std::string before = c.withBook ? bids(*h.book()) : "";
    const int64_t volumeBefore = c.withBook ? h.book()->TotalVolume : 0;
    EXPECT_EQ(c.published, h.feed(body, c.kind));
    if (c.withBook && !c.published) {
      // a refused node leaves no trace
      EXPECT_EQ(c.seedTime, h.book()->UpdateTime);
      EXPECT_EQ(before, bids(*h.book()));
      EXPECT_EQ(volumeBefore, h.book()->TotalVolume);
    }
  }
}

// The books part with a builder of another kind: it makes every book, sees
// every node that finds one, and only what it accepts is published.
TEST(OrderBookBuilder, TheBuilderDecidesAndTheBooksPublish) {
  struct ScriptedBuilder : velmar::mdapi::BookBuilder {
    SessionCore* core = nullptr;
    int made = 0;
    std::vector<int32_t> seen;
    bool accept = true;
    bool lockHeld = true;
    std::unique_ptr<CVelmarOrderBook> makeBook(const char* id16) override {
      ++made;
      lockHeld = lockHeld && core->mutex_.isLockedByThisThread();
      std::unique_ptr<CVelmarOrderBook> b(new CVelmarOrderBook());
      std::memcpy(b->SecurityID, id16, sizeof b->SecurityID);
      return b;
    }
    bool apply(CVelmarOrderBook&, const char*, int32_t kind) override {
      seen.push_back(kind);
      lockHeld = lockHeld && core->mutex_.isLockedByThisThread();
      return accept;
    }
  };
  SessionCore core;
  BookSpi spi;
  core.spi_ = &spi;
  auto* builder = new ScriptedBuilder();
  builder->core = &core;
  velmar::mdapi::SessionCounters counters;
  OrderBooks books(core, counters, std::unique_ptr<velmar::mdapi::BookBuilder>(builder));
  auto feed = [&books](const Bytes& body, int32_t kind) {
    orderBookNode node;
    node.data = body.data();
    node.kind = kind;
    return books.handleBookNode(node);
  };
  {
    MutexLockGuard lock(core.mutex_);
    books.addOrderBook(Id16(kId).bytes);
  }
  EXPECT_EQ(1, builder->made);
  const Bytes order = orderBody(kId, 1, '1', 100500, 100, 110);
  // A snapshot without a price is the ten-level builder's refusal, not the books'.
  Snapshot unpriced = seeded(100);
  unpriced.lastPx = 0;
  EXPECT_TRUE(feed(snapshotBody(unpriced), orderBookNode::kSnapshot));
  EXPECT_TRUE(feed(order, orderBookNode::kOrder));
  EXPECT_FALSE(feed(orderBody("000002", 1, '1', 100500, 100, 110), orderBookNode::kOrder))
      << "no book: the builder is not asked";
  EXPECT_FALSE(feed(order, 7)) << "unknown kind: the builder is not asked";
  builder->accept = false;
  EXPECT_FALSE(feed(tradeBody(kId, 'F', 0, 0, 100000, 100, 120), orderBookNode::kTrade));
  EXPECT_EQ((std::vector<int32_t>{orderBookNode::kSnapshot, orderBookNode::kOrder,
                                  orderBookNode::kTrade}),
            builder->seen);
  EXPECT_EQ(2, spi.published);
  EXPECT_EQ(books.findBook(kId), spi.last);
  EXPECT_TRUE(builder->lockHeld);
}

TEST(OrderBookHandOver, QueuesOnlyInstrumentsWithABook) {
  BookHarness h;
  auto handOver = [&h](const Bytes& body, orderBookNode::Kind kind) {
    h.books.handOverToBooks(body.data(), kind);
    return TestAccess::queuedNodes(h.books);
  };
  const Bytes order = orderBody(kId, 1, '1', 100500, 100, 110);
  EXPECT_EQ(0u, handOver(order, orderBookNode::kOrder));
  h.add(kId);
  EXPECT_EQ(1u, handOver(order, orderBookNode::kOrder));
  // the trade's id stands at body offset 29, the others' at 13
  EXPECT_EQ(2u, handOver(tradeBody(kId, 'F', 0, 0, 1, 100, 110), orderBookNode::kTrade));
  EXPECT_EQ(3u, handOver(snapshotBody(seeded(100)), orderBookNode::kSnapshot));
  EXPECT_EQ(3u, handOver(orderBody("000002", 1, '1', 1, 100, 1), orderBookNode::kOrder));
  h.add("12345678");  // no NUL inside the feed's 8 bytes
  EXPECT_EQ(4u, handOver(orderBody("12345678", 1, '1', 1, 100, 1), orderBookNode::kOrder));
  h.remove(kId);
  EXPECT_EQ(4u, handOver(order, orderBookNode::kOrder));
  h.add(kId);
  {
    MutexLockGuard lock(h.core.mutex_);
    h.books.clearOrderBooks();
  }
  EXPECT_EQ(4u, handOver(order, orderBookNode::kOrder));
  // The all-books flag queues every message without looking at the key.
  h.core.allOrderBook_ = true;
  EXPECT_EQ(5u, handOver(orderBody("000009", 1, '1', 1, 100, 1), orderBookNode::kOrder));
  EXPECT_EQ(6u, handOver(snapshotBody(seeded(100, "000009")), orderBookNode::kSnapshot));

  // None of them finds a book now: the gate drops each, and the bytes go back.
  int polled = 0;
  while (h.books.pollBookQueue()) ++polled;
  EXPECT_EQ(6, polled);
  EXPECT_EQ(0, h.spi.published);
  EXPECT_EQ(0u, h.books.bookCount()) << "the flag makes no book";
  EXPECT_EQ(BookBytesPool::kSlots, TestAccess::bookBytes(h.books).freeSlots());
}

// The receiver never waits: with every slot in flight it takes heap bytes,
// and release tells the two apart.
TEST(OrderBookHandOver, PoolRunsDryThenFallsBackToTheHeap) {
  BookHarness h;
  h.add(kId);
  ASSERT_TRUE(h.snapshot(snapshotBody(seeded(100))));
  const uint32_t extra = 10;
  for (uint32_t i = 0; i < BookBytesPool::kSlots + extra; ++i) {
    const Bytes order = orderBody(kId, 1000 + i, '1', 100500, 100, 101 + i);
    h.books.handOverToBooks(order.data(), orderBookNode::kOrder);
  }
  EXPECT_EQ(0u, TestAccess::bookBytes(h.books).freeSlots());
  // The nodes in queue order: the first kSlots in the pool, the rest on the heap.
  std::vector<orderBookNode> nodes(BookBytesPool::kSlots + extra);
  for (auto& n : nodes) ASSERT_TRUE(TestAccess::takeNode(h.books, &n));
  for (uint32_t i = 0; i < nodes.size(); ++i)
    ASSERT_EQ(i < BookBytesPool::kSlots, TestAccess::bookBytes(h.books).owns(nodes[i].data)) << i;
  for (auto& n : nodes) {
    EXPECT_TRUE(h.books.handleBookNode(n));
    TestAccess::releaseNode(h.books, n);
  }
  EXPECT_EQ(BookBytesPool::kSlots, TestAccess::bookBytes(h.books).freeSlots());
  EXPECT_EQ(static_cast<int64_t>(BookBytesPool::kSlots + extra), h.book()->BidQty[0])
      << "the first order opened level 0 at 10.05, every later one joined it";
  // The slots serve the next round; nodes still queued at the end go with
  // the session (the leak checker watches).
  for (uint32_t i = 0; i < BookBytesPool::kSlots + 3; ++i)
    h.books.handOverToBooks(orderBody(kId, 1, '1', 1, 100, 1).data(), orderBookNode::kOrder);
  EXPECT_EQ(0u, TestAccess::bookBytes(h.books).freeSlots());
}

// Everything at once: a receiver queues, the front changes the map and the
// book thread publishes. Run under ThreadSanitizer as well.
TEST(OrderBookConcurrency, ReceiverFrontAndBookThreadTogether) {
  struct CheckingSpi : BookSpi {
    BookHarness* h = nullptr;
    std::atomic<int> count{0};
    std::atomic<int> faults{0};
    void OnRtnOrderBook(CVelmarOrderBook* book) override {
      // Runs with mutex_ held, on the live entry of its instrument.
      if (!h->core.mutex_.isLockedByThisThread()) ++faults;
      if (h->books.findBook(book->SecurityID) != book) ++faults;
      if (book->ExchangeID != 2) ++faults;
      ++count;
    }
  } spi;
  BookHarness h;
  spi.h = &h;
  h.core.spi_ = &spi;
  OrderBooks& books = h.books;
  const char* ids[] = {"000001", "000002", "300446", "12345678"};

  std::atomic<bool> stop{false};
  std::thread bookThread([&] {
    while (!stop.load(std::memory_order_relaxed)) books.pollBookQueue();
    while (books.pollBookQueue()) {
    }
  });

  std::atomic<bool> receiverDone{false};
  std::thread front([&] {
    std::mt19937 rng(7);
    while (!receiverDone.load(std::memory_order_relaxed)) {
      {
        MutexLockGuard lock(h.core.mutex_);
        const int op = static_cast<int>(rng() % 16);
        const Id16 id(ids[rng() % 4]);
        if (op < 9) {
          books.addOrderBook(id.bytes);  // adds or replaces
        } else if (op < 14) {
          books.removeOrderBook(id.bytes);
        } else {
          books.clearOrderBooks();
          h.core.allOrderBook_ = !h.core.allOrderBook_;
        }
      }
      std::this_thread::yield();
    }
  });

  std::thread receiver([&] {
    std::mt19937 rng(11);
    Bytes buffer(5000, '\0');  // reused for every message, as the receiver does
    int64_t stamp = 1;
    // Until something was published too: a loaded machine may add books late.
    for (int i = 0; i < 20000 || (spi.count.load() == 0 && i < 2000000); ++i) {
      const std::string id = ids[rng() % 4];
      const int what = static_cast<int>(rng() % 10);
      const uint64_t px = 99000 + 100 * (rng() % 30), qty = 100 * (rng() % 5);
      const char side = rng() % 2 ? '1' : '2', exec = rng() % 2 ? 'F' : '4';
      const int64_t victim = ++stamp - static_cast<int64_t>(rng() % 50);
      const auto kind = what < 2   ? orderBookNode::kSnapshot
                        : what < 7 ? orderBookNode::kOrder
                                   : orderBookNode::kTrade;
      const Bytes body = what < 2   ? snapshotBody(seeded(stamp, id))
                         : what < 7 ? orderBody(id, stamp, side, px, qty, stamp)
                                    : tradeBody(id, exec, victim, 0, px, qty, stamp);
      std::memcpy(&buffer[4], body.data(), body.size());
      books.handOverToBooks(&buffer[4], kind);
      std::memset(&buffer[4], 0, body.size());
      if (i % 1000 == 0) std::this_thread::yield();
    }
    receiverDone = true;
  });

  receiver.join();
  front.join();
  stop = true;
  bookThread.join();
  EXPECT_EQ(0, spi.faults.load());
  EXPECT_GT(spi.count.load(), 0);
  EXPECT_EQ(0u, TestAccess::queuedNodes(books));
  EXPECT_EQ(BookBytesPool::kSlots, TestAccess::bookBytes(books).freeSlots()) << "every slot came back";
  MutexLockGuard lock(h.core.mutex_);
  EXPECT_TRUE(TestAccess::bookKeysMirrorMap(books));
}

}  // namespace
