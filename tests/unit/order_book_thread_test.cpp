// The book thread's side: the front's changes of the map, the hand-over on the
// receiver thread, the bytes that nodes own, the gate, and all of it running
// at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "VLClientApi/OrderBookRules.h"
#include "support/BookHarness.h"

namespace {

using namespace booktest;
using velmar::mdapi::BookBytesPool;
using velmar::mdapi::kOrderBookBytes;
using velmar::mdapi::kSnapshotBookBytes;
using velmar::mdapi::kTradeBookBytes;

const std::string kId = "000001";

Snapshot seeded(int64_t origTime, const std::string& id = kId) {
  Snapshot s;
  s.id = id;
  s.origTime = origTime;
  s.lastPx = 10000000;
  s.bidPx[0] = 10000000;
  s.bidQty[0] = 10000;
  s.offerPx[0] = 10100000;
  s.offerQty[0] = 10000;
  return s;
}

size_t queued(MdApiImpl& impl) {
  return impl.orderBookQueue_.size_approx();
}

// ---------------------------------------------------------------------------
// Books made, replaced and dropped by the front.

TEST(OrderBookMap, AddMakesAFreshBookAndLogs) {
  BookHarness h;
  LogCapture capture(velmar::utility::Logger::INFO);
  char id16[16];
  std::memcpy(id16, "000001\0\0\0\0\0\0\0\0\0\x7f", 16);  // bytes behind the NUL are kept
  {
    velmar::utility::MutexLockGuard lock(h.impl.mutex_);
    h.impl.addOrderBook(id16);
  }
  const CVelmarOrderBook* b = h.book();
  ASSERT_NE(nullptr, b);
  EXPECT_EQ(2u, b->ExchangeID);
  EXPECT_EQ(0, std::memcmp(b->SecurityID, id16, 16));
  EXPECT_EQ(0, b->UpdateTime);
  EXPECT_EQ(0, b->LastPrice);
  EXPECT_EQ(0, b->TotalVolume);
  EXPECT_EQ(0, b->TotalValue);
  EXPECT_EQ(0, b->NumTrades);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(0, b->Bid[i]);
    EXPECT_EQ(0, b->Ask[i]);
    EXPECT_EQ(0, b->BidQty[i]);
    EXPECT_EQ(0, b->AskQty[i]);
    EXPECT_EQ(",", b->BidOrders[i]);
    EXPECT_EQ(",", b->AskOrders[i]);
  }
  const auto lines = LogCapture::messages("szseOrderBookMap_");
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("szseOrderBookMap_ add subInstrumentID:000001", lines[0]);
  EXPECT_NE(std::string::npos, LogCapture::text().find(" INFO "));
}

TEST(OrderBookMap, ASecondGrantStartsAFreshBook) {
  BookHarness h;
  h.add(kId);
  ASSERT_TRUE(h.snapshot(snapshotBody(seeded(100))));
  ASSERT_TRUE(h.order(orderBody(kId, 1, '1', 100500, 100, 110)));
  h.add(kId);
  EXPECT_EQ(0, h.book()->UpdateTime);
  EXPECT_EQ(0, h.book()->Bid[0]);
  EXPECT_EQ(",", h.book()->BidOrders[0]);
  EXPECT_FALSE(h.order(orderBody(kId, 2, '1', 100500, 100, 120))) << "Fresh again";
  EXPECT_FALSE(h.trade(tradeBody(kId, 'F', 0, 0, 100000, 100, 130)));
  EXPECT_TRUE(h.snapshot(snapshotBody(seeded(105))));
}

TEST(OrderBookMap, RemoveAndClear) {
  BookHarness h;
  h.add("000001");
  h.add("000002");
  h.add("12345678");
  h.remove("000001");
  h.remove("999999");  // not there: nothing happens
  EXPECT_EQ(nullptr, h.book("000001"));
  EXPECT_NE(nullptr, h.book("000002"));
  {
    velmar::utility::MutexLockGuard lock(h.impl.mutex_);
    h.impl.clearOrderBooks();
  }
  EXPECT_TRUE(h.impl.szseOrderBookMap_.empty());
  EXPECT_TRUE(h.impl.bookKeys_.empty());
}

// ---------------------------------------------------------------------------
// The gate.

struct GateCase {
  const char* name;
  bool withBook;
  int64_t seedTime;  // 0: the book stays Fresh
  int32_t kind;
  int64_t stamp;
  uint32_t lastPx;  // snapshots only
  bool published;
};

