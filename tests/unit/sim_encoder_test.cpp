// The simulator's feed encoding. Expected bytes come from literal datagram
// offsets (Shenzhen body offsets plus 4) or from the byte-by-byte builders
// that the library's own tests use, never from the encoder's offset tables.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "sim/FeedEncoder.h"
#include "support/Datagram.h"

using namespace velmar::sim;

namespace {

// Little-endian integer of `width` bytes at a datagram offset.
uint64_t at(const Bytes& b, size_t offset, size_t width) {
  uint64_t v = 0;
  for (size_t i = 0; i < width; ++i) v |= static_cast<uint64_t>(b.at(offset + i)) << (8 * i);
  return v;
}

std::string text(const Bytes& b, size_t offset, size_t width) {
  return std::string(reinterpret_cast<const char*>(&b.at(offset)), width);
}

// The whole encoded datagram equals the builder's first bytes, and the
// builder has nothing behind them.
void expectSameAs(const Bytes& encoded, const velmar::testing::Datagram& built) {
  const auto* raw = reinterpret_cast<const uint8_t*>(built.data());
  for (size_t i = 0; i < encoded.size(); ++i) {
    ASSERT_EQ(encoded[i], raw[i]) << "byte " << i;
  }
  for (size_t i = encoded.size(); i < 200; ++i) ASSERT_EQ(raw[i], 0) << "byte " << i;
}

}  // namespace

TEST(SimEncoder, TickMessagesMatchHandWrittenDatagrams) {
  SzseOrderMsg o;
  o.ChannelNo = 0xBEEF;
  o.ApplSeqNum = 0x0102030405060708LL;
  o.MDStreamID = "MDS";
  o.SecurityID = "000001";
  o.Price = 100500;
  o.OrderQty = 12345678901ULL;
  o.Side = '1';
  o.OrderTime = 20240102093015123LL;
  o.OrdType = '2';
  Bytes b = encode(o);
  EXPECT_EQ(b.size(), 55u);
  expectSameAs(b, velmar::testing::szseOrder(0xBEEF, 0x0102030405060708LL, "000001", 100500,
                                             12345678901ULL, '1', 20240102093015123LL, '2'));

  SzseTradeMsg t;
  t.ChannelNo = 2011;
  t.ApplSeqNum = 77;
  t.MDStreamID = "MDS";
  t.BidApplSeqNum = 101;
  t.OfferApplSeqNum = 0x7000000000000001LL;
  t.SecurityID = "300446";
  t.LastPx = 152300;
  t.LastQty = 40000;
  t.ExecType = 'F';
  t.TransactTime = 20240102093015999LL;
  b = encode(t);
  EXPECT_EQ(b.size(), 70u);
  expectSameAs(b, velmar::testing::szseTrade(2011, 77, "300446", 152300, 40000, 'F',
                                             20240102093015999LL, 101, 0x7000000000000001LL));

  SseTradeMsg s;
  s.TradeIndex = -5;
  s.TradeChannel = 0x01020304;
  s.SecurityID = "600519";
  s.TradeTime = 93015123;
  s.TradePrice = 1750010;
  s.TradeQty = 300000;
  s.TradeMoney = 52500300000ULL;
  s.TradeBuyNo = 0x1122334455667788ULL;
  s.TradeSellNo = 9;
  s.TradeBSFlag = 'S';
  b = encode(s);
  EXPECT_EQ(b.size(), 65u);
  expectSameAs(b,
               velmar::testing::sseTrade(0x01020304, -5, "600519", 1750010, 300000, 52500300000ULL,
                                         93015123, 0x1122334455667788ULL, 9, 'S'));
}

