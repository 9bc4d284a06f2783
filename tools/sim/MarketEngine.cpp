#include "sim/MarketEngine.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <set>
#include <stdexcept>

#include "sim/Rescale.h"

namespace velmar {
namespace sim {

namespace {

constexpr int64_t kMsPerDay = 86400000;
constexpr char kBuy = '1';
constexpr char kSell = '2';
constexpr size_t kMaxQueue = 50;  // single orders listed per best level
constexpr const char* kShenzhenPhase = "T0";
constexpr const char* kShanghaiPhase = "T111";

// The engine counts prices and money in fen, quantities in shares and index
// values in points x10000; these give a feed field's raw value of each.
constexpr int64_t kFenPerYuan = 100;
constexpr int64_t kIndexUnitsPerPoint = 10000;

int64_t fen(int64_t value, double divisor) {
  return rescale(value, kFenPerYuan, divisor);
}
int64_t shares(int64_t value, double divisor) {
  return rescale(value, 1, divisor);
}
int64_t points(int64_t value, double divisor) {
  return rescale(value, kIndexUnitsPerPoint, divisor);
}

bool leapYear(int y) {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int daysInMonth(int y, int m) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && leapYear(y) ? 29 : kDays[m - 1];
}

int32_t addDays(int32_t day, int64_t n) {
  int y = day / 10000, m = day / 100 % 100, d = day % 100;
  for (int64_t i = 0; i < n; ++i) {
    if (++d > daysInMonth(y, m)) {
      d = 1;
      if (++m > 12) {
        m = 1;
        ++y;
      }
    }
  }
  return y * 10000 + m * 100 + d;
}

int64_t timeOfDay(int64_t ms) {
  ms %= kMsPerDay;
  int64_t h = ms / 3600000, min = ms / 60000 % 60, s = ms / 1000 % 60, milli = ms % 1000;
  return h * 10000000 + min * 100000 + s * 1000 + milli;
}

uint32_t saturate32(int64_t v) {
  if (v < 0) return 0;
  return v > std::numeric_limits<uint32_t>::max() ? std::numeric_limits<uint32_t>::max()
                                                  : static_cast<uint32_t>(v);
}

int64_t roundedDiv(int64_t a, int64_t b) {
  return b == 0 ? 0 : (a + b / 2) / b;
}

}  // namespace

int64_t shenzhenStamp(int32_t day, int64_t ms) {
  return static_cast<int64_t>(addDays(day, ms / kMsPerDay)) * 1000000000LL + timeOfDay(ms);
}

uint32_t shanghaiStamp(int64_t ms) {
  return static_cast<uint32_t>(timeOfDay(ms));
}

std::vector<InstrumentConfig> defaultInstruments() {
  using E = Exchange;
  using K = InstrumentKind;
  return {
      {E::kShenzhen, "000001", K::kStock, 1150, 2011, 10},
      {E::kShenzhen, "002415", K::kStock, 3380, 2011, 10},
      {E::kShenzhen, "300446", K::kStock, 1520, 2021, 20},
      {E::kShenzhen, "399001", K::kIndex, 110000000, 9001, 0},
      {E::kShanghai, "600000", K::kStock, 720, 1, 10},
      {E::kShanghai, "600519", K::kStock, 175000, 2, 10},
      {E::kShanghai, "000001", K::kIndex, 31000000, 0, 0},
  };
}

// One resting order. Levels keep them in time priority; `byId` finds an
// order's level and place for a cancellation, and `live` lists all ids so
// that a random one can be picked in constant time.
struct MarketEngine::Stock {
  struct Order {
    int64_t id;
    int64_t qty;
    int64_t entryMs;
  };
  struct Level {
    std::list<Order> orders;
    int64_t qty = 0;
  };
  struct Place {
    char side;
    int64_t price;
    std::list<Order>::iterator it;
    size_t livePos;
  };

  InstrumentConfig inst;
  std::map<int64_t, Level, std::greater<int64_t>> bids;  // best (highest) first
  std::map<int64_t, Level> asks;                         // best (lowest) first
  std::unordered_map<int64_t, Place> byId;
  std::vector<int64_t> live;

  int64_t fairMilli = 0;  // fair price in 1/1000 fen
  int64_t upper = 0, lower = 0;
  int64_t levelStep = 1;  // ticks between the prices of passive orders
  int64_t meanLots = 1;

