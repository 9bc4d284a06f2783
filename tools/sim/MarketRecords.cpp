#include "sim/MarketRecords.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "sim/FeedEncoder.h"

namespace velmar {
namespace sim {

namespace {

// The phases the engine's snapshots carry: continuous trading all day.
constexpr const char kShenzhenPhase[] = "T0";
constexpr const char kShanghaiPhase[] = "T111";
constexpr size_t kMaxQueue = 50;

// One division of the exact integer, as the library converts the feed's
// prices, so that a record's price and a snapshot's price of the same decimal
// value are the same double.
double fenToYuan(int64_t fen) {
  return static_cast<double>(fen) / 100.0;
}

double pointsOf(int64_t pointsX10000) {
  return static_cast<double>(pointsX10000) / 10000.0;
}

template <size_t N>
void copyText(char (&dst)[N], const std::string& text) {
  std::memset(dst, 0, N);
  std::memcpy(dst, text.data(), std::min(text.size(), N - 1));
}

// Text fields of feed messages are fixed 8 bytes: all of them go in, NUL-padded.
template <size_t N>
void copyCode(char (&dst)[N], const std::string& text) {
  std::memset(dst, 0, N);
  std::memcpy(dst, text.data(), std::min(text.size(), N));
}

CVelmarMarketData emptyRecord(uint32_t exchange, uint32_t securityType, const std::string& id) {
  CVelmarMarketData r;
  std::memset(&r, 0, sizeof r);
  r.ExchangeID = exchange;
  r.SecurityType = securityType;
  copyText(r.SecurityID, id);
  return r;
}

struct SideTotals {
  int64_t qty = 0;
  int64_t orders = 0;
  int64_t weightedFen = 0;  // rounded
};

SideTotals totals(const std::array<BookLevel, kBookLevels>& levels) {
  SideTotals t;
  int64_t money = 0;
  for (const BookLevel& l : levels) {
    if (l.price == 0) break;
    t.qty += l.qty;
    t.orders += static_cast<int64_t>(l.orders.size());
    money += l.price * l.qty;
  }
  t.weightedFen = t.qty == 0 ? 0 : (money + t.qty / 2) / t.qty;
  return t;
}

template <typename Queue>
uint8_t fillQueue(const BookLevel& best, Queue& queue) {
  size_t n = std::min(best.orders.size(), kMaxQueue);
  for (size_t i = 0; i < n; ++i) queue[i] = static_cast<uint32_t>(best.orders[i].qty);
  return static_cast<uint8_t>(n);
}

// The conversions of feed values are the library's: raw value over the
// field's divisor.
double scaled(uint64_t raw, double divisor) {
  return static_cast<double>(raw) / divisor;
}
int64_t shares(uint64_t raw, double divisor) {
  return static_cast<int64_t>(raw / static_cast<uint64_t>(divisor));
}

/// The ten levels and the best levels' queues of either ten-level snapshot.
template <typename Msg>
void writeBook(CVelmarMarketData& r, const Msg& m, double bidPxDiv, double bidQtyDiv,
               double offerPxDiv, double offerQtyDiv, uint32_t queueDiv) {
  for (size_t i = 0; i < kBookLevels; ++i) {
    r.BidPrice[i] = scaled(m.BidPx[i], bidPxDiv);
    r.AskPrice[i] = scaled(m.OfferPx[i], offerPxDiv);
    r.BidVolume[i] = shares(m.BidQty[i], bidQtyDiv);
    r.AskVolume[i] = shares(m.OfferQty[i], offerQtyDiv);
  }
  r.BestBidOrderCount = m.BestBidNumOrders;
  r.BestAskOrderCount = m.BestOfferNumOrders;
  r.BestBidQueueSize = static_cast<uint8_t>(std::min(m.BidQueue.size(), kMaxQueue));
  r.BestAskQueueSize = static_cast<uint8_t>(std::min(m.OfferQueue.size(), kMaxQueue));
  for (size_t i = 0; i < r.BestBidQueueSize; ++i) r.BestBidQueue[i] = m.BidQueue[i] / queueDiv;
  for (size_t i = 0; i < r.BestAskQueueSize; ++i) r.BestAskQueue[i] = m.OfferQueue[i] / queueDiv;
}

}  // namespace

CVelmarMarketData stockRecord(const TrueBook& b) {
  const bool shenzhen = b.exchange == Exchange::kShenzhen;
  CVelmarMarketData r = emptyRecord(static_cast<uint32_t>(b.exchange), 1, b.id);
  r.LastPrice = fenToYuan(b.lastPrice);
  r.PreClosePrice = fenToYuan(b.preClose);
  r.OpenPrice = fenToYuan(b.openPrice);
  r.HighPrice = fenToYuan(b.highPrice);
  r.LowPrice = fenToYuan(b.lowPrice);
  r.UpperLimitPrice = fenToYuan(b.upperLimit);
  r.LowerLimitPrice = fenToYuan(b.lowerLimit);
  r.UpdateTime = b.updateTime;
  r.TotalVolume = b.volume;
  r.TotalValue = fenToYuan(b.value);
  r.AvgPrice = b.volume == 0 ? 0.0 : r.TotalValue / static_cast<double>(b.volume);
  r.NumTrades = b.numTrades;
  copyText(r.TradingPhaseCode, shenzhen ? kShenzhenPhase : kShanghaiPhase);
  for (size_t i = 0; i < kBookLevels; ++i) {
    r.BidPrice[i] = fenToYuan(b.bids[i].price);
    r.BidVolume[i] = b.bids[i].qty;
    r.AskPrice[i] = fenToYuan(b.asks[i].price);
    r.AskVolume[i] = b.asks[i].qty;
  }
  r.BestBidOrderCount = static_cast<uint32_t>(b.bids[0].orders.size());
  r.BestBidQueueSize = fillQueue(b.bids[0], r.BestBidQueue);
  r.BestAskOrderCount = static_cast<uint32_t>(b.asks[0].orders.size());
  r.BestAskQueueSize = fillQueue(b.asks[0], r.BestAskQueue);
  const SideTotals bid = totals(b.bids);
  const SideTotals ask = totals(b.asks);
  r.TotalBidVolume = bid.qty;
  r.TotalAskVolume = ask.qty;
  r.WeightedAvgBidPrice = fenToYuan(bid.weightedFen);
  r.WeightedAvgAskPrice = fenToYuan(ask.weightedFen);
  if (!shenzhen) {
    // Fields only Shanghai snapshots carry.
    r.AltWeightedAvgBidPrice = r.WeightedAvgBidPrice;
    r.AltWeightedAvgAskPrice = r.WeightedAvgAskPrice;
    r.TotalBidNumber = bid.orders;
    r.TotalOfferNumber = ask.orders;
    r.NumBidOrders = static_cast<uint32_t>(b.bidLevels);
    r.NumOfferOrders = static_cast<uint32_t>(b.askLevels);
  }
  return r;
}

CVelmarMarketData indexRecord(const IndexValue& x, int64_t stamp) {
  const bool shenzhen = x.exchange == Exchange::kShenzhen;
  CVelmarMarketData r = emptyRecord(static_cast<uint32_t>(x.exchange), 2, x.id);
  r.PreClosePrice = pointsOf(x.preClose);
  r.LastPrice = pointsOf(x.last != 0 ? x.last : x.preClose);
  r.OpenPrice = pointsOf(x.open);
  r.HighPrice = pointsOf(x.high);
  r.LowPrice = pointsOf(x.low);
  r.UpdateTime = stamp;
  r.TotalVolume = x.volume;
  r.TotalValue = fenToYuan(x.value);
  r.NumTrades = x.numTrades;
  copyText(r.TradingPhaseCode, shenzhen ? kShenzhenPhase : kShanghaiPhase);
  return r;
}

int64_t engineStamp(const MarketEngine& engine, Exchange exchange, int64_t offsetMs) {
  const int64_t ms =
      std::max<int64_t>(0, engine.config().startMs + engine.nowUs() / 1000 + offsetMs);
  return exchange == Exchange::kShenzhen ? shenzhenStamp(engine.config().tradingDay, ms)
                                         : static_cast<int64_t>(shanghaiStamp(ms));
}

std::vector<CVelmarMarketData> engineRecords(const MarketEngine& engine) {
  std::vector<CVelmarMarketData> out;
  for (const InstrumentConfig& c : engine.instruments()) {
    if (c.kind == InstrumentKind::kStock) {
      out.push_back(stockRecord(engine.book(c.exchange, c.id)));
    } else {
      // An index's next value may be stamped with the clock's present
      // millisecond; one earlier keeps the record behind it whatever the
      // volume.
      out.push_back(
          indexRecord(engine.index(c.exchange, c.id), engineStamp(engine, c.exchange, -1)));
    }
  }
  return out;
}

// --- FeedRecords ------------------------------------------------------------

CVelmarMarketData& FeedRecords::record(uint32_t exchange, const std::string& id,
                                       uint32_t securityType) {
  auto key = std::make_pair(exchange, id);
  auto it = records_.find(key);
  if (it == records_.end()) {
    it = records_.emplace(key, emptyRecord(exchange, securityType, id)).first;
    order_.push_back(key);
  }
  return it->second;
}

bool FeedRecords::apply(const uint8_t* data, size_t length) {
  return handle(data, length, true);
}

bool FeedRecords::learn(const uint8_t* data, size_t length) {
  return handle(data, length, false);
}

bool FeedRecords::handle(const uint8_t* data, size_t length, bool write) {
  switch (messageType(data, length)) {
    case feed::kSzseSnapshot: {
      namespace o = feed::szse_snapshot;
      SzseSnapshotMsg m;
      if (!decode(data, length, &m)) return false;
      CVelmarMarketData& r = record(2, m.SecurityID, 1);
      if (!write) return true;
      r.SecurityType = 1;
      r.LastPrice = scaled(m.LastPx, o::LastPxDiv);
      r.OpenPrice = scaled(m.OpenPx, o::OpenPxDiv);
      r.HighPrice = scaled(m.HighPx, o::HighPxDiv);
      r.LowPrice = scaled(m.LowPx, o::LowPxDiv);
      r.UpperLimitPrice = scaled(m.UpperLimitPx, o::UpperLimitPxDiv);
      r.LowerLimitPrice = scaled(m.LowerLimitPx, o::LowerLimitPxDiv);
      r.UpdateTime = m.OrigTime;
      r.TotalVolume = shares(m.TotalVolumeTrade, o::TotalVolumeTradeDiv);
      r.TotalValue = scaled(m.TotalValueTrade, o::TotalValueTradeDiv);
      r.AvgPrice = scaled(m.AvgPx, o::AvgPxDiv);
      r.NumTrades = m.NumTrades;
      copyCode(r.TradingPhaseCode, m.TradingPhaseCode);
      r.TotalBidVolume = shares(m.TotalBidQty, o::TotalBidQtyDiv);
      r.TotalAskVolume = shares(m.TotalOfferQty, o::TotalOfferQtyDiv);
      r.WeightedAvgBidPrice = scaled(m.WeightedAvgBidPx, o::WeightedAvgBidPxDiv);
      r.WeightedAvgAskPrice = scaled(m.WeightedAvgOfferPx, o::WeightedAvgOfferPxDiv);
      r.IOPV = scaled(m.IOPV, o::IOPVDiv);
      writeBook(r, m, o::BidPxDiv, o::BidQtyDiv, o::OfferPxDiv, o::OfferQtyDiv,
                static_cast<uint32_t>(o::QueueQtyDiv));
      return true;
    }
    case feed::kSseSnapshot: {
      namespace o = feed::sse_snapshot;
      SseSnapshotMsg m;
      if (!decode(data, length, &m)) return false;
      CVelmarMarketData& r = record(1, m.SecurityID, 1);
      if (!write) return true;
      r.SecurityType = 1;
      r.LastPrice = scaled(m.LastPx, o::LastPxDiv);
      r.PreClosePrice = scaled(m.PreClosePx, o::PreClosePxDiv);
      r.OpenPrice = scaled(m.OpenPx, o::OpenPxDiv);
      r.HighPrice = scaled(m.HighPx, o::HighPxDiv);
      r.LowPrice = scaled(m.LowPx, o::LowPxDiv);
      r.UpdateTime = m.DataTimeStamp;
      r.TotalVolume = shares(m.TotalVolumeTrade, o::TotalVolumeTradeDiv);
      r.TotalValue = scaled(m.TotalValueTrade, o::TotalValueTradeDiv);
      r.AvgPrice = r.TotalVolume == 0 ? 0.0 : r.TotalValue / static_cast<double>(r.TotalVolume);
      r.NumTrades = m.NumTrades;
      copyCode(r.TradingPhaseCode, m.TradingPhaseCode);
      r.TotalBidVolume = shares(m.TotalBidQty, o::TotalBidQtyDiv);
      r.TotalAskVolume = shares(m.TotalOfferQty, o::TotalOfferQtyDiv);
      r.WeightedAvgBidPrice = scaled(m.WeightedAvgBidPx, o::WeightedAvgBidPxDiv);
      r.WeightedAvgAskPrice = scaled(m.WeightedAvgOfferPx, o::WeightedAvgOfferPxDiv);
      r.AltWeightedAvgBidPrice = scaled(m.AltWeightedAvgBidPx, o::AltWeightedAvgBidPxDiv);
      r.AltWeightedAvgAskPrice = scaled(m.AltWeightedAvgOfferPx, o::AltWeightedAvgOfferPxDiv);
      r.YieldToMaturity = scaled(m.YieldToMaturity, o::YieldToMaturityDiv);
      r.IOPV = scaled(m.IOPV, o::IOPVDiv);
      r.EtfBuyNumber = m.EtfBuyNumber;
      r.EtfSellNumber = m.EtfSellNumber;
      r.EtfBuyAmount = static_cast<double>(m.EtfBuyAmount);
      r.EtfSellAmount = static_cast<double>(m.EtfSellAmount);
      r.EtfBuyMoney = scaled(m.EtfBuyMoney, o::EtfBuyMoneyDiv);
      r.EtfSellMoney = scaled(m.EtfSellMoney, o::EtfSellMoneyDiv);
      r.WithdrawBuyNumber = m.WithdrawBuyNumber;
      r.WithdrawSellNumber = m.WithdrawSellNumber;
      r.WithdrawBuyAmount = static_cast<double>(m.WithdrawBuyAmount);
      r.WithdrawSellAmount = static_cast<double>(m.WithdrawSellAmount);
      r.WithdrawBuyMoney = scaled(m.WithdrawBuyMoney, o::WithdrawBuyMoneyDiv);
      r.WithdrawSellMoney = scaled(m.WithdrawSellMoney, o::WithdrawSellMoneyDiv);
      r.TotalBidNumber = m.TotalBidNumber;
      r.TotalOfferNumber = m.TotalOfferNumber;
      r.BidTradeMaxDuration = m.BidTradeMaxDuration;
      r.OfferTradeMaxDuration = m.OfferTradeMaxDuration;
      r.NumBidOrders = m.NumBidOrders;
      r.NumOfferOrders = m.NumOfferOrders;
      // Shanghai's queues count whole shares.
      writeBook(r, m, o::BidPxDiv, o::BidQtyDiv, o::OfferPxDiv, o::OfferQtyDiv, 1);
      return true;
    }
    case feed::kSseIndex: {
      namespace o = feed::sse_index;
      SseIndexMsg m;
      if (!decode(data, length, &m)) return false;
      CVelmarMarketData& r = record(1, m.SecurityID, 2);
      if (!write) return true;
      // Shanghai index values of 0 mean "not given".
      r.SecurityType = 2;
      r.UpdateTime = m.DataTimeStamp;
      if (m.TotalVolumeTraded != 0)
        r.TotalVolume = shares(m.TotalVolumeTraded, o::TotalVolumeTradedDiv);
      if (m.Turnover != 0) r.TotalValue = scaled(m.Turnover, o::TurnoverDiv);
      if (m.LastIndex != 0) r.LastPrice = scaled(m.LastIndex, o::LastIndexDiv);
      if (m.PreCloseIndex != 0) r.PreClosePrice = scaled(m.PreCloseIndex, o::PreCloseIndexDiv);
      if (m.OpenIndex != 0) r.OpenPrice = scaled(m.OpenIndex, o::OpenIndexDiv);
      if (m.HighIndex != 0) r.HighPrice = scaled(m.HighIndex, o::HighIndexDiv);
      if (m.LowIndex != 0) r.LowPrice = scaled(m.LowIndex, o::LowIndexDiv);
      if (m.CloseIndex != 0) r.ClosePrice = scaled(m.CloseIndex, o::CloseIndexDiv);
      return true;
    }
    case feed::kSzseIndex: {
      namespace o = feed::szse_index;
      SzseIndexMsg m;
      if (!decode(data, length, &m)) return false;
      CVelmarMarketData& r = record(2, m.SecurityID, 2);
      if (!write) return true;
      r.SecurityType = 2;
      r.UpdateTime = m.OrigTime;
      r.TotalVolume = shares(m.TotalVolumeTrade, o::TotalVolumeTradeDiv);
      r.TotalValue = scaled(m.TotalValueTrade, o::TotalValueTradeDiv);
      r.LastPrice = scaled(m.LastIndex, o::LastIndexDiv);
      r.PreClosePrice = scaled(m.PreCloseIndex, o::PreCloseIndexDiv);
      r.OpenPrice = scaled(m.OpenIndex, o::OpenIndexDiv);
      r.HighPrice = scaled(m.HighIndex, o::HighIndexDiv);
      r.LowPrice = scaled(m.LowIndex, o::LowIndexDiv);
      r.NumTrades = m.NumTrades;
      copyCode(r.TradingPhaseCode, m.TradingPhaseCode);
      return true;
    }
    case feed::kSzseVolumeStat: {
      namespace o = feed::szse_volume_stat;
      SzseVolumeStatMsg m;
      if (!decode(data, length, &m)) return false;
      CVelmarMarketData& r = record(2, m.SecurityID, 1);
      if (!write) return true;
      r.UpdateTime = m.OrigTime;
      r.TotalVolume = shares(m.TotalVolumeTrade, o::TotalVolumeTradeDiv);
      r.TotalValue = scaled(m.TotalValueTrade, o::TotalValueTradeDiv);
      r.PreClosePrice = scaled(m.PrevClosePx, o::PrevClosePxDiv);
      r.NumTrades = m.NumTrades;
      copyCode(r.TradingPhaseCode, m.TradingPhaseCode);
      return true;
    }
    case feed::kSzseOrder: {
      SzseOrderMsg m;
      if (!decode(data, length, &m)) return false;
      record(2, m.SecurityID, 1);
      return true;
    }
    case feed::kSzseTrade: {
      SzseTradeMsg m;
      if (!decode(data, length, &m)) return false;
      record(2, m.SecurityID, 1);
      return true;
    }
    case feed::kSseTrade: {
      SseTradeMsg m;
      if (!decode(data, length, &m)) return false;
      record(1, m.SecurityID, 1);
      return true;
    }
    default:
      return false;
  }
}

std::vector<std::string> FeedRecords::instruments(uint32_t exchange) const {
  std::vector<std::string> ids;
  for (const auto& key : order_) {
    if (key.first == exchange) ids.push_back(key.second);
  }
  return ids;
}

const CVelmarMarketData* FeedRecords::find(const std::string& id, uint32_t exchange) const {
  auto it = records_.find(std::make_pair(exchange, id));
  return it == records_.end() ? nullptr : &it->second;
}

std::vector<CVelmarMarketData> FeedRecords::records() const {
  std::vector<CVelmarMarketData> out;
  for (const auto& key : order_) out.push_back(records_.at(key));
  return out;
}

// --- True book text ------------------------------------------------------------

std::string trueBookText(const TrueBook& b) {
  std::string out = "vlmd-true-book 1\n";
  char line[192];
  std::snprintf(line, sizeof line,
                "id %s exchange %u time %lld last %.2f volume %lld trades %lld\n", b.id.c_str(),
                static_cast<unsigned>(b.exchange), static_cast<long long>(b.updateTime),
                fenToYuan(b.lastPrice), static_cast<long long>(b.volume),
                static_cast<long long>(b.numTrades));
  out += line;
  auto side = [&](const char* name, const std::array<BookLevel, kBookLevels>& levels) {
    for (size_t i = 0; i < kBookLevels && levels[i].price != 0; ++i) {
      std::snprintf(line, sizeof line, "%s %zu %.2f %lld %zu\n", name, i + 1,
                    fenToYuan(levels[i].price), static_cast<long long>(levels[i].qty),
                    levels[i].orders.size());
      out += line;
    }
  };
  side("bid", b.bids);
  side("ask", b.asks);
  return out;
}

bool replaceFile(const std::string& path, const std::string& text, std::string* error) {
  const std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    if (!out) {
      if (error) *error = "cannot write " + temporary;
      return false;
    }
  }
  std::error_code ec;
  std::filesystem::rename(temporary, path, ec);
  if (ec) {
    if (error) *error = "cannot replace " + path + ": " + ec.message();
    return false;
  }
  return true;
}

}  // namespace sim
}  // namespace velmar