TEST(SimEncoder, ShenzhenSnapshotAtLiteralOffsets) {
  SzseSnapshotMsg m;
  m.OrigTime = 20240102093003000LL;
  m.ChannelNo = 1011;
  m.SecurityID = "002415";
  m.TradingPhaseCode = "T0";
  m.PrevClosePx = 338000;
  m.NumTrades = 0x0102030405LL;
  m.TotalVolumeTrade = 0x1122334455ULL;
  m.TotalValueTrade = 0x66778899AAULL;
  m.LastPx = 33810000;
  m.OpenPx = 33800000;
  m.HighPx = 33900000;
  m.LowPx = 33700000;
  m.AvgPx = 33812345;
  m.UpperLimitPx = 37180000;
  m.LowerLimitPx = 30420000;
  m.TotalBidQty = 123400;
  m.TotalOfferQty = 567800;
  m.WeightedAvgBidPx = 33500000;
  m.WeightedAvgOfferPx = 34100000;
  for (uint32_t i = 0; i < 10; ++i) {
    m.BidPx[i] = 33800000 - i * 10000;
    m.BidQty[i] = 1000 + i;
    m.OfferPx[i] = 33810000 + i * 10000;
    m.OfferQty[i] = 2000 + i;
  }
  m.BestBidNumOrders = 3;
  m.BestOfferNumOrders = 2;
  m.BidQueue = {100, 200, 300};
  m.OfferQueue = {400, 500};
  Bytes b = encode(m);
  ASSERT_EQ(b.size(), 4u + 380 + 5 * 4);
  EXPECT_EQ(at(b, 0, 4), 300111u);
  EXPECT_EQ(at(b, 4, 8), 20240102093003000ULL);
  EXPECT_EQ(at(b, 12, 2), 1011u);
  EXPECT_EQ(text(b, 14, 3), "010");
  EXPECT_EQ(text(b, 17, 8), std::string("002415\0\0", 8));
  EXPECT_EQ(text(b, 25, 4), std::string("102\0", 4));
  EXPECT_EQ(text(b, 29, 8), std::string("T0\0\0\0\0\0\0", 8));
  EXPECT_EQ(at(b, 37, 4), 338000u);
  EXPECT_EQ(at(b, 41, 8), 0x0102030405ULL);
  EXPECT_EQ(at(b, 49, 8), 0x1122334455ULL);
  EXPECT_EQ(at(b, 57, 8), 0x66778899AAULL);
  EXPECT_EQ(at(b, 65, 4), 33810000u);
  EXPECT_EQ(at(b, 69, 4), 33800000u);
  EXPECT_EQ(at(b, 73, 4), 33900000u);
  EXPECT_EQ(at(b, 77, 4), 33700000u);
  EXPECT_EQ(at(b, 81, 4), 33812345u);
  EXPECT_EQ(at(b, 85, 4), 37180000u);
  EXPECT_EQ(at(b, 89, 4), 30420000u);
  EXPECT_EQ(at(b, 93, 8), 123400u);
  EXPECT_EQ(at(b, 101, 8), 567800u);
  EXPECT_EQ(at(b, 109, 4), 33500000u);
  EXPECT_EQ(at(b, 113, 4), 34100000u);
  EXPECT_EQ(at(b, 121, 4), 0u);  // unread gap stays zero
  for (size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(at(b, 125 + 4 * i, 4), 33800000 - i * 10000) << i;
    EXPECT_EQ(at(b, 165 + 8 * i, 8), 1000 + i) << i;
    EXPECT_EQ(at(b, 245 + 4 * i, 4), 33810000 + i * 10000) << i;
    EXPECT_EQ(at(b, 285 + 8 * i, 8), 2000 + i) << i;
  }
  EXPECT_EQ(at(b, 365, 4), 3u);
  EXPECT_EQ(at(b, 369, 4), 2u);
  EXPECT_EQ(at(b, 373, 1), 3u);
  EXPECT_EQ(at(b, 374, 1), 2u);
  const uint32_t queue[] = {100, 200, 300, 400, 500};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(at(b, 384 + 4 * i, 4), queue[i]) << i;
}

