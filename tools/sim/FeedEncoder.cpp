#include "sim/FeedEncoder.h"

#include <cstring>
#include <stdexcept>

#include "utility/ByteOrder.h"

namespace velmar {
namespace sim {

namespace {

constexpr size_t kSecurityIdWidth = 8;
constexpr size_t kPhaseWidth = 8;

// Each message's fields are listed once, in its layout's `fields` template
// over an "io" object: the writer stores the values, the reader loads them,
// so that encoding and decoding can't drift apart. Offsets are relative to
// `base_` (4 for Shenzhen bodies).
class Writer {
 public:
  Writer(Bytes* out, size_t base) : out_(out), base_(base) {}

  template <typename T>
  void field(size_t offset, const T& value) {
    utility::storeLE<T>(out_->data() + base_ + offset, value);
  }
  template <typename T, size_t N>
  void array(size_t offset, const std::array<T, N>& values) {
    for (size_t i = 0; i < N; ++i) field(offset + i * sizeof(T), values[i]);
  }
  /// Text NUL-padded to `width`; `maxLength` characters at most.
  void text(size_t offset, size_t width, const std::string& s, size_t maxLength) {
    if (s.size() > maxLength) {
      throw std::invalid_argument("text '" + s + "' longer than " + std::to_string(maxLength));
    }
    std::memset(out_->data() + base_ + offset, 0, width);
    std::memcpy(out_->data() + base_ + offset, s.data(), s.size());
  }

 private:
  Bytes* out_;
  size_t base_;
};

class Reader {
 public:
  Reader(const uint8_t* data, size_t base) : data_(data), base_(base) {}

  template <typename T>
  void field(size_t offset, T& value) {
    value = utility::loadLE<T>(data_ + base_ + offset);
  }
  template <typename T, size_t N>
  void array(size_t offset, std::array<T, N>& values) {
    for (size_t i = 0; i < N; ++i) field(offset + i * sizeof(T), values[i]);
  }
  void text(size_t offset, size_t width, std::string& s, size_t /*maxLength*/) {
    const char* p = reinterpret_cast<const char*>(data_ + base_ + offset);
    size_t n = 0;
    while (n < width && p[n] != '\0') ++n;
    s.assign(p, n);
  }