TEST(OrderBookGate, Table) {
  const GateCase cases[] = {
      {"order, no book", false, 0, orderBookNode::kOrder, 200, 0, false},
      {"trade, no book", false, 0, orderBookNode::kTrade, 200, 0, false},
      {"snapshot, no book", false, 0, orderBookNode::kSnapshot, 200, 10000000, false},
      {"order on a Fresh book", true, 0, orderBookNode::kOrder, 200, 0, false},
      {"trade on a Fresh book", true, 0, orderBookNode::kTrade, 200, 0, false},
      {"snapshot seeds a Fresh book", true, 0, orderBookNode::kSnapshot, 1, 10000000, true},
      {"snapshot with OrigTime 0 on a Fresh book", true, 0, orderBookNode::kSnapshot, 0, 10000000,
       false},
      {"snapshot with a negative OrigTime on a Fresh book", true, 0, orderBookNode::kSnapshot, -1,
       10000000, false},
      {"snapshot with LastPx 0 on a Fresh book", true, 0, orderBookNode::kSnapshot, 200, 0, false},
      {"snapshot with LastPx 0 on a Seeded book", true, 100, orderBookNode::kSnapshot, 200, 0,
       false},
      {"order, stamp above", true, 100, orderBookNode::kOrder, 101, 0, true},
      {"order, stamp equal", true, 100, orderBookNode::kOrder, 100, 0, false},
      {"order, stamp below", true, 100, orderBookNode::kOrder, 99, 0, false},
      {"order, stamp negative (signed compare)", true, 100, orderBookNode::kOrder, INT64_MIN, 0,
       false},
      {"trade, stamp above", true, 100, orderBookNode::kTrade, 101, 0, true},
      {"trade, stamp equal", true, 100, orderBookNode::kTrade, 100, 0, false},
      {"trade, stamp negative", true, 100, orderBookNode::kTrade, -100, 0, false},
      {"snapshot, stamp above", true, 100, orderBookNode::kSnapshot, INT64_MAX, 10000000, true},
      {"snapshot, stamp equal", true, 100, orderBookNode::kSnapshot, 100, 10000000, false},
      {"snapshot, stamp below", true, 100, orderBookNode::kSnapshot, 90, 10000000, false},
  };
  for (const GateCase& c : cases) {
    SCOPED_TRACE(c.name);
    BookHarness h;
    if (c.withBook) h.add(kId);
    if (c.seedTime != 0) {
      ASSERT_TRUE(h.snapshot(snapshotBody(seeded(c.seedTime))));
    }
    Bytes body;
    if (c.kind == orderBookNode::kOrder) {
      body = orderBody(kId, 1, '1', 100500, 100, c.stamp);
    } else if (c.kind == orderBookNode::kTrade) {
      body = tradeBody(kId, 'F', 0, 0, 100000, 100, c.stamp);
    } else {
      Snapshot s = seeded(c.stamp);
      s.lastPx = c.lastPx;
      s.bidPx[0] = 10010000;
      body = snapshotBody(s);
    }
    const CVelmarOrderBook before = c.withBook ? *h.book() : CVelmarOrderBook();
    EXPECT_EQ(c.published, h.feed(body, c.kind));
    if (c.withBook && !c.published) {
      // a refused node leaves no trace
      const CVelmarOrderBook& after = *h.book();
      EXPECT_EQ(before.UpdateTime, after.UpdateTime);
      EXPECT_EQ(before.Bid[0], after.Bid[0]);
      EXPECT_EQ(before.BidQty[0], after.BidQty[0]);
      EXPECT_EQ(before.BidOrders[0], after.BidOrders[0]);
      EXPECT_EQ(before.TotalVolume, after.TotalVolume);
    }
  }
}

TEST(OrderBookGate, UnknownKindIsDroppedWithoutTheLock) {
  BookHarness h;
  h.add(kId);
  const Bytes body = orderBody(kId, 1, '1', 100500, 100, 110);
  // Another thread holds mutex_ throughout: a step that took it would hang.
  std::atomic<bool> locked{false}, done{false};
  std::thread holder([&] {
    velmar::utility::MutexLockGuard lock(h.impl.mutex_);
    locked = true;
    while (!done) std::this_thread::yield();
  });
  while (!locked) std::this_thread::yield();
  orderBookNode node;
  node.data = body.data();
  for (int32_t kind : {3, -1, 100}) {
    node.kind = kind;
    EXPECT_FALSE(h.impl.handleBookNode(node)) << kind;
  }
  done = true;
  holder.join();
  EXPECT_EQ(0, h.spi.published);
}

