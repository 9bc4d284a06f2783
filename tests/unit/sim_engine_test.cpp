// The synthetic market, checked from the wire: a checker decodes every
// datagram the engine publishes, rebuilds the Shenzhen books from the orders,
// executions and cancellations alone, and compares them, the snapshots and
// the statistics with the engine's own books after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "sim/MarketEngine.h"

using namespace velmar::sim;

namespace {

constexpr int64_t kMinStamp = std::numeric_limits<int64_t>::min();

struct Totals {
  int64_t volume = 0;  // shares
  int64_t value = 0;   // fen x shares
  int64_t trades = 0;
  int64_t last = 0;  // fen
  int64_t cancels = 0;
  int64_t lastStamp = kMinStamp;
};

class FeedChecker {
 public:
  FeedChecker(MarketEngine& engine, bool distinctStamps)
      : engine_(engine), distinct_(distinctStamps) {}

  // One step: check every datagram against the wire state and the engine's
  // book as it stood before the step (for Shanghai trades, whose orders
  // never show on the wire), then compare the books after it.
  void step() {
    std::map<std::string, TrueBook> before;
    for (const auto& inst : engine_.instruments()) {
      if (inst.kind == InstrumentKind::kStock && inst.exchange == Exchange::kShanghai) {
        before[inst.id] = engine_.book(inst.exchange, inst.id);
      }
    }
    std::vector<Datagram> out = engine_.step();
    for (const Datagram& d : out) {
      ASSERT_GE(d.timeUs, lastTimeUs_);
      lastTimeUs_ = d.timeUs;
      ++countByType_[messageType(d.bytes)];
      ASSERT_NO_FATAL_FAILURE(check(d.bytes, before));
    }
    ASSERT_NO_FATAL_FAILURE(compareBooks());
  }

  int64_t count(uint32_t type) const {
    auto it = countByType_.find(type);
    return it == countByType_.end() ? 0 : it->second;
  }
  const Totals& totals(Exchange e, const std::string& id) { return totals_[{e, id}]; }
  int64_t snapshotsWithLongQueue() const { return longQueues_; }
  /// Executions stamped like the order just before them.
  int64_t sharedStamps() const { return sharedStamps_; }

 private:
  struct Order {
    std::string id;  // instrument
    char side;
    int64_t price;  // fen
    int64_t qty;    // remaining shares
  };
  using Key = std::pair<Exchange, std::string>;
  using OrderKey = std::pair<uint32_t, int64_t>;  // channel, ApplSeqNum
  // A level's orders by ApplSeqNum, which is their time order.
  using Level = std::map<int64_t, int64_t>;
  struct WireBook {
    std::map<int64_t, Level, std::greater<int64_t>> bids;
    std::map<int64_t, Level> asks;
  };

  void addOrder(const OrderKey& k, const Order& o) {
    orders_[k] = o;
    WireBook& b = books_[o.id];
    (o.side == '1' ? b.bids[o.price] : b.asks[o.price])[k.second] = o.qty;
  }

  // Takes `qty` off a live order, removing it when nothing is left.
  void reduceOrder(std::map<OrderKey, Order>::iterator it, int64_t qty) {
    Order& o = it->second;
    o.qty -= qty;
    WireBook& b = books_[o.id];
    auto update = [&](auto& levels) {
      auto level = levels.find(o.price);
      if (o.qty > 0) {
        level->second[it->first.second] = o.qty;
        return;
      }
      level->second.erase(it->first.second);
      if (level->second.empty()) levels.erase(level);
    };
    if (o.side == '1') {
      update(b.bids);
    } else {
      update(b.asks);
    }
    if (o.qty == 0) orders_.erase(it);
  }

  void stamp(const Key& k, int64_t s) {
    Totals& t = totals_[k];
    if (distinct_) {
      ASSERT_GT(s, t.lastStamp) << k.second;
    } else {
      ASSERT_GE(s, t.lastStamp) << k.second;
    }
    t.lastStamp = s;
  }

