// Layouts of the multicast feed's messages, as named byte offsets. Messages
// are packed (64-bit fields stand at odd offsets), so every field is read with
// an explicit little-endian load at its offset; nothing is cast to a struct.
//
// Shanghai offsets count from the start of the datagram. Shenzhen offsets
// count from the start of the body, the datagram's byte 4. Size is where a
// layout ends (for the ten-level snapshots, where their queues begin).
//
// A field with implied decimals has its divisor on the line after its offset,
// as <Field>Div: the real value is the raw unsigned integer divided by it in
// double precision (truncated toward zero where the result is a whole count).
// A field without a Div constant is used as it stands. The divisors differ
// between messages even for the same kind of value, so each handler takes
// them from its own message's layout and nowhere else; the feed encoders of
// the tools use the same constants to go the other way.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmar {
namespace mdapi {
namespace feed {

/// Size of the receive buffer; every handler reads within it.
constexpr size_t kReceiveSize = 5000;
/// Shenzhen bodies start behind the 4-byte message type.
constexpr size_t kBodyOffset = 4;

enum MsgType : uint32_t {
  kSseIndex = 3113,
  kSseTrade = 3201,
  kSseSnapshot = 3202,
  kSzseSnapshot = 300111,
  kSzseTrade = 300191,
  kSzseOrder = 300192,
  kSzseIndex = 309011,
  kSzseVolumeStat = 309111,
};

namespace sse_trade {  // SseTradeMsg, 3201, from the datagram start
constexpr size_t TradeIndex = 4;    // i32, signed
constexpr size_t TradeChannel = 8;  // u32
constexpr size_t SecurityID = 12;   // char[8]
constexpr size_t TradeTime = 20;    // u32
constexpr size_t TradePrice = 24;   // u32
constexpr double TradePriceDiv = 1000;
constexpr size_t TradeQty = 32;     // u64
constexpr double TradeQtyDiv = 1000;
constexpr size_t TradeMoney = 40;   // u64
constexpr double TradeMoneyDiv = 100000;
constexpr size_t TradeBuyNo = 48;   // u64
constexpr size_t TradeSellNo = 56;  // u64
constexpr size_t TradeBSFlag = 64;  // char
constexpr size_t Size = 65;
}  // namespace sse_trade

namespace szse_order {  // SzseOrderMsg, 300192, from the body start
constexpr size_t ChannelNo = 0;    // u16
constexpr size_t ApplSeqNum = 2;   // i64
constexpr size_t MDStreamID = 10;  // char[3], not read by the library
constexpr size_t SecurityID = 13;  // char[8]
constexpr size_t SecurityIDSource = 21;  // char[4], not read by the library
constexpr size_t Price = 25;       // u64
constexpr double PriceDiv = 10000;
constexpr size_t OrderQty = 33;    // u64
constexpr double OrderQtyDiv = 100;
constexpr size_t Side = 41;        // char
constexpr size_t OrderTime = 42;   // i64
constexpr size_t OrdType = 50;     // char
constexpr size_t Size = 51;
}  // namespace szse_order

namespace szse_trade {  // SzseTradeMsg, 300191, from the body start
constexpr size_t ChannelNo = 0;         // u16
constexpr size_t ApplSeqNum = 2;        // i64
constexpr size_t MDStreamID = 10;       // char[3], not read by the library
constexpr size_t BidApplSeqNum = 13;    // i64
constexpr size_t OfferApplSeqNum = 21;  // i64
constexpr size_t SecurityID = 29;       // char[8]
constexpr size_t SecurityIDSource = 37;  // char[4], not read by the library
constexpr size_t LastPx = 41;           // u64
constexpr double LastPxDiv = 10000;
constexpr size_t LastQty = 49;          // u64
constexpr double LastQtyDiv = 100;
constexpr size_t ExecType = 57;         // char
constexpr size_t TransactTime = 58;     // i64
constexpr size_t Size = 66;
}  // namespace szse_trade

namespace sse_snapshot {  // SseSnapshotMsg, 3202, from the datagram start
constexpr size_t DataTimeStamp = 4;           // u32
constexpr size_t SecurityID = 8;              // char[8]
constexpr size_t PreClosePx = 16;             // u32
constexpr double PreClosePxDiv = 1000;
constexpr size_t OpenPx = 20;                 // u32
constexpr double OpenPxDiv = 1000;
constexpr size_t HighPx = 24;                 // u32
constexpr double HighPxDiv = 1000;
constexpr size_t LowPx = 28;                  // u32
constexpr double LowPxDiv = 1000;
constexpr size_t LastPx = 32;                 // u32
constexpr double LastPxDiv = 1000;
constexpr size_t TradingPhaseCode = 48;       // char[8]
constexpr size_t NumTrades = 56;              // u32
constexpr size_t TotalVolumeTrade = 60;       // u64
constexpr double TotalVolumeTradeDiv = 1000;
constexpr size_t TotalValueTrade = 68;        // u64
constexpr double TotalValueTradeDiv = 100000;
constexpr size_t TotalBidQty = 76;            // u64
constexpr double TotalBidQtyDiv = 1000;
constexpr size_t WeightedAvgBidPx = 84;       // u32
constexpr double WeightedAvgBidPxDiv = 1000;
constexpr size_t AltWeightedAvgBidPx = 88;    // u32
constexpr double AltWeightedAvgBidPxDiv = 1000;
constexpr size_t TotalOfferQty = 92;          // u64
constexpr double TotalOfferQtyDiv = 1000;
constexpr size_t WeightedAvgOfferPx = 100;    // u32
constexpr double WeightedAvgOfferPxDiv = 1000;
constexpr size_t AltWeightedAvgOfferPx = 104; // u32
constexpr double AltWeightedAvgOfferPxDiv = 1000;
constexpr size_t IOPV = 108;                  // u32
constexpr double IOPVDiv = 1000;
constexpr size_t EtfBuyNumber = 112;          // u32
constexpr size_t EtfBuyAmount = 116;          // u64
constexpr size_t EtfBuyMoney = 124;           // u32
constexpr double EtfBuyMoneyDiv = 1000;
constexpr size_t EtfSellNumber = 132;         // u32
constexpr size_t EtfSellAmount = 136;         // u64
constexpr size_t EtfSellMoney = 144;          // u32
constexpr double EtfSellMoneyDiv = 1000;
constexpr size_t YieldToMaturity = 152;       // u32
constexpr double YieldToMaturityDiv = 1000;
constexpr size_t WithdrawBuyNumber = 164;     // u32
constexpr size_t WithdrawBuyAmount = 168;     // u64
constexpr size_t WithdrawBuyMoney = 176;      // u32
constexpr double WithdrawBuyMoneyDiv = 1000;
constexpr size_t WithdrawSellNumber = 184;    // u32
constexpr size_t WithdrawSellAmount = 188;    // u64
constexpr size_t WithdrawSellMoney = 196;     // u32
constexpr double WithdrawSellMoneyDiv = 1000;
constexpr size_t TotalBidNumber = 204;        // u32
constexpr size_t TotalOfferNumber = 208;      // u32
constexpr size_t BidTradeMaxDuration = 212;   // u32
constexpr size_t OfferTradeMaxDuration = 216; // u32
constexpr size_t NumBidOrders = 220;          // u32
constexpr size_t NumOfferOrders = 224;        // u32
constexpr size_t BidPx = 228;                 // u32[10]
constexpr double BidPxDiv = 1000;
constexpr size_t BidQty = 268;                // u64[10]
constexpr double BidQtyDiv = 1000;
constexpr size_t OfferPx = 348;               // u32[10]
constexpr double OfferPxDiv = 1000;
constexpr size_t OfferQty = 388;              // u64[10]
constexpr double OfferQtyDiv = 1000;
constexpr size_t BestBidNumOrders = 468;      // u32
constexpr size_t BestOfferNumOrders = 472;    // u32
constexpr size_t BestBidQueueCount = 476;     // u16
constexpr size_t BestOfferQueueCount = 478;   // u16
constexpr size_t QueueQty = 480;              // u32[], no divisor
constexpr size_t Size = 480;  // without the queues
}  // namespace sse_snapshot

namespace sse_index {  // SseIndexMsg, 3113, from the datagram start
constexpr size_t DataTimeStamp = 4;       // u32
constexpr size_t SecurityID = 8;          // char[8]
constexpr size_t PreCloseIndex = 16;      // u64
constexpr double PreCloseIndexDiv = 100000;
constexpr size_t Size = 84;
constexpr size_t OpenIndex = 24;          // u64
constexpr double OpenIndexDiv = 100000;
constexpr size_t Turnover = 32;           // u64
constexpr double TurnoverDiv = 10;
constexpr size_t HighIndex = 40;          // u64
constexpr double HighIndexDiv = 100000;
constexpr size_t LowIndex = 48;           // u64
constexpr double LowIndexDiv = 100000;
constexpr size_t LastIndex = 56;          // u64
constexpr double LastIndexDiv = 100000;
constexpr size_t TotalVolumeTraded = 68;  // u64
constexpr double TotalVolumeTradedDiv = 1000;
constexpr size_t CloseIndex = 76;         // u64
constexpr double CloseIndexDiv = 100000;
}  // namespace sse_index

namespace szse_snapshot {  // SzseSnapshotMsg, 300111, from the body start
constexpr size_t OrigTime = 0;              // i64
constexpr size_t ChannelNo = 8;  // u16, not read by the library
constexpr size_t MDStreamID = 10;  // char[3], not read by the library
constexpr size_t SecurityID = 13;           // char[8]
constexpr size_t SecurityIDSource = 21;  // char[4], not read by the library
constexpr size_t TradingPhaseCode = 25;     // char[8]
constexpr size_t PrevClosePx = 33;  // u32, not read by the library
constexpr double PrevClosePxDiv = 10000;
constexpr size_t NumTrades = 37;            // i64
constexpr size_t TotalVolumeTrade = 45;     // u64
constexpr double TotalVolumeTradeDiv = 100;
constexpr size_t TotalValueTrade = 53;      // u64
constexpr double TotalValueTradeDiv = 10000;
constexpr size_t LastPx = 61;               // u32
constexpr double LastPxDiv = 1000000;
constexpr size_t OpenPx = 65;               // u32
constexpr double OpenPxDiv = 1000000;
constexpr size_t HighPx = 69;               // u32
constexpr double HighPxDiv = 1000000;
constexpr size_t LowPx = 73;                // u32
constexpr double LowPxDiv = 1000000;
constexpr size_t AvgPx = 77;                // u32
constexpr double AvgPxDiv = 1000000;
constexpr size_t UpperLimitPx = 81;         // u32
constexpr double UpperLimitPxDiv = 1000000;
constexpr size_t LowerLimitPx = 85;         // u32
constexpr double LowerLimitPxDiv = 1000000;
constexpr size_t TotalBidQty = 89;          // u64
constexpr double TotalBidQtyDiv = 100;
constexpr size_t TotalOfferQty = 97;        // u64
constexpr double TotalOfferQtyDiv = 100;
constexpr size_t WeightedAvgBidPx = 105;    // u32
constexpr double WeightedAvgBidPxDiv = 1000000;
constexpr size_t WeightedAvgOfferPx = 109;  // u32
constexpr double WeightedAvgOfferPxDiv = 1000000;
constexpr size_t IOPV = 113;                // u32
constexpr double IOPVDiv = 1000000;
constexpr size_t BidPx = 121;               // u32[10]
constexpr double BidPxDiv = 1000000;
constexpr size_t BidQty = 161;              // u64[10]
constexpr double BidQtyDiv = 100;
constexpr size_t OfferPx = 241;             // u32[10]
constexpr double OfferPxDiv = 1000000;
constexpr size_t OfferQty = 281;            // u64[10]
constexpr double OfferQtyDiv = 100;
constexpr size_t BestBidNumOrders = 361;    // u32
constexpr size_t BestOfferNumOrders = 365;  // u32
constexpr size_t BestBidQueueCount = 369;   // u8
constexpr size_t BestOfferQueueCount = 370; // u8
constexpr size_t QueueQty = 380;            // u32[]
constexpr double QueueQtyDiv = 100;
constexpr size_t Size = 380;  // without the queues
}  // namespace szse_snapshot

namespace szse_index {  // SzseIndexMsg, 309011, from the body start
constexpr size_t OrigTime = 0;           // i64
constexpr size_t ChannelNo = 8;  // u16, not read by the library
constexpr size_t MDStreamID = 10;  // char[3], not read by the library
constexpr size_t SecurityID = 13;        // char[8]
constexpr size_t SecurityIDSource = 21;  // char[4], not read by the library
constexpr size_t TradingPhaseCode = 25;  // char[8]
constexpr size_t NumTrades = 41;         // i64
constexpr size_t TotalVolumeTrade = 49;  // u64
constexpr double TotalVolumeTradeDiv = 100;
constexpr size_t TotalValueTrade = 57;   // u64
constexpr double TotalValueTradeDiv = 10000;
constexpr size_t LastIndex = 65;         // u64
constexpr double LastIndexDiv = 1000000;
constexpr size_t PreCloseIndex = 73;     // u64
constexpr double PreCloseIndexDiv = 1000000;
constexpr size_t OpenIndex = 81;         // u64
constexpr double OpenIndexDiv = 1000000;
constexpr size_t HighIndex = 89;         // u64
constexpr double HighIndexDiv = 1000000;
constexpr size_t LowIndex = 97;          // u64
constexpr double LowIndexDiv = 1000000;
constexpr size_t Size = 105;
}  // namespace szse_index

namespace szse_volume_stat {  // SzseVolumeStatMsg, 309111, from the body start
constexpr size_t OrigTime = 0;           // i64
constexpr size_t ChannelNo = 8;  // u16, not read by the library
constexpr size_t MDStreamID = 10;  // char[3], not read by the library
constexpr size_t SecurityID = 13;        // char[8]
constexpr size_t SecurityIDSource = 21;  // char[4], not read by the library
constexpr size_t TradingPhaseCode = 25;  // char[8]
constexpr size_t PrevClosePx = 33;       // u64
constexpr double PrevClosePxDiv = 10000;
constexpr size_t NumTrades = 41;         // i64
constexpr size_t TotalVolumeTrade = 49;  // u64
constexpr double TotalVolumeTradeDiv = 100;
constexpr size_t TotalValueTrade = 57;   // u64
constexpr double TotalValueTradeDiv = 10000;
constexpr size_t Size = 65;
}  // namespace szse_volume_stat

}  // namespace feed
}  // namespace mdapi
}  // namespace velmar