TEST(SimEncoder, ShanghaiSnapshotAtLiteralOffsets) {
  SseSnapshotMsg m;
  m.DataTimeStamp = 93003000;
  m.SecurityID = "600000";
  m.PreClosePx = 7200;
  m.LastPx = 7210;
  m.TradingPhaseCode = "T111";
  m.NumTrades = 0xFFFFFFF0u;
  m.TotalVolumeTrade = 0x123456789AULL;
  m.TotalValueTrade = 0xABCDEF0123ULL;
  m.WithdrawBuyNumber = 7;
  m.WithdrawBuyAmount = 0x0102030405ULL;
  m.WithdrawSellMoney = 99;
  m.TotalOfferNumber = 41;
  m.NumBidOrders = 12;
  m.NumOfferOrders = 13;
  m.BidPx[0] = 7200;
  m.BidQty[9] = 0x1000000001ULL;
  m.OfferPx[9] = 7300;
  m.OfferQty[0] = 5000;
  m.BestBidNumOrders = 1;
  m.BestOfferNumOrders = 60;
  m.BidQueue = {700};
  m.OfferQueue.assign(50, 1);
  m.OfferQueue[49] = 0xDEADBEEF;
  Bytes b = encode(m);
  ASSERT_EQ(b.size(), 480u + 51 * 4);
  EXPECT_EQ(at(b, 0, 4), 3202u);
  EXPECT_EQ(at(b, 4, 4), 93003000u);
  EXPECT_EQ(text(b, 8, 8), std::string("600000\0\0", 8));
  EXPECT_EQ(at(b, 16, 4), 7200u);
  EXPECT_EQ(at(b, 32, 4), 7210u);
  EXPECT_EQ(text(b, 48, 8), std::string("T111\0\0\0\0", 8));
  EXPECT_EQ(at(b, 56, 4), 0xFFFFFFF0u);
  EXPECT_EQ(at(b, 60, 8), 0x123456789AULL);
  EXPECT_EQ(at(b, 68, 8), 0xABCDEF0123ULL);
  EXPECT_EQ(at(b, 164, 4), 7u);
  EXPECT_EQ(at(b, 168, 8), 0x0102030405ULL);
  EXPECT_EQ(at(b, 196, 4), 99u);
  EXPECT_EQ(at(b, 208, 4), 41u);
  EXPECT_EQ(at(b, 220, 4), 12u);
  EXPECT_EQ(at(b, 224, 4), 13u);
  EXPECT_EQ(at(b, 228, 4), 7200u);
  EXPECT_EQ(at(b, 268 + 72, 8), 0x1000000001ULL);
  EXPECT_EQ(at(b, 348 + 36, 4), 7300u);
  EXPECT_EQ(at(b, 388, 8), 5000u);
  EXPECT_EQ(at(b, 468, 4), 1u);
  EXPECT_EQ(at(b, 472, 4), 60u);
  EXPECT_EQ(at(b, 476, 2), 1u);
  EXPECT_EQ(at(b, 478, 2), 50u);
  EXPECT_EQ(at(b, 480, 4), 700u);
  EXPECT_EQ(at(b, 484, 4), 1u);  // the offer queue follows the bid queue
  EXPECT_EQ(at(b, 480 + 50 * 4, 4), 0xDEADBEEFu);
}

TEST(SimEncoder, IndexAndStatisticsAtLiteralOffsets) {
  SseIndexMsg x;
  x.DataTimeStamp = 93003001;
  x.SecurityID = "000001";
  x.PreCloseIndex = 310000000;
  x.OpenIndex = 310100000;
  x.Turnover = 0x0A0B0C0D0EULL;
  x.HighIndex = 310500000;
  x.LowIndex = 309900000;
  x.LastIndex = 310200000;
  x.TotalVolumeTraded = 0x0F0E0D0C0BULL;
  x.CloseIndex = 1;
  Bytes b = encode(x);
  ASSERT_EQ(b.size(), 84u);
  const uint64_t sse[][3] = {{0, 3113, 4},
                             {4, 93003001, 4},
                             {16, 310000000, 8},
                             {24, 310100000, 8},
                             {32, 0x0A0B0C0D0EULL, 8},
                             {40, 310500000, 8},
                             {48, 309900000, 8},
                             {56, 310200000, 8},
                             {64, 0, 4},
                             {68, 0x0F0E0D0C0BULL, 8},
                             {76, 1, 8}};
  for (const auto& f : sse) EXPECT_EQ(at(b, f[0], f[2]), f[1]) << "offset " << f[0];

  SzseIndexMsg z;
  z.OrigTime = 20240102093003002LL;
  z.ChannelNo = 9001;
  z.SecurityID = "399001";
  z.TradingPhaseCode = "T0";
  z.NumTrades = 1234;
  z.TotalVolumeTrade = 5678;
  z.TotalValueTrade = 91011;
  z.LastIndex = 11000000001ULL;
  z.PreCloseIndex = 11000000002ULL;
  z.OpenIndex = 11000000003ULL;
  z.HighIndex = 11000000004ULL;
  z.LowIndex = 11000000005ULL;
  b = encode(z);
  ASSERT_EQ(b.size(), 109u);
  const uint64_t szse[][3] = {{0, 309011, 4},          {4, 20240102093003002ULL, 8},
                              {12, 9001, 2},           {37, 0, 8},
                              {45, 1234, 8},           {53, 5678, 8},
                              {61, 91011, 8},          {69, 11000000001ULL, 8},
                              {77, 11000000002ULL, 8}, {85, 11000000003ULL, 8},
                              {93, 11000000004ULL, 8}, {101, 11000000005ULL, 8}};
  for (const auto& f : szse) EXPECT_EQ(at(b, f[0], f[2]), f[1]) << "offset " << f[0];
  EXPECT_EQ(text(b, 17, 8), std::string("399001\0\0", 8));

  SzseVolumeStatMsg v;
  v.OrigTime = 7;
  v.SecurityID = "000001";
  v.PrevClosePx = 115000;
  v.NumTrades = 8;
  v.TotalVolumeTrade = 9;
  v.TotalValueTrade = 10;
  b = encode(v);
  ASSERT_EQ(b.size(), 69u);
  const uint64_t stat[][3] = {{0, 309111, 4}, {4, 7, 8},  {37, 115000, 8},
                              {45, 8, 8},     {53, 9, 8}, {61, 10, 8}};
  for (const auto& f : stat) EXPECT_EQ(at(b, f[0], f[2]), f[1]) << "offset " << f[0];
}