  void channelStep(uint32_t channel, int64_t seq, int64_t time) {
    auto& last = channels_[channel];
    if (last.first != 0) {
      ASSERT_EQ(seq, last.first + 1) << "channel " << channel;
      ASSERT_GE(time, last.second) << "channel " << channel;
    }
    last = {seq, time};
  }

  void check(const Bytes& b, const std::map<std::string, TrueBook>& before) {
    switch (messageType(b)) {
      case kSzseOrderType: {
        SzseOrderMsg m;
        ASSERT_TRUE(decode(b, &m));
        channelStep(m.ChannelNo, m.ApplSeqNum, m.OrderTime);
        stamp({Exchange::kShenzhen, m.SecurityID}, m.OrderTime);
        ASSERT_TRUE(m.Side == '1' || m.Side == '2');
        ASSERT_EQ(m.Price % 100, 0u);       // whole ticks
        ASSERT_EQ(m.OrderQty % 10000, 0u);  // whole lots
        ASSERT_EQ(m.OrdType, '2');
        addOrder({m.ChannelNo, m.ApplSeqNum},
                 Order{m.SecurityID, m.Side, static_cast<int64_t>(m.Price / 100),
                       static_cast<int64_t>(m.OrderQty / 100)});
        lastOrderTime_ = m.OrderTime;
        break;
      }
      case kSzseTradeType: {
        SzseTradeMsg m;
        ASSERT_TRUE(decode(b, &m));
        channelStep(m.ChannelNo, m.ApplSeqNum, m.TransactTime);
        stamp({Exchange::kShenzhen, m.SecurityID}, m.TransactTime);
        Totals& t = totals_[{Exchange::kShenzhen, m.SecurityID}];
        int64_t qty = static_cast<int64_t>(m.LastQty / 100);
        ASSERT_GT(qty, 0);
        if (m.ExecType == '4') {
          ASSERT_EQ(m.LastPx, 0u);
          ASSERT_TRUE((m.BidApplSeqNum > 0) != (m.OfferApplSeqNum > 0));
          int64_t id = m.BidApplSeqNum > 0 ? m.BidApplSeqNum : m.OfferApplSeqNum;
          auto it = orders_.find({m.ChannelNo, id});
          ASSERT_NE(it, orders_.end()) << "cancellation of an unknown order " << id;
          ASSERT_EQ(it->second.id, m.SecurityID);
          ASSERT_EQ(it->second.side, m.BidApplSeqNum > 0 ? '1' : '2');
          ASSERT_EQ(it->second.qty, qty) << "a cancellation takes the whole rest";
          reduceOrder(it, qty);
          ++t.cancels;
          break;
        }
        ASSERT_EQ(m.ExecType, 'F');
        auto bid = orders_.find({m.ChannelNo, m.BidApplSeqNum});
        auto offer = orders_.find({m.ChannelNo, m.OfferApplSeqNum});
        ASSERT_NE(bid, orders_.end()) << "execution of an unknown buy order";
        ASSERT_NE(offer, orders_.end()) << "execution of an unknown sell order";
        ASSERT_EQ(bid->second.side, '1');
        ASSERT_EQ(offer->second.side, '2');
        ASSERT_EQ(bid->second.id, m.SecurityID);
        ASSERT_EQ(offer->second.id, m.SecurityID);
        // The older order rested; the trade is at its price, within both.
        auto resting = m.BidApplSeqNum < m.OfferApplSeqNum ? bid : offer;
        int64_t px = static_cast<int64_t>(m.LastPx / 100);
        ASSERT_EQ(m.LastPx % 100, 0u);
        ASSERT_EQ(px, resting->second.price);
        ASSERT_LE(offer->second.price, px);
        ASSERT_GE(bid->second.price, px);
        ASSERT_LE(qty, bid->second.qty);
        ASSERT_LE(qty, offer->second.qty);
        reduceOrder(bid, qty);
        reduceOrder(offer, qty);
        if (m.TransactTime == lastOrderTime_) ++sharedStamps_;
        t.volume += qty;
        t.value += px * qty;
        t.last = px;
        ++t.trades;
        break;
      }
      case kSseTradeType: {
        SseTradeMsg m;
        ASSERT_TRUE(decode(b, &m));
        channelStep(m.TradeChannel, m.TradeIndex, m.TradeTime);
        stamp({Exchange::kShanghai, m.SecurityID}, m.TradeTime);
        ASSERT_TRUE(m.TradeBSFlag == 'B' || m.TradeBSFlag == 'S');
        int64_t px = m.TradePrice / 10;
        int64_t qty = static_cast<int64_t>(m.TradeQty / 1000);
        ASSERT_EQ(m.TradePrice % 10, 0u);
        ASSERT_EQ(m.TradeMoney, static_cast<uint64_t>(px * qty) * 1000);
        // The resting order stood on its side, at the trade's price, before
        // the step (a sweep reaches beyond the best level).
        const TrueBook& book = before.at(m.SecurityID);
        bool buyerAggressed = m.TradeBSFlag == 'B';
        const auto& levels = buyerAggressed ? book.asks : book.bids;
        int64_t restingNo = static_cast<int64_t>(buyerAggressed ? m.TradeSellNo : m.TradeBuyNo);
        bool found = false;
        for (const BookLevel& l : levels) {
          for (const BookOrder& o : l.orders) found = found || (o.id == restingNo && l.price == px);
        }
        ASSERT_TRUE(found) << "trade against order " << restingNo << " that wasn't resting at "
                           << px;
        Totals& t = totals_[{Exchange::kShanghai, m.SecurityID}];
        t.volume += qty;
        t.value += px * qty;
        t.last = px;
        ++t.trades;
        break;
      }
      case kSzseSnapshotType: {
        SzseSnapshotMsg m;
        ASSERT_TRUE(decode(b, &m));
        stamp({Exchange::kShenzhen, m.SecurityID}, m.OrigTime);
        const TrueBook& book = engine_.book(Exchange::kShenzhen, m.SecurityID);
        const Totals& t = totals_[{Exchange::kShenzhen, m.SecurityID}];
        EXPECT_EQ(m.TotalVolumeTrade, static_cast<uint64_t>(t.volume) * 100);
        EXPECT_EQ(m.TotalValueTrade, static_cast<uint64_t>(t.value) * 100);
        EXPECT_EQ(m.NumTrades, t.trades);
        EXPECT_EQ(m.LastPx, static_cast<uint64_t>(t.last) * 10000);
        EXPECT_EQ(m.UpperLimitPx, static_cast<uint64_t>(book.upperLimit) * 10000);
        EXPECT_EQ(m.LowerLimitPx, static_cast<uint64_t>(book.lowerLimit) * 10000);
        for (size_t i = 0; i < kBookLevels; ++i) {
          EXPECT_EQ(m.BidPx[i], static_cast<uint64_t>(book.bids[i].price) * 10000) << i;
          EXPECT_EQ(m.BidQty[i], static_cast<uint64_t>(book.bids[i].qty) * 100) << i;
          EXPECT_EQ(m.OfferPx[i], static_cast<uint64_t>(book.asks[i].price) * 10000) << i;
          EXPECT_EQ(m.OfferQty[i], static_cast<uint64_t>(book.asks[i].qty) * 100) << i;
        }
        checkQueue(m.BestBidNumOrders, m.BidQueue, book.bids[0], 100);
        checkQueue(m.BestOfferNumOrders, m.OfferQueue, book.asks[0], 100);
        int64_t bidQty = 0, askQty = 0;
        const WireBook& wire = books_[m.SecurityID];
        for (const auto& [price, level] : wire.bids) {
          for (const auto& [seq, qty] : level) bidQty += qty;
        }
        for (const auto& [price, level] : wire.asks) {
          for (const auto& [seq, qty] : level) askQty += qty;
        }
        EXPECT_EQ(m.TotalBidQty, static_cast<uint64_t>(bidQty) * 100);
        EXPECT_EQ(m.TotalOfferQty, static_cast<uint64_t>(askQty) * 100);
        break;
      }
      case kSzseVolumeStatType: {
        SzseVolumeStatMsg m;
        ASSERT_TRUE(decode(b, &m));
        stamp({Exchange::kShenzhen, m.SecurityID}, m.OrigTime);
        const Totals& t = totals_[{Exchange::kShenzhen, m.SecurityID}];
        EXPECT_EQ(m.TotalVolumeTrade, static_cast<uint64_t>(t.volume) * 100);
        EXPECT_EQ(m.NumTrades, t.trades);
        break;
      }
      case kSseSnapshotType: {
        SseSnapshotMsg m;
        ASSERT_TRUE(decode(b, &m));
        stamp({Exchange::kShanghai, m.SecurityID}, m.DataTimeStamp);
        const TrueBook& book = engine_.book(Exchange::kShanghai, m.SecurityID);
        const Totals& t = totals_[{Exchange::kShanghai, m.SecurityID}];
        EXPECT_EQ(m.TotalVolumeTrade, static_cast<uint64_t>(t.volume) * 1000);
        EXPECT_EQ(m.TotalValueTrade, static_cast<uint64_t>(t.value) * 1000);
        EXPECT_EQ(m.NumTrades, static_cast<uint32_t>(t.trades));
        EXPECT_EQ(m.LastPx, static_cast<uint32_t>(t.last * 10));
        EXPECT_EQ(m.NumBidOrders, book.bidLevels);
        EXPECT_EQ(m.NumOfferOrders, book.askLevels);
        for (size_t i = 0; i < kBookLevels; ++i) {
          EXPECT_EQ(m.BidPx[i], static_cast<uint32_t>(book.bids[i].price * 10)) << i;
          EXPECT_EQ(m.BidQty[i], static_cast<uint64_t>(book.bids[i].qty) * 1000) << i;
          EXPECT_EQ(m.OfferPx[i], static_cast<uint32_t>(book.asks[i].price * 10)) << i;
          EXPECT_EQ(m.OfferQty[i], static_cast<uint64_t>(book.asks[i].qty) * 1000) << i;
        }
        checkQueue(m.BestBidNumOrders, m.BidQueue, book.bids[0], 1);
        checkQueue(m.BestOfferNumOrders, m.OfferQueue, book.asks[0], 1);
        break;
      }
      case kSzseIndexType:
      case kSseIndexType: {
        bool szse = messageType(b) == kSzseIndexType;
        Exchange e = szse ? Exchange::kShenzhen : Exchange::kShanghai;
        int64_t volume = 0;
        for (const auto& [key, t] : totals_) {
          if (key.first == e) volume += t.volume;
        }
        if (szse) {
          SzseIndexMsg m;
          ASSERT_TRUE(decode(b, &m));
          stamp({e, "index:" + m.SecurityID}, m.OrigTime);
          EXPECT_EQ(m.TotalVolumeTrade, static_cast<uint64_t>(volume) * 100);
          EXPECT_GT(m.LastIndex, 0u);
          EXPECT_LE(m.LowIndex, m.LastIndex);
          EXPECT_GE(m.HighIndex, m.LastIndex);
        } else {
          SseIndexMsg m;
          ASSERT_TRUE(decode(b, &m));
          stamp({e, "index:" + m.SecurityID}, m.DataTimeStamp);
          EXPECT_EQ(m.TotalVolumeTraded, static_cast<uint64_t>(volume) * 1000);
          EXPECT_GT(m.LastIndex, 0u);
          EXPECT_LE(m.LowIndex, m.LastIndex);
          EXPECT_GE(m.HighIndex, m.LastIndex);
        }
        break;
      }
      default:
        FAIL() << "unexpected message type " << messageType(b);
    }
  }

