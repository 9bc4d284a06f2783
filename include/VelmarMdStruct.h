// Public records of the VLMdApi market-data client.
//
// Every record here is a plain, fixed-size structure. Most of them are also
// wire formats: the front server sends and receives them as memory images
// (little-endian, natural alignment, padding included), so every offset and
// every size below is part of the protocol and of the binary interface. The
// static_asserts at the end of this file pin them; never reorder a field.
#ifndef VELMAR_MD_STRUCT_H
#define VELMAR_MD_STRUCT_H

/// @file VelmarMdStruct.h
/// The records that requests take and callbacks hand over. Texts are
/// fixed-size char arrays, NUL-padded; an id that fills its array has no NUL.
/// Prices are in yuan (index values in points) and quantities in shares, as
/// the library converts them from the feed. A record passed to a callback is
/// valid during the call only.

#include <cstddef>
#include <cstdint>
#include <string>

// ---------------------------------------------------------------------------
// Session records (front connection)
// ---------------------------------------------------------------------------

/// Login request, sent as field 0. 158 bytes. `UserID` and `Password` must not
/// be empty; every other text goes out exactly as the application left it.
struct CVelmarReqUserLogin {
  char TradingDay[9];
  char UserID[16];
  char Password[32];  ///< sent in plain text
  char UserProductInfo[41];
  char IPAddress[30];
  char MacAddress[30];
};

/// Login answer, received as field 22. 48 bytes.
struct CVelmarRspUserLogin {
  char TradingDay[9];
  char UserID[16];
  int32_t MaxUserOrderLocalID;  ///< offset 28, after 3 bytes of padding
  char LoginTime[16];
};

/// Logout request, sent as field 1. 16 bytes. `UserID` must not be empty.
struct CVelmarReqUserLogout {
  char UserID[16];
};

/// Logout answer, received as field 23. 16 bytes.
struct CVelmarRspUserLogout {
  char UserID[16];
};

/// Error information: received as field 32, and made by the library itself for
/// requests that fail locally. 92 bytes.
struct CVelmarRspInfo {
  int32_t Tid;      ///< 22 login, 23 logout, any other value: a general error
  int32_t ErrorID;  ///< 0 or a negative error id
  char ErrorMsg[81];
};

/// Value of the "all instruments" requests and their answers. 8 bytes.
struct CVelmarSubAllRecord {
  int32_t TickType;  ///< bits 1, 2, 4 for market data; 0 for ticks and books
  int32_t Exchange;  ///< bit 1 Shanghai, bit 2 Shenzhen
};

// ---------------------------------------------------------------------------
// Market data
// ---------------------------------------------------------------------------

/// One tick-by-tick order or trade. 112 bytes. Also received whole from the
/// front as field 34. The order part and the trade part overlay each other from
/// offset 80 on; `TickType` says which one is valid (1 order, 2 trade).
/// Shenzhen cancellations arrive as trades with `TradeFlag` '4'.
struct CVelmarTickByTick {
  uint32_t ExchangeID;  ///< 1 Shanghai, 2 Shenzhen
  char SecurityID[20];
  int64_t SeqNo;      ///< the message's number in its channel
  int64_t TickTime;   ///< the exchange's time stamp, as the feed carries it
  uint32_t TickType;  ///< 1 order, 2 trade
  uint32_t Padding1;  ///< always 0
  uint32_t ChannelNo;
  uint32_t Padding2;  ///< always 0
  int64_t ApplSeqNum;
  double Price;
  int64_t Qty;
// Anonymous structs in a union are an extension that g++, clang and MSVC all
// accept; keep applications built with -Wpedantic quiet about it.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#endif
  union {
    struct {
      char Side;     ///< order only: '1' buy, '2' sell
      char OrdType;  ///< order only
    };
    struct {
      double TradeMoney;        ///< trade only
      int64_t BidApplSeqNum;    ///< trade only
      int64_t OfferApplSeqNum;  ///< trade only
      char TradeFlag;           ///< trade only: Shenzhen 'F' executed, '4' cancelled
    };
  };
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
};