 private:
  const uint8_t* data_;
  size_t base_;
};

template <typename Io, typename S>
void securityId(Io& io, size_t offset, S& s) {
  io.text(offset, kSecurityIdWidth, s, kSecurityIdWidth - 1);
}

struct SseTradeLayout {
  static constexpr uint32_t kType = feed::kSseTrade;
  static constexpr size_t kSize = feed::sse_trade::Size;
  static constexpr size_t kBase = 0;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::sse_trade;
    io.field(o::TradeIndex, m.TradeIndex);
    io.field(o::TradeChannel, m.TradeChannel);
    securityId(io, o::SecurityID, m.SecurityID);
    io.field(o::TradeTime, m.TradeTime);
    io.field(o::TradePrice, m.TradePrice);
    io.field(o::TradeQty, m.TradeQty);
    io.field(o::TradeMoney, m.TradeMoney);
    io.field(o::TradeBuyNo, m.TradeBuyNo);
    io.field(o::TradeSellNo, m.TradeSellNo);
    io.field(o::TradeBSFlag, m.TradeBSFlag);
  }
};

struct SseSnapshotLayout {
  static constexpr uint32_t kType = feed::kSseSnapshot;
  static constexpr size_t kSize = feed::sse_snapshot::Size;
  static constexpr size_t kBase = 0;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::sse_snapshot;
    io.field(o::DataTimeStamp, m.DataTimeStamp);
    securityId(io, o::SecurityID, m.SecurityID);
    io.field(o::PreClosePx, m.PreClosePx);
    io.field(o::OpenPx, m.OpenPx);
    io.field(o::HighPx, m.HighPx);
    io.field(o::LowPx, m.LowPx);
    io.field(o::LastPx, m.LastPx);
    io.text(o::TradingPhaseCode, kPhaseWidth, m.TradingPhaseCode, kPhaseWidth);
    io.field(o::NumTrades, m.NumTrades);
    io.field(o::TotalVolumeTrade, m.TotalVolumeTrade);
    io.field(o::TotalValueTrade, m.TotalValueTrade);
    io.field(o::TotalBidQty, m.TotalBidQty);
    io.field(o::WeightedAvgBidPx, m.WeightedAvgBidPx);
    io.field(o::AltWeightedAvgBidPx, m.AltWeightedAvgBidPx);
    io.field(o::TotalOfferQty, m.TotalOfferQty);
    io.field(o::WeightedAvgOfferPx, m.WeightedAvgOfferPx);
    io.field(o::AltWeightedAvgOfferPx, m.AltWeightedAvgOfferPx);
    io.field(o::IOPV, m.IOPV);
    io.field(o::EtfBuyNumber, m.EtfBuyNumber);
    io.field(o::EtfBuyAmount, m.EtfBuyAmount);
    io.field(o::EtfBuyMoney, m.EtfBuyMoney);
    io.field(o::EtfSellNumber, m.EtfSellNumber);
    io.field(o::EtfSellAmount, m.EtfSellAmount);
    io.field(o::EtfSellMoney, m.EtfSellMoney);
    io.field(o::YieldToMaturity, m.YieldToMaturity);
    io.field(o::WithdrawBuyNumber, m.WithdrawBuyNumber);
    io.field(o::WithdrawBuyAmount, m.WithdrawBuyAmount);
    io.field(o::WithdrawBuyMoney, m.WithdrawBuyMoney);
    io.field(o::WithdrawSellNumber, m.WithdrawSellNumber);
    io.field(o::WithdrawSellAmount, m.WithdrawSellAmount);
    io.field(o::WithdrawSellMoney, m.WithdrawSellMoney);
    io.field(o::TotalBidNumber, m.TotalBidNumber);
    io.field(o::TotalOfferNumber, m.TotalOfferNumber);
    io.field(o::BidTradeMaxDuration, m.BidTradeMaxDuration);
    io.field(o::OfferTradeMaxDuration, m.OfferTradeMaxDuration);
    io.field(o::NumBidOrders, m.NumBidOrders);
    io.field(o::NumOfferOrders, m.NumOfferOrders);
    io.array(o::BidPx, m.BidPx);
    io.array(o::BidQty, m.BidQty);
    io.array(o::OfferPx, m.OfferPx);
    io.array(o::OfferQty, m.OfferQty);
    io.field(o::BestBidNumOrders, m.BestBidNumOrders);
    io.field(o::BestOfferNumOrders, m.BestOfferNumOrders);
  }
};

struct SseIndexLayout {
  static constexpr uint32_t kType = feed::kSseIndex;
  static constexpr size_t kSize = feed::sse_index::Size;
  static constexpr size_t kBase = 0;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::sse_index;
    io.field(o::DataTimeStamp, m.DataTimeStamp);
    securityId(io, o::SecurityID, m.SecurityID);
    io.field(o::PreCloseIndex, m.PreCloseIndex);
    io.field(o::OpenIndex, m.OpenIndex);
    io.field(o::Turnover, m.Turnover);
    io.field(o::HighIndex, m.HighIndex);
    io.field(o::LowIndex, m.LowIndex);
    io.field(o::LastIndex, m.LastIndex);
    io.field(o::TotalVolumeTraded, m.TotalVolumeTraded);
    io.field(o::CloseIndex, m.CloseIndex);
  }
};

