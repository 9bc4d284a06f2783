// The simulator, as far as the library's tests rely on it: a front record is
// never ahead of the feed (so the library applies every later snapshot), and
// its multicast sender stays on loopback in a scoped group.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "sim/MarketEngine.h"
#include "sim/MarketRecords.h"
#include "sim/MulticastSender.h"

using namespace velmar::sim;

TEST(SimRecords, RecordsTakenBetweenStepsNeverHideTheNextSnapshot) {
  MarketConfig c;
  c.seed = 7;
  c.snapshotIntervalMs = 300;
  c.meanEventIntervalUs = 4000;
  MarketEngine engine(c);
  std::map<std::pair<uint32_t, std::string>, CVelmarMarketData> records;
  auto takeRecords = [&] {
    for (const CVelmarMarketData& r : engineRecords(engine))
      records[{r.ExchangeID, r.SecurityID}] = r;
  };
  takeRecords();
  int checked = 0;
  for (int step = 0; step < 3000; ++step) {
    for (const Datagram& d : engine.step()) {
      const uint32_t t = messageType(d.bytes);
      if (t != feed::kSzseSnapshot && t != feed::kSseSnapshot && t != feed::kSzseIndex &&
          t != feed::kSseIndex)
        continue;
      FeedRecords one;  // what this snapshot says, in the record's units
      ASSERT_TRUE(one.apply(d.bytes.data(), d.bytes.size()));
      const CVelmarMarketData s = one.records().at(0);
      const CVelmarMarketData& r = records.at({s.ExchangeID, s.SecurityID});
      // The library keeps its record unless a snapshot has more volume, or as
      // much and a later stamp.
      ASSERT_TRUE(s.TotalVolume > r.TotalVolume ||
                  (s.TotalVolume == r.TotalVolume && s.UpdateTime > r.UpdateTime))
          << s.SecurityID << " on " << s.ExchangeID << ": record " << r.TotalVolume << "@"
          << r.UpdateTime << ", snapshot " << s.TotalVolume << "@" << s.UpdateTime;
      ++checked;
    }
    takeRecords();
  }
  EXPECT_GT(checked, 100);
}

// Only groups of 239.255.0.0/16 and the interface 127.0.0.1 are accepted.
TEST(SimMulticast, OnlyScopedGroupsAndLoopback) {
  for (const char* good : {"239.255.0.0", "239.255.255.255"})
    EXPECT_EQ(checkGroup(good), "") << good;
  for (const char* bad : {"239.254.255.255", "224.0.0.1", "127.0.0.1", "239.255.0.256",
                          "239.255.0001.1", " 239.255.0.1", "239.255.0.1.", ""})
    EXPECT_NE(checkGroup(bad), "") << bad;
  EXPECT_EQ(checkInterface("127.0.0.1"), "");
  for (const char* bad : {"127.0.0.2", "0.0.0.0", "localhost"})
    EXPECT_NE(checkInterface(bad), "") << bad;

  MulticastSender sender;
  std::string error;
  EXPECT_FALSE(sender.open("224.0.0.251", 30001, "127.0.0.1", &error));
  EXPECT_NE(error.find("239.255.0.0/16"), std::string::npos) << error;
  EXPECT_FALSE(sender.open("239.255.0.1", 30001, "0.0.0.0", &error));
  EXPECT_NE(error.find("127.0.0.1"), std::string::npos) << error;
  EXPECT_FALSE(sender.send(reinterpret_cast<const uint8_t*>("x"), 1));
}
