// The five snapshot messages, from onFeedDatagram to the stored record. Field
// values show a wrong width, divisor or signedness; records start as a byte
// pattern and are compared whole, so a stray write shows as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "VLClientApi/MdApiImpl.h"
#include "support/LogCapture.h"
#include "support/SnapshotDatagrams.h"
#include "support/TestAccess.h"

namespace {

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::TestAccess;
using velmar::test_support::FeedDatagram;
using velmar::testing::LogCapture;
using velmar::utility::Logger;

constexpr uint32_t kSseIndex = 3113;
constexpr uint32_t kSseSnapshot = 3202;
constexpr uint32_t kSzseSnapshot = 300111;
constexpr uint32_t kSzseIndex = 309011;
constexpr uint32_t kSzseVolumeStat = 309111;

struct RecordingSpi : velmar::mdapi::VelmarMdSpi {
  velmar::mdapi::SessionCore* core = nullptr;
  int calls = 0;
  CVelmarMarketData* last = nullptr;
  bool lockHeld = false;
  void OnRtnMarketData(CVelmarMarketData* data) override {
    ++calls;
    last = data;
    lockHeld = core->mutex_.isLockedByThisThread();
  }
};

/// Whole-record comparison that names where each differing run of bytes starts.
::testing::AssertionResult sameRecord(const CVelmarMarketData& expected,
                                      const CVelmarMarketData& actual) {
  const auto* e = reinterpret_cast<const unsigned char*>(&expected);
  const auto* a = reinterpret_cast<const unsigned char*>(&actual);
  std::ostringstream diff;
  for (size_t i = 0; i < sizeof expected; ++i)
    if (e[i] != a[i] && (i == 0 || e[i - 1] == a[i - 1])) diff << " " << i;
  if (diff.str().empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "records differ from bytes" << diff.str();
}

class SnapshotHandlersTest : public ::testing::Test {
 protected:
  SnapshotHandlersTest() {
    spi_.core = &core_;
    api_.RegisterSpi(&spi_);
    core_.connected_ = true;
    core_.loggedIn_ = true;
    core_.snapshotsComplete_ = true;
  }

  /// A stored record filled with a byte pattern that shows every untouched
  /// byte; volume and time low so that the test messages are fresh.
  CVelmarMarketData* addRecord(int exchange, const char* id) {
    std::unique_ptr<CVelmarMarketData> record(new CVelmarMarketData);
    std::memset(record.get(), 0x5C, sizeof(CVelmarMarketData));
    std::memset(record->SecurityID, 0, sizeof record->SecurityID);
    std::memcpy(record->SecurityID, id, std::strlen(id));
    record->TotalVolume = 1;
    record->UpdateTime = 1;
    CVelmarMarketData* raw = record.get();
    TestAccess::putRecord(TestAccess::subscriptions(api_), exchange, id, std::move(record));
    return raw;
  }
  void clearRecords() {
    TestAccess::subscriptions(api_).clearMarketData();
    spi_.calls = 0;
    LogCapture::clear();
  }
  void feed(const FeedDatagram& datagram) { TestAccess::feed(api_).onFeedDatagram(datagram.data()); }

  LogCapture log_{Logger::INFO};
  MdApiImpl api_;
  velmar::mdapi::SessionCore& core_ = TestAccess::core(api_);
  RecordingSpi spi_;
};

void setQueues(CVelmarMarketData& r, std::initializer_list<uint32_t> bid,
               std::initializer_list<uint32_t> ask) {
  r.BestBidQueueSize = static_cast<uint8_t>(bid.size());
  r.BestAskQueueSize = static_cast<uint8_t>(ask.size());
  std::copy(bid.begin(), bid.end(), r.BestBidQueue);
  std::copy(ask.begin(), ask.end(), r.BestAskQueue);
}

FeedDatagram goldenSseSnapshot() {
  FeedDatagram d = FeedDatagram::shanghai(kSseSnapshot);
  d.u32(4, 0x80000001u)  // DataTimeStamp: zero-extended, not sign-extended
      .securityId(8, "600000", 'x')
      // PreClosePx, OpenPx, HighPx, LowPx, LastPx; 36..47 not read
      .u32s(16, {10050, 10100, 10880, 9990, 4000000123u})
      .text(48, "E1 0 Tz9", 8)
      .u32(56, 0xF0000001u)  // NumTrades, unsigned
      // TotalVolumeTrade, TotalValueTrade, TotalBidQty
      .u64s(60, {5000000000123ull, 98765432109876ull, 7000000000999ull})
      .u32s(84, {10010, 10020})         // WeightedAvgBidPx, AltWeightedAvgBidPx
      .u64(92, 8000000000500ull)        // TotalOfferQty
      .u32s(100, {10030, 10040, 1234})  // WeightedAvgOfferPx, AltWeightedAvgOfferPx, IOPV
      .u32(152, 4567)                   // YieldToMaturity; 156..163 not read
      // TotalBidNumber, TotalOfferNumber, Bid/OfferTradeMaxDuration, NumBid/OfferOrders
      .u32s(204, {0xF5000006u, 0xF6000007u, 0xF7000008u, 0xF8000009u, 0xF900000Au, 0xFA00000Bu})
      .u32s(468, {0xE0000001u, 0xE0000002u})  // BestBidNumOrders, BestOfferNumOrders
      .u16(476, 3)                            // BestBidQueueCount
      .u16(478, 2)                            // BestOfferQueueCount
      .u32s(480, {4000000001u, 4000000002u, 4000000003u, 4100000001u, 4100000002u});
  // The ETF and withdrawal blocks: Number u32, Amount u64, Money u32, then 4
  // bytes not read.
  auto block = [&d](size_t at, uint32_t number, uint64_t amount, uint32_t money) {
    d.u32(at, number).u64(at + 4, amount).u32(at + 12, money);
  };
  block(112, 0xF1000002u, 4294967299ull, 4294967295u);     // EtfBuy
  block(132, 0xF2000003u, 6000000000007ull, 3000000001u);  // EtfSell
  block(164, 0xF3000004u, 7000000000011ull, 2500000002u);  // WithdrawBuy
  block(184, 0xF4000005u, 8000000000013ull, 2600000003u);  // WithdrawSell
  for (uint32_t i = 0; i < 10; ++i) {
    d.u32(228 + 4 * i, 10000 - 10 * i);                     // BidPx
    d.u64(268 + 8 * i, 5000000000000ull + 1000 * i + 999);  // BidQty
    d.u32(348 + 4 * i, 10010 + 10 * i);                     // OfferPx
    d.u64(388 + 8 * i, 6000000000000ull + 1000 * i + 1);    // OfferQty
  }
  return d;
}

void applyGoldenSseSnapshot(CVelmarMarketData& r) {
  r.ExchangeID = 1;
  r.SecurityType = 1;
  std::memcpy(r.SecurityID, "600000\0x", 8);
  r.LastPrice = 4000000.123;
  r.PreClosePrice = 10.05;
  r.OpenPrice = 10.1;
  r.HighPrice = 10.88;
  r.LowPrice = 9.99;
  r.UpdateTime = 2147483649;
  r.TotalVolume = 5000000000;
  r.TotalValue = 987654321.09876;
  r.AvgPrice = 987654321.09876 / 5000000000.0;
  r.NumTrades = 4026531841;
  std::memcpy(r.TradingPhaseCode, "E1 0 Tz9", 8);
  for (int i = 0; i < 10; ++i) {
    r.BidPrice[i] = (10000 - 10 * i) / 1000.0;
    r.BidVolume[i] = 5000000000 + i;
    r.AskPrice[i] = (10010 + 10 * i) / 1000.0;
    r.AskVolume[i] = 6000000000 + i;
  }
  r.Reserved = 0;
  r.TotalBidVolume = 7000000000;
  r.TotalAskVolume = 8000000000;
  r.WeightedAvgBidPrice = 10.01;
  r.AltWeightedAvgBidPrice = 10.02;
  r.WeightedAvgAskPrice = 10.03;
  r.AltWeightedAvgAskPrice = 10.04;
  r.IOPV = 1.234;
  r.EtfBuyNumber = 0xF1000002u;
  r.EtfBuyAmount = 4294967299.0;
  r.EtfBuyMoney = 4294967.295;
  r.EtfSellNumber = 0xF2000003u;
  r.EtfSellAmount = 6000000000007.0;
  r.EtfSellMoney = 3000000.001;
  r.YieldToMaturity = 4.567;
  r.WithdrawBuyNumber = 0xF3000004u;
  r.WithdrawBuyAmount = 7000000000011.0;
  r.WithdrawBuyMoney = 2500000.002;
  r.WithdrawSellNumber = 0xF4000005u;
  r.WithdrawSellAmount = 8000000000013.0;
  r.WithdrawSellMoney = 2600000.003;
  r.TotalBidNumber = 4110417926;
  r.TotalOfferNumber = 4127195143;
  r.BidTradeMaxDuration = 0xF7000008u;
  r.OfferTradeMaxDuration = 0xF8000009u;
  r.NumBidOrders = 0xF900000Au;
  r.NumOfferOrders = 0xFA00000Bu;
  r.BestBidOrderCount = 0xE0000001u;
  r.BestAskOrderCount = 0xE0000002u;
  setQueues(r, {4000000001u, 4000000002u, 4000000003u}, {4100000001u, 4100000002u});
}

FeedDatagram goldenSseIndex() {
  FeedDatagram d = FeedDatagram::shanghai(kSseIndex);
  d.u32(4, 0xF0000010u)  // DataTimeStamp
      .securityId(8, "000001", 'y')
      // PreCloseIndex, OpenIndex, Turnover, HighIndex, LowIndex, LastIndex
      .u64s(16, {300012345678ull, 300112345670ull, 1234567890123ull, 310000000001ull,
                 290000000002ull, 305000000003ull})
      .u64s(68, {9876543210987ull, 304000000004ull});  // TotalVolumeTraded, CloseIndex
  return d;
}

void applyGoldenSseIndex(CVelmarMarketData& r) {
  r.ExchangeID = 1;
  r.SecurityType = 2;
  std::memcpy(r.SecurityID, "000001\0y", 8);
  r.UpdateTime = 4026531856;
  r.TotalVolume = 9876543210;
  r.TotalValue = 123456789012.3;
  r.LastPrice = 3050000.00003;
  r.PreClosePrice = 3000123.45678;
  r.OpenPrice = 3001123.4567;
  r.HighPrice = 3100000.00001;
  r.LowPrice = 2900000.00002;
  r.ClosePrice = 3040000.00004;
}

FeedDatagram goldenSzseSnapshot() {
  // Not read: 8..12, 21..24, 33..36 (PrevClosePx), 117..120, 371..379.
  FeedDatagram d = FeedDatagram::shenzhen(kSzseSnapshot);
  d.i64(0, 20240612093000123ll)  // OrigTime
      .securityId(13, "000001", 'z')
      .text(25, "T0abcdef", 8)
      .i64(37, 21780256376ll)                              // NumTrades
      .u64s(45, {500000000000099ull, 123456789012345ull})  // TotalVolumeTrade, TotalValueTrade
      // LastPx, OpenPx, HighPx, LowPx, AvgPx, UpperLimitPx, LowerLimitPx
      .u32s(61, {4012345678u, 4000000001u, 4100000002u, 3900000003u, 4005000004u, 4290000005u,
                 3600000006u})
      .u64s(89, {700000000000055ull, 800000000000077ull})  // TotalBidQty, TotalOfferQty
      .u32s(105, {3950000007u, 4050000008u, 1000009})      // WeightedAvgBid/OfferPx, IOPV
      .u32s(361, {0xE1000001u, 0xE1000002u})               // BestBidNumOrders, BestOfferNumOrders
      .u8(369, 3)                                          // BestBidQueueCount
      .u8(370, 2)                                          // BestOfferQueueCount
      .u32s(380, {4000000099u, 4000000199u, 12345, 4100000050u, 99});
  for (uint32_t i = 0; i < 10; ++i) {
    d.u32(121 + 4 * i, 4010000000u - 10000 * i);            // BidPx
    d.u64(161 + 8 * i, 600000000000000ull + 100 * i + 99);  // BidQty
    d.u32(241 + 4 * i, 4020000000u + 10000 * i);            // OfferPx
    d.u64(281 + 8 * i, 610000000000000ull + 100 * i + 1);   // OfferQty
  }
  return d;
}

void applyGoldenSzseSnapshot(CVelmarMarketData& r) {
  // ExchangeID, SecurityID and PreClosePrice are not the message's to write.
  r.SecurityType = 1;
  r.LastPrice = 4012.345678;
  r.OpenPrice = 4000.000001;
  r.HighPrice = 4100.000002;
  r.LowPrice = 3900.000003;
  r.UpperLimitPrice = 4290.000005;
  r.LowerLimitPrice = 3600.000006;
  r.UpdateTime = 20240612093000123;
  r.TotalVolume = 5000000000000;
  r.TotalValue = 12345678901.2345;
  r.AvgPrice = 4005.000004;
  r.NumTrades = 21780256376;
  std::memcpy(r.TradingPhaseCode, "T0abcdef", 8);
  for (int i = 0; i < 10; ++i) {
    r.BidPrice[i] = (4010000000.0 - 10000 * i) / 1000000;
    r.BidVolume[i] = 6000000000000 + i;
    r.AskPrice[i] = (4020000000.0 + 10000 * i) / 1000000;
    r.AskVolume[i] = 6100000000000 + i;
  }
  r.Reserved = 0;
  r.TotalBidVolume = 7000000000000;
  r.TotalAskVolume = 8000000000000;
  r.WeightedAvgBidPrice = 3950.000007;
  r.WeightedAvgAskPrice = 4050.000008;
  r.IOPV = 1.000009;
  r.BestBidOrderCount = 0xE1000001u;
  r.BestAskOrderCount = 0xE1000002u;
  setQueues(r, {40000000, 40000001, 123}, {41000000, 0});  // raw / 100
}

FeedDatagram goldenSzseIndex() {
  FeedDatagram d = FeedDatagram::shenzhen(kSzseIndex);
  d.i64(0, 20240612093003000ll)  // OrigTime; 8..12 not read
      .securityId(13, "399001", 'q')
      .text(25, "I0  ghij", 8)  // TradingPhaseCode; 33..40 not read
      .i64(41, 31234567890ll)   // NumTrades
      // TotalVolumeTrade, TotalValueTrade, LastIndex, PreCloseIndex, OpenIndex, HighIndex,
      // LowIndex
      .u64s(49, {1234567890123499ull, 987654321098765ull, 10123456789ull, 10023456789ull,
                 10033456789ull, 10223456789ull, 9923456789ull});
  return d;
}

void applyGoldenSzseIndex(CVelmarMarketData& r) {
  r.ExchangeID = 2;
  r.SecurityType = 2;
  r.UpdateTime = 20240612093003000;
  r.TotalVolume = 12345678901234;
  r.TotalValue = 98765432109.8765;
  r.LastPrice = 10123.456789;
  r.PreClosePrice = 10023.456789;
  r.OpenPrice = 10033.456789;
  r.HighPrice = 10223.456789;
  r.LowPrice = 9923.456789;
  r.NumTrades = 31234567890;
  std::memcpy(r.TradingPhaseCode, "I0  ghij", 8);
}

FeedDatagram goldenSzseVolumeStat() {
  FeedDatagram d = FeedDatagram::shenzhen(kSzseVolumeStat);
  d.i64(0, 20240612150000000ll)  // OrigTime; 8..12 not read
      .securityId(13, "000002", 'w')
      .text(25, "S1 klmno", 8)
      // PrevClosePx, NumTrades, TotalVolumeTrade, TotalValueTrade
      .u64s(33, {50000000123ull, 9000000001ull, 300000000000050ull, 4500000000001234ull});
  return d;
}

void applyGoldenSzseVolumeStat(CVelmarMarketData& r) {
  r.ExchangeID = 2;
  r.SecurityType = 1;
  std::memcpy(r.SecurityID, "000002\0w", 8);
  r.UpdateTime = 20240612150000000;
  r.TotalVolume = 3000000000000;
  r.TotalValue = 450000000000.1234;
  r.PreClosePrice = 5000000.0123;
  r.NumTrades = 9000000001;
  std::memcpy(r.TradingPhaseCode, "S1 klmno", 8);
}

struct Kind {
  const char* name;
  uint32_t type;
  int exchange;
  size_t volumeOffset;  // Shenzhen: from the body
  uint64_t volumeDivisor;
  const char* goldenId;
  FeedDatagram (*golden)();
  void (*applyGolden)(CVelmarMarketData&);
};

const Kind kKinds[] = {
    {"SseSnapshot", kSseSnapshot, 1, 60, 1000, "600000", goldenSseSnapshot, applyGoldenSseSnapshot},
    {"SseIndex", kSseIndex, 1, 68, 1000, "000001", goldenSseIndex, applyGoldenSseIndex},
    {"SzseSnapshot", kSzseSnapshot, 2, 45, 100, "000001", goldenSzseSnapshot,
     applyGoldenSzseSnapshot},
    {"SzseIndex", kSzseIndex, 2, 49, 100, "399001", goldenSzseIndex, applyGoldenSzseIndex},
    {"SzseVolumeStat", kSzseVolumeStat, 2, 49, 100, "000002", goldenSzseVolumeStat,
     applyGoldenSzseVolumeStat},
};

/// A minimal message of a kind: instrument, time and raw volume, the rest
/// zero (so queue counts are 0).
FeedDatagram minimal(const Kind& k, const char* id, uint64_t rawVolume, int64_t time) {
  if (k.exchange == 1) {
    FeedDatagram d = FeedDatagram::shanghai(k.type, 0);
    d.u32(4, static_cast<uint32_t>(time)).securityId(8, id).u64(k.volumeOffset, rawVolume);
    return d;
  }
  FeedDatagram d = FeedDatagram::shenzhen(k.type, 0);
  d.i64(0, time).securityId(13, id).u64(k.volumeOffset, rawVolume);
  return d;
}

TEST_F(SnapshotHandlersTest, GoldenMessagesWriteExactlyTheirFields) {
  for (const Kind& k : kKinds) {
    SCOPED_TRACE(k.name);
    clearRecords();
    CVelmarMarketData* stored = addRecord(k.exchange, k.goldenId);
    CVelmarMarketData expected = *stored;
    k.applyGolden(expected);

    feed(k.golden());

    EXPECT_EQ(spi_.calls, 1);
    EXPECT_EQ(spi_.last, stored);
    EXPECT_TRUE(spi_.lockHeld);
    EXPECT_TRUE(sameRecord(expected, *stored));
  }
}

TEST_F(SnapshotHandlersTest, NothingBeforeTheFrontIsDoneOrWithoutARecord) {
  for (const Kind& k : kKinds) {
    SCOPED_TRACE(k.name);
    clearRecords();
    // The record exists, but in the other exchange's map, or under a longer id.
    CVelmarMarketData* other = addRecord(3 - k.exchange, "600001");
    CVelmarMarketData* longer = addRecord(k.exchange, "6000011");
    const CVelmarMarketData otherBefore = *other, longerBefore = *longer;
    feed(minimal(k, "600001", 100000, 99));
    // The record exists, but the front has not delivered all of them yet.
    CVelmarMarketData* stored = addRecord(k.exchange, "600001");
    const CVelmarMarketData before = *stored;
    core_.snapshotsComplete_ = false;
    feed(minimal(k, "600001", 100000, 99));
    core_.snapshotsComplete_ = true;
    EXPECT_EQ(spi_.calls, 0);
    EXPECT_TRUE(sameRecord(otherBefore, *other));
    EXPECT_TRUE(sameRecord(longerBefore, *longer));
    EXPECT_TRUE(sameRecord(before, *stored));
  }
  EXPECT_EQ(LogCapture::text(), "");
}

TEST_F(SnapshotHandlersTest, VolumeDecidesFirstThenTimeAndOnlyShenzhenSnapshotsLogLateOnes) {
  struct Case {
    const char* name;
    int64_t volume;  // in record units
    int64_t time;
    bool applied;
  };
  // The stored record holds volume 1000 at time 5000. Every raw volume below
  // carries a remainder just under one unit, which truncation must drop.
  const Case cases[] = {
      {"lower volume, later time", 999, 9999, false},
      {"equal volume, equal time", 1000, 5000, false},
      {"equal volume, earlier time", 1000, 4999, false},
      {"equal volume, later time", 1000, 5001, true},
      {"higher volume, earlier time", 1001, 1, true},
  };
  for (const Kind& k : kKinds) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(k.name) + ": " + c.name);
      clearRecords();
      CVelmarMarketData* stored = addRecord(k.exchange, "000001");
      stored->TotalVolume = 1000;
      stored->UpdateTime = 5000;
      const CVelmarMarketData before = *stored;
      const uint64_t raw = static_cast<uint64_t>(c.volume) * k.volumeDivisor + k.volumeDivisor - 1;
      feed(minimal(k, "000001", raw, c.time));
      if (c.applied) {
        EXPECT_EQ(spi_.calls, 1);
        EXPECT_EQ(stored->TotalVolume, c.volume);
        EXPECT_EQ(stored->UpdateTime, c.time);
      } else {
        EXPECT_EQ(spi_.calls, 0);
        EXPECT_TRUE(sameRecord(before, *stored));
      }
      // Only a late Shenzhen snapshot is logged, with the raw volume.
      const std::string text = LogCapture::text();
      if (c.applied || k.type != kSzseSnapshot) {
        EXPECT_EQ(text, "");
        continue;
      }
      EXPECT_NE(text.find(" INFO "), std::string::npos) << text;
      EXPECT_NE(text.find("SzseMd MD_LOST Applseqnum " + std::to_string(raw) +
                          ",SecurityID 000001,time:" + std::to_string(c.time) +
                          " - SnapshotHandlers.cpp:"),
                std::string::npos)
          << text;
      EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n'));
    }
  }
}

