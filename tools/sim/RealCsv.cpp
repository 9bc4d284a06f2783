#include "sim/RealCsv.h"

#include <algorithm>
#include <fstream>

#include "sim/FeedEncoder.h"
#include "sim/Rescale.h"

namespace velmar {
namespace sim {

namespace {

using Fields = std::vector<std::string>;

struct Line {
  Fields f;
  int64_t number;
};

// Column positions.
constexpr size_t kCode = 0, kId = 1, kDate = 2, kTime = 3;
constexpr size_t kOrderNo = 5, kOrderType = 6, kOrderSide = 7, kOrderPrice = 8, kOrderQty = 9;
constexpr size_t kTradeNo = 4, kTradeKind = 5, kTradeFlag = 7, kTradePrice = 8, kTradeQty = 9,
                 kTradeSellNo = 10, kTradeBuyNo = 11;
constexpr size_t kLast = 4, kNumTrades = 7, kVolume = 11, kValue = 12, kHigh = 13, kLow = 14,
                 kOpen = 15, kPreClose = 16, kAskPx = 17, kAskQty = 27, kBidPx = 37, kBidQty = 47,
                 kAvgAskPx = 57, kAvgBidPx = 58, kTotalAskQty = 59, kTotalBidQty = 60;

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

bool readCsv(const std::string& path, size_t minFields, std::vector<Line>* lines,
             std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  std::string text;
  int64_t number = 0;
  while (std::getline(in, text)) {
    if (++number == 1) continue;  // header
    if (trim(text).empty()) continue;
    Line line{{}, number};
    size_t start = 0;
    for (;;) {
      size_t comma = text.find(',', start);
      line.f.push_back(trim(text.substr(start, comma - start)));
      if (comma == std::string::npos) break;
      start = comma + 1;
    }
    if (line.f.size() < minFields) {
      *error = path + ":" + std::to_string(number) + ": " + std::to_string(line.f.size()) +
               " fields, " + std::to_string(minFields) + " expected";
      return false;
    }
    lines->push_back(std::move(line));
  }
  return true;
}

// Parses the decimal fields of one line; a blank counts as 0. Reports the
// first bad field.
class Numbers {
 public:
  Numbers(const std::string& path, const Line& line) : path_(path), line_(line) {}

  int64_t operator[](size_t column) {
    const std::string& s = line_.f[column];
    int64_t v = 0;
    for (char c : s) {
      if (c < '0' || c > '9' || v > 922337203685477579LL) {
        if (bad_.empty()) {
          bad_ = path_ + ":" + std::to_string(line_.number) + ": column " +
                 std::to_string(column + 1) + " '" + s + "' is not a number";
        }
        return 0;
      }
      v = v * 10 + (c - '0');
    }
    return v;
  }
  bool ok(std::string* error) const {
    if (!bad_.empty()) *error = bad_;
    return bad_.empty();
  }

