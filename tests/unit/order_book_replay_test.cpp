// A real trading day of one Shenzhen instrument (300446, 2017-12-29), replayed
// through the book thread's step: orders, executions, cancellations and
// snapshots merged by time, each turned into the feed's body. The data lives
// beside the repository (shared/data/real) and is not part of it; the test is
// skipped where the folder is absent.
//
// What it checks is what the rules promise on real input: nothing faults, the
// gate lets through what it should, snapshots correct the book, and between
// snapshots the book built from orders and trades mostly agrees with the
// exchange's own best levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "support/BookHarness.h"
#include "utility/ByteOrder.h"

#ifndef VLMD_REAL_DATA_DIR
#define VLMD_REAL_DATA_DIR ""
#endif

namespace {

using namespace booktest;
namespace utility = velmar::utility;

const std::string kId = "300446";
const std::string kPrefix = std::string(VLMD_REAL_DATA_DIR) + "/szse-300446-20171229-";

/// The comma-separated fields of each data line (the header line is skipped).
/// A blank or a space is a missing value and reads as 0.
std::vector<std::vector<std::string>> readCsv(const std::string& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream in(path, std::ios::binary);
  std::string line;
  bool header = true;
  while (std::getline(in, line)) {
    if (header) {
      header = false;
      continue;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t comma; (comma = line.find(',', start)) != std::string::npos; start = comma + 1)
      fields.push_back(line.substr(start, comma - start));
    if (start < line.size()) fields.push_back(line.substr(start));
    if (!fields.empty()) rows.push_back(std::move(fields));
  }
  return rows;
}

int64_t num(const std::string& text) {
  return std::strtoll(text.c_str(), nullptr, 10);
}

struct Event {
  int64_t stamp;  // YYYYMMDDHHMMSSmmm, as the feed's time fields
  int order;      // for equal stamps: sequence number, snapshots first
  int32_t kind;
  Bytes body;
  // Snapshot only: the exchange's best levels, raw order-price units.
  int64_t bid1 = 0, ask1 = 0, volume = 0;
};

TEST(OrderBookReplay, RealShenzhenDay) {
  const auto orders = readCsv(kPrefix + "orders.csv");
  const auto trades = readCsv(kPrefix + "trades.csv");
  const auto snapshots = readCsv(kPrefix + "snapshots.csv");
  if (orders.empty() || trades.empty() || snapshots.empty())
    GTEST_SKIP() << "real market data not found under " << VLMD_REAL_DATA_DIR
                 << " (shared/data/real beside the repository)";

  std::vector<Event> events;
  for (const auto& r : orders) {
    ASSERT_GE(r.size(), 10u);
    const int64_t stamp = num(r[2]) * 1000000000 + num(r[3]);
    const char side = r[7] == "B" ? '1' : r[7] == "S" ? '2' : '?';
    events.push_back({stamp, static_cast<int>(num(r[5])), orderBookNode::kOrder,
                      orderBody(kId, num(r[5]), side, static_cast<uint64_t>(num(r[8])),
                                static_cast<uint64_t>(num(r[9])) * 100, stamp)});
  }
  for (const auto& r : trades) {
    ASSERT_GE(r.size(), 12u);
    const int64_t stamp = num(r[2]) * 1000000000 + num(r[3]);
    const char exec = r[5] == "C" ? '4' : 'F';
    events.push_back({stamp, static_cast<int>(num(r[4])), orderBookNode::kTrade,
                      tradeBody(kId, exec, num(r[11]), num(r[10]), static_cast<uint64_t>(num(r[8])),
                                static_cast<uint64_t>(num(r[9])) * 100, stamp, num(r[4]))});
  }
  for (const auto& r : snapshots) {
    ASSERT_GE(r.size(), 57u);
    Snapshot s;
    s.id = kId;
    s.origTime = num(r[2]) * 1000000000 + num(r[3]);
    s.lastPx = static_cast<uint32_t>(num(r[4]) * 100);
    s.numTrades = num(r[7]);
    s.totalVolumeTrade = static_cast<uint64_t>(num(r[11])) * 100;
    s.totalValueTrade = static_cast<uint64_t>(num(r[12])) * 10000;
    for (int i = 0; i < 10; ++i) {
      s.offerPx[i] = static_cast<uint32_t>(num(r[17 + i]) * 100);
      s.offerQty[i] = static_cast<uint64_t>(num(r[27 + i])) * 100;
      s.bidPx[i] = static_cast<uint32_t>(num(r[37 + i]) * 100);
      s.bidQty[i] = static_cast<uint64_t>(num(r[47 + i])) * 100;
    }
    Event e{s.origTime, -1, orderBookNode::kSnapshot, snapshotBody(s)};
    e.bid1 = num(r[37]);
    e.ask1 = num(r[17]);
    e.volume = num(r[11]);
    events.push_back(std::move(e));
  }
  std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
    return a.stamp != b.stamp ? a.stamp < b.stamp : a.order < b.order;
  });

  BookHarness h;
  h.add(kId);
  ASSERT_NE(nullptr, h.book(kId));
  const CVelmarOrderBook& book = *h.book(kId);
  int accepted[3] = {0, 0, 0}, refused[3] = {0, 0, 0};
  int compared = 0, bestBidAgrees = 0, bestAskAgrees = 0, volumeAgrees = 0;
  int64_t worstNegative = 0;
  for (const Event& e : events) {
    const bool continuous = e.stamp % 1000000000 >= 93000000 && e.stamp % 1000000000 < 145700000;
    if (e.kind == orderBookNode::kSnapshot && continuous && book.UpdateTime != 0) {
      // How far the book built since the last snapshot agrees with this one.
      ++compared;
      bestBidAgrees += book.Bid[0] == tick(static_cast<uint64_t>(e.bid1));
      bestAskAgrees += book.Ask[0] == tick(static_cast<uint64_t>(e.ask1));
      volumeAgrees += book.TotalVolume == e.volume;
    }
    if (h.feed(e.body, e.kind))
      ++accepted[e.kind];
    else
      ++refused[e.kind];
    for (int i = 0; i < 10; ++i)
      worstNegative = std::min({worstNegative, book.BidQty[i], book.AskQty[i]});
    if (e.kind == orderBookNode::kSnapshot && accepted[2] > 0 && e.stamp == book.UpdateTime) {
      ASSERT_EQ(tick(static_cast<uint64_t>(e.bid1)), book.Bid[0]);
      ASSERT_EQ(tick(static_cast<uint64_t>(e.ask1)), book.Ask[0]);
      ASSERT_EQ(e.volume, book.TotalVolume);
    }
  }
  std::printf(
      "replay: %zu events; accepted orders %d trades %d snapshots %d; refused %d %d %d\n"
      "        %d snapshots compared: best bid agrees %d, best ask %d, volume %d; lowest qty "
      "%lld\n",
      events.size(), accepted[1], accepted[0], accepted[2], refused[1], refused[0], refused[2],
      compared, bestBidAgrees, bestAskAgrees, volumeAgrees, static_cast<long long>(worstNegative));

  // Only the pre-open snapshots without a last price seed nothing.
  int withLastPx = 0;
  for (const Event& e : events)
    withLastPx += e.kind == orderBookNode::kSnapshot && utility::loadLE<uint32_t>(&e.body[61]) != 0;
  EXPECT_EQ(withLastPx, accepted[2]);
  // Orders are refused only when they share their millisecond with the order
  // or snapshot before them.
  EXPECT_GT(accepted[1], 9 * (accepted[1] + refused[1]) / 10);
  // Most trades share the millisecond of the order that caused them, and the
  // gate lets only the first message of a stamp through; the snapshots every
  // three seconds repair what that costs. The book built in between still
  // finds the exchange's best bid in most snapshots and its best ask in more
  // than half (74% and 59% on this day).
  EXPECT_GT(bestBidAgrees, compared * 7 / 10);
  EXPECT_GT(bestAskAgrees, compared * 55 / 100);
  EXPECT_EQ(960016, book.TotalVolume) << "the day's volume, from the closing snapshot";
  EXPECT_EQ(tick(221500), book.LastPrice);
}

}  // namespace