TEST_F(SnapshotHandlersTest, ShenzhenOfferQueueStandsBehindTheStoredBidCount) {
  CVelmarMarketData* stored = addRecord(2, "000001");
  FeedDatagram d = FeedDatagram::shenzhen(kSzseSnapshot, 0);
  d.i64(0, 2).securityId(13, "000001").u64(45, 100);
  d.u8(369, 51).u8(370, 55);
  // Entry k of the message holds 100 * (1000 + k) + 7.
  for (uint32_t k = 0; k < 120; ++k) d.u32(380 + 4 * k, 100 * (1000 + k) + 7);
  feed(d);
  ASSERT_EQ(spi_.calls, 1);
  EXPECT_EQ(stored->BestBidQueueSize, 50);
  EXPECT_EQ(stored->BestAskQueueSize, 50);
  for (uint32_t i = 0; i < 50; ++i) {
    EXPECT_EQ(stored->BestBidQueue[i], 1000 + i) << i;
    EXPECT_EQ(stored->BestAskQueue[i], 1050 + i) << i;
  }
}

TEST_F(SnapshotHandlersTest, ShanghaiOfferQueueStandsBehindTheMessagesBidCount) {
  CVelmarMarketData* stored = addRecord(1, "600000");
  FeedDatagram d = FeedDatagram::shanghai(kSseSnapshot, 0);
  d.u32(4, 2).securityId(8, "600000").u64(60, 1000);
  d.u16(476, 60).u16(478, 55);
  for (uint32_t k = 0; k < 120; ++k) d.u32(480 + 4 * k, 7000000 + k);
  feed(d);
  ASSERT_EQ(spi_.calls, 1);
  EXPECT_EQ(stored->BestBidQueueSize, 50);
  EXPECT_EQ(stored->BestAskQueueSize, 50);
  for (uint32_t i = 0; i < 50; ++i) {
    EXPECT_EQ(stored->BestBidQueue[i], 7000000 + i) << i;
    EXPECT_EQ(stored->BestAskQueue[i], 7000060 + i) << i;
  }
}