struct SzseOrderLayout {
  static constexpr uint32_t kType = feed::kSzseOrder;
  static constexpr size_t kSize = feed::kBodyOffset + feed::szse_order::Size;
  static constexpr size_t kBase = feed::kBodyOffset;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::szse_order;
    io.field(o::ChannelNo, m.ChannelNo);
    io.field(o::ApplSeqNum, m.ApplSeqNum);
    io.text(o::MDStreamID, 3, m.MDStreamID, 3);
    securityId(io, o::SecurityID, m.SecurityID);
    io.text(o::SecurityIDSource, 4, m.SecurityIDSource, 4);
    io.field(o::Price, m.Price);
    io.field(o::OrderQty, m.OrderQty);
    io.field(o::Side, m.Side);
    io.field(o::OrderTime, m.OrderTime);
    io.field(o::OrdType, m.OrdType);
  }
};

struct SzseTradeLayout {
  static constexpr uint32_t kType = feed::kSzseTrade;
  static constexpr size_t kSize = feed::kBodyOffset + feed::szse_trade::Size;
  static constexpr size_t kBase = feed::kBodyOffset;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::szse_trade;
    io.field(o::ChannelNo, m.ChannelNo);
    io.field(o::ApplSeqNum, m.ApplSeqNum);
    io.text(o::MDStreamID, 3, m.MDStreamID, 3);
    io.field(o::BidApplSeqNum, m.BidApplSeqNum);
    io.field(o::OfferApplSeqNum, m.OfferApplSeqNum);
    securityId(io, o::SecurityID, m.SecurityID);
    io.text(o::SecurityIDSource, 4, m.SecurityIDSource, 4);
    io.field(o::LastPx, m.LastPx);
    io.field(o::LastQty, m.LastQty);
    io.field(o::ExecType, m.ExecType);
    io.field(o::TransactTime, m.TransactTime);
  }
};

// OrigTime, ChannelNo, MDStreamID, SecurityID, SecurityIDSource and
// TradingPhaseCode stand at the same places in the three Shenzhen snapshots.
template <typename Io, typename M>
void szseHeaderFields(Io& io, M& m) {
  namespace o = feed::szse_snapshot;
  io.field(o::OrigTime, m.OrigTime);
  io.field(o::ChannelNo, m.ChannelNo);
  io.text(o::MDStreamID, 3, m.MDStreamID, 3);
  securityId(io, o::SecurityID, m.SecurityID);
  io.text(o::SecurityIDSource, 4, m.SecurityIDSource, 4);
  io.text(o::TradingPhaseCode, kPhaseWidth, m.TradingPhaseCode, kPhaseWidth);
}

struct SzseSnapshotLayout {
  static constexpr uint32_t kType = feed::kSzseSnapshot;
  static constexpr size_t kSize = feed::kBodyOffset + feed::szse_snapshot::Size;
  static constexpr size_t kBase = feed::kBodyOffset;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::szse_snapshot;
    szseHeaderFields(io, m);
    io.field(o::PrevClosePx, m.PrevClosePx);
    io.field(o::NumTrades, m.NumTrades);
    io.field(o::TotalVolumeTrade, m.TotalVolumeTrade);
    io.field(o::TotalValueTrade, m.TotalValueTrade);
    io.field(o::LastPx, m.LastPx);
    io.field(o::OpenPx, m.OpenPx);
    io.field(o::HighPx, m.HighPx);
    io.field(o::LowPx, m.LowPx);
    io.field(o::AvgPx, m.AvgPx);
    io.field(o::UpperLimitPx, m.UpperLimitPx);
    io.field(o::LowerLimitPx, m.LowerLimitPx);
    io.field(o::TotalBidQty, m.TotalBidQty);
    io.field(o::TotalOfferQty, m.TotalOfferQty);
    io.field(o::WeightedAvgBidPx, m.WeightedAvgBidPx);
    io.field(o::WeightedAvgOfferPx, m.WeightedAvgOfferPx);
    io.field(o::IOPV, m.IOPV);
    io.array(o::BidPx, m.BidPx);
    io.array(o::BidQty, m.BidQty);
    io.array(o::OfferPx, m.OfferPx);
    io.array(o::OfferQty, m.OfferQty);
    io.field(o::BestBidNumOrders, m.BestBidNumOrders);
    io.field(o::BestOfferNumOrders, m.BestOfferNumOrders);
  }
};

