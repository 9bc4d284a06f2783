// The front's records of the simulated market: never ahead of the feed, so
// the library applies every later snapshot, and equal to what the feed's
// snapshots say at the moment of a snapshot round. Also the records kept
// from a feed alone, the true book text and the file replacement.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "sim/MarketEngine.h"
#include "sim/MarketRecords.h"

using namespace velmar::sim;

namespace {

using Key = std::pair<uint32_t, std::string>;

std::map<Key, CVelmarMarketData> byKey(const std::vector<CVelmarMarketData>& records) {
  std::map<Key, CVelmarMarketData> out;
  for (const CVelmarMarketData& r : records) out[{r.ExchangeID, r.SecurityID}] = r;
  return out;
}

MarketConfig busyMarket() {
  MarketConfig c;
  c.seed = 7;
  c.snapshotIntervalMs = 300;
  c.meanEventIntervalUs = 4000;
  return c;
}

// The library keeps a record unless a snapshot has more volume, or as much
// and a later stamp.
bool applies(const CVelmarMarketData& record, int64_t volume, int64_t stamp) {
  return volume > record.TotalVolume || (volume == record.TotalVolume && stamp > record.UpdateTime);
}

TEST(SimRecords, RecordsTakenBetweenStepsNeverHideTheNextSnapshot) {
  MarketEngine engine(busyMarket());
  auto records = byKey(engineRecords(engine));
  int checked = 0;
  for (int step = 0; step < 3000; ++step) {
    for (const Datagram& d : engine.step()) {
      const uint8_t* p = d.bytes.data();
      const size_t n = d.bytes.size();
      int64_t volume = -1, stamp = 0;
      std::string id;
      uint32_t exchange = 0;
      SzseSnapshotMsg sz;
      SseSnapshotMsg sh;
      SzseIndexMsg szi;
      SseIndexMsg shi;
      if (decode(p, n, &sz)) {
        exchange = 2, id = sz.SecurityID, volume = static_cast<int64_t>(sz.TotalVolumeTrade / 100);
        stamp = sz.OrigTime;
      } else if (decode(p, n, &sh)) {
        exchange = 1, id = sh.SecurityID, volume = static_cast<int64_t>(sh.TotalVolumeTrade / 1000);
        stamp = sh.DataTimeStamp;
      } else if (decode(p, n, &szi)) {
        exchange = 2, id = szi.SecurityID,
        volume = static_cast<int64_t>(szi.TotalVolumeTrade / 100);
        stamp = szi.OrigTime;
      } else if (decode(p, n, &shi)) {
        exchange = 1, id = shi.SecurityID;
        volume = static_cast<int64_t>(shi.TotalVolumeTraded / 1000);
        stamp = shi.DataTimeStamp;
      }
      if (volume < 0) continue;
      const CVelmarMarketData& r = records.at({exchange, id});
      ASSERT_TRUE(applies(r, volume, stamp))
          << id << " on " << exchange << ": record volume " << r.TotalVolume << " time "
          << r.UpdateTime << ", snapshot volume " << volume << " time " << stamp;
      ++checked;
    }
    records = byKey(engineRecords(engine));
  }
  EXPECT_GT(checked, 100);
}

TEST(SimRecords, AfterASnapshotRoundTheRecordsSayWhatTheSnapshotsSaid) {
  MarketEngine engine(busyMarket());
  FeedRecords feed;
  int rounds = 0;
  for (int step = 0; step < 3000 && rounds < 5; ++step) {
    bool round = false;
    for (const Datagram& d : engine.step()) {
      round = round || messageType(d.bytes) == kSzseSnapshotType;
      ASSERT_TRUE(feed.apply(d.bytes.data(), d.bytes.size()) || d.bytes.size() < 4);
    }
    if (!round) continue;
    ++rounds;
    for (const CVelmarMarketData& r : engineRecords(engine)) {
      SCOPED_TRACE(std::string(r.SecurityID) + " on " + std::to_string(r.ExchangeID));
      const CVelmarMarketData* f = feed.find(r.SecurityID, r.ExchangeID);
      ASSERT_NE(f, nullptr);
      EXPECT_EQ(r.SecurityType, f->SecurityType);
      EXPECT_EQ(r.TotalVolume, f->TotalVolume);
      EXPECT_EQ(r.TotalValue, f->TotalValue);
      EXPECT_EQ(r.LastPrice, f->LastPrice);
      EXPECT_EQ(r.HighPrice, f->HighPrice);
      EXPECT_EQ(r.LowPrice, f->LowPrice);
      // The Shanghai index message carries neither trades nor a phase; the
      // front's record has them from the engine.
      if (r.SecurityType == 2 && r.ExchangeID == 1) continue;
      EXPECT_EQ(r.NumTrades, f->NumTrades);
      EXPECT_EQ(std::string(r.TradingPhaseCode), std::string(f->TradingPhaseCode));
      if (r.SecurityType == 2) continue;
      EXPECT_EQ(r.PreClosePrice, f->PreClosePrice);
      EXPECT_LE(r.UpdateTime, f->UpdateTime);
      if (r.ExchangeID == 2) {
        EXPECT_EQ(r.UpperLimitPrice, f->UpperLimitPrice);
        EXPECT_EQ(r.LowerLimitPrice, f->LowerLimitPrice);
      }
      for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(r.BidPrice[i], f->BidPrice[i]) << "bid " << i;
        EXPECT_EQ(r.BidVolume[i], f->BidVolume[i]) << "bid " << i;
        EXPECT_EQ(r.AskPrice[i], f->AskPrice[i]) << "ask " << i;
        EXPECT_EQ(r.AskVolume[i], f->AskVolume[i]) << "ask " << i;
      }
      EXPECT_EQ(r.BestBidOrderCount, f->BestBidOrderCount);
      EXPECT_EQ(r.BestAskOrderCount, f->BestAskOrderCount);
      ASSERT_EQ(r.BestBidQueueSize, f->BestBidQueueSize);
      for (int i = 0; i < r.BestBidQueueSize; ++i) EXPECT_EQ(r.BestBidQueue[i], f->BestBidQueue[i]);
    }
  }
  EXPECT_EQ(rounds, 5);
}

