// A real trading day of one Shenzhen instrument (300446, 2017-12-29), replayed
// through the book thread's step: orders, executions, cancellations and
// snapshots merged by time, each turned into the feed's body. The data lives
// beside the repository (shared/data/real) and is not part of it; the test is
// skipped where the folder is absent.
//
// The rule tables pin each rule on its own; this checks that together, on
// real input, they build a book that mostly agrees with the exchange's own
// best levels between snapshots.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/BookHarness.h"

#ifndef VLMD_REAL_DATA_DIR
#define VLMD_REAL_DATA_DIR ""
#endif

namespace {

using namespace booktest;

const std::string kId = "300446";
const std::string kPrefix = std::string(VLMD_REAL_DATA_DIR) + "/szse-300446-20171229-";

/// The numbers of each data line (the header is skipped); a blank reads as 0.
std::vector<std::vector<int64_t>> readCsv(const std::string& path, size_t minFields) {
  std::vector<std::vector<int64_t>> rows;
  std::ifstream in(path, std::ios::binary);
  std::string line, field;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::vector<int64_t> row;
    // Side and execution type are letters: kept as their character code.
    while (std::getline(fields, field, ','))
      row.push_back(field.size() == 1 && std::isalpha(static_cast<unsigned char>(field[0]))
                        ? field[0]
                        : std::strtoll(field.c_str(), nullptr, 10));
    if (row.size() >= minFields) rows.push_back(std::move(row));
  }
  return rows;
}

struct Event {
  int64_t stamp;  // YYYYMMDDHHMMSSmmm, as the feed's time fields
  int64_t order;  // for equal stamps: sequence number, snapshots first
  int32_t kind;
  Bytes body;
  int64_t bid1 = 0, ask1 = 0;  // snapshots: the exchange's own best levels
};

TEST(OrderBookReplay, RealShenzhenDay) {
  const auto orders = readCsv(kPrefix + "orders.csv", 10);
  const auto trades = readCsv(kPrefix + "trades.csv", 12);
  const auto snapshots = readCsv(kPrefix + "snapshots.csv", 57);
  if (orders.empty() || trades.empty() || snapshots.empty())
    GTEST_SKIP() << "real market data not found under " << VLMD_REAL_DATA_DIR;

  std::vector<Event> events;
  for (const auto& r : orders) {
    const int64_t stamp = r[2] * 1000000000 + r[3];
    const char side = r[7] == 'B' ? '1' : r[7] == 'S' ? '2' : '?';
    events.push_back({stamp, r[5], orderBookNode::kOrder,
                      orderBody(kId, r[5], side, static_cast<uint64_t>(r[8]),
                                static_cast<uint64_t>(r[9]) * 100, stamp)});
  }
  for (const auto& r : trades) {
    const int64_t stamp = r[2] * 1000000000 + r[3];
    events.push_back(
        {stamp, r[4], orderBookNode::kTrade,
         tradeBody(kId, r[5] == 'C' ? '4' : 'F', r[11], r[10], static_cast<uint64_t>(r[8]),
                   static_cast<uint64_t>(r[9]) * 100, stamp, r[4])});
  }
  int withLastPx = 0;
  for (const auto& r : snapshots) {
    Snapshot s;
    s.id = kId;
    s.origTime = r[2] * 1000000000 + r[3];
    s.lastPx = static_cast<uint32_t>(r[4] * 100);
    s.numTrades = r[7];
    s.totalVolumeTrade = static_cast<uint64_t>(r[11]) * 100;
    s.totalValueTrade = static_cast<uint64_t>(r[12]) * 10000;
    for (int i = 0; i < 10; ++i) {
      s.offerPx[i] = static_cast<uint32_t>(r[17 + i] * 100);
      s.offerQty[i] = static_cast<uint64_t>(r[27 + i]) * 100;
      s.bidPx[i] = static_cast<uint32_t>(r[37 + i] * 100);
      s.bidQty[i] = static_cast<uint64_t>(r[47 + i]) * 100;
    }
    withLastPx += s.lastPx != 0;
    Event e{s.origTime, -1, orderBookNode::kSnapshot, snapshotBody(s)};
    e.bid1 = r[37];
    e.ask1 = r[17];
    events.push_back(std::move(e));
  }
  std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
    return a.stamp != b.stamp ? a.stamp < b.stamp : a.order < b.order;
  });

  BookHarness h;
  h.add(kId);
  const CVelmarOrderBook& book = *h.book(kId);
  int snapshotsAccepted = 0, compared = 0, bestBidAgrees = 0, bestAskAgrees = 0;
  for (const Event& e : events) {
    const int64_t clock = e.stamp % 1000000000;
    if (e.kind == orderBookNode::kSnapshot && clock >= 93000000 && clock < 145700000 &&
        book.UpdateTime != 0) {
      // How far the book built since the last snapshot agrees with this one.
      ++compared;
      bestBidAgrees += book.Bid[0] == tick(static_cast<uint64_t>(e.bid1));
      bestAskAgrees += book.Ask[0] == tick(static_cast<uint64_t>(e.ask1));
    }
    snapshotsAccepted += h.feed(e.body, e.kind) && e.kind == orderBookNode::kSnapshot;
  }
  // Only the pre-open snapshots without a last price seed nothing.
  EXPECT_EQ(withLastPx, snapshotsAccepted);
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