TEST(OrderBookGate, PublishesTheLiveRecordUnderTheLock) {
  struct LockCheckingSpi : BookSpi {
    MdApiImpl* impl = nullptr;
    bool heldEveryTime = true;
    void OnRtnOrderBook(CVelmarOrderBook* book) override {
      heldEveryTime = heldEveryTime && impl->mutex_.isLockedByThisThread();
      BookSpi::OnRtnOrderBook(book);
    }
  } spi;
  BookHarness h;
  spi.impl = &h.impl;
  h.impl.RegisterSpi(&spi);
  h.add(kId);
  orderBookNode node;
  const Bytes snap = snapshotBody(seeded(100));
  node.data = snap.data();
  node.kind = orderBookNode::kSnapshot;
  ASSERT_TRUE(h.impl.handleBookNode(node));
  EXPECT_EQ(h.book(), spi.last);
  EXPECT_TRUE(spi.heldEveryTime);
  EXPECT_FALSE(h.impl.mutex_.isLockedByThisThread());
}

// ---------------------------------------------------------------------------
// The hand-over on the receiver thread.

TEST(OrderBookHandOver, QueuesOnlyInstrumentsWithABook) {
  BookHarness h;
  const Bytes order = orderBody(kId, 1, '1', 100500, 100, 110);
  const Bytes trade = tradeBody(kId, 'F', 0, 0, 100500, 100, 110);
  const Bytes snap = snapshotBody(seeded(100));
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  EXPECT_EQ(0u, queued(h.impl));

  h.add(kId);
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  h.impl.handOverToBooks(trade.data(), orderBookNode::kTrade);  // id at body offset 29
  h.impl.handOverToBooks(snap.data(), orderBookNode::kSnapshot);
  EXPECT_EQ(3u, queued(h.impl));
  const Bytes other = orderBody("000002", 1, '1', 100500, 100, 110);
  h.impl.handOverToBooks(other.data(), orderBookNode::kOrder);
  EXPECT_EQ(3u, queued(h.impl));

  h.remove(kId);
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  EXPECT_EQ(3u, queued(h.impl));
  h.add(kId);
  {
    velmar::utility::MutexLockGuard lock(h.impl.mutex_);
    h.impl.clearOrderBooks();
  }
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  EXPECT_EQ(3u, queued(h.impl));
  // the three nodes queued before the logout find no book
  while (h.impl.pollBookQueue()) {
  }
  EXPECT_EQ(0, h.spi.published);
  EXPECT_EQ(BookBytesPool::kSlots, h.impl.bookBytes_.freeSlots());
}

TEST(OrderBookHandOver, EightCharacterIdsMatchTheirBook) {
  BookHarness h;
  h.add("12345678");  // no NUL inside the feed's 8 bytes
  const Bytes order = orderBody("12345678", 1, '1', 100500, 100, 110);
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  EXPECT_EQ(1u, queued(h.impl));
  h.impl.drainBookQueue();
}

TEST(OrderBookHandOver, NodesOwnACopyOfTheBookBytes) {
  BookHarness h;
  h.add(kId);
  ASSERT_TRUE(h.snapshot(snapshotBody(seeded(100))));
  struct Kind {
    int32_t kind;
    size_t bytes;
    Bytes body;
  } kinds[] = {
      {orderBookNode::kOrder, kOrderBookBytes, orderBody(kId, 7, '1', 100500, 300, 110)},
      {orderBookNode::kTrade, kTradeBookBytes, tradeBody(kId, '4', 7, 0, 0, 100, 120)},
      {orderBookNode::kSnapshot, kSnapshotBookBytes, snapshotBody(seeded(130))},
  };
  EXPECT_EQ(51u, kOrderBookBytes);
  EXPECT_EQ(66u, kTradeBookBytes);
  EXPECT_EQ(361u, kSnapshotBookBytes);
  for (Kind& k : kinds) {
    // The receive buffer: the body in a datagram of the full receive size.
    Bytes buffer = datagram(0, k.body);
    const char* body = buffer.data() + 4;
    h.impl.handOverToBooks(body, static_cast<orderBookNode::Kind>(k.kind));
    orderBookNode node;
    ASSERT_TRUE(h.impl.orderBookQueue_.try_dequeue(node));
    EXPECT_EQ(k.kind, node.kind);
    EXPECT_NE(body, node.data);
    EXPECT_TRUE(h.impl.bookBytes_.owns(node.data));
    EXPECT_EQ(0, std::memcmp(body, node.data, k.bytes));
    // The receiver reuses its buffer at once; the node must not care.
    std::memset(buffer.data(), 0x5a, buffer.size());
    EXPECT_TRUE(h.impl.handleBookNode(node));
    h.impl.bookBytes_.release(node.data);
  }
  // order 7 joined, its cancellation took 1 of 4, the snapshot rewrote levels
  EXPECT_EQ(130, h.book()->UpdateTime);
  EXPECT_EQ(",", h.book()->BidOrders[0]) << "the cancellation found order 7";
  EXPECT_EQ(BookBytesPool::kSlots, h.impl.bookBytes_.freeSlots());
}