TEST(SimEncoder, DecodeReversesEncodeForEveryType) {
  SzseSnapshotMsg snap;
  snap.OrigTime = 5;
  snap.SecurityID = "300446";
  snap.BidPx[3] = 42;
  snap.BidQueue = {1, 2};
  snap.OfferQueue = {3};
  SseSnapshotMsg sse;
  sse.SecurityID = "600519";
  sse.OfferQty[7] = 1ULL << 40;
  sse.OfferQueue = {9, 8, 7};
  SzseOrderMsg order;
  order.SecurityID = "002415";
  order.ApplSeqNum = -3;
  SzseTradeMsg trade;
  trade.SecurityID = "000001";
  trade.ExecType = '4';
  SseTradeMsg sseTrade;
  sseTrade.SecurityID = "600000";
  sseTrade.TradeIndex = -1;
  SseIndexMsg sseIndex;
  sseIndex.SecurityID = "000001";
  sseIndex.LastIndex = 3;
  SzseIndexMsg szseIndex;
  szseIndex.SecurityID = "399001";
  szseIndex.TradingPhaseCode = "ABCDEFGH";  // all eight bytes, no NUL
  SzseVolumeStatMsg stat;
  stat.SecurityID = "000001";
  stat.PrevClosePx = 11;

  // Decoding and encoding again gives the same bytes; a field or two shows
  // that decoding did fill the struct.
  auto roundTrip = [](const auto& m) {
    using M = std::decay_t<decltype(m)>;
    Bytes b = encode(m);
    M back;
    EXPECT_TRUE(decode(b, &back));
    EXPECT_EQ(encode(back), b);
    EXPECT_EQ(back.SecurityID, m.SecurityID);
    return back;
  };
  EXPECT_EQ(roundTrip(snap).BidQueue, (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(roundTrip(sse).OfferQueue, (std::vector<uint32_t>{9, 8, 7}));
  EXPECT_EQ(roundTrip(order).ApplSeqNum, -3);
  EXPECT_EQ(roundTrip(trade).ExecType, '4');
  EXPECT_EQ(roundTrip(sseTrade).TradeIndex, -1);
  EXPECT_EQ(roundTrip(sseIndex).LastIndex, 3u);
  EXPECT_EQ(roundTrip(szseIndex).TradingPhaseCode, "ABCDEFGH");
  EXPECT_EQ(roundTrip(stat).PrevClosePx, 11u);
}

TEST(SimEncoder, DecodeRefusesWrongTypeAndShortDatagrams) {
  SzseOrderMsg order;
  order.SecurityID = "000001";
  Bytes b = encode(order);
  SzseTradeMsg trade;
  EXPECT_FALSE(decode(b, &trade));
  EXPECT_FALSE(decode(b.data(), b.size() - 1, &order));
  EXPECT_EQ(messageType(b.data(), 3), 0u);

  // A snapshot whose counts promise more queue entries than it carries.
  SzseSnapshotMsg snap;
  snap.SecurityID = "000001";
  snap.BidQueue = {1, 2, 3};
  b = encode(snap);
  EXPECT_TRUE(decode(b, &snap));
  EXPECT_FALSE(decode(b.data(), b.size() - 4, &snap));
}

TEST(SimEncoder, RefusesWhatTheLayoutCannotHold) {
  SzseOrderMsg order;
  order.SecurityID = "12345678";  // no room left for the NUL
  EXPECT_THROW(encode(order), std::invalid_argument);
  order.SecurityID = "1234567";
  EXPECT_NO_THROW(encode(order));

  SzseSnapshotMsg snap;
  snap.SecurityID = "000001";
  snap.BidQueue.assign(256, 1);  // the count is one byte
  EXPECT_THROW(encode(snap), std::invalid_argument);
  snap.BidQueue.assign(255, 1);
  EXPECT_EQ(encode(snap).size(), 4u + 380 + 255 * 4);

  SseSnapshotMsg sse;
  sse.TradingPhaseCode = "123456789";
  EXPECT_THROW(encode(sse), std::invalid_argument);
}
