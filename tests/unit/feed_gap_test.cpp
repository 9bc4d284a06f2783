// The feed's gap tracking, its counters and the locks its callbacks run
// under: what a channel's line reports, that the receiver's counters add up
// against a known stream, and which lock each callback holds in both
// settings of callbacks.serialize.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "VLClientApi/DatagramLength.h"
#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/MdApiImpl.h"
#include "support/Datagram.h"
#include "support/LogCapture.h"
#include "support/RecordingSpi.h"
#include "support/SnapshotDatagrams.h"
#include "support/TestAccess.h"

using velmar::mdapi::Feed;
using velmar::mdapi::MdApiImpl;
using velmar::mdapi::SessionCore;
using velmar::mdapi::TestAccess;
using velmar::mdapi::VelmarMdStatusSpi;
using velmar::test_support::FeedDatagram;
using velmar::testing::Datagram;
using velmar::testing::LogCapture;
using velmar::testing::RecordingSpi;
using velmar::testing::sseTrade;
using velmar::testing::szseOrder;
using velmar::testing::szseTrade;
using velmar::utility::Logger;
namespace feed = velmar::mdapi::feed;

namespace {

struct Gap {
  int channel;
  int64_t expected;
  int64_t received;
  size_t ticksBefore;  // ticks delivered when the gap came
  bool operator==(const Gap& o) const {
    return channel == o.channel && expected == o.expected && received == o.received &&
           ticksBefore == o.ticksBefore;
  }
};
std::ostream& operator<<(std::ostream& os, const Gap& g) {
  return os << "{" << g.channel << ", " << g.expected << ", " << g.received << ", "
            << g.ticksBefore << "}";
}

class GapSpi : public VelmarMdStatusSpi {
 public:
  explicit GapSpi(const RecordingSpi& ticks) : ticks_(ticks) {}
  void OnFeedGap(int channelNo, int64_t expectedSeq, int64_t receivedSeq) override {
    gaps.push_back({channelNo, expectedSeq, receivedSeq, ticks_.ticks.size()});
  }
  std::vector<Gap> gaps;

 private:
  const RecordingSpi& ticks_;
};

class FeedGapTest : public ::testing::Test {
 protected:
  FeedGapTest() {
    api_.RegisterSpi(&spi_);
    api_.RegisterStatusSpi(&status_);
    core_.connected_ = true;
    core_.loggedIn_ = true;
  }
  void feed(const Datagram& d) { feed_.onFeedDatagram(d.data()); }
  CVelmarStatistics statistics() {
    CVelmarStatistics s;
    std::memset(&s, 0, sizeof s);
    s.Size = sizeof s;
    EXPECT_EQ(api_.GetStatistics(&s), 0);
    return s;
  }

  LogCapture log_{Logger::INFO};
  RecordingSpi spi_;
  GapSpi status_{spi_};
  MdApiImpl api_;
  SessionCore& core_ = TestAccess::core(api_);
  Feed& feed_ = TestAccess::feed(api_);
};

// Shorthands for the table: a Shenzhen order or trade of "000001" (or of an
// instrument nobody subscribed), a Shanghai trade.
Datagram order(uint16_t ch, int64_t seq, const char* id = "000001") {
  return szseOrder(ch, seq, id, 100, 100, '1', 1);
}
Datagram trade(uint16_t ch, int64_t seq, const char* id = "000001") {
  return szseTrade(ch, seq, id, 100, 100, 'F', 1);
}
Datagram shTrade(uint32_t ch, int32_t seq) { return sseTrade(ch, seq, "600000", 1, 1000, 0, 1); }

}  // namespace