  void checkQueue(uint32_t numOrders, const std::vector<uint32_t>& queue, const BookLevel& best,
                  int64_t scale) {
    EXPECT_EQ(numOrders, best.orders.size());
    ASSERT_EQ(queue.size(), std::min<size_t>(50, best.orders.size()));
    for (size_t i = 0; i < queue.size(); ++i) {
      EXPECT_EQ(queue[i], static_cast<uint64_t>(best.orders[i].qty * scale)) << i;
    }
    if (best.orders.size() > 50) ++longQueues_;
  }

  // Every book is sorted, uncrossed and consistent; the Shenzhen ones equal
  // what the wire built.
  void compareBooks() {
    for (const auto& inst : engine_.instruments()) {
      if (inst.kind != InstrumentKind::kStock) continue;
      const TrueBook& book = engine_.book(inst.exchange, inst.id);
      for (const auto* side : {&book.bids, &book.asks}) {
        for (size_t i = 0; i < kBookLevels; ++i) {
          const BookLevel& l = (*side)[i];
          if (l.price == 0) {
            ASSERT_TRUE(l.orders.empty());
            continue;
          }
          int64_t sum = 0;
          for (const BookOrder& o : l.orders) sum += o.qty;
          ASSERT_GT(l.qty, 0);
          ASSERT_EQ(l.qty, sum);
          ASSERT_GE(l.price, book.lowerLimit);
          ASSERT_LE(l.price, book.upperLimit);
          if (i > 0) {
            ASSERT_NE((*side)[i - 1].price, 0);
          }
        }
      }
      for (size_t i = 1; i < kBookLevels && book.bids[i].price != 0; ++i) {
        ASSERT_LT(book.bids[i].price, book.bids[i - 1].price);
      }
      for (size_t i = 1; i < kBookLevels && book.asks[i].price != 0; ++i) {
        ASSERT_GT(book.asks[i].price, book.asks[i - 1].price);
      }
      if (book.bids[0].price != 0 && book.asks[0].price != 0) {
        ASSERT_LT(book.bids[0].price, book.asks[0].price) << inst.id << " crossed at rest";
      }
      if (inst.exchange == Exchange::kShenzhen) {
        ASSERT_NO_FATAL_FAILURE(compareWithWire(inst, book));
      }
      const Totals& t = totals_[{inst.exchange, inst.id}];
      ASSERT_EQ(book.volume, t.volume);
      ASSERT_EQ(book.numTrades, t.trades);
      ASSERT_EQ(book.lastPrice, t.last);
    }
  }