  int64_t last = 0, open = 0, high = 0, low = 0;
  int64_t volume = 0, value = 0, numTrades = 0;
  int64_t withdrawBuyNumber = 0, withdrawBuyAmount = 0, withdrawBuyMoney = 0;
  int64_t withdrawSellNumber = 0, withdrawSellAmount = 0, withdrawSellMoney = 0;
  int64_t bidMaxWaitMs = 0, offerMaxWaitMs = 0;
  int64_t lastStampMs = -1;
  int64_t lastStamp = 0;  // in the exchange's format

  TrueBook view;

  bool shenzhen() const { return inst.exchange == Exchange::kShenzhen; }
  int64_t bestBid() const { return bids.empty() ? 0 : bids.begin()->first; }
  int64_t bestAsk() const { return asks.empty() ? 0 : asks.begin()->first; }
};

struct MarketEngine::Index {
  InstrumentConfig inst;
  std::vector<const Stock*> members;
  int64_t last = 0, open = 0, high = 0, low = 0;
  int64_t lastStampMs = -1;
};

MarketEngine::MarketEngine(MarketConfig config)
    : config_(std::move(config)), rngState_(config_.seed) {
  std::set<std::pair<Exchange, std::string>> ids;
  std::map<uint32_t, Exchange> channelOwner;
  for (const InstrumentConfig& inst : config_.instruments) {
    if (inst.id.empty() || inst.id.size() > 7) {
      throw std::invalid_argument("instrument id '" + inst.id + "' must have 1 to 7 characters");
    }
    if (!ids.insert({inst.exchange, inst.id}).second) {
      throw std::invalid_argument("instrument " + inst.id + " given twice");
    }
    if (inst.preClose <= 0) {
      throw std::invalid_argument("instrument " + inst.id + " needs a previous close above 0");
    }
    if (inst.exchange == Exchange::kShenzhen && inst.channel > 65535) {
      throw std::invalid_argument("Shenzhen channel numbers end at 65535");
    }
    if (inst.kind == InstrumentKind::kStock) {
      auto owner = channelOwner.emplace(inst.channel, inst.exchange).first;
      if (owner->second != inst.exchange) {
        throw std::invalid_argument("channel " + std::to_string(inst.channel) +
                                    " used on both exchanges");
      }
    }
  }
  for (const InstrumentConfig& inst : config_.instruments) {
    if (inst.kind != InstrumentKind::kStock) continue;
    auto s = std::make_unique<Stock>();
    s->inst = inst;
    s->fairMilli = inst.preClose * 1000;
    // Limits round to the tick, half up.
    s->upper = roundedDiv(inst.preClose * (100 + inst.limitPercent), 100);
    s->lower = std::max<int64_t>(1, roundedDiv(inst.preClose * (100 - inst.limitPercent), 100));
    // Dear stocks spread their levels wider and trade in fewer lots.
    s->levelStep = std::max<int64_t>(1, inst.preClose / 2000);
    s->meanLots = std::min<int64_t>(30, std::max<int64_t>(1, 200000 / inst.preClose));
    s->view.exchange = inst.exchange;
    s->view.id = inst.id;
    stocks_.push_back(std::move(s));
  }
  if (stocks_.empty()) throw std::invalid_argument("the market needs at least one stock");
  for (const InstrumentConfig& inst : config_.instruments) {
    if (inst.kind != InstrumentKind::kIndex) continue;
    auto x = std::make_unique<Index>();
    x->inst = inst;
    for (const auto& s : stocks_) {
      if (s->inst.exchange == inst.exchange) x->members.push_back(s.get());
    }
    indices_.push_back(std::move(x));
  }
  nextSnapshotUs_ = config_.snapshotIntervalMs * 1000;
}

MarketEngine::~MarketEngine() = default;

// splitmix64: small, fast and the same everywhere.
uint64_t MarketEngine::next() {
  uint64_t z = (rngState_ += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

MarketEngine::Stock& MarketEngine::stock(Exchange exchange, const std::string& id) const {
  for (const auto& s : stocks_) {
    if (s->inst.exchange == exchange && s->inst.id == id) return *s;
  }
  throw std::out_of_range("no stock " + id);
}

MarketEngine::Channel& MarketEngine::channel(const Stock& s) {
  return channels_[{s.inst.exchange, s.inst.channel}];
}

int64_t MarketEngine::takeStamp(int64_t* lastStampMs) {
  int64_t ms = config_.startMs + nowUs_ / 1000;
  if (ms <= *lastStampMs) {
    ms = config_.distinctStamps ? *lastStampMs + 1 : *lastStampMs;
    nowUs_ = std::max(nowUs_, (ms - config_.startMs) * 1000);
  }
  *lastStampMs = ms;
  return ms;
}

void MarketEngine::emit(Bytes bytes, std::vector<Datagram>* out) const {
  out->push_back(Datagram{nowUs_, std::move(bytes)});
}

std::vector<Datagram> MarketEngine::step() {
  std::vector<Datagram> out;
  if (pendingEventUs_ < 0) {
    pendingEventUs_ =
        nowUs_ +
        static_cast<int64_t>(below(static_cast<uint64_t>(2 * config_.meanEventIntervalUs) + 1));
  }
  if (config_.snapshotIntervalMs > 0 && nextSnapshotUs_ <= pendingEventUs_) {
    nowUs_ = std::max(nowUs_, nextSnapshotUs_);
    publishSnapshots(&out);
    while (nextSnapshotUs_ <= nowUs_) nextSnapshotUs_ += config_.snapshotIntervalMs * 1000;
    return out;
  }
  nowUs_ = std::max(nowUs_, pendingEventUs_);
  pendingEventUs_ = -1;
  runEvent(&out);
  return out;
}

void MarketEngine::runEvent(std::vector<Datagram>* out) {
  Stock& s = *stocks_[below(stocks_.size())];
  moveFair(s);
  int64_t target = std::max(1, 2 * config_.targetOrdersPerSide);
  int64_t cancelPercent =
      std::min<int64_t>(90, config_.cancelPercent * static_cast<int64_t>(s.live.size()) / target);
  if (!s.live.empty() && chance(static_cast<int>(cancelPercent))) {
    cancelOrder(s, out);
  } else {
    newOrder(s, out);
  }
}

// A bounded random walk with a slight pull back to the previous close, so
// that long sessions stay well inside the price limits.
void MarketEngine::moveFair(Stock& s) {
  int64_t v = std::max<int64_t>(600, s.inst.preClose / 5);
  s.fairMilli += static_cast<int64_t>(below(static_cast<uint64_t>(2 * v + 1))) - v;
  s.fairMilli -= (s.fairMilli - s.inst.preClose * 1000) / 2000;
  s.fairMilli = std::min(std::max(s.fairMilli, s.lower * 1000), s.upper * 1000);
}

void MarketEngine::newOrder(Stock& s, std::vector<Datagram>* out) {
  char side = below(2) == 0 ? kBuy : kSell;
  int64_t opposite = side == kBuy ? s.bestAsk() : s.bestBid();
  int64_t lots = 1 + static_cast<int64_t>(below(static_cast<uint64_t>(2 * s.meanLots)));
  if (chance(5)) lots *= 5;
  int64_t qty = lots * 100;
  int64_t price;
  if (opposite != 0 && chance(config_.marketablePercent)) {
    // Through the opposite best by up to two steps; a quarter of these take
    // at least the whole best level.
    int64_t through = static_cast<int64_t>(below(3)) * s.levelStep;
    price = side == kBuy ? opposite + through : opposite - through;
    if (chance(25)) {
      const auto& level = side == kBuy ? s.asks.begin()->second : s.bids.begin()->second;
      qty = level.qty + qty;
    }
  } else {
    // Passive: a few steps off the fair price, never through the other side.
    int64_t steps = 1;
    while (steps < 30 && chance(70)) ++steps;
    int64_t ref = (s.fairMilli + 500) / 1000;
    if (side == kBuy) {
      price = ref - (steps - 1) * s.levelStep;
      if (s.bestAsk() != 0) price = std::min(price, s.bestAsk() - 1);
    } else {
      price = ref + (steps - 1) * s.levelStep;
      if (s.bestBid() != 0) price = std::max(price, s.bestBid() + 1);
    }
  }
  price = std::min(std::max(price, s.lower), s.upper);

  Channel& ch = channel(s);
  int64_t stampMs = takeStamp(&s.lastStampMs);
  int64_t id;
  if (s.shenzhen()) {
    id = ++ch.lastSeq;
    SzseOrderMsg m;
    m.ChannelNo = static_cast<uint16_t>(s.inst.channel);
    m.ApplSeqNum = id;
    m.SecurityID = s.inst.id;
    m.Price = static_cast<uint64_t>(fen(price, feed::szse_order::PriceDiv));
    m.OrderQty = static_cast<uint64_t>(shares(qty, feed::szse_order::OrderQtyDiv));
    m.Side = side;
    m.OrderTime = s.lastStamp = shenzhenStamp(config_.tradingDay, stampMs);
    emit(encode(m), out);
  } else {
    id = ++ch.lastOrderNo;
  }
  match(s, side, price, id, &qty, stampMs, out);
  if (qty > 0) rest(s, side, price, id, qty, stampMs);
}

void MarketEngine::match(Stock& s, char side, int64_t price, int64_t id, int64_t* qty,
                         int64_t stampMs, std::vector<Datagram>* out) {
  while (*qty > 0) {
    bool buy = side == kBuy;
    if (buy ? (s.asks.empty() || s.bestAsk() > price) : (s.bids.empty() || s.bestBid() < price)) {
      break;
    }
    int64_t levelPrice = buy ? s.bestAsk() : s.bestBid();
    Stock::Level& level = buy ? s.asks.begin()->second : s.bids.begin()->second;
    Stock::Order& resting = level.orders.front();
    int64_t q = std::min(*qty, resting.qty);
    int64_t restingId = resting.id;
    int64_t waitedMs = stampMs - resting.entryMs;

    // The first execution shares the order's stamp only when stamps may
    // repeat; otherwise each takes a new millisecond.
    int64_t tradeMs = takeStamp(&s.lastStampMs);
    Channel& ch = channel(s);
    int64_t buyId = buy ? id : restingId;
    int64_t sellId = buy ? restingId : id;
    if (s.shenzhen()) {
      SzseTradeMsg m;
      m.ChannelNo = static_cast<uint16_t>(s.inst.channel);
      m.ApplSeqNum = ++ch.lastSeq;
      m.BidApplSeqNum = buyId;
      m.OfferApplSeqNum = sellId;
      m.SecurityID = s.inst.id;
      m.LastPx = static_cast<uint64_t>(fen(levelPrice, feed::szse_trade::LastPxDiv));
      m.LastQty = static_cast<uint64_t>(shares(q, feed::szse_trade::LastQtyDiv));
      m.ExecType = 'F';
      m.TransactTime = s.lastStamp = shenzhenStamp(config_.tradingDay, tradeMs);
      emit(encode(m), out);
    } else {
      SseTradeMsg m;
      m.TradeIndex = static_cast<int32_t>(++ch.lastSeq);
      m.TradeChannel = s.inst.channel;
      m.SecurityID = s.inst.id;
      m.TradeTime = shanghaiStamp(tradeMs);
      s.lastStamp = m.TradeTime;
      m.TradePrice = static_cast<uint32_t>(fen(levelPrice, feed::sse_trade::TradePriceDiv));
      m.TradeQty = static_cast<uint64_t>(shares(q, feed::sse_trade::TradeQtyDiv));
      m.TradeMoney = static_cast<uint64_t>(fen(levelPrice * q, feed::sse_trade::TradeMoneyDiv));
      m.TradeBuyNo = static_cast<uint64_t>(buyId);
      m.TradeSellNo = static_cast<uint64_t>(sellId);
      m.TradeBSFlag = buy ? 'B' : 'S';
      emit(encode(m), out);
    }

    if (s.open == 0) s.open = s.high = s.low = levelPrice;
    s.last = levelPrice;
    s.high = std::max(s.high, levelPrice);
    s.low = std::min(s.low, levelPrice);
    s.volume += q;
    s.value += levelPrice * q;
    ++s.numTrades;
    int64_t& maxWait = buy ? s.offerMaxWaitMs : s.bidMaxWaitMs;
    maxWait = std::max(maxWait, waitedMs);

    *qty -= q;
    resting.qty -= q;
    level.qty -= q;
    if (resting.qty == 0) removeOrder(s, restingId);
  }
}

void MarketEngine::rest(Stock& s, char side, int64_t price, int64_t id, int64_t qty,
                        int64_t stampMs) {
  Stock::Level& level = side == kBuy ? s.bids[price] : s.asks[price];
  level.orders.push_back(Stock::Order{id, qty, stampMs});
  level.qty += qty;
  s.byId[id] = Stock::Place{side, price, std::prev(level.orders.end()), s.live.size()};
  s.live.push_back(id);
}

void MarketEngine::removeOrder(Stock& s, int64_t id) {
  auto found = s.byId.find(id);
  Stock::Place place = found->second;
  s.byId.erase(found);
  // Swap-remove from the list of live ids.
  int64_t moved = s.live.back();
  s.live[place.livePos] = moved;
  s.live.pop_back();
  if (moved != id) s.byId[moved].livePos = place.livePos;

  auto drop = [&](auto& levels) {
    auto it = levels.find(place.price);
    it->second.qty -= place.it->qty;
    it->second.orders.erase(place.it);
    if (it->second.orders.empty()) levels.erase(it);
  };
  if (place.side == kBuy) {
    drop(s.bids);
  } else {
    drop(s.asks);
  }
}

void MarketEngine::cancelOrder(Stock& s, std::vector<Datagram>* out) {
  int64_t id = s.live[below(s.live.size())];
  const Stock::Place& place = s.byId.at(id);
  char side = place.side;
  int64_t price = place.price;
  int64_t qty = place.it->qty;
  int64_t stampMs = takeStamp(&s.lastStampMs);
  if (s.shenzhen()) {
    SzseTradeMsg m;
    m.ChannelNo = static_cast<uint16_t>(s.inst.channel);
    m.ApplSeqNum = ++channel(s).lastSeq;
    m.BidApplSeqNum = side == kBuy ? id : 0;
    m.OfferApplSeqNum = side == kSell ? id : 0;
    m.SecurityID = s.inst.id;
    m.LastPx = 0;
    m.LastQty = static_cast<uint64_t>(shares(qty, feed::szse_trade::LastQtyDiv));
    m.ExecType = '4';
    m.TransactTime = s.lastStamp = shenzhenStamp(config_.tradingDay, stampMs);
    emit(encode(m), out);
  } else {
    s.lastStamp = shanghaiStamp(stampMs);
  }
  if (side == kBuy) {
    ++s.withdrawBuyNumber;
    s.withdrawBuyAmount += qty;
    s.withdrawBuyMoney += qty * price;
  } else {
    ++s.withdrawSellNumber;
    s.withdrawSellAmount += qty;
    s.withdrawSellMoney += qty * price;
  }
  removeOrder(s, id);
}

const TrueBook& MarketEngine::book(Exchange exchange, const std::string& id) const {
  Stock& s = stock(exchange, id);
  TrueBook& v = s.view;
  auto fill = [](const auto& levels, std::array<BookLevel, kBookLevels>& dst) {
    size_t i = 0;
    for (auto it = levels.begin(); it != levels.end() && i < kBookLevels; ++it, ++i) {
      dst[i].price = it->first;
      dst[i].qty = it->second.qty;
      dst[i].orders.clear();
      for (const auto& o : it->second.orders) dst[i].orders.push_back(BookOrder{o.id, o.qty});
    }
    for (; i < kBookLevels; ++i) dst[i] = BookLevel();
  };
  fill(s.bids, v.bids);
  fill(s.asks, v.asks);
  v.bidLevels = s.bids.size();
  v.askLevels = s.asks.size();
  v.preClose = s.inst.preClose;
  v.upperLimit = s.upper;
  v.lowerLimit = s.lower;
  v.lastPrice = s.last;
  v.openPrice = s.open;
  v.highPrice = s.high;
  v.lowPrice = s.low;
  v.volume = s.volume;
  v.value = s.value;
  v.numTrades = s.numTrades;
  v.updateTime = s.lastStamp;
  return v;
}

IndexValue MarketEngine::index(Exchange exchange, const std::string& id) const {
  for (const auto& x : indices_) {
    if (x->inst.exchange != exchange || x->inst.id != id) continue;
    IndexValue v;
    v.exchange = exchange;
    v.id = id;
    v.preClose = x->inst.preClose;
    v.last = x->last;
    v.open = x->open;
    v.high = x->high;
    v.low = x->low;
    for (const Stock* s : x->members) {
      v.volume += s->volume;
      v.value += s->value;
      v.numTrades += s->numTrades;
    }
    return v;
  }
  throw std::out_of_range("no index " + id);
}

void MarketEngine::publishSnapshots(std::vector<Datagram>* out) {
  for (auto& s : stocks_) publishStock(*s, out);
  for (auto& x : indices_) publishIndex(*x, out);
}

namespace {

// What both ten-level snapshots need from one side of a book, in engine
// units: ten levels, the best level's orders, and totals over all levels.
struct SideSummary {
  std::array<int64_t, kBookLevels> price{};
  std::array<int64_t, kBookLevels> qty{};
  std::vector<int64_t> queue;  // up to 50 single orders at the best level
  int64_t bestOrders = 0;
  int64_t totalQty = 0;
  int64_t totalOrders = 0;
  int64_t weightedPrice = 0;  // fen, rounded
  size_t levels = 0;
};

template <typename Levels>
SideSummary summarize(const Levels& levels) {
  SideSummary r;
  int64_t money = 0;
  size_t i = 0;
  for (const auto& [price, level] : levels) {
    if (i < kBookLevels) {
      r.price[i] = price;
      r.qty[i] = level.qty;
    }
    if (i == 0) {
      r.bestOrders = static_cast<int64_t>(level.orders.size());
      for (const auto& o : level.orders) {
        if (r.queue.size() == kMaxQueue) break;
        r.queue.push_back(o.qty);
      }
    }
    r.totalQty += level.qty;
    r.totalOrders += static_cast<int64_t>(level.orders.size());
    money += price * level.qty;
    ++i;
  }
  r.levels = levels.size();
  r.weightedPrice = roundedDiv(money, r.totalQty);
  return r;
}

/// The ten levels of a snapshot, each array with its own field's divisor.
template <typename Msg>
void fillLevels(Msg* m, const SideSummary& bid, const SideSummary& ask, double bidPxDiv,
                double bidQtyDiv, double offerPxDiv, double offerQtyDiv) {
  for (size_t i = 0; i < kBookLevels; ++i) {
    m->BidPx[i] = saturate32(fen(bid.price[i], bidPxDiv));
    m->BidQty[i] = static_cast<uint64_t>(shares(bid.qty[i], bidQtyDiv));
    m->OfferPx[i] = saturate32(fen(ask.price[i], offerPxDiv));
    m->OfferQty[i] = static_cast<uint64_t>(shares(ask.qty[i], offerQtyDiv));
  }
}

}  // namespace

void MarketEngine::publishStock(Stock& s, std::vector<Datagram>* out) {
  SideSummary bid = summarize(s.bids);
  SideSummary ask = summarize(s.asks);
  int64_t stampMs = takeStamp(&s.lastStampMs);
  if (s.shenzhen()) {
    namespace f = feed::szse_snapshot;
    SzseSnapshotMsg m;
    m.OrigTime = s.lastStamp = shenzhenStamp(config_.tradingDay, stampMs);
    m.ChannelNo = static_cast<uint16_t>(s.inst.channel);
    m.SecurityID = s.inst.id;
    m.TradingPhaseCode = kShenzhenPhase;
    m.PrevClosePx = saturate32(fen(s.inst.preClose, f::PrevClosePxDiv));
    m.NumTrades = s.numTrades;
    m.TotalVolumeTrade = static_cast<uint64_t>(shares(s.volume, f::TotalVolumeTradeDiv));
    m.TotalValueTrade = static_cast<uint64_t>(fen(s.value, f::TotalValueTradeDiv));
    m.LastPx = saturate32(fen(s.last, f::LastPxDiv));
    m.OpenPx = saturate32(fen(s.open, f::OpenPxDiv));
    m.HighPx = saturate32(fen(s.high, f::HighPxDiv));
    m.LowPx = saturate32(fen(s.low, f::LowPxDiv));
    m.AvgPx = saturate32(roundedDiv(fen(s.value, f::AvgPxDiv), s.volume));
    m.UpperLimitPx = saturate32(fen(s.upper, f::UpperLimitPxDiv));
    m.LowerLimitPx = saturate32(fen(s.lower, f::LowerLimitPxDiv));
    m.TotalBidQty = static_cast<uint64_t>(shares(bid.totalQty, f::TotalBidQtyDiv));
    m.TotalOfferQty = static_cast<uint64_t>(shares(ask.totalQty, f::TotalOfferQtyDiv));
    m.WeightedAvgBidPx = saturate32(fen(bid.weightedPrice, f::WeightedAvgBidPxDiv));
    m.WeightedAvgOfferPx = saturate32(fen(ask.weightedPrice, f::WeightedAvgOfferPxDiv));
    fillLevels(&m, bid, ask, f::BidPxDiv, f::BidQtyDiv, f::OfferPxDiv, f::OfferQtyDiv);
    m.BestBidNumOrders = static_cast<uint32_t>(bid.bestOrders);
    m.BestOfferNumOrders = static_cast<uint32_t>(ask.bestOrders);
    for (int64_t q : bid.queue) m.BidQueue.push_back(saturate32(shares(q, f::QueueQtyDiv)));
    for (int64_t q : ask.queue) m.OfferQueue.push_back(saturate32(shares(q, f::QueueQtyDiv)));
    emit(encode(m), out);

    SzseVolumeStatMsg v;
    v.OrigTime = s.lastStamp = shenzhenStamp(config_.tradingDay, takeStamp(&s.lastStampMs));
    v.ChannelNo = m.ChannelNo;
    v.SecurityID = s.inst.id;
    v.TradingPhaseCode = kShenzhenPhase;
    v.PrevClosePx =
        static_cast<uint64_t>(fen(s.inst.preClose, feed::szse_volume_stat::PrevClosePxDiv));
    v.NumTrades = s.numTrades;
    v.TotalVolumeTrade = m.TotalVolumeTrade;
    v.TotalValueTrade = m.TotalValueTrade;
    emit(encode(v), out);
    return;
  }
  namespace f = feed::sse_snapshot;
  SseSnapshotMsg m;
  m.DataTimeStamp = shanghaiStamp(stampMs);
  s.lastStamp = m.DataTimeStamp;
  m.SecurityID = s.inst.id;
  m.PreClosePx = saturate32(fen(s.inst.preClose, f::PreClosePxDiv));
  m.OpenPx = saturate32(fen(s.open, f::OpenPxDiv));
  m.HighPx = saturate32(fen(s.high, f::HighPxDiv));
  m.LowPx = saturate32(fen(s.low, f::LowPxDiv));
  m.LastPx = saturate32(fen(s.last, f::LastPxDiv));
  m.TradingPhaseCode = kShanghaiPhase;
  m.NumTrades = saturate32(s.numTrades);
  m.TotalVolumeTrade = static_cast<uint64_t>(shares(s.volume, f::TotalVolumeTradeDiv));
  m.TotalValueTrade = static_cast<uint64_t>(fen(s.value, f::TotalValueTradeDiv));
  m.TotalBidQty = static_cast<uint64_t>(shares(bid.totalQty, f::TotalBidQtyDiv));
  m.WeightedAvgBidPx = saturate32(fen(bid.weightedPrice, f::WeightedAvgBidPxDiv));
  m.AltWeightedAvgBidPx = saturate32(fen(bid.weightedPrice, f::AltWeightedAvgBidPxDiv));
  m.TotalOfferQty = static_cast<uint64_t>(shares(ask.totalQty, f::TotalOfferQtyDiv));
  m.WeightedAvgOfferPx = saturate32(fen(ask.weightedPrice, f::WeightedAvgOfferPxDiv));
  m.AltWeightedAvgOfferPx = saturate32(fen(ask.weightedPrice, f::AltWeightedAvgOfferPxDiv));
  m.WithdrawBuyNumber = saturate32(s.withdrawBuyNumber);
  m.WithdrawBuyAmount = static_cast<uint64_t>(s.withdrawBuyAmount);
  m.WithdrawBuyMoney = saturate32(fen(s.withdrawBuyMoney, f::WithdrawBuyMoneyDiv));
  m.WithdrawSellNumber = saturate32(s.withdrawSellNumber);
  m.WithdrawSellAmount = static_cast<uint64_t>(s.withdrawSellAmount);
  m.WithdrawSellMoney = saturate32(fen(s.withdrawSellMoney, f::WithdrawSellMoneyDiv));
  m.TotalBidNumber = saturate32(bid.totalOrders);
  m.TotalOfferNumber = saturate32(ask.totalOrders);
  m.BidTradeMaxDuration = saturate32(s.bidMaxWaitMs / 1000);  // seconds
  m.OfferTradeMaxDuration = saturate32(s.offerMaxWaitMs / 1000);
  m.NumBidOrders = static_cast<uint32_t>(bid.levels);
  m.NumOfferOrders = static_cast<uint32_t>(ask.levels);
  fillLevels(&m, bid, ask, f::BidPxDiv, f::BidQtyDiv, f::OfferPxDiv, f::OfferQtyDiv);
  m.BestBidNumOrders = static_cast<uint32_t>(bid.bestOrders);
  m.BestOfferNumOrders = static_cast<uint32_t>(ask.bestOrders);
  // Shanghai's queues count whole shares.
  for (int64_t q : bid.queue) m.BidQueue.push_back(saturate32(q));
  for (int64_t q : ask.queue) m.OfferQueue.push_back(saturate32(q));
  emit(encode(m), out);
}

void MarketEngine::publishIndex(Index& x, std::vector<Datagram>* out) {
  // Equal-weighted price relative; a stock that hasn't traded counts at its
  // previous close.
  double sum = 0;
  int64_t volume = 0, value = 0, trades = 0;
  for (const Stock* s : x.members) {
    int64_t ref = s->last != 0 ? s->last : s->inst.preClose;
    sum += static_cast<double>(ref) / static_cast<double>(s->inst.preClose);
    volume += s->volume;
    value += s->value;
    trades += s->numTrades;
  }
  double relative = x.members.empty() ? 1.0 : sum / static_cast<double>(x.members.size());
  x.last = static_cast<int64_t>(static_cast<double>(x.inst.preClose) * relative + 0.5);
  if (x.open == 0) x.open = x.high = x.low = x.last;
  x.high = std::max(x.high, x.last);
  x.low = std::min(x.low, x.last);
  int64_t stampMs = takeStamp(&x.lastStampMs);
  if (x.inst.exchange == Exchange::kShenzhen) {
    namespace f = feed::szse_index;
    SzseIndexMsg m;
    m.OrigTime = shenzhenStamp(config_.tradingDay, stampMs);
    m.ChannelNo = static_cast<uint16_t>(x.inst.channel);
    m.SecurityID = x.inst.id;
    m.TradingPhaseCode = kShenzhenPhase;
    m.NumTrades = trades;
    m.TotalVolumeTrade = static_cast<uint64_t>(shares(volume, f::TotalVolumeTradeDiv));
    m.TotalValueTrade = static_cast<uint64_t>(fen(value, f::TotalValueTradeDiv));
    m.LastIndex = static_cast<uint64_t>(points(x.last, f::LastIndexDiv));
    m.PreCloseIndex = static_cast<uint64_t>(points(x.inst.preClose, f::PreCloseIndexDiv));
    m.OpenIndex = static_cast<uint64_t>(points(x.open, f::OpenIndexDiv));
    m.HighIndex = static_cast<uint64_t>(points(x.high, f::HighIndexDiv));
    m.LowIndex = static_cast<uint64_t>(points(x.low, f::LowIndexDiv));
    emit(encode(m), out);
    return;
  }
  namespace f = feed::sse_index;
  SseIndexMsg m;
  m.DataTimeStamp = shanghaiStamp(stampMs);
  m.SecurityID = x.inst.id;
  m.PreCloseIndex = static_cast<uint64_t>(points(x.inst.preClose, f::PreCloseIndexDiv));
  m.OpenIndex = static_cast<uint64_t>(points(x.open, f::OpenIndexDiv));
  m.Turnover = static_cast<uint64_t>(fen(value, f::TurnoverDiv));
  m.HighIndex = static_cast<uint64_t>(points(x.high, f::HighIndexDiv));
  m.LowIndex = static_cast<uint64_t>(points(x.low, f::LowIndexDiv));
  m.LastIndex = static_cast<uint64_t>(points(x.last, f::LastIndexDiv));
  m.TotalVolumeTraded = static_cast<uint64_t>(shares(volume, f::TotalVolumeTradedDiv));
  m.CloseIndex = 0;  // the day isn't closed
  emit(encode(m), out);
}

}  // namespace sim
}  // namespace velmar