TEST_F(SnapshotHandlersTest, ShanghaiIndexSkipsEachZeroValue) {
  CVelmarMarketData* stored = addRecord(1, "000001");
  // A message without volume is fresh only on a record whose volume is not
  // above 0; below 0 is the one case where skipping the volume shows.
  stored->TotalVolume = -1;
  CVelmarMarketData expected = *stored;
  applyGoldenSseIndex(expected);
  expected.PreClosePrice = stored->PreClosePrice;
  expected.TotalValue = stored->TotalValue;
  expected.LowPrice = stored->LowPrice;
  expected.TotalVolume = -1;
  // PreCloseIndex, Turnover, LowIndex and TotalVolumeTraded are 0; the others are written.
  FeedDatagram d = goldenSseIndex();
  d.u64(16, 0).u64(32, 0).u64(48, 0).u64(68, 0);
  feed(d);
  EXPECT_EQ(spi_.calls, 1);
  EXPECT_TRUE(sameRecord(expected, *stored));
}

}  // namespace

TEST_F(SnapshotHandlersTest, ShanghaiAveragePriceWithoutVolumeIsNotFinite) {
  CVelmarMarketData* stored = addRecord(1, "600000");
  stored->TotalVolume = 0;
  stored->UpdateTime = 10;
  // 999 raw units truncate to a volume of 0, and the average uses that.
  FeedDatagram d = FeedDatagram::shanghai(kSseSnapshot, 0);
  d.u32(4, 11).securityId(8, "600000").u64(60, 999).u64(68, 500000);
  feed(d);
  ASSERT_EQ(spi_.calls, 1);
  EXPECT_EQ(stored->TotalVolume, 0);
  EXPECT_EQ(stored->TotalValue, 5.0);
  EXPECT_TRUE(std::isinf(stored->AvgPrice));

  d.u32(4, 12).u64(68, 0);
  feed(d);
  ASSERT_EQ(spi_.calls, 2);
  EXPECT_TRUE(std::isnan(stored->AvgPrice));
}