  void compareWithWire(const InstrumentConfig& inst, const TrueBook& book) {
    const WireBook& wire = books_[inst.id];
    ASSERT_EQ(book.bidLevels, wire.bids.size()) << inst.id;
    ASSERT_EQ(book.askLevels, wire.asks.size()) << inst.id;
    auto same = [&](const auto& levels, const std::array<BookLevel, kBookLevels>& top) {
      size_t i = 0;
      for (auto it = levels.begin(); it != levels.end() && i < kBookLevels; ++it, ++i) {
        ASSERT_EQ(top[i].price, it->first) << inst.id << " level " << i;
        ASSERT_EQ(top[i].orders.size(), it->second.size()) << inst.id << " level " << i;
        size_t k = 0;
        for (const auto& [seq, qty] : it->second) {
          ASSERT_EQ(top[i].orders[k].id, seq);
          ASSERT_EQ(top[i].orders[k].qty, qty);
          ++k;
        }
      }
    };
    ASSERT_NO_FATAL_FAILURE(same(wire.bids, book.bids));
    ASSERT_NO_FATAL_FAILURE(same(wire.asks, book.asks));
  }

  MarketEngine& engine_;
  bool distinct_;
  int64_t lastTimeUs_ = 0;
  std::map<OrderKey, Order> orders_;
  std::map<std::string, WireBook> books_;  // Shenzhen stocks
  int64_t lastOrderTime_ = 0;
  int64_t sharedStamps_ = 0;
  std::map<uint32_t, std::pair<int64_t, int64_t>> channels_;  // last seq and stamp
  std::map<Key, Totals> totals_;
  std::map<uint32_t, int64_t> countByType_;
  int64_t longQueues_ = 0;
};

void runChecked(FeedChecker& checker, int steps) {
  for (int i = 0; i < steps; ++i) {
    ASSERT_NO_FATAL_FAILURE(checker.step()) << "step " << i;
  }
}

}  // namespace

