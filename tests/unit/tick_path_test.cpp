// The feed's tick-by-tick path: the gate, the dispatch by message type, the
// subscription filter, the per-channel sequence check and every field of the
// delivered record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "VLClientApi/MdApiImpl.h"
#include "support/Datagram.h"
#include "support/LogCapture.h"
#include "support/RecordingSpi.h"
#include "support/TestAccess.h"

using velmar::mdapi::MdApiImpl;
using velmar::mdapi::TestAccess;
using velmar::testing::LogCapture;
using velmar::testing::RecordingSpi;
using velmar::testing::sseTrade;
using velmar::testing::szseOrder;
using velmar::testing::szseTrade;
using velmar::utility::Logger;

namespace {

class TickPath : public ::testing::Test {
 protected:
  TickPath() {
    api_.RegisterSpi(&spi_);
    core_.connected_ = true;
    core_.loggedIn_ = true;
  }
  void feed(const booktest::Bytes& d) { feed_.onFeedDatagram(d.data()); }
  void subscribe(const char* id) { TestAccess::subscriptions(api_).addTicks(id); }
  const std::unordered_map<uint32_t, int64_t>& channelSeq() {
    return TestAccess::channelSeq(feed_);
  }
  size_t count() const { return spi_.ticks.size(); }
  const CVelmarTickByTick& last() const { return spi_.ticks.back(); }

  LogCapture log_{Logger::INFO};
  RecordingSpi spi_;
  MdApiImpl api_;
  velmar::mdapi::SessionCore& core_ = TestAccess::core(api_);
  velmar::mdapi::Feed& feed_ = TestAccess::feed(api_);
};

/// The fields every tick fills alike; the id's bytes behind its NUL are zero.
void expectHead(const CVelmarTickByTick& r, uint32_t exchange, const char* id, int64_t seq,
                int64_t time, uint32_t tickType, uint32_t channel) {
  EXPECT_EQ(r.ExchangeID, exchange);
  EXPECT_STREQ(r.SecurityID, id);
  for (size_t i = std::strlen(id); i < sizeof r.SecurityID; ++i) EXPECT_EQ(r.SecurityID[i], 0);
  EXPECT_EQ(r.SeqNo, seq);
  EXPECT_EQ(r.ApplSeqNum, seq);
  EXPECT_EQ(r.TickTime, time);
  EXPECT_EQ(r.TickType, tickType);
  EXPECT_EQ(r.ChannelNo, channel);
  EXPECT_EQ(r.Padding1, 0u);
  EXPECT_EQ(r.Padding2, 0u);
}

}  // namespace

TEST_F(TickPath, ShenzhenOrderFillsEveryField) {
  core_.allTickExchange2_ = true;
  // A trade first fills the record's trade overlay, which the order must clear.
  feed(szseTrade(1, 1, "000009", 1, 100, 'F', 1, 5, 6));
  // Price and quantity pick values that show a wrong divisor or width: the
  // quantity has bits above 32, 12345678901 / 100 truncates to 123456789.
  // OrderTime stands at an odd offset.
  feed(szseOrder(0xBEEF, 0x0102030405060708LL, "000001", 100500, 12345678901ULL, '1',
                 20240102093015123LL, '2'));
  ASSERT_EQ(count(), 2u);
  const CVelmarTickByTick& r = last();
  expectHead(r, 2, "000001", 0x0102030405060708LL, 20240102093015123LL, 1, 0xBEEF);
  EXPECT_EQ(r.Price, 10.05);
  EXPECT_EQ(r.Qty, 123456789);
  EXPECT_EQ(r.Side, '1');
  EXPECT_EQ(r.OrdType, '2');
  // Bytes the order does not fill are zero, the trade overlay included.
  EXPECT_EQ(r.BidApplSeqNum, 0);
  EXPECT_EQ(r.OfferApplSeqNum, 0);
  EXPECT_EQ(r.TradeFlag, 0);
}

