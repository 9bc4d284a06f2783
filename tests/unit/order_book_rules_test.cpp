// The book update rules, driven through the rules alone (the gate has its own
// table in order_book_thread_test.cpp). Books are written and read as text:
// "price:qty:list" per level, see BookHarness.h.
#include <gtest/gtest.h>

#include <random>

#include "VLClientApi/OrderBookRules.h"
#include "support/BookHarness.h"

namespace {

using namespace booktest;
using velmar::mdapi::applyOrder;
using velmar::mdapi::applySnapshot;
using velmar::mdapi::applyTrade;
using velmar::mdapi::makeOrderBook;

const std::string kId = "000001";

// Ten buy levels from 10.00 down to 9.10, one share each.
#define FULL_SIDE "10:1:, 9.9:1:, 9.8:1:, 9.7:1:, 9.6:1:, 9.5:1:, 9.4:1:, 9.3:1:, 9.2:1:, 9.1:1:,"

struct OrderCase {
  const char* name;
  const char* bids;  // the book before, as sideText prints it
  const char* asks;
  char side;
  uint64_t price;
  uint64_t qty;
  const char* wantBids;
  const char* wantAsks;
};

TEST(OrderBookOrders, InsertEdges) {
  // clang-format off
  const OrderCase cases[] = {
      {"buy worse than all, an empty level exists: the first empty level",
       "10:1:,", "10.1:1:,", '1', 99000, 500, "10:1:, 9.9:5:,7,", "10.1:1:,"},
      {"sell worse than all, an empty level exists: not entered",
       "10:1:,", "10.1:1:,", '2', 102000, 500, "10:1:,", "10.1:1:,"},
      {"sell into an empty side: not entered", "10:1:,", "", '2', 101000, 500, "10:1:,", ""},
      {"buy into an empty side: level 0", "", "10.1:1:,", '1', 100000, 500, "10:5:,7,", "10.1:1:,"},
      {"sell joins its level", "", "10.1:1:,3, 10.2:2:,", '2', 102000, 500, "",
       "10.1:1:,3, 10.2:7:,7,"},
      {"sell between two levels", "", "10.1:1:,3, 10.2:2:,", '2', 101500, 500, "",
       "10.1:1:,3, 10.15:5:,7, 10.2:2:,"},
      {"full side: 9.55 inserted at level 5, 9.10 falls off", FULL_SIDE, "", '1', 95500, 100,
       "10:1:, 9.9:1:, 9.8:1:, 9.7:1:, 9.6:1:, 9.55:1:,7, 9.5:1:, 9.4:1:, 9.3:1:, 9.2:1:,", ""},
      {"full side: 9.05 not entered", FULL_SIDE, "", '1', 90500, 100, FULL_SIDE, ""},
      {"full side: 9.10 joins level 9", FULL_SIDE, "", '1', 91000, 100,
       "10:1:, 9.9:1:, 9.8:1:, 9.7:1:, 9.6:1:, 9.5:1:, 9.4:1:, 9.3:1:, 9.2:1:, 9.1:2:,7,", ""},
      {"full side: between levels 8 and 9 replaces level 9", FULL_SIDE, "", '1', 91500, 100,
       "10:1:, 9.9:1:, 9.8:1:, 9.7:1:, 9.6:1:, 9.5:1:, 9.4:1:, 9.3:1:, 9.2:1:, 9.15:1:,7,", ""},
      {"full sell side: better than level 0", "", "10.1:1:, 10.2:1:, 10.3:1:, 10.4:1:, 10.5:1:, "
       "10.6:1:, 10.7:1:, 10.8:1:, 10.9:1:, 11:1:,", '2', 100500, 100, "",
       "10.05:1:,7, 10.1:1:, 10.2:1:, 10.3:1:, 10.4:1:, 10.5:1:, 10.6:1:, 10.7:1:, 10.8:1:, 10.9:1:,"},
      {"buy at price 0 joins the first empty level", "10:1:, 9.9:2:,", "", '1', 0, 300,
       "10:1:, 9.9:2:, 0:3:,7,", ""},
      {"buy at price 0 on a full side: not entered", FULL_SIDE, "", '1', 0, 300, FULL_SIDE, ""},
      {"sell at price 0 on an empty side joins level 0", "", "", '2', 0, 300, "", "0:3:,7,"},
      {"sell at price 0 goes in front of a populated level 0", "", "10.1:1:, 10.2:2:,", '2', 0, 300,
       "", "0:3:,7, 10.1:1:, 10.2:2:,"},
      {"quantity 50 truncates to 0, the entry stays", "10:1:,", "", '1', 101000, 50,
       "10.1:0:,7, 10:1:,", ""},
      {"a buy through the best ask makes a crossed book", "10:1:,", "10.1:1:,", '1', 103000, 100,
       "10.3:1:,7, 10:1:,", "10.1:1:,"},
      {"unknown side G", "10:1:,", "10.1:1:,", 'G', 100000, 100, "10:1:,", "10.1:1:,"},
  };
  // clang-format on
  for (const OrderCase& c : cases) {
    SCOPED_TRACE(c.name);
    auto b = bookFrom(c.bids, c.asks);
    applyOrder(*b, orderBody(kId, 7, c.side, c.price, c.qty, 50).data());
    EXPECT_EQ(c.wantBids, bids(*b));
    EXPECT_EQ(c.wantAsks, asks(*b));
    // Every order of a known side moves the time, entered or not; an unknown
    // side leaves it, so a later message of the same stamp still passes.
    EXPECT_EQ(c.side == '1' || c.side == '2' ? 50 : 1, b->UpdateTime);
    EXPECT_EQ(0, b->TotalVolume + b->NumTrades) << "orders never touch the totals";
  }
}

TEST(OrderBookOrders, SnapshotAndOrderPricesMeetExactly) {
  // A snapshot's price (raw / 1000000) and an order's (raw / 10000) for the
  // same decimal must be the same double, or orders would never join levels
  // that a snapshot made. Swept over the whole range of snapshot prices.
  auto b = makeOrderBook(Id16(kId).bytes);
  Snapshot s;
  s.bidQty[0] = 100;
  Bytes snap = snapshotBody(s);
  Bytes order = orderBody(kId, 7, '1', 0, 100, 0);
  int misses = 0;
  for (uint64_t raw = 1; raw <= 42949672; raw += 301) {
    put32(snap, 121, static_cast<uint32_t>(raw * 100));
    applySnapshot(*b, snap.data());
    put64(order, 25, raw);
    applyOrder(*b, order.data());
    if (b->BidQty[0] != 2 && ++misses < 5) ADD_FAILURE() << "raw price " << raw << " did not join";
    b->BidOrders[0].assign(",");
    b->BidOrders[1].assign(",");
  }
  EXPECT_EQ(0, misses);
}

struct TradeCase {
  const char* name;
  const char* bids;  // the book before, as sideText prints it
  const char* asks;
  char exec;
  int64_t bidNo, offerNo;
  uint64_t lastPx, lastQty;
  const char* wantBids;
  const char* wantAsks;
};

TEST(OrderBookTrades, Edges) {
  // clang-format off
  const TradeCase cases[] = {
      {"crossed book: Bid[0] above p skips Ask[0], nothing else matches",
       "10.3:1:, 10:2:,", "10.1:3:, 10.2:4:,", 'F', 0, 0, 101000, 100,
       "10.3:1:, 10:2:,", "10.1:3:, 10.2:4:,"},
      {"price on both sides at different indexes: the scan meets Bid[2] first",
       "10.5:1:, 10.4:2:, 10.2:5:,", "10.3:3:, 10.2:4:,", 'F', 0, 0, 102000, 100,
       "10.5:1:, 10.4:2:, 10.2:4:,", "10.3:3:, 10.2:4:,"},
      {"price on both sides at one index: the buy side first",
       "10.2:5:,", "10.2:4:,", 'F', 0, 0, 102000, 100, "10.2:4:,", "10.2:4:,"},
      {"an execution deleting level 9 only clears it",
       "10:1:, 9.9:1:, 9.8:1:, 9.7:1:, 9.6:1:, 9.5:1:, 9.4:1:, 9.3:1:, 9.2:1:, 9.1:7:,5,", "", 'F',
       0, 0, 91000, 700, "10:1:, 9.9:1:, 9.8:1:, 9.7:1:, 9.6:1:, 9.5:1:, 9.4:1:, 9.3:1:, 9.2:1:,", ""},
      {"an execution moves the lists of the levels behind", "10:1:,1, 9.9:2:,2,3,", "", 'F', 0, 0,
       100000, 100, "9.9:2:,2,3,", ""},
      {"an execution never edits a list", "10:5:,1,2,", "", 'F', 0, 0, 100000, 100,
       "10:4:,1,2,", ""},
      {"an execution above the level's quantity leaves it negative", "", "10.1:2:,", 'F', 0, 0,
       101000, 500, "", "10.1:-3:,"},
      {"cancel: ,10, does not match in ,110,", "10:5:,110,", "", '4', 10, 0, 0, 100,
       "10:5:,110,", ""},
      {"cancel: ,10, matches behind ,110,", "10:5:,110,10,", "", '4', 10, 0, 0, 100,
       "10:4:,110,", ""},
      {"cancel from the middle of a list", "10:5:,1,22,333,", "", '4', 22, 0, 0, 100,
       "10:4:,1,333,", ""},
      {"cancel deleting a level drops the other orders it named", "10:3:,101,102, 9.9:2:,103,", "",
       '4', 101, 0, 0, 300, "9.9:2:,103,", ""},
      {"cancel with q above the level's quantity: negative, entry removed", "10:2:,7,8,", "",
       '4', 7, 0, 0, 500, "10:-3:,8,", ""},
      {"cancel on the sell side", "", "10.1:5:,9,", '4', 0, 9, 0, 100, "", "10.1:4:,"},
      {"cancel: the buy side wins when both numbers are set", "10:5:,9,", "10.1:5:,9,", '4', 9, 9,
       0, 100, "10:4:,", "10.1:5:,9,"},
      {"cancel: a buy number 0 or below falls to the sell number", "10:5:,9,", "10.1:5:,9,", '4',
       -9, 9, 0, 100, "10:5:,9,", "10.1:4:,"},
      {"cancel: both numbers 0 or below change nothing", "10:5:,9,", "10.1:5:,9,", '4', 0, -1, 0,
       100, "10:5:,9,", "10.1:5:,9,"},
      {"cancel ignores the price", "10:5:,9,", "", '4', 9, 0, 123400, 100, "10:4:,", ""},
      {"cancel: a number on two levels is taken off each once", "10:5:,9, 9.9:5:,4,9,9,", "", '4',
       9, 0, 0, 100, "10:4:, 9.9:4:,4,9,", ""},
      {"cancel: the level moved up by a delete is not searched again",
       "10:1:,9, 9.9:5:,9, 9.8:5:,9,", "", '4', 9, 0, 0, 100, "9.9:5:,9, 9.8:4:,", ""},
      {"unknown ExecType", "10:5:,9,", "", '2', 9, 0, 100000, 100, "10:5:,9,", ""},
  };
  // clang-format on
  for (const TradeCase& c : cases) {
    SCOPED_TRACE(c.name);
    auto b = bookFrom(c.bids, c.asks);
    b->LastPrice = 1;
    b->TotalVolume = 1000;
    b->TotalValue = 500;
    b->NumTrades = 5;
    applyTrade(*b, tradeBody(kId, c.exec, c.bidNo, c.offerNo, c.lastPx, c.lastQty, 50).data());
    EXPECT_EQ(c.wantBids, bids(*b));
    EXPECT_EQ(c.wantAsks, asks(*b));
    EXPECT_EQ(1, b->UpdateTime) << "trades never move the time";
    // An execution adds to the totals whether or not a level matched.
    const bool executed = c.exec == 'F';
    const int64_t q = static_cast<int64_t>(c.lastQty / 100);
    EXPECT_EQ(executed ? tick(c.lastPx) : 1, b->LastPrice);
    EXPECT_EQ(executed ? 1000 + q : 1000, b->TotalVolume);
    EXPECT_EQ(executed ? 500 + static_cast<double>(q) * tick(c.lastPx) : 500, b->TotalValue);
    EXPECT_EQ(executed ? 6 : 5, b->NumTrades);
  }
}

TEST(OrderBookTrades, CancellationMatchesAPlainSearch) {
  // The cancellation against a model written with std::string::find, on
  // random lists of numbers of mixed lengths that share digits.
  std::mt19937 rng(3);
  auto number = [&rng] {
    static const int64_t bases[] = {1, 10, 11, 101, 110, 1010, 7300000, 73000000};
    return bases[rng() % 8] + static_cast<int64_t>(rng() % 3);
  };
  for (int round = 0; round < 3000; ++round) {
    auto b = makeOrderBook(Id16(kId).bytes);
    b->UpdateTime = 1;
    for (int i = 0; i < 10; ++i) {
      b->Bid[i] = 10 - i;
      b->BidQty[i] = static_cast<int64_t>(rng() % 4);
      const int entries = static_cast<int>(rng() % 14);  // long enough for block search
      for (int k = 0; k < entries; ++k) b->BidOrders[i] += std::to_string(number()) + ",";
    }
    const int64_t victim = number();
    const int64_t q = static_cast<int64_t>(rng() % 3);
    // the model
    double px[10];
    int64_t qty[10];
    std::string lists[10];
    for (int i = 0; i < 10; ++i)
      px[i] = b->Bid[i], qty[i] = b->BidQty[i], lists[i] = b->BidOrders[i];
    const std::string needle = "," + std::to_string(victim) + ",";
    for (int i = 0; i < 10; ++i) {
      const size_t k = lists[i].find(needle);
      if (k == std::string::npos) continue;
      if (qty[i] == q) {
        for (int j = i; j < 9; ++j) px[j] = px[j + 1], qty[j] = qty[j + 1], lists[j] = lists[j + 1];
        px[9] = 0, qty[9] = 0, lists[9] = ",";
      } else {
        qty[i] -= q;
        lists[i].erase(k, needle.size() - 1);
      }
    }
    applyTrade(*b, tradeBody(kId, '4', victim, 0, 0, static_cast<uint64_t>(q) * 100, 2).data());
    ASSERT_EQ(sideText(px, qty, lists), bids(*b)) << "round " << round << ", cancel " << victim;
  }
}

TEST(OrderBookSnapshots, OverwritesLevelsAndTotalsButNotLists) {
  auto b = bookFrom("10:1:, 9.9:2:, 9.8:3:,7,", "10.1:4:,");
  b->NumTrades = 9;
  Snapshot s;
  s.origTime = 77;
  s.lastPx = 10050000;
  s.numTrades = 3;
  s.totalVolumeTrade = UINT64_MAX - 99;  // bits above 32, truncated by / 100
  s.totalValueTrade = 123456;
  s.bidPx[0] = 10050000;
  s.bidQty[0] = 199;
  s.offerPx[9] = UINT32_MAX;
  s.offerQty[9] = 100;
  applySnapshot(*b, snapshotBody(s).data());
  EXPECT_EQ("10.05:1:, 0:0:, 0:0:,7,", bids(*b)) << "lists stay at their indexes";
  EXPECT_EQ("0:0:, 0:0:, 0:0:, 0:0:, 0:0:, 0:0:, 0:0:, 0:0:, 0:0:, 4294.97:1:,", asks(*b));
  EXPECT_EQ(4294.967295, b->Ask[9]) << "prices are unsigned";
  EXPECT_EQ(10.05, b->LastPrice);
  EXPECT_EQ(static_cast<int64_t>(static_cast<double>(UINT64_MAX - 99) / 100.0), b->TotalVolume);
  EXPECT_EQ(12.3456, b->TotalValue);
  EXPECT_EQ(3, b->NumTrades);
  EXPECT_EQ(77, b->UpdateTime);
  EXPECT_EQ(2u, b->ExchangeID);
  EXPECT_STREQ("000001", b->SecurityID);
}

TEST(OrderBookLog, DebugLinesOfTheRules) {
  const std::string f = "velmar::mdapi::MdApiImpl::runOrderBook ";
  LogCapture capture(velmar::utility::Logger::DEBUG);
  auto b = bookFrom("10:1:, 9.9:3:,", "10.1:1:, 10.2:2:,");
  applyOrder(*b, orderBody(kId, 1, '1', 100500, 100, 2).data());  // buy insert: no line of its own
  applyOrder(*b, orderBody(kId, 2, '2', 101500, 100, 3).data());  // sell insert
  applyOrder(*b, orderBody(kId, 3, 'G', 1, 100, 4).data());       // unknown side
  applyTrade(*b, tradeBody(kId, 'F', 0, 0, 100500, 100, 5).data());  // bid 0 deleted
  applyTrade(*b, tradeBody(kId, 'F', 0, 0, 99000, 100, 5).data());   // bid 1 reduced
  applyTrade(*b, tradeBody(kId, 'F', 0, 0, 101000, 100, 5).data());  // ask 0 deleted
  applyTrade(*b, tradeBody(kId, 'F', 0, 0, 102000, 500, 5).data());  // ask 1 reduced below 0
  applyTrade(*b, tradeBody(kId, '4', 2, 0, 0, 100, 5).data());       // cancellation: silent
  applySnapshot(*b, snapshotBody(Snapshot()).data());
  const std::vector<std::string> expected = {
      f + "[Test]start to refresh orderbook by entrust!data->Side:1,data->Price:100500",
      f + "[Test]start to refresh orderbook by entrust!data->Side:2,data->Price:101500",
      f + "[Test]book->Ask[i] higher:1,old price:10.200000,insert new price:10.150000",
      f + "[Test]start to refresh orderbook by entrust!data->Side:G,data->Price:1",
      f + "[Test]Trade F book->Bid[i] delete:0,old price:10.050000,qty:1",
      f + "[Test]Trade F set book->Bid[j] 0:9",
      f + "[Test]Trade F book->Bid[i] reduce:1,price:9.900000,qty:1,new qty:2",
      f + "[Test]Trade F book->Ask[i] delete:0,old price:10.100000,qty:1",
      f + "[Test]Trade F set book->Ask[j] 0:9",
      f + "[Test]Trade F book->Ask[i] reduce:1,price:10.200000,qty:5,new qty:-3",
      f + "[Test]start to refresh orderbook  by md!",
  };
  EXPECT_EQ(expected, LogCapture::messages(f));
  for (const std::string& line : LogCapture::messages("DEBUG"))
    EXPECT_NE(std::string::npos, line.find(f)) << line;
}

}  // namespace