TEST(SimEngine, WireAndBooksAgreeOverALiveSession) {
  MarketConfig config;
  config.seed = 20240102;
  MarketEngine engine(config);
  FeedChecker checker(engine, true);
  ASSERT_NO_FATAL_FAILURE(runChecked(checker, 3500));
  EXPECT_EQ(checker.sharedStamps(), 0) << "an execution shares its order's stamp";

  // A lively market: every message type, trades and cancellations on every
  // Shenzhen stock, and books some levels deep.
  for (uint32_t type : {kSseIndexType, kSseTradeType, kSseSnapshotType, kSzseSnapshotType,
                        kSzseTradeType, kSzseOrderType, kSzseIndexType, kSzseVolumeStatType}) {
    EXPECT_GT(checker.count(type), 0) << type;
  }
  for (const auto& inst : engine.instruments()) {
    if (inst.kind != InstrumentKind::kStock) continue;
    const Totals& t = checker.totals(inst.exchange, inst.id);
    EXPECT_GT(t.trades, 20) << inst.id;
    if (inst.exchange == Exchange::kShenzhen) {
      EXPECT_GT(t.cancels, 20) << inst.id;
    }
    const TrueBook& book = engine.book(inst.exchange, inst.id);
    EXPECT_GE(book.bidLevels, 5u) << inst.id;
    EXPECT_GE(book.askLevels, 5u) << inst.id;
  }
  // Simulated time moved on by about the mean interval per event.
  EXPECT_GT(engine.nowUs(), 3500 * config.meanEventIntervalUs / 2);
}