struct SzseIndexLayout {
  static constexpr uint32_t kType = feed::kSzseIndex;
  static constexpr size_t kSize = feed::kBodyOffset + feed::szse_index::Size;
  static constexpr size_t kBase = feed::kBodyOffset;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::szse_index;
    szseHeaderFields(io, m);
    io.field(o::NumTrades, m.NumTrades);
    io.field(o::TotalVolumeTrade, m.TotalVolumeTrade);
    io.field(o::TotalValueTrade, m.TotalValueTrade);
    io.field(o::LastIndex, m.LastIndex);
    io.field(o::PreCloseIndex, m.PreCloseIndex);
    io.field(o::OpenIndex, m.OpenIndex);
    io.field(o::HighIndex, m.HighIndex);
    io.field(o::LowIndex, m.LowIndex);
  }
};

struct SzseVolumeStatLayout {
  static constexpr uint32_t kType = feed::kSzseVolumeStat;
  static constexpr size_t kSize = feed::kBodyOffset + feed::szse_volume_stat::Size;
  static constexpr size_t kBase = feed::kBodyOffset;
  template <typename Io, typename M>
  static void fields(Io& io, M& m) {
    namespace o = feed::szse_volume_stat;
    szseHeaderFields(io, m);
    io.field(o::PrevClosePx, m.PrevClosePx);
    io.field(o::NumTrades, m.NumTrades);
    io.field(o::TotalVolumeTrade, m.TotalVolumeTrade);
    io.field(o::TotalValueTrade, m.TotalValueTrade);
  }
};

template <typename Layout, typename M>
Bytes encodeWith(const M& m, size_t queueEntries = 0) {
  Bytes b(Layout::kSize + 4 * queueEntries, 0);
  utility::storeLE<uint32_t>(b.data(), Layout::kType);
  Writer w(&b, Layout::kBase);
  Layout::fields(w, m);
  return b;
}

template <typename Layout, typename M>
bool decodeWith(const uint8_t* data, size_t length, M* out) {
  if (length < Layout::kSize || messageType(data, length) != Layout::kType) return false;
  Reader r(data, Layout::kBase);
  Layout::fields(r, *out);
  return true;
}

// The two queues of a ten-level snapshot stand one behind the other at
// `queueOffset`, each entry a u32; their counts are at `countOffset` (bid)
// and directly behind it (offer).
template <typename Count>
void writeQueues(Bytes* b, size_t base, size_t countOffset, size_t queueOffset,
                 const std::vector<uint32_t>& bid, const std::vector<uint32_t>& offer) {
  constexpr size_t kMax = static_cast<Count>(~Count(0));
  if (bid.size() > kMax || offer.size() > kMax) {
    throw std::invalid_argument("queue longer than its count can hold");
  }
  uint8_t* p = b->data() + base;
  utility::storeLE<Count>(p + countOffset, static_cast<Count>(bid.size()));
  utility::storeLE<Count>(p + countOffset + sizeof(Count), static_cast<Count>(offer.size()));
  uint8_t* q = p + queueOffset;
  for (uint32_t v : bid) {
    utility::storeLE<uint32_t>(q, v);
    q += 4;
  }
  for (uint32_t v : offer) {
    utility::storeLE<uint32_t>(q, v);
    q += 4;
  }
}