/// Latest state of one instrument. 1160 bytes. Delivered whole by the front as
/// field 33 and updated in place by the feed's snapshots. The three
/// `FrontOnly` stretches are filled by the front and never touched by the feed.
struct CVelmarMarketData {
  uint32_t ExchangeID;    ///< 1 Shanghai, 2 Shenzhen
  uint32_t SecurityType;  ///< 1 security, 2 index
  char SecurityID[16];
  double LastPrice;
  double PreClosePrice;
  double OpenPrice;
  double HighPrice;
  double LowPrice;
  double ClosePrice;
  char FrontOnly1[48];
  double UpperLimitPrice;
  double LowerLimitPrice;
  int64_t UpdateTime;  ///< exchange time stamp of the last applied snapshot
  int64_t TotalVolume;
  double TotalValue;
  double AvgPrice;
  double BidPrice[10];
  double AskPrice[10];
  int64_t BidVolume[10];
  int64_t AskVolume[10];
  int64_t NumTrades;
  char TradingPhaseCode[8];
  uint32_t BestBidOrderCount;
  uint8_t BestBidQueueSize;  ///< valid entries of BestBidQueue, at most 50
  uint32_t BestBidQueue[50];
  uint32_t BestAskOrderCount;
  uint8_t BestAskQueueSize;  ///< valid entries of BestAskQueue, at most 50
  uint32_t BestAskQueue[50];
  uint32_t Reserved;
  int64_t TotalBidVolume;
  int64_t TotalAskVolume;
  double WeightedAvgBidPrice;
  double WeightedAvgAskPrice;
  double AltWeightedAvgBidPrice;
  double AltWeightedAvgAskPrice;
  double YieldToMaturity;
  double IOPV;
  uint32_t EtfBuyNumber;
  uint32_t EtfSellNumber;
  double EtfBuyAmount;
  double EtfBuyMoney;
  double EtfSellAmount;
  double EtfSellMoney;
  char FrontOnly2[24];
  uint32_t WithdrawBuyNumber;
  uint32_t WithdrawSellNumber;
  double WithdrawBuyAmount;
  double WithdrawSellAmount;
  double WithdrawBuyMoney;
  double WithdrawSellMoney;
  int64_t TotalBidNumber;
  int64_t TotalOfferNumber;
  uint32_t BidTradeMaxDuration;
  uint32_t OfferTradeMaxDuration;
  uint32_t NumBidOrders;
  uint32_t NumOfferOrders;
  char FrontOnly3[32];
};

/// Ten-level order book of one subscribed Shenzhen instrument, rebuilt by the
/// library and handed out through OnRtnOrderBook. Level 0 is the best level; a
/// level whose price is 0 is empty. The order lists name the resting orders of
/// each level by ApplSeqNum, as ",101,102,"; the empty list is ",".
///
/// The order lists are std::string objects of the library's own C++ runtime,
/// so an application reads them through the same standard library it was
/// built with (libstdc++ on both supported platforms).
struct CVelmarOrderBook {
  uint32_t ExchangeID;  ///< always 2
  char SecurityID[16];
  double LastPrice;
  int64_t TotalVolume;
  double TotalValue;
  int64_t NumTrades;
  double Bid[10];
  double Ask[10];
  int64_t BidQty[10];
  int64_t AskQty[10];
  int64_t UpdateTime;  ///< exchange time of the last applied snapshot or order
  std::string BidOrders[10];
  std::string AskOrders[10];
};

// ---------------------------------------------------------------------------
// Session statistics
// ---------------------------------------------------------------------------

/// Counters of one session, read by VelmarMdApi::GetStatistics and handed to
/// VelmarMdStatusSpi::OnStatistics. Every counter counts from the creation of
/// the session object and never goes back; two reads a second apart give
/// rates. Counters of things a platform can't tell stay 0.
///
/// Versioning: the record only ever grows at its end, and `Size` says how much
/// of it is valid. The caller sets `Size` to sizeof(CVelmarStatistics) of the
/// header it was compiled against; the library fills at most that many bytes
/// and stores in `Size` how many it filled. A newer library fills an older
/// caller's record up to the caller's size; an older library leaves the
/// caller's newer fields as they were (zero them first) and says so in
/// `Size`. Version 1 is 200 bytes; a smaller `Size` is refused.
struct CVelmarStatistics {
  uint32_t Size;       ///< in: the caller's size; out: the bytes filled
  uint32_t Reserved;   ///< 0
  int64_t SampleTime;  ///< when the counters were read, microseconds since the epoch (UTC)