TEST(SimEngine, CrowdedLevelsCutTheQueueAtFifty) {
  // A 2% band leaves five prices, so levels collect many orders.
  MarketConfig config;
  config.seed = 7;
  config.instruments = {{Exchange::kShenzhen, "000001", InstrumentKind::kStock, 100, 2011, 2},
                        {Exchange::kShanghai, "600000", InstrumentKind::kStock, 100, 1, 2}};
  config.targetOrdersPerSide = 400;
  config.snapshotIntervalMs = 200;
  MarketEngine engine(config);
  FeedChecker checker(engine, true);
  ASSERT_NO_FATAL_FAILURE(runChecked(checker, 2000));
  EXPECT_GT(checker.snapshotsWithLongQueue(), 0);
}

TEST(SimEngine, RepeatedStampsWhenNotDistinct) {
  MarketConfig config;
  config.seed = 3;
  config.distinctStamps = false;
  config.meanEventIntervalUs = 200;  // several events per millisecond
  MarketEngine engine(config);
  FeedChecker checker(engine, false);
  ASSERT_NO_FATAL_FAILURE(runChecked(checker, 1500));

  // Orders and their executions carry the same stamp.
  EXPECT_GT(checker.sharedStamps(), 0);
}

TEST(SimEngine, SameSeedSameSession) {
  MarketConfig config;
  config.seed = 99;
  MarketEngine a(config), b(config);
  config.seed = 100;
  MarketEngine c(config);
  bool differs = false;
  for (int i = 0; i < 2000; ++i) {
    std::vector<Datagram> x = a.step(), y = b.step(), z = c.step();
    ASSERT_EQ(x.size(), y.size()) << i;
    for (size_t k = 0; k < x.size(); ++k) {
      ASSERT_EQ(x[k].timeUs, y[k].timeUs);
      ASSERT_EQ(x[k].bytes, y[k].bytes);
    }
    if (x.size() != z.size() || (!x.empty() && x[0].bytes != z[0].bytes)) differs = true;
  }
  EXPECT_TRUE(differs);
}