TEST_F(TickPath, ShenzhenTradeFillsEveryField) {
  core_.allTickExchange2_ = true;
  feed(szseTrade(7, 55, "300446", 250001, 199, 'F', 20171229093000000LL, 0x1122334455LL,
                 0x66778899AALL));
  ASSERT_EQ(count(), 1u);
  const CVelmarTickByTick& r = last();
  expectHead(r, 2, "300446", 55, 20171229093000000LL, 2, 7);
  EXPECT_EQ(r.Price, 25.0001);
  EXPECT_EQ(r.Qty, 1);           // 199 / 100 truncates
  EXPECT_EQ(r.TradeMoney, 7.0);  // the channel, as the field carries no money here
  EXPECT_EQ(r.BidApplSeqNum, 0x1122334455LL);
  EXPECT_EQ(r.OfferApplSeqNum, 0x66778899AALL);
  EXPECT_EQ(r.TradeFlag, 'F');
}

TEST_F(TickPath, ShanghaiTradeFillsEveryFieldWithASignedIndex) {
  core_.allTickExchange1_ = true;
  feed(sseTrade(0x01020304, 77, "600000", 10150, 2500999, 123456789012345ULL, 93000123,
                0xFFFFFFFF01ULL, 42, 'S'));
  ASSERT_EQ(count(), 1u);
  const CVelmarTickByTick& r = last();
  expectHead(r, 1, "600000", 77, 93000123, 2, 0x01020304);
  EXPECT_EQ(r.Price, 10.15);
  EXPECT_EQ(r.Qty, 2500);
  EXPECT_EQ(r.TradeMoney, 123456789012345.0 / 100000);
  EXPECT_EQ(r.BidApplSeqNum, static_cast<int64_t>(0xFFFFFFFF01ULL));
  EXPECT_EQ(r.OfferApplSeqNum, 42);
  EXPECT_EQ(r.TradeFlag, 'S');

  // TradeIndex is signed: a negative index sign-extends, and on a fresh
  // channel (stored 0) it is accepted.
  feed(sseTrade(9, -5, "600000", 1, 1000, 0, 1));
  ASSERT_EQ(count(), 2u);
  EXPECT_EQ(last().SeqNo, -5);
  EXPECT_EQ(channelSeq().at(9), -5);
}

TEST_F(TickPath, SequenceCheckPerChannel) {
  core_.allTickExchange2_ = true;
  struct Step {
    char kind;  // 'o' order, 't' trade
    uint16_t channel;
    int64_t seq;
    bool accepted;
  };
  const Step steps[] = {
      {'o', 1, 100, true},   // first of channel 1
      {'o', 1, 101, true},   // next
      {'t', 1, 105, true},   // a jump forward, orders and trades share the line
      {'o', 1, 103, false},  // older
      {'t', 1, 105, false},  // repeat
      {'o', 2, 3, true},     // another channel has its own line
      {'o', 1, 106, true},  {'t', 2, 2, false}, {'t', 2, 0, false},  // 0 after a number is older
      {'o', 4, 0, true},                                             // 0 on a fresh channel
      {'o', 4, 0, true},  // stored 0 still counts as fresh
  };
  size_t expected = 0;
  for (const Step& s : steps) {
    if (s.kind == 'o')
      feed(szseOrder(s.channel, s.seq, "000001", 1, 100, '1', 1));
    else
      feed(szseTrade(s.channel, s.seq, "000001", 1, 100, 'F', 1));
    if (s.accepted) ++expected;
    ASSERT_EQ(count(), expected) << s.kind << " " << s.channel << "/" << s.seq;
  }
  EXPECT_EQ(channelSeq().at(1), 106);
  EXPECT_EQ(channelSeq().at(2), 3);
}

TEST_F(TickPath, RefusalsAreLoggedForShenzhenOnlyAtInfo) {
  core_.allTickExchange1_ = true;
  core_.allTickExchange2_ = true;
  feed(szseOrder(3, 10, "000001", 1, 100, '1', 1));
  feed(szseOrder(3, 9, "000001", 1, 100, '1', 1));
  feed(szseTrade(3, 10, "000002", 1, 100, 'F', 1));
  feed(sseTrade(8, 10, "600000", 1, 1000, 0, 1));
  feed(sseTrade(8, 10, "600000", 1, 1000, 0, 1));
  const std::string text = LogCapture::text();
  EXPECT_TRUE(LogCapture::contains("INFO   "));
  EXPECT_TRUE(LogCapture::contains(
      "ORDER_LOST SecurityID: 000001 pre_seq 10 , Applseqnum 9 , ChannalNo: 3 - "))
      << text;
  EXPECT_TRUE(LogCapture::contains(
      "TRADE_LOST SecurityID: 000002 pre_seq 10, Applseqnum 10 , ChannalNo: 3 - "))
      << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);  // Shanghai is silent
  EXPECT_EQ(count(), 2u);
}