template <typename Count>
bool readQueues(const uint8_t* data, size_t length, size_t base, size_t countOffset,
                size_t queueOffset, std::vector<uint32_t>* bid, std::vector<uint32_t>* offer) {
  const uint8_t* p = data + base;
  size_t nb = utility::loadLE<Count>(p + countOffset);
  size_t no = utility::loadLE<Count>(p + countOffset + sizeof(Count));
  if (length < base + queueOffset + 4 * (nb + no)) return false;
  const uint8_t* q = p + queueOffset;
  bid->resize(nb);
  offer->resize(no);
  for (size_t i = 0; i < nb; ++i, q += 4) (*bid)[i] = utility::loadLE<uint32_t>(q);
  for (size_t i = 0; i < no; ++i, q += 4) (*offer)[i] = utility::loadLE<uint32_t>(q);
  return true;
}

}  // namespace

Bytes encode(const SseTradeMsg& m) {
  return encodeWith<SseTradeLayout>(m);
}
Bytes encode(const SseIndexMsg& m) {
  return encodeWith<SseIndexLayout>(m);
}
Bytes encode(const SzseOrderMsg& m) {
  return encodeWith<SzseOrderLayout>(m);
}
Bytes encode(const SzseTradeMsg& m) {
  return encodeWith<SzseTradeLayout>(m);
}
Bytes encode(const SzseIndexMsg& m) {
  return encodeWith<SzseIndexLayout>(m);
}
Bytes encode(const SzseVolumeStatMsg& m) {
  return encodeWith<SzseVolumeStatLayout>(m);
}

Bytes encode(const SseSnapshotMsg& m) {
  Bytes b = encodeWith<SseSnapshotLayout>(m, m.BidQueue.size() + m.OfferQueue.size());
  writeQueues<uint16_t>(&b, 0, feed::sse_snapshot::BestBidQueueCount, feed::sse_snapshot::QueueQty,
                        m.BidQueue, m.OfferQueue);
  return b;
}

Bytes encode(const SzseSnapshotMsg& m) {
  Bytes b = encodeWith<SzseSnapshotLayout>(m, m.BidQueue.size() + m.OfferQueue.size());
  writeQueues<uint8_t>(&b, feed::kBodyOffset, feed::szse_snapshot::BestBidQueueCount,
                       feed::szse_snapshot::QueueQty, m.BidQueue, m.OfferQueue);
  return b;
}

uint32_t messageType(const uint8_t* data, size_t length) {
  return length < 4 ? 0 : utility::loadLE<uint32_t>(data);
}

bool decode(const uint8_t* d, size_t n, SseTradeMsg* out) {
  return decodeWith<SseTradeLayout>(d, n, out);
}
bool decode(const uint8_t* d, size_t n, SseIndexMsg* out) {
  return decodeWith<SseIndexLayout>(d, n, out);
}
bool decode(const uint8_t* d, size_t n, SzseOrderMsg* out) {
  return decodeWith<SzseOrderLayout>(d, n, out);
}
bool decode(const uint8_t* d, size_t n, SzseTradeMsg* out) {
  return decodeWith<SzseTradeLayout>(d, n, out);
}
bool decode(const uint8_t* d, size_t n, SzseIndexMsg* out) {
  return decodeWith<SzseIndexLayout>(d, n, out);
}
bool decode(const uint8_t* d, size_t n, SzseVolumeStatMsg* out) {
  return decodeWith<SzseVolumeStatLayout>(d, n, out);
}

bool decode(const uint8_t* d, size_t n, SseSnapshotMsg* out) {
  return decodeWith<SseSnapshotLayout>(d, n, out) &&
         readQueues<uint16_t>(d, n, 0, feed::sse_snapshot::BestBidQueueCount,
                              feed::sse_snapshot::QueueQty, &out->BidQueue, &out->OfferQueue);
}

bool decode(const uint8_t* d, size_t n, SzseSnapshotMsg* out) {
  return decodeWith<SzseSnapshotLayout>(d, n, out) &&
         readQueues<uint8_t>(d, n, feed::kBodyOffset, feed::szse_snapshot::BestBidQueueCount,
                             feed::szse_snapshot::QueueQty, &out->BidQueue, &out->OfferQueue);
}

}  // namespace sim
}  // namespace velmar