TEST(SimEngine, StampFormats) {
  EXPECT_EQ(shenzhenStamp(20240102, 9 * 3600000 + 30 * 60000 + 15123), 20240102093015123LL);
  EXPECT_EQ(shenzhenStamp(20231231, 86400000 + 1), 20240101000000001LL);
  EXPECT_EQ(shenzhenStamp(20240228, 86400000), 20240229000000000LL);  // leap year
  EXPECT_EQ(shenzhenStamp(20230228, 86400000), 20230301000000000LL);
  EXPECT_EQ(shenzhenStamp(20240430, 2 * 86400000 + 3599999), 20240502005959999LL);
  EXPECT_EQ(shanghaiStamp(9 * 3600000 + 30 * 60000 + 15123), 93015123u);
  EXPECT_EQ(shanghaiStamp(86400000 + 5), 5u);  // restarts at midnight
  EXPECT_EQ(shanghaiStamp(86399999), 235959999u);

  // The first snapshot round stamps its time.
  MarketConfig config;
  config.snapshotIntervalMs = 1000;
  MarketEngine engine(config);
  std::vector<Datagram> out;
  while (out.empty() || messageType(out[0].bytes) == kSzseOrderType ||
         messageType(out[0].bytes) == kSzseTradeType ||
         messageType(out[0].bytes) == kSseTradeType) {
    out = engine.step();
  }
  SzseSnapshotMsg snap;
  ASSERT_TRUE(decode(out[0].bytes, &snap));
  EXPECT_GE(snap.OrigTime, 20240102093001000LL);
  EXPECT_LT(snap.OrigTime, 20240102093002000LL);
}

TEST(SimEngine, RefusesUnusableConfigurations) {
  auto build = [](std::vector<InstrumentConfig> instruments) {
    MarketConfig c;
    c.instruments = std::move(instruments);
    MarketEngine e(c);
  };
  using E = Exchange;
  using K = InstrumentKind;
  EXPECT_THROW(build({}), std::invalid_argument);
  EXPECT_THROW(build({{E::kShenzhen, "399001", K::kIndex, 100, 1, 0}}), std::invalid_argument);
  EXPECT_THROW(build({{E::kShenzhen, "12345678", K::kStock, 100, 1, 10}}), std::invalid_argument);
  EXPECT_THROW(build({{E::kShenzhen, "000001", K::kStock, 0, 1, 10}}), std::invalid_argument);
  EXPECT_THROW(build({{E::kShenzhen, "000001", K::kStock, 100, 70000, 10}}), std::invalid_argument);
  EXPECT_THROW(build({{E::kShenzhen, "000001", K::kStock, 100, 1, 10},
                      {E::kShenzhen, "000001", K::kStock, 100, 1, 10}}),
               std::invalid_argument);
  // Receivers keep one sequence per channel number across both exchanges.
  EXPECT_THROW(build({{E::kShenzhen, "000001", K::kStock, 100, 5, 10},
                      {E::kShanghai, "600000", K::kStock, 100, 5, 10}}),
               std::invalid_argument);
  // The same id on both exchanges is fine.
  EXPECT_NO_THROW(build({{E::kShenzhen, "000001", K::kStock, 100, 5, 10},
                         {E::kShanghai, "000001", K::kStock, 100, 6, 10}}));

  MarketEngine engine;
  EXPECT_THROW(engine.book(E::kShanghai, "000001"), std::out_of_range);  // an index
  EXPECT_THROW(engine.index(E::kShenzhen, "000001"), std::out_of_range);
  EXPECT_EQ(engine.index(E::kShanghai, "000001").preClose, 31000000);
}