// Ids from the network go into the refusal lines as text, whatever bytes
// they hold.
TEST_F(TickPath, RefusalLinesWriteBinaryIdsAsText) {
  core_.allTickExchange2_ = true;
  feed(szseOrder(3, 10, "\x01\xff" "AB", 1, 100, '1', 1));
  feed(szseOrder(3, 9, "\x01\xff" "AB", 1, 100, '1', 1));
  EXPECT_TRUE(LogCapture::contains("ORDER_LOST SecurityID: \\x01\\xFFAB pre_seq 10 ,"))
      << LogCapture::text();
}

// The receive step as the receiver runs it: only the datagram's own bytes
// are written into the reused buffer. A datagram cut inside its sequence
// number reads zeros behind its end, never the previous datagram's bytes:
// here a Shanghai trade would have lent it "60" of "600000" as the top bytes
// of a number near 3.5e18, and every later tick of the channel would have
// been refused.
TEST_F(TickPath, ShortDatagramReadsZerosBehindItsEnd) {
  core_.allTickExchange1_ = true;
  core_.allTickExchange2_ = true;
  auto receive = [&](const booktest::Bytes& d, size_t length) {
    std::memcpy(feed_.receiveBuffer().data(), d.data(), length);
    feed_.onDatagramReceived(length);
  };
  receive(sseTrade(6, 0x7FFF0001, "600000", 1, 1000, 0, 1), 65);
  receive(szseOrder(9, 4, "000001", 1, 100, '1', 1), 8);  // type, channel, 2 bytes of 4
  ASSERT_EQ(count(), 2u);
  EXPECT_EQ(last().SeqNo, 4);
  EXPECT_EQ(last().SecurityID[0], '\0');
  receive(szseOrder(9, 5, "000001", 1, 100, '1', 1), 55);
  ASSERT_EQ(count(), 3u);
  EXPECT_EQ(last().SeqNo, 5);
  EXPECT_EQ(feed_.shortDatagrams(), 1u);

  // Whole datagrams of each kind are not short; one byte less is.
  const booktest::Bytes szseTradeBytes = szseTrade(9, 6, "000001", 1, 100, 'F', 1);
  booktest::Snapshot snapshot = booktest::tenLevelSnapshot("000001", 1);
  snapshot.bidQueue = 3;
  snapshot.offerQueue = 2;
  const booktest::Bytes snapshotBytes =
      booktest::datagram(booktest::kSnapshotType, booktest::snapshotBody(snapshot));
  const struct {
    const booktest::Bytes* bytes;
    size_t length;
  } whole[] = {{&szseTradeBytes, 70}, {&snapshotBytes, 4 + 380 + 4 * 5}};
  for (const auto& w : whole) {
    const uint64_t before = feed_.shortDatagrams();
    receive(*w.bytes, w.length);
    EXPECT_EQ(feed_.shortDatagrams(), before) << w.length;
    receive(*w.bytes, w.length - 1);
    EXPECT_EQ(feed_.shortDatagrams(), before + 1) << w.length;
  }
}

// Every channel number costs memory for the life of the process, so the
// number of channels is bounded: past it a tick of a channel not yet known is
// dropped and counted, while the known channels go on.
TEST_F(TickPath, ChannelStateIsBounded) {
  core_.allTickExchange2_ = true;
  const size_t limit = velmar::mdapi::Feed::kMaxChannels;
  for (size_t c = 0; c < limit; ++c) feed(szseOrder(static_cast<uint16_t>(c), 1, "000001", 1, 100, '1', 1));
  ASSERT_EQ(count(), limit);
  feed(szseOrder(static_cast<uint16_t>(limit), 1, "000001", 1, 100, '1', 1));
  feed(szseTrade(static_cast<uint16_t>(limit + 1), 1, "000001", 1, 100, 'F', 1));
  EXPECT_EQ(count(), limit);
  EXPECT_EQ(feed_.droppedUnknownChannel(), 2u);
  EXPECT_EQ(channelSeq().size(), limit);
  feed(szseOrder(0, 2, "000001", 1, 100, '1', 1));
  EXPECT_EQ(count(), limit + 1);
}