  // The multicast receiver.
  uint64_t DatagramsReceived;      ///< every datagram the socket delivered
  uint64_t BytesReceived;          ///< their bytes
  uint64_t DroppedByGate;          ///< arrived while not connected and logged in
  uint64_t DroppedBySequence;      ///< a number at or below the channel's last accepted one
  uint64_t DroppedStale;           ///< snapshots older than the stored record
  uint64_t SequenceGaps;           ///< forward jumps of a channel's sequence (OnFeedGap)
  uint64_t MessagesMissing;        ///< numbers skipped by those jumps, summed
  uint64_t ReceiveErrors;          ///< failed receive calls
  uint64_t KernelDrops;            ///< the kernel's drop count of the feed socket (Linux; else 0)
  uint64_t ShortDatagrams;         ///< too short for their message type, dropped
  uint64_t DroppedUnknownChannel;  ///< dropped: a channel number beyond the channel bound

  // The hand-over to the book thread.
  uint64_t BookNodesQueued;     ///< messages queued for the book thread
  uint64_t BookNodesDropped;    ///< not queued: the queue held book.queue_limit nodes
  uint64_t BookQueueHighWater;  ///< most nodes in the queue at one time
  uint64_t BookNodesHandled;    ///< taken from the queue by the book thread
  uint64_t BooksPublished;      ///< books handed out (OnRtnOrderBook calls)

  // Callbacks made, by kind, on every thread.
  uint64_t CallbacksSession;     ///< OnFrontConnected, OnFrontDisconnected, OnHeartBeatWarning
  uint64_t CallbacksResponse;    ///< the OnRsp callbacks but OnRspError
  uint64_t CallbacksError;       ///< OnRspError
  uint64_t CallbacksMarketData;  ///< OnRtnMarketData
  uint64_t CallbacksTickByTick;  ///< OnRtnTickByTick
  uint64_t CallbacksOrderBook;   ///< OnRtnOrderBook
  uint64_t CallbacksStatus;      ///< VelmarMdStatusSpi callbacks
  // Version 2 and later append here.
};

// ---------------------------------------------------------------------------
// Layout pins: these are wire and ABI facts.
// ---------------------------------------------------------------------------
static_assert(sizeof(CVelmarReqUserLogin) == 158, "CVelmarReqUserLogin layout");
static_assert(offsetof(CVelmarReqUserLogin, UserID) == 9, "CVelmarReqUserLogin layout");
static_assert(offsetof(CVelmarReqUserLogin, Password) == 25, "CVelmarReqUserLogin layout");
static_assert(offsetof(CVelmarReqUserLogin, UserProductInfo) == 57, "CVelmarReqUserLogin layout");
static_assert(offsetof(CVelmarReqUserLogin, IPAddress) == 98, "CVelmarReqUserLogin layout");
static_assert(offsetof(CVelmarReqUserLogin, MacAddress) == 128, "CVelmarReqUserLogin layout");

static_assert(sizeof(CVelmarRspUserLogin) == 48, "CVelmarRspUserLogin layout");
static_assert(offsetof(CVelmarRspUserLogin, UserID) == 9, "CVelmarRspUserLogin layout");
static_assert(offsetof(CVelmarRspUserLogin, MaxUserOrderLocalID) == 28, "CVelmarRspUserLogin");
static_assert(offsetof(CVelmarRspUserLogin, LoginTime) == 32, "CVelmarRspUserLogin layout");

static_assert(sizeof(CVelmarReqUserLogout) == 16, "CVelmarReqUserLogout layout");
static_assert(sizeof(CVelmarRspUserLogout) == 16, "CVelmarRspUserLogout layout");

static_assert(sizeof(CVelmarRspInfo) == 92, "CVelmarRspInfo layout");
static_assert(offsetof(CVelmarRspInfo, ErrorID) == 4, "CVelmarRspInfo layout");
static_assert(offsetof(CVelmarRspInfo, ErrorMsg) == 8, "CVelmarRspInfo layout");