 private:
  const std::string& path_;
  const Line& line_;
  std::string bad_;
};

int64_t msOfDay(int64_t hhmmssmmm) {
  return hhmmssmmm / 10000000 * 3600000 + hhmmssmmm / 100000 % 100 * 60000 +
         hhmmssmmm / 1000 % 100 * 1000 + hhmmssmmm % 1000;
}

// The vendor writes prices x10000, quantities in shares and money in yuan.
constexpr int64_t kVendorPricePerYuan = 10000;

int64_t price(int64_t vendor, double divisor) {
  return rescale(vendor, kVendorPricePerYuan, divisor);
}
int64_t whole(int64_t count, double divisor) {
  return rescale(count, 1, divisor);
}

uint32_t u32(int64_t v) {
  return static_cast<uint32_t>(std::max<int64_t>(0, v));
}
uint64_t u64(int64_t v) {
  return static_cast<uint64_t>(std::max<int64_t>(0, v));
}

/// The ten levels of a snapshot line, each array with its own field's divisor.
template <typename Msg>
void fillLevels(Msg* m, Numbers& n, double bidPxDiv, double bidQtyDiv, double offerPxDiv,
                double offerQtyDiv) {
  for (size_t i = 0; i < 10; ++i) {
    m->BidPx[i] = u32(price(n[kBidPx + i], bidPxDiv));
    m->BidQty[i] = u64(whole(n[kBidQty + i], bidQtyDiv));
    m->OfferPx[i] = u32(price(n[kAskPx + i], offerPxDiv));
    m->OfferQty[i] = u64(whole(n[kAskQty + i], offerQtyDiv));
  }
}

struct Item {
  int64_t order;  // ApplSeqNum or TradeIndex for ticks, time for snapshots
  int64_t timeMs;
  Bytes bytes;
};

bool convertTicks(const std::string& prefix, bool shenzhen, uint32_t channel, CsvSession* session,
                  std::vector<Item>* ticks, std::string* error) {
  std::vector<Line> lines;
  if (shenzhen) {
    std::string path = prefix + "-orders.csv";
    if (!readCsv(path, kOrderQty + 1, &lines, error)) return false;
    for (const Line& line : lines) {
      Numbers n(path, line);
      SzseOrderMsg m;
      m.ChannelNo = static_cast<uint16_t>(channel);
      m.ApplSeqNum = n[kOrderNo];
      m.SecurityID = line.f[kId];
      m.Price = u64(price(n[kOrderPrice], feed::szse_order::PriceDiv));
      m.OrderQty = u64(whole(n[kOrderQty], feed::szse_order::OrderQtyDiv));
      m.Side = line.f[kOrderSide] == "B" ? '1' : line.f[kOrderSide] == "S" ? '2' : '?';
      m.OrderTime = n[kDate] * 1000000000LL + n[kTime];
      // The vendor writes 0 for a limit order and 1 for a market order.
      const std::string& type = line.f[kOrderType];
      m.OrdType = type == "0" ? '2' : type == "1" ? '1' : type.empty() ? '2' : type[0];
      if (!n.ok(error)) return false;
      ticks->push_back(Item{m.ApplSeqNum, msOfDay(n[kTime]), encode(m)});
      ++session->orders;
    }
  }
  std::string path = prefix + "-trades.csv";
  lines.clear();
  if (!readCsv(path, kTradeBuyNo + 1, &lines, error)) return false;
  for (const Line& line : lines) {
    Numbers n(path, line);
    bool cancel = line.f[kTradeKind] == "C";
    if (shenzhen) {
      SzseTradeMsg m;
      m.ChannelNo = static_cast<uint16_t>(channel);
      m.ApplSeqNum = n[kTradeNo];
      m.BidApplSeqNum = n[kTradeBuyNo];
      m.OfferApplSeqNum = n[kTradeSellNo];
      m.SecurityID = line.f[kId];
      m.LastPx = u64(price(n[kTradePrice], feed::szse_trade::LastPxDiv));
      m.LastQty = u64(whole(n[kTradeQty], feed::szse_trade::LastQtyDiv));
      m.ExecType = cancel ? '4' : 'F';
      m.TransactTime = n[kDate] * 1000000000LL + n[kTime];
      if (!n.ok(error)) return false;
      ticks->push_back(Item{m.ApplSeqNum, msOfDay(n[kTime]), encode(m)});
    } else {
      SseTradeMsg m;
      m.TradeIndex = static_cast<int32_t>(n[kTradeNo]);
      m.TradeChannel = channel;
      m.SecurityID = line.f[kId];
      m.TradeTime = u32(n[kTime]);
      namespace f = feed::sse_trade;
      m.TradePrice = u32(price(n[kTradePrice], f::TradePriceDiv));
      m.TradeQty = u64(whole(n[kTradeQty], f::TradeQtyDiv));
      m.TradeMoney = u64(price(n[kTradePrice] * n[kTradeQty], f::TradeMoneyDiv));
      m.TradeBuyNo = u64(n[kTradeBuyNo]);
      m.TradeSellNo = u64(n[kTradeSellNo]);
      m.TradeBSFlag = line.f[kTradeFlag].empty() ? 'N' : line.f[kTradeFlag][0];
      if (!n.ok(error)) return false;
      ticks->push_back(Item{m.TradeIndex, msOfDay(n[kTime]), encode(m)});
    }
    ++(cancel ? session->cancellations : session->executions);
  }
  return true;
}

bool convertSnapshots(const std::string& prefix, bool shenzhen, uint32_t channel,
                      CsvSession* session, std::vector<Item>* snapshots, std::string* error) {
  std::string path = prefix + "-snapshots.csv";
  std::vector<Line> lines;
  if (!readCsv(path, kTotalBidQty + 1, &lines, error)) return false;
  for (const Line& line : lines) {
    Numbers n(path, line);
    int64_t volume = n[kVolume], value = n[kValue];
    Bytes bytes;
    if (shenzhen) {
      namespace f = feed::szse_snapshot;
      SzseSnapshotMsg m;
      m.OrigTime = n[kDate] * 1000000000LL + n[kTime];
      m.ChannelNo = static_cast<uint16_t>(channel);
      m.SecurityID = line.f[kId];
      m.PrevClosePx = u32(price(n[kPreClose], f::PrevClosePxDiv));
      m.NumTrades = n[kNumTrades];
      m.TotalVolumeTrade = u64(whole(volume, f::TotalVolumeTradeDiv));
      m.TotalValueTrade = u64(whole(value, f::TotalValueTradeDiv));
      m.LastPx = u32(price(n[kLast], f::LastPxDiv));
      m.OpenPx = u32(price(n[kOpen], f::OpenPxDiv));
      m.HighPx = u32(price(n[kHigh], f::HighPxDiv));
      m.LowPx = u32(price(n[kLow], f::LowPxDiv));
      m.AvgPx = volume > 0 ? u32(whole(value, f::AvgPxDiv) / volume) : 0;
      m.TotalBidQty = u64(whole(n[kTotalBidQty], f::TotalBidQtyDiv));
      m.TotalOfferQty = u64(whole(n[kTotalAskQty], f::TotalOfferQtyDiv));
      m.WeightedAvgBidPx = u32(price(n[kAvgBidPx], f::WeightedAvgBidPxDiv));
      m.WeightedAvgOfferPx = u32(price(n[kAvgAskPx], f::WeightedAvgOfferPxDiv));
      fillLevels(&m, n, f::BidPxDiv, f::BidQtyDiv, f::OfferPxDiv, f::OfferQtyDiv);
      bytes = encode(m);
    } else {
      namespace f = feed::sse_snapshot;
      SseSnapshotMsg m;
      m.DataTimeStamp = u32(n[kTime]);
      m.SecurityID = line.f[kId];
      m.PreClosePx = u32(price(n[kPreClose], f::PreClosePxDiv));
      m.OpenPx = u32(price(n[kOpen], f::OpenPxDiv));
      m.HighPx = u32(price(n[kHigh], f::HighPxDiv));
      m.LowPx = u32(price(n[kLow], f::LowPxDiv));
      m.LastPx = u32(price(n[kLast], f::LastPxDiv));
      m.NumTrades = u32(n[kNumTrades]);
      m.TotalVolumeTrade = u64(whole(volume, f::TotalVolumeTradeDiv));
      m.TotalValueTrade = u64(whole(value, f::TotalValueTradeDiv));
      m.TotalBidQty = u64(whole(n[kTotalBidQty], f::TotalBidQtyDiv));
      m.TotalOfferQty = u64(whole(n[kTotalAskQty], f::TotalOfferQtyDiv));
      m.WeightedAvgBidPx = u32(price(n[kAvgBidPx], f::WeightedAvgBidPxDiv));
      m.AltWeightedAvgBidPx = u32(price(n[kAvgBidPx], f::AltWeightedAvgBidPxDiv));
      m.WeightedAvgOfferPx = u32(price(n[kAvgAskPx], f::WeightedAvgOfferPxDiv));
      m.AltWeightedAvgOfferPx = u32(price(n[kAvgAskPx], f::AltWeightedAvgOfferPxDiv));
      fillLevels(&m, n, f::BidPxDiv, f::BidQtyDiv, f::OfferPxDiv, f::OfferQtyDiv);
      bytes = encode(m);
    }
    if (!n.ok(error)) return false;
    int64_t t = n[kTime];
    snapshots->push_back(Item{t, msOfDay(t), std::move(bytes)});
    ++session->snapshots;
  }
  return true;
}

}  // namespace

bool convertRealCsv(const std::string& prefix, uint32_t channel, CsvSession* session,
                    std::string* error) {
  *session = CsvSession();
  // The exchange and the id come from the first snapshot line.
  std::vector<Line> first;
  if (!readCsv(prefix + "-snapshots.csv", kId + 1, &first, error)) return false;
  if (first.empty()) {
    *error = prefix + "-snapshots.csv: no data";
    return false;
  }
  const std::string& code = first[0].f[kCode];
  if (code.size() < 3 || (code.compare(code.size() - 3, 3, ".SZ") != 0 &&
                          code.compare(code.size() - 3, 3, ".SH") != 0)) {
    *error = "code '" + code + "' has neither .SZ nor .SH";
    return false;
  }
  session->shenzhen = code.compare(code.size() - 3, 3, ".SZ") == 0;
  session->securityId = first[0].f[kId];
  if (session->shenzhen && channel > 65535) {
    *error = "Shenzhen channel numbers end at 65535";
    return false;
  }

  std::vector<Item> ticks, snapshots;
  try {
    if (!convertTicks(prefix, session->shenzhen, channel, session, &ticks, error) ||
        !convertSnapshots(prefix, session->shenzhen, channel, session, &snapshots, error)) {
      return false;
    }
  } catch (const std::invalid_argument& e) {  // an id too long for the feed
    *error = e.what();
    return false;
  }
  // Ticks in exchange order; each snapshot behind the ticks of its time.
  std::stable_sort(ticks.begin(), ticks.end(),
                   [](const Item& a, const Item& b) { return a.order < b.order; });
  std::stable_sort(snapshots.begin(), snapshots.end(),
                   [](const Item& a, const Item& b) { return a.timeMs < b.timeMs; });
  std::vector<Item*> merged;
  size_t t = 0, s = 0;
  while (t < ticks.size() || s < snapshots.size()) {
    bool tick =
        s == snapshots.size() || (t < ticks.size() && ticks[t].timeMs <= snapshots[s].timeMs);
    merged.push_back(tick ? &ticks[t++] : &snapshots[s++]);
  }
  // Times count from the first datagram and never go back, even where the
  // export's stamps do.
  int64_t start = merged.empty() ? 0 : merged[0]->timeMs, last = 0;
  for (Item* item : merged) {
    last = std::max(last, (item->timeMs - start) * 1000);
    session->datagrams.push_back(Datagram{last, std::move(item->bytes)});
  }
  return true;
}

}  // namespace sim
}  // namespace velmar