TEST_F(TickPath, SubscriptionFilterByExchangeFlagOrInstrument) {
  subscribe("000001");
  subscribe("600000");
  feed(szseOrder(1, 10, "000002", 1, 100, '1', 1));  // not subscribed
  EXPECT_EQ(count(), 0u);
  // An unsubscribed instrument neither tests nor advances the channel's number.
  EXPECT_EQ(channelSeq().count(1), 0u);
  feed(szseOrder(1, 5, "000001", 1, 100, '1', 1));
  feed(sseTrade(1, 6, "600000", 1, 1000, 0, 1));  // Shanghai channel 1 is the same line
  feed(szseTrade(1, 6, "000001", 1, 100, 'F', 1));
  EXPECT_EQ(count(), 2u);

  // The flag of one exchange opens that exchange only.
  core_.allTickExchange2_ = true;
  feed(szseOrder(2, 1, "000002", 1, 100, '1', 1));
  feed(sseTrade(3, 1, "600001", 1, 1000, 0, 1));
  EXPECT_EQ(count(), 3u);
  core_.allTickExchange1_ = true;
  feed(sseTrade(3, 1, "600001", 1, 1000, 0, 1));
  EXPECT_EQ(count(), 4u);

  // The key is the text up to the NUL, spaces kept.
  core_.allTickExchange2_ = false;
  feed(szseOrder(5, 1, "000001 ", 1, 100, '1', 1));
  EXPECT_EQ(count(), 4u);
}

TEST_F(TickPath, GateAndUnknownTypes) {
  core_.allTickExchange1_ = true;
  core_.allTickExchange2_ = true;
  core_.loggedIn_ = false;
  feed(szseOrder(1, 1, "000001", 1, 100, '1', 1));
  core_.loggedIn_ = true;
  core_.connected_ = false;
  feed(szseTrade(1, 1, "000001", 1, 100, 'F', 1));
  feed_.onFeedDatagram(nullptr);  // gate first: no log line either
  EXPECT_EQ(count(), 0u);
  EXPECT_TRUE(channelSeq().empty());
  EXPECT_EQ(LogCapture::text(), "");

  core_.connected_ = true;
  for (uint32_t type : {0u, 1u, 3200u, 3203u, 300190u, 300193u, 0xFFFFFFFFu})
    feed(booktest::datagram(type, booktest::Bytes(4996, '\xAB')));
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(LogCapture::text(), "");

  feed_.onFeedDatagram(nullptr);
  EXPECT_TRUE(LogCapture::contains("ERR    "));
  EXPECT_TRUE(LogCapture::contains("Recv empty msg - "));
}

TEST_F(TickPath, GarbageOfEveryTypeNeverCrashes) {
  // Random bytes behind each type, for an instrument with a record that every
  // message finds fresh: no count or field taken from the message may lead a
  // read outside the receive buffer (the sanitizers watch).
  core_.allTickExchange1_ = true;
  core_.allTickExchange2_ = true;
  core_.snapshotsComplete_ = true;
  for (int exchange : {1, 2})
    TestAccess::putRecord(TestAccess::subscriptions(api_), exchange, "000001",
                          std::unique_ptr<CVelmarMarketData>(new CVelmarMarketData()));
  Logger::setLogLevel(Logger::WARN);
  std::mt19937 rng(12345);
  const uint32_t types[] = {3113, 3201, 3202, 300111, 300191, 300192, 309011, 309111};
  for (int round = 0; round < 400; ++round) {
    const uint32_t type = types[round % 8];
    booktest::Bytes d = booktest::datagram(type, {});
    for (size_t i = 4; i < d.size(); ++i) d[i] = static_cast<char>(rng());
    booktest::putId(d, type < 300000 ? 8 : 17, "000001");
    TestAccess::subscriptions(api_).shanghaiRecord("000001")->TotalVolume = -1;
    TestAccess::subscriptions(api_).shenzhenRecord("000001")->TotalVolume = -1;
    feed(d);
  }
  EXPECT_GE(spi_.marketData.size(), 200u);
}