TEST(OrderBookHandOver, AllOrderBookQueuesEverythingAndTheGateDropsIt) {
  BookHarness h;
  h.impl.allOrderBook_ = true;
  const Bytes order = orderBody("000009", 1, '1', 100500, 100, 110);
  const Bytes trade = tradeBody("000009", 'F', 0, 0, 100500, 100, 110);
  const Bytes snap = snapshotBody(seeded(100, "000009"));
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  h.impl.handOverToBooks(trade.data(), orderBookNode::kTrade);
  h.impl.handOverToBooks(snap.data(), orderBookNode::kSnapshot);
  EXPECT_EQ(3u, queued(h.impl));
  int polled = 0;
  while (h.impl.pollBookQueue()) ++polled;
  EXPECT_EQ(3, polled);
  EXPECT_EQ(0, h.spi.published);
  EXPECT_TRUE(h.impl.szseOrderBookMap_.empty()) << "the flag makes no book";
  EXPECT_FALSE(h.impl.pollBookQueue()) << "an empty queue just returns";
}

TEST(OrderBookHandOver, PoolRunsDryThenFallsBackToTheHeap) {
  BookHarness h;
  h.add(kId);
  ASSERT_TRUE(h.snapshot(snapshotBody(seeded(100))));
  const uint32_t extra = 10;
  for (uint32_t i = 0; i < BookBytesPool::kSlots + extra; ++i) {
    const Bytes order = orderBody(kId, 1000 + i, '1', 100500, 100, 101 + i);
    h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  }
  EXPECT_EQ(0u, h.impl.bookBytes_.freeSlots());
  // The nodes in queue order: the first kSlots in the pool, the rest on the heap.
  std::vector<orderBookNode> nodes(BookBytesPool::kSlots + extra);
  for (auto& n : nodes) ASSERT_TRUE(h.impl.orderBookQueue_.try_dequeue(n));
  for (uint32_t i = 0; i < nodes.size(); ++i)
    ASSERT_EQ(i < BookBytesPool::kSlots, h.impl.bookBytes_.owns(nodes[i].data)) << i;
  for (auto& n : nodes) {
    EXPECT_TRUE(h.impl.handleBookNode(n));
    h.impl.bookBytes_.release(n.data);
  }
  EXPECT_EQ(BookBytesPool::kSlots, h.impl.bookBytes_.freeSlots());
  EXPECT_EQ(static_cast<int64_t>(BookBytesPool::kSlots + extra), h.book()->BidQty[0])
      << "the first order opened level 0 at 10.05, every later one joined it";
  // Slots come back for the next round.
  const Bytes order = orderBody(kId, 9, '1', 100500, 100, 5000);
  h.impl.handOverToBooks(order.data(), orderBookNode::kOrder);
  orderBookNode n;
  ASSERT_TRUE(h.impl.orderBookQueue_.try_dequeue(n));
  EXPECT_TRUE(h.impl.bookBytes_.owns(n.data));
  h.impl.bookBytes_.release(n.data);
}

TEST(OrderBookHandOver, NodesLeftInTheQueueAreFreedWithTheSession) {
  // Heap bytes of queued nodes go with the object (the leak checker watches).
  auto impl = std::make_unique<MdApiImpl>();
  impl->allOrderBook_ = true;
  const Bytes order = orderBody(kId, 1, '1', 100500, 100, 110);
  for (uint32_t i = 0; i < BookBytesPool::kSlots + 3; ++i)
    impl->handOverToBooks(order.data(), orderBookNode::kOrder);
  impl.reset();
}

