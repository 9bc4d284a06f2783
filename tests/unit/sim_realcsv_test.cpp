// Conversion of vendor CSV exports into feed datagrams: a real Shenzhen day
// (read from beside the repository, skipped when absent) and malformed input.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>

#include "sim/FeedEncoder.h"
#include "sim/RealCsv.h"
#include "utility/Platform.h"

using namespace velmar::sim;

TEST(SimRealCsv, ShenzhenDayKeepsItsOrdersTradesAndVolume) {
  const std::string prefix = std::string(VLMD_REAL_DATA_DIR) + "/szse-300446-20171229";
  if (!velmar::platform::pathExists((prefix + "-orders.csv").c_str())) {
    GTEST_SKIP() << "real samples not found at " << VLMD_REAL_DATA_DIR;
  }
  CsvSession s;
  std::string error;
  ASSERT_TRUE(convertRealCsv(prefix, 2021, &s, &error)) << error;
  EXPECT_EQ(s.securityId, "300446");
  EXPECT_TRUE(s.shenzhen);
  EXPECT_EQ(s.orders, 2499);
  EXPECT_EQ(s.executions, 1576);
  EXPECT_EQ(s.cancellations, 530);
  EXPECT_EQ(s.snapshots, 1877);
  ASSERT_EQ(s.datagrams.size(), 2499u + 1576 + 530 + 1877);

  // Every execution and cancellation names an order seen before it, the
  // sequence only rises, and the executions add up to the last snapshot's
  // volume.
  std::map<int64_t, int64_t> remaining;  // ApplSeqNum -> shares
  int64_t lastSeq = 0, lastTimeUs = 0, executed = 0;
  SzseSnapshotMsg lastSnapshot;
  for (const Datagram& d : s.datagrams) {
    ASSERT_GE(d.timeUs, lastTimeUs);
    lastTimeUs = d.timeUs;
    SzseOrderMsg o;
    SzseTradeMsg t;
    if (decode(d.bytes, &o)) {
      ASSERT_GT(o.ApplSeqNum, lastSeq);
      lastSeq = o.ApplSeqNum;
      ASSERT_EQ(o.ChannelNo, 2021);
      remaining[o.ApplSeqNum] = static_cast<int64_t>(o.OrderQty / 100);
    } else if (decode(d.bytes, &t)) {
      ASSERT_GT(t.ApplSeqNum, lastSeq);
      lastSeq = t.ApplSeqNum;
      int64_t qty = static_cast<int64_t>(t.LastQty / 100);
      if (t.ExecType == 'F') {
        ASSERT_EQ(remaining.count(t.BidApplSeqNum), 1u) << t.ApplSeqNum;
        ASSERT_EQ(remaining.count(t.OfferApplSeqNum), 1u) << t.ApplSeqNum;
        executed += qty;
      } else {
        ASSERT_EQ(t.ExecType, '4');
        ASSERT_EQ(t.LastPx, 0u);
        int64_t id = t.BidApplSeqNum > 0 ? t.BidApplSeqNum : t.OfferApplSeqNum;
        ASSERT_EQ(remaining.count(id), 1u) << t.ApplSeqNum;
      }
    } else {
      ASSERT_TRUE(decode(d.bytes, &lastSnapshot));
    }
  }
  EXPECT_EQ(executed, 960016);
  EXPECT_EQ(lastSnapshot.TotalVolumeTrade, 96001600u);
  EXPECT_EQ(lastSnapshot.NumTrades, 1576);
  EXPECT_EQ(lastSnapshot.LastPx, 22150000u);               // 221500 x10000 -> x1000000
  EXPECT_EQ(lastSnapshot.TotalValueTrade, 209340130000u);  // yuan x10000
  EXPECT_EQ(lastSnapshot.OfferPx[0], 22150000u);
  EXPECT_EQ(lastSnapshot.OfferQty[0], 80000u);
  EXPECT_EQ(lastSnapshot.OrigTime, 20171229150003000LL);
}

TEST(SimRealCsv, ReportsTheBadLine) {
  // Each case writes both files that a Shanghai day needs, so that nothing
  // depends on what an earlier run left in the folder.
  const std::string header = "code,id,date,time,\n";
  std::string zeros;
  for (int i = 0; i < 57; ++i) zeros += "0,";
  const std::string goodSnapshot = "600000.SH,600000,20230103,93000000," + zeros + "\n";
  const std::string goodTrade = "600000.SH,600000,20230103,92900000,1, , ,B,72000,100,5,6,\n";
  auto write = [&](const std::string& trades, const std::string& snapshots) {
    std::ofstream("csv_test-trades.csv", std::ios::trunc) << header << trades;
    std::ofstream("csv_test-snapshots.csv", std::ios::trunc) << header << snapshots;
  };
  CsvSession s;
  std::string error;

  // Too few columns in a snapshot.
  write(goodTrade, "600000.SH,600000,20230103,93000000,0\n");
  EXPECT_FALSE(convertRealCsv("csv_test", 1, &s, &error));
  EXPECT_NE(error.find("csv_test-snapshots.csv:2: 5 fields, 61 expected"), std::string::npos)
      << error;

  // A letter in a number column of a trade.
  write(goodTrade + "600000.SH,600000,20230103,93000200,2, , ,B,72x00,100,5,6,\n", goodSnapshot);
  EXPECT_FALSE(convertRealCsv("csv_test", 1, &s, &error));
  EXPECT_NE(error.find("csv_test-trades.csv:3: column 9 '72x00' is not a number"),
            std::string::npos)
      << error;

  // A missing file.
  std::remove("csv_test-trades.csv");
  EXPECT_FALSE(convertRealCsv("csv_test", 1, &s, &error));
  EXPECT_EQ(error, "cannot open csv_test-trades.csv");

  // Fixed, it converts: one trade, one snapshot behind it by time.
  write(goodTrade, goodSnapshot);
  ASSERT_TRUE(convertRealCsv("csv_test", 1, &s, &error)) << error;
  ASSERT_EQ(s.datagrams.size(), 2u);
  SseTradeMsg t;
  ASSERT_TRUE(decode(s.datagrams[0].bytes, &t));
  EXPECT_EQ(t.TradePrice, 7200u);
  EXPECT_EQ(t.TradeQty, 100000u);
  EXPECT_EQ(t.TradeMoney, 72000000u);  // 720 yuan x100000
  EXPECT_EQ(t.TradeTime, 92900000u);
  EXPECT_EQ(s.datagrams[1].timeUs, 60000000);  // one minute later
  EXPECT_EQ(messageType(s.datagrams[1].bytes), kSseSnapshotType);
}