TEST(SimRecords, LearningMakesEmptyRecordsInTheOrderOfFirstMention) {
  MarketEngine engine(busyMarket());
  FeedRecords feed;
  for (int step = 0; step < 2000; ++step) {
    for (const Datagram& d : engine.step()) feed.learn(d.bytes.data(), d.bytes.size());
  }
  EXPECT_EQ(feed.size(), engine.instruments().size());
  for (const CVelmarMarketData& r : feed.records()) {
    EXPECT_EQ(r.TotalVolume, 0) << r.SecurityID;
    EXPECT_EQ(r.UpdateTime, 0) << r.SecurityID;
    EXPECT_EQ(r.LastPrice, 0) << r.SecurityID;
  }
  const CVelmarMarketData* index = feed.find("000001", 1);
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(index->SecurityType, 2u);
  ASSERT_NE(feed.find("000001", 2), nullptr);
  EXPECT_EQ(feed.find("000001", 2)->SecurityType, 1u);
  EXPECT_EQ(feed.find("600000", 2), nullptr);

  const uint8_t unknown[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_FALSE(feed.apply(unknown, sizeof unknown));
  Bytes shortSnapshot = encode(SzseSnapshotMsg{});
  shortSnapshot.resize(40);
  EXPECT_FALSE(feed.apply(shortSnapshot.data(), shortSnapshot.size()));
}

TEST(SimRecords, AnIndexStandsAtItsPreviousCloseUntilPublished) {
  IndexValue x;
  x.exchange = Exchange::kShenzhen;
  x.id = "399001";
  x.preClose = 110000000;
  CVelmarMarketData r = indexRecord(x, 20240102093000000);
  EXPECT_EQ(r.SecurityType, 2u);
  EXPECT_EQ(r.PreClosePrice, 11000.0);
  EXPECT_EQ(r.LastPrice, 11000.0);
  EXPECT_EQ(r.UpdateTime, 20240102093000000);
  x.last = 110123400;
  EXPECT_EQ(indexRecord(x, 0).LastPrice, 11012.34);
}

TEST(SimRecords, TrueBookTextListsThePopulatedLevelsBestFirst) {
  TrueBook b;
  b.id = "000001";
  b.updateTime = 20240102093000123;
  b.lastPrice = 1152;
  b.volume = 2300;
  b.numTrades = 4;
  b.bids[0] = BookLevel{1151, 700, {{11, 300}, {12, 400}}};
  b.bids[1] = BookLevel{1149, 100, {{13, 100}}};
  b.asks[0] = BookLevel{1153, 500, {{14, 500}}};
  EXPECT_EQ(trueBookText(b),
            "vlmd-true-book 1\n"
            "id 000001 exchange 2 time 20240102093000123 last 11.52 volume 2300 trades 4\n"
            "bid 1 11.51 700 2\n"
            "bid 2 11.49 100 1\n"
            "ask 1 11.53 500 1\n");
}

TEST(SimRecords, ReplaceFileSwapsTheWholeFile) {
  // The test runs in a folder of its own under the build tree.
  const std::filesystem::path dir = std::filesystem::current_path() / "replace-file-test";
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  const std::string path = (dir / "book.txt").string();
  auto read = [&] {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  };
  std::string error;
  ASSERT_TRUE(replaceFile(path, "first\nlonger text\n", &error)) << error;
  EXPECT_EQ(read(), "first\nlonger text\n");
  ASSERT_TRUE(replaceFile(path, "second\n", &error)) << error;
  EXPECT_EQ(read(), "second\n");
  EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
  EXPECT_FALSE(replaceFile((dir / "missing" / "book.txt").string(), "x", &error));
  EXPECT_FALSE(error.empty());
  std::filesystem::remove_all(dir);
}

}  // namespace