TEST(OrderBookHandOver, ThroughTheFeedDispatch) {
  BookHarness h;
  h.add(kId);
  const Bytes order = datagram(kOrderType, orderBody(kId, 1, '1', 100500, 100, 110));
  const Bytes trade = datagram(kTradeType, tradeBody(kId, 'F', 0, 0, 100500, 100, 120, 2));
  h.impl.onFeedDatagram(order.data());  // gate closed: nothing
  EXPECT_EQ(0u, queued(h.impl));
  h.impl.connected_ = true;
  h.impl.loggedIn_ = true;
  h.impl.onFeedDatagram(order.data());
  h.impl.onFeedDatagram(trade.data());
  EXPECT_EQ(2u, queued(h.impl));
  orderBookNode n;
  ASSERT_TRUE(h.impl.orderBookQueue_.try_dequeue(n));
  EXPECT_EQ(orderBookNode::kOrder, n.kind);
  EXPECT_EQ(0, std::memcmp(n.data, order.data() + 4, kOrderBookBytes));
  h.impl.bookBytes_.release(n.data);
  ASSERT_TRUE(h.impl.orderBookQueue_.try_dequeue(n));
  EXPECT_EQ(orderBookNode::kTrade, n.kind);
  h.impl.bookBytes_.release(n.data);
}

// ---------------------------------------------------------------------------
// Everything at once: a receiver queues, the front changes the map and the
// book thread publishes. Run under ThreadSanitizer as well.

TEST(OrderBookConcurrency, ReceiverFrontAndBookThreadTogether) {
  struct CheckingSpi : BookSpi {
    MdApiImpl* impl = nullptr;
    std::atomic<int> count{0};
    std::atomic<int> faults{0};
    void OnRtnOrderBook(CVelmarOrderBook* book) override {
      // Runs with mutex_ held: the map can be read, and the book must be the
      // live entry of its instrument.
      if (!impl->mutex_.isLockedByThisThread()) ++faults;
      auto it = impl->szseOrderBookMap_.find(book->SecurityID);
      if (it == impl->szseOrderBookMap_.end() || it->second.get() != book) ++faults;
      if (book->ExchangeID != 2) ++faults;
      ++count;
    }
  } spi;
  MdApiImpl impl;
  spi.impl = &impl;
  impl.RegisterSpi(&spi);
  const char* ids[] = {"000001", "000002", "300446", "12345678"};

  std::atomic<bool> stop{false};
  std::thread bookThread([&] {
    while (!stop.load(std::memory_order_relaxed)) impl.pollBookQueue();
    while (impl.pollBookQueue()) {
    }
  });

  std::atomic<bool> receiverDone{false};
  std::thread front([&] {
    std::mt19937 rng(7);
    while (!receiverDone.load(std::memory_order_relaxed)) {
      {
        velmar::utility::MutexLockGuard lock(impl.mutex_);
        const int op = static_cast<int>(rng() % 16);
        const Id16 id(ids[rng() % 4]);
        if (op < 9) {
          impl.addOrderBook(id.bytes);  // adds or replaces
        } else if (op < 14) {
          impl.removeOrderBook(id.bytes);
        } else {
          impl.clearOrderBooks();
          impl.allOrderBook_ = !impl.allOrderBook_;
        }
      }
      std::this_thread::yield();
    }
  });

  std::thread receiver([&] {
    std::mt19937 rng(11);
    Bytes buffer(5000, '\0');  // reused for every message, as the receiver does
    int64_t stamp = 1;
    for (int i = 0; i < 20000; ++i) {
      const std::string id = ids[rng() % 4];
      const int what = static_cast<int>(rng() % 10);
      Bytes body;
      orderBookNode::Kind kind;
      ++stamp;
      if (what < 2) {
        body = snapshotBody(seeded(stamp, id));
        kind = orderBookNode::kSnapshot;
      } else if (what < 7) {
        body = orderBody(id, stamp, rng() % 2 ? '1' : '2', 99000 + 100 * (rng() % 30),
                         100 * (rng() % 5), stamp);
        kind = orderBookNode::kOrder;
      } else {
        body = tradeBody(id, rng() % 2 ? 'F' : '4', stamp - static_cast<int64_t>(rng() % 50), 0,
                         99000 + 100 * (rng() % 30), 100 * (rng() % 5), stamp);
        kind = orderBookNode::kTrade;
      }
      std::memcpy(&buffer[4], body.data(), body.size());
      impl.handOverToBooks(&buffer[4], kind);
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
  EXPECT_EQ(0u, impl.orderBookQueue_.size_approx());
  EXPECT_EQ(BookBytesPool::kSlots, impl.bookBytes_.freeSlots());
  velmar::utility::MutexLockGuard lock(impl.mutex_);
  EXPECT_EQ(impl.szseOrderBookMap_.size(), impl.bookKeys_.size());
  for (const auto& e : impl.szseOrderBookMap_) EXPECT_EQ(1u, impl.bookKeys_.count(e.first));
}

}  // namespace