TEST_F(FeedGapTest, ChannelLinesReportExactlyTheMissingRange) {
  struct Case {
    const char* name;
    std::vector<Datagram> stream;
    std::vector<Gap> gaps;
    uint64_t missing;
  };
  const Case cases[] = {
      {"a jump on one channel", {order(1, 1), order(1, 2), order(1, 5)}, {{1, 3, 5, 2}}, 2},
      {"a channel's first number is no gap", {order(1, 100), order(1, 101)}, {}, 0},
      {"orders and trades share the Shenzhen line",
       {order(1, 1), trade(1, 2), order(1, 3), trade(1, 6), order(1, 7)},
       {{1, 4, 6, 3}},
       2},
      {"each channel on its own",
       {order(1, 1), order(2, 10), order(1, 2), order(2, 12), order(1, 4)},
       {{2, 11, 12, 3}, {1, 3, 4, 4}},
       2},
      // (The sequence check of subscribed instruments has always shared one
      // number between the two exchanges' channel 1: it refuses Shanghai's
      // 2 and 9 behind Shenzhen's 50, so three ticks come before the gap.)
      {"Shanghai and Shenzhen channels of one number are two lines",
       {shTrade(1, 1), order(1, 50), shTrade(1, 2), order(1, 51), shTrade(1, 9)},
       {{1, 3, 9, 3}},
       6},
      {"repeats and older numbers are no gaps",
       {order(1, 5), order(1, 5), order(1, 3), trade(1, 4), order(1, 6)},
       {},
       0},
      {"unsubscribed instruments fill the line",
       {order(1, 1), order(1, 2, "000002"), trade(1, 3, "000003"), order(1, 4)},
       {},
       0},
      {"a gap among unsubscribed instruments is one",
       {order(1, 1), order(1, 2, "000002"), order(1, 7, "000002")},
       {{1, 3, 7, 1}},
       4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MdApiImpl api;
    RecordingSpi spi;
    GapSpi status(spi);
    api.RegisterSpi(&spi);
    api.RegisterStatusSpi(&status);
    SessionCore& core = TestAccess::core(api);
    core.connected_ = true;
    core.loggedIn_ = true;
    TestAccess::subscriptions(api).addTicks("000001");
    core.allTickExchange1_ = true;
    for (const Datagram& d : c.stream) TestAccess::feed(api).onFeedDatagram(d.data());
    EXPECT_EQ(status.gaps, c.gaps);
    CVelmarStatistics s;
    s.Size = sizeof s;
    api.GetStatistics(&s);
    EXPECT_EQ(s.SequenceGaps, c.gaps.size());
    EXPECT_EQ(s.MessagesMissing, c.missing);
    EXPECT_EQ(s.CallbacksStatus, c.gaps.size());
  }
}

TEST_F(FeedGapTest, TheSequenceCheckOfSubscribedInstrumentsIsUnchanged) {
  // 000001's own numbers jump from 1 to 4 (the feed lost nothing: 2 and 3
  // are other instruments'); the check accepts the jump silently, as it did,
  // and refuses a repeat with its log line.
  TestAccess::subscriptions(api_).addTicks("000001");
  feed(order(1, 1));
  feed(order(1, 2, "000002"));
  feed(trade(1, 3, "000002"));
  feed(order(1, 4));
  feed(order(1, 4));
  ASSERT_EQ(spi_.ticks.size(), 2u);
  EXPECT_EQ(spi_.ticks[1].SeqNo, 4);
  EXPECT_TRUE(status_.gaps.empty());
  EXPECT_EQ(TestAccess::channelSeq(feed_).at(1), 4);
  EXPECT_NE(LogCapture::text().find("ORDER_LOST SecurityID: 000001 pre_seq 4 , Applseqnum 4"),
            std::string::npos)
      << LogCapture::text();
  EXPECT_EQ(statistics().DroppedBySequence, 1u);
}

TEST_F(FeedGapTest, ANewDayAndAClosedGateStartTheLinesAgain) {
  core_.allTickExchange2_ = true;
  feed(order(1, 500));
  feed_.forgetSequences();
  feed(order(1, 1));  // the new day's first: neither older nor a gap
  feed(order(1, 3));
  EXPECT_EQ(status_.gaps, (std::vector<Gap>{{1, 2, 3, 2}}));

  // While the gate is closed datagrams are ours to refuse, not lost.
  core_.loggedIn_ = false;
  feed(order(1, 4));
  feed(order(1, 5));
  core_.loggedIn_ = true;
  feed(order(1, 9));
  feed(order(1, 11));
  EXPECT_EQ(status_.gaps, (std::vector<Gap>{{1, 2, 3, 2}, {1, 10, 11, 4}}));
  EXPECT_EQ(statistics().DroppedByGate, 2u);
}

TEST_F(FeedGapTest, CountersAddUpAgainstAKnownStream) {
  // Every datagram goes through the receive step; each one ends in exactly one
  // of: a callback, the gate, the sequence check, a stale refusal, the
  // channel bound... or, for an instrument nobody subscribed, nowhere.
  TestAccess::subscriptions(api_).addTicks("000001");
  core_.snapshotsComplete_ = true;
  std::unique_ptr<CVelmarMarketData> record(new CVelmarMarketData());
  std::memset(record.get(), 0, sizeof *record);
  std::memcpy(record->SecurityID, "399001", 6);
  record->ExchangeID = 2;
  TestAccess::putRecord(TestAccess::subscriptions(api_), 2, "399001", std::move(record));
  auto index = [](int64_t time, uint64_t volume) {
    namespace m = feed::szse_index;
    FeedDatagram d = FeedDatagram::shenzhen(feed::kSzseIndex);
    d.i64(m::OrigTime, time).securityId(m::SecurityID, "399001").u64(m::TotalVolumeTrade, volume);
    return d;
  };

  std::vector<std::vector<char>> stream;
  auto add = [&stream](const char* data) {
    const size_t length = feed::expectedLength(data);
    stream.emplace_back(data, data + length);
  };
  int ticks = 0, bySequence = 0, stale = 0, marketData = 0;
  for (int64_t seq = 1; seq <= 40; ++seq) {
    add(order(7, seq).data()), ++ticks;
    if (seq % 10 == 0) add(order(7, seq).data()), ++bySequence;  // a repeat
    if (seq % 8 == 0) add(order(7, seq + 1000, "000002").data());  // skips 1000 numbers
  }
  for (int64_t t = 1; t <= 12; ++t) {
    add(index(t * 10, 1000).data()), ++marketData;
    if (t % 3 == 0) add(index(t * 10 - 5, 1000).data()), ++stale;  // older time, same volume
  }
  uint64_t bytes = 0;
  for (const auto& d : stream) bytes += d.size();

  auto receive = [this](const std::vector<char>& d) {
    std::memcpy(feed_.receiveBuffer().data(), d.data(), d.size());
    feed_.onDatagramReceived(d.size());
  };
  for (const auto& d : stream) receive(d);
  core_.connected_ = false;
  const int gated = 5;
  for (int i = 0; i < gated; ++i) receive(stream[static_cast<size_t>(i)]);
  const uint64_t unsubscribed = 40 / 8;  // the "000002" orders, refused by no one

  const CVelmarStatistics s = statistics();
  EXPECT_EQ(s.DatagramsReceived, stream.size() + gated);
  EXPECT_EQ(s.BytesReceived, bytes + stream[0].size() * 5);  // the first five are ticks alike
  EXPECT_EQ(s.CallbacksTickByTick, static_cast<uint64_t>(ticks));
  EXPECT_EQ(s.CallbacksMarketData, static_cast<uint64_t>(marketData));
  EXPECT_EQ(s.DroppedBySequence, static_cast<uint64_t>(bySequence));
  EXPECT_EQ(s.DroppedStale, static_cast<uint64_t>(stale));
  EXPECT_EQ(s.DroppedByGate, static_cast<uint64_t>(gated));
  EXPECT_EQ(s.ShortDatagrams, 0u);
  EXPECT_EQ(s.DatagramsReceived, s.CallbacksTickByTick + s.CallbacksMarketData +
                                     s.DroppedBySequence + s.DroppedStale + s.DroppedByGate +
                                     s.DroppedUnknownChannel + unsubscribed);
  // The first "000002" order jumps the line from 8 to 1008; the orders behind
  // it are older than that and move nothing, and each later "000002" order
  // lies 8 above the one before.
  EXPECT_EQ(s.SequenceGaps, unsubscribed);
  EXPECT_EQ(s.MessagesMissing, 999 + (unsubscribed - 1) * 7);
  EXPECT_EQ(spi_.ticks.size(), static_cast<size_t>(ticks));
  EXPECT_EQ(spi_.marketData.size(), static_cast<size_t>(marketData));
}

namespace {

// Records, in each callback, which of the session's locks the calling thread
// holds.
class LockProbe : public velmar::mdapi::VelmarMdSpi, public VelmarMdStatusSpi {
 public:
  explicit LockProbe(SessionCore& core) : core_(core) {}
  void OnRtnTickByTick(CVelmarTickByTick*) override { note("tick"); }
  void OnRtnMarketData(CVelmarMarketData* data) override {
    note("market data");
    marketData = data;
  }
  void OnFeedGap(int, int64_t, int64_t) override { note("gap"); }
  struct Held {
    std::string callback;
    bool sessionLock;
    bool feedLock;
  };
  std::vector<Held> held;
  CVelmarMarketData* marketData = nullptr;

 private:
  void note(const char* callback) {
    held.push_back({callback, core_.mutex_.isLockedByThisThread(),
                    core_.feedCallbackMutex_.isLockedByThisThread()});
  }
  SessionCore& core_;
};

}  // namespace

TEST_F(FeedGapTest, EachFeedCallbackHoldsTheLockItsSettingNames) {
  for (bool serialize : {true, false}) {
    SCOPED_TRACE(serialize ? "serialized" : "not serialized");
    MdApiImpl api;
    SessionCore& core = TestAccess::core(api);
    LockProbe probe(core);
    api.RegisterSpi(&probe);
    api.RegisterStatusSpi(&probe);
    core.serializeCallbacks_ = serialize;
    core.connected_ = true;
    core.loggedIn_ = true;
    core.snapshotsComplete_ = true;
    core.allTickExchange2_ = true;
    std::unique_ptr<CVelmarMarketData> record(new CVelmarMarketData());
    std::memset(record.get(), 0, sizeof *record);
    CVelmarMarketData* stored = record.get();
    TestAccess::putRecord(TestAccess::subscriptions(api), 2, "399001", std::move(record));
    namespace m = feed::szse_index;
    FeedDatagram index = FeedDatagram::shenzhen(feed::kSzseIndex);
    index.i64(m::OrigTime, 5).securityId(m::SecurityID, "399001").u64(m::TotalVolumeTrade, 700);

    Feed& f = TestAccess::feed(api);
    f.onFeedDatagram(order(1, 1).data());
    f.onFeedDatagram(order(1, 3).data());
    f.onFeedDatagram(index.data());

    ASSERT_EQ(probe.held.size(), 4u);
    const char* names[] = {"tick", "gap", "tick", "market data"};
    for (size_t i = 0; i < 4; ++i) {
      SCOPED_TRACE(names[i]);
      EXPECT_EQ(probe.held[i].callback, names[i]);
      EXPECT_EQ(probe.held[i].sessionLock, serialize);
      EXPECT_EQ(probe.held[i].feedLock, !serialize);
    }
    // The stored record is updated either way; without the session lock the
    // callback gets a copy that the front can't free under it.
    EXPECT_EQ(stored->TotalVolume, 7);
    ASSERT_NE(probe.marketData, nullptr);
    EXPECT_EQ(probe.marketData == stored, serialize);
    EXPECT_EQ(probe.marketData->TotalVolume, 7);
  }
}
