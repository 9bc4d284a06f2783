// The feed's eight messages as plain structs of raw field values, and their
// encoding into datagrams. Every number is the integer that stands on the
// wire: prices and quantities are already scaled, with the scale noted at the
// field. Text fields are written NUL-padded into their fixed width;
// SecurityID may hold at most 7 characters, so that its NUL always falls
// inside the 8 bytes. Bytes that a layout has but that no field names are
// written as zero.
//
// A raw value is the real value times the field's divisor, which stands
// beside the field's offset in VLClientApi/FeedMessages.h (sim/Rescale.h
// turns counts into raw values).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "VLClientApi/FeedMessages.h"

namespace velmar {
namespace sim {

using Bytes = std::vector<uint8_t>;

/// Message types (bytes 0..3 of every datagram) and layouts are the
/// library's, in VLClientApi/FeedMessages.h.
namespace feed = mdapi::feed;

struct SseTradeMsg {       // 3201
  int32_t TradeIndex = 0;  // per TradeChannel
  uint32_t TradeChannel = 0;
  std::string SecurityID;
  uint32_t TradeTime = 0;
  uint32_t TradePrice = 0;  // x1000
  uint64_t TradeQty = 0;    // shares x1000
  uint64_t TradeMoney = 0;  // yuan x100000
  uint64_t TradeBuyNo = 0;
  uint64_t TradeSellNo = 0;
  char TradeBSFlag = 'N';  // 'B' buyer aggressed, 'S' seller aggressed
};

struct SzseOrderMsg {  // 300192
  uint16_t ChannelNo = 0;
  int64_t ApplSeqNum = 0;
  std::string MDStreamID = "011";
  std::string SecurityID;
  std::string SecurityIDSource = "102";
  uint64_t Price = 0;     // x10000
  uint64_t OrderQty = 0;  // shares x100
  char Side = '1';        // '1' buy, '2' sell
  int64_t OrderTime = 0;  // YYYYMMDDHHMMSSmmm
  char OrdType = '2';     // '2' limit
};

struct SzseTradeMsg {  // 300191
  uint16_t ChannelNo = 0;
  int64_t ApplSeqNum = 0;
  std::string MDStreamID = "011";
  int64_t BidApplSeqNum = 0;
  int64_t OfferApplSeqNum = 0;
  std::string SecurityID;
  std::string SecurityIDSource = "102";
  uint64_t LastPx = 0;   // x10000; 0 for a cancellation
  uint64_t LastQty = 0;  // shares x100
  char ExecType = 'F';   // 'F' execution, '4' cancellation
  int64_t TransactTime = 0;
};

struct SseSnapshotMsg {  // 3202
  uint32_t DataTimeStamp = 0;
  std::string SecurityID;
  uint32_t PreClosePx = 0;  // x1000, as all prices of this message
  uint32_t OpenPx = 0;
  uint32_t HighPx = 0;
  uint32_t LowPx = 0;
  uint32_t LastPx = 0;
  std::string TradingPhaseCode;  // up to 8 bytes
  uint32_t NumTrades = 0;
  uint64_t TotalVolumeTrade = 0;  // shares x1000, as all quantities
  uint64_t TotalValueTrade = 0;   // yuan x100000
  uint64_t TotalBidQty = 0;
  uint32_t WeightedAvgBidPx = 0;
  uint32_t AltWeightedAvgBidPx = 0;
  uint64_t TotalOfferQty = 0;
  uint32_t WeightedAvgOfferPx = 0;
  uint32_t AltWeightedAvgOfferPx = 0;
  uint32_t IOPV = 0;
  uint32_t EtfBuyNumber = 0;
  uint64_t EtfBuyAmount = 0;  // unscaled
  uint32_t EtfBuyMoney = 0;   // x1000
  uint32_t EtfSellNumber = 0;
  uint64_t EtfSellAmount = 0;
  uint32_t EtfSellMoney = 0;
  uint32_t YieldToMaturity = 0;
  uint32_t WithdrawBuyNumber = 0;
  uint64_t WithdrawBuyAmount = 0;  // shares, unscaled
  uint32_t WithdrawBuyMoney = 0;   // yuan x1000
  uint32_t WithdrawSellNumber = 0;
  uint64_t WithdrawSellAmount = 0;
  uint32_t WithdrawSellMoney = 0;
  uint32_t TotalBidNumber = 0;
  uint32_t TotalOfferNumber = 0;
  uint32_t BidTradeMaxDuration = 0;
  uint32_t OfferTradeMaxDuration = 0;
  uint32_t NumBidOrders = 0;  // number of bid price levels
  uint32_t NumOfferOrders = 0;
  std::array<uint32_t, 10> BidPx{};
  std::array<uint64_t, 10> BidQty{};
  std::array<uint32_t, 10> OfferPx{};
  std::array<uint64_t, 10> OfferQty{};
  uint32_t BestBidNumOrders = 0;
  uint32_t BestOfferNumOrders = 0;
  /// Single-order quantities at the best levels, in shares (no scale). The
  /// counts on the wire are the sizes; the offer queue follows the bid queue.
  std::vector<uint32_t> BidQueue;
  std::vector<uint32_t> OfferQueue;
};

struct SseIndexMsg {  // 3113
  uint32_t DataTimeStamp = 0;
  std::string SecurityID;
  uint64_t PreCloseIndex = 0;  // x100000, as all index values
  uint64_t OpenIndex = 0;
  uint64_t Turnover = 0;  // yuan x10
  uint64_t HighIndex = 0;
  uint64_t LowIndex = 0;
  uint64_t LastIndex = 0;
  uint64_t TotalVolumeTraded = 0;  // shares x1000
  uint64_t CloseIndex = 0;
};

struct SzseSnapshotMsg {  // 300111
  int64_t OrigTime = 0;
  uint16_t ChannelNo = 0;
  std::string MDStreamID = "010";
  std::string SecurityID;
  std::string SecurityIDSource = "102";
  std::string TradingPhaseCode;
  uint32_t PrevClosePx = 0;  // x10000 (receivers don't read it)
  int64_t NumTrades = 0;
  uint64_t TotalVolumeTrade = 0;  // shares x100, as all quantities
  uint64_t TotalValueTrade = 0;   // yuan x10000
  uint32_t LastPx = 0;            // x1000000, as all prices
  uint32_t OpenPx = 0;
  uint32_t HighPx = 0;
  uint32_t LowPx = 0;
  uint32_t AvgPx = 0;
  uint32_t UpperLimitPx = 0;
  uint32_t LowerLimitPx = 0;
  uint64_t TotalBidQty = 0;
  uint64_t TotalOfferQty = 0;
  uint32_t WeightedAvgBidPx = 0;
  uint32_t WeightedAvgOfferPx = 0;
  uint32_t IOPV = 0;
  std::array<uint32_t, 10> BidPx{};
  std::array<uint64_t, 10> BidQty{};
  std::array<uint32_t, 10> OfferPx{};
  std::array<uint64_t, 10> OfferQty{};
  uint32_t BestBidNumOrders = 0;
  uint32_t BestOfferNumOrders = 0;
  /// Single-order quantities at the best levels, shares x100.
  std::vector<uint32_t> BidQueue;
  std::vector<uint32_t> OfferQueue;
};

struct SzseIndexMsg {  // 309011
  int64_t OrigTime = 0;
  uint16_t ChannelNo = 0;
  std::string MDStreamID = "900";
  std::string SecurityID;
  std::string SecurityIDSource = "102";
  std::string TradingPhaseCode;
  int64_t NumTrades = 0;
  uint64_t TotalVolumeTrade = 0;  // shares x100
  uint64_t TotalValueTrade = 0;   // yuan x10000
  uint64_t LastIndex = 0;         // x1000000, as all index values
  uint64_t PreCloseIndex = 0;
  uint64_t OpenIndex = 0;
  uint64_t HighIndex = 0;
  uint64_t LowIndex = 0;
};

struct SzseVolumeStatMsg {  // 309111
  int64_t OrigTime = 0;
  uint16_t ChannelNo = 0;
  std::string MDStreamID = "010";
  std::string SecurityID;
  std::string SecurityIDSource = "102";
  std::string TradingPhaseCode;
  uint64_t PrevClosePx = 0;  // x10000
  int64_t NumTrades = 0;
  uint64_t TotalVolumeTrade = 0;  // shares x100
  uint64_t TotalValueTrade = 0;   // yuan x10000
};

/// Each returns the whole datagram, type included. A SecurityID longer than 7
/// characters, another text longer than its field, or a queue longer than its
/// count can express (65535 Shanghai, 255 Shenzhen) throws
/// std::invalid_argument.
Bytes encode(const SseTradeMsg& m);
Bytes encode(const SseSnapshotMsg& m);
Bytes encode(const SseIndexMsg& m);
Bytes encode(const SzseOrderMsg& m);
Bytes encode(const SzseTradeMsg& m);
Bytes encode(const SzseSnapshotMsg& m);
Bytes encode(const SzseIndexMsg& m);
Bytes encode(const SzseVolumeStatMsg& m);

/// The type in bytes 0..3, or 0 for fewer than 4 bytes.
uint32_t messageType(const uint8_t* data, size_t length);
inline uint32_t messageType(const Bytes& b) {
  return messageType(b.data(), b.size());
}

/// The reverse of encode, for tools that show or check a feed. Each returns
/// false, leaving `out` partly filled, if the type differs or the datagram is
/// shorter than its layout. Text is read up to its first NUL.
bool decode(const uint8_t* data, size_t length, SseTradeMsg* out);
bool decode(const uint8_t* data, size_t length, SseSnapshotMsg* out);
bool decode(const uint8_t* data, size_t length, SseIndexMsg* out);
bool decode(const uint8_t* data, size_t length, SzseOrderMsg* out);
bool decode(const uint8_t* data, size_t length, SzseTradeMsg* out);
bool decode(const uint8_t* data, size_t length, SzseSnapshotMsg* out);
bool decode(const uint8_t* data, size_t length, SzseIndexMsg* out);
bool decode(const uint8_t* data, size_t length, SzseVolumeStatMsg* out);

template <typename Msg>
bool decode(const Bytes& b, Msg* out) {
  return decode(b.data(), b.size(), out);
}

}  // namespace sim
}  // namespace velmar
