// The simulator's front records and true book, as far as the library's tests
// and the demo rely on them: a record is never ahead of the feed (so the
// library applies every later snapshot), and the console reads the true book
// text from a file that is replaced whole.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "sim/MarketEngine.h"
#include "sim/MarketRecords.h"
#include "support/TempDir.h"

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

bool isSnapshot(const Bytes& d) {
  const uint32_t t = messageType(d);
  return t == kSzseSnapshotType || t == kSseSnapshotType || t == kSzseIndexType ||
         t == kSseIndexType;
}

}  // namespace

TEST(SimRecords, RecordsTakenBetweenStepsNeverHideTheNextSnapshot) {
  MarketEngine engine(busyMarket());
  auto records = byKey(engineRecords(engine));
  int checked = 0;
  for (int step = 0; step < 3000; ++step) {
    for (const Datagram& d : engine.step()) {
      if (!isSnapshot(d.bytes)) continue;
      FeedRecords one;  // what this snapshot says, in the record's units
      ASSERT_TRUE(one.apply(d.bytes.data(), d.bytes.size()));
      const CVelmarMarketData s = one.records().at(0);
      const CVelmarMarketData& r = records.at({s.ExchangeID, s.SecurityID});
      // The library keeps its record unless a snapshot has more volume, or as
      // much and a later stamp.
      ASSERT_TRUE(s.TotalVolume > r.TotalVolume ||
                  (s.TotalVolume == r.TotalVolume && s.UpdateTime > r.UpdateTime))
          << s.SecurityID << " on " << s.ExchangeID << ": record volume " << r.TotalVolume
          << " time " << r.UpdateTime << ", snapshot volume " << s.TotalVolume << " time "
          << s.UpdateTime;
      ++checked;
    }
    records = byKey(engineRecords(engine));
  }
  EXPECT_GT(checked, 100);
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
  velmar::testing::TempDir dir("replace_file");
  const std::string path = dir / "book.txt";
  std::string error;
  ASSERT_TRUE(replaceFile(path, "first\nlonger text\n", &error)) << error;
  ASSERT_TRUE(replaceFile(path, "second\n", &error)) << error;
  EXPECT_EQ(dir.files(), std::vector<std::string>{"book.txt"});  // nothing left beside it
  EXPECT_EQ(dir.read("book.txt"), "second\n");
  EXPECT_FALSE(replaceFile(dir / "missing/book.txt", "x", &error));
  EXPECT_FALSE(error.empty());
}