static_assert(sizeof(CVelmarSubAllRecord) == 8, "CVelmarSubAllRecord layout");
static_assert(offsetof(CVelmarSubAllRecord, Exchange) == 4, "CVelmarSubAllRecord layout");

static_assert(sizeof(CVelmarTickByTick) == 112, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, SecurityID) == 4, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, SeqNo) == 24, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, TickTime) == 32, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, TickType) == 40, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, ChannelNo) == 48, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, ApplSeqNum) == 56, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, Price) == 64, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, Qty) == 72, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, Side) == 80, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, OrdType) == 81, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, TradeMoney) == 80, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, BidApplSeqNum) == 88, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, OfferApplSeqNum) == 96, "CVelmarTickByTick layout");
static_assert(offsetof(CVelmarTickByTick, TradeFlag) == 104, "CVelmarTickByTick layout");

static_assert(sizeof(CVelmarMarketData) == 1160, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, SecurityID) == 8, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, LastPrice) == 24, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, ClosePrice) == 64, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, FrontOnly1) == 72, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, UpperLimitPrice) == 120, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, UpdateTime) == 136, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, TotalVolume) == 144, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, AvgPrice) == 160, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BidPrice) == 168, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, AskPrice) == 248, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BidVolume) == 328, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, AskVolume) == 408, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, NumTrades) == 488, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, TradingPhaseCode) == 496, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BestBidOrderCount) == 504, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BestBidQueueSize) == 508, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BestBidQueue) == 512, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BestAskOrderCount) == 712, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BestAskQueueSize) == 716, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BestAskQueue) == 720, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, Reserved) == 920, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, TotalBidVolume) == 928, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, WeightedAvgBidPrice) == 944, "CVelmarMarketData");
static_assert(offsetof(CVelmarMarketData, AltWeightedAvgBidPrice) == 960, "CVelmarMarketData");
static_assert(offsetof(CVelmarMarketData, YieldToMaturity) == 976, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, IOPV) == 984, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, EtfBuyNumber) == 992, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, EtfBuyAmount) == 1000, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, EtfSellMoney) == 1024, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, FrontOnly2) == 1032, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, WithdrawBuyNumber) == 1056, "CVelmarMarketData");
static_assert(offsetof(CVelmarMarketData, WithdrawBuyAmount) == 1064, "CVelmarMarketData");
static_assert(offsetof(CVelmarMarketData, WithdrawSellMoney) == 1088, "CVelmarMarketData");
static_assert(offsetof(CVelmarMarketData, TotalBidNumber) == 1096, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, TotalOfferNumber) == 1104, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, BidTradeMaxDuration) == 1112, "CVelmarMarketData");
static_assert(offsetof(CVelmarMarketData, NumBidOrders) == 1120, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, NumOfferOrders) == 1124, "CVelmarMarketData layout");
static_assert(offsetof(CVelmarMarketData, FrontOnly3) == 1128, "CVelmarMarketData layout");

static_assert(offsetof(CVelmarOrderBook, SecurityID) == 4, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, LastPrice) == 24, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, TotalVolume) == 32, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, TotalValue) == 40, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, NumTrades) == 48, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, Bid) == 56, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, Ask) == 136, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, BidQty) == 216, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, AskQty) == 296, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, UpdateTime) == 376, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, BidOrders) == 384, "CVelmarOrderBook layout");
static_assert(offsetof(CVelmarOrderBook, AskOrders) == 384 + 10 * sizeof(std::string),
              "CVelmarOrderBook layout");

static_assert(sizeof(CVelmarStatistics) == 200, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, Reserved) == 4, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, SampleTime) == 8, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, DatagramsReceived) == 16, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, SequenceGaps) == 56, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, KernelDrops) == 80, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, DroppedUnknownChannel) == 96, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, BookNodesQueued) == 104, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, BooksPublished) == 136, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, CallbacksSession) == 144, "CVelmarStatistics layout");
static_assert(offsetof(CVelmarStatistics, CallbacksStatus) == 192, "CVelmarStatistics layout");

#endif  // VELMAR_MD_STRUCT_H
