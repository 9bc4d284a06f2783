// A session with a recording callback, books added as the front does, nodes
// fed to the book thread's step, and book sides as text.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "VLClientApi/LevelBookBuilder.h"
#include "VLClientApi/OrderBookRules.h"
#include "VLClientApi/OrderBooks.h"
#include "support/BookMessages.h"
#include "support/LogCapture.h"
#include "utility/Logging.h"

namespace booktest {

using velmar::mdapi::LevelBookBuilder;
using velmar::mdapi::OrderBooks;
using velmar::mdapi::SessionCore;
using velmar::mdapi::orderBookNode;

/// Counts OnRtnOrderBook and keeps the last pointer.
class BookSpi : public velmar::mdapi::VelmarMdSpi {
 public:
  void OnRtnOrderBook(CVelmarOrderBook* book) override {
    ++published;
    last = book;
  }
  int published = 0;
  CVelmarOrderBook* last = nullptr;
};

/// "price:qty:list" per level, joined by blanks; empty trailing levels left out.
inline std::string sideText(const double* px, const int64_t* qty, const std::string* lists) {
  int used = 10;
  while (used > 0 && px[used - 1] == 0 && qty[used - 1] == 0 && lists[used - 1] == ",") --used;
  std::string out;
  for (int i = 0; i < used; ++i) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%g:%lld:", px[i], static_cast<long long>(qty[i]));
    if (i > 0) out += ' ';
    out += buf;
    out += lists[i];
  }
  return out;
}
inline std::string bids(const CVelmarOrderBook& b) {
  return sideText(b.Bid, b.BidQty, b.BidOrders);
}
inline std::string asks(const CVelmarOrderBook& b) {
  return sideText(b.Ask, b.AskQty, b.AskOrders);
}

/// The exact double of a raw order or trade price.
inline double tick(uint64_t raw) {
  return static_cast<double>(raw) / 10000.0;
}

/// Sets the levels named in sideText's form; the others stay.
inline void setSide(double* px, int64_t* qty, std::string* lists, const std::string& text) {
  size_t pos = 0;
  for (int i = 0; i < 10 && pos < text.size(); ++i) {
    size_t end = text.find(' ', pos);
    if (end == std::string::npos) end = text.size();
    const std::string level = text.substr(pos, end - pos);
    const size_t c1 = level.find(':'), c2 = level.find(':', c1 + 1);
    px[i] = tick(static_cast<uint64_t>(std::llround(std::stod(level.substr(0, c1)) * 10000)));
    qty[i] = std::stoll(level.substr(c1 + 1, c2 - c1 - 1));
    lists[i] = level.substr(c2 + 1);
    pos = end + 1;
  }
}

/// A Seeded book (UpdateTime 1) with the given sides, in sideText's form.
inline std::unique_ptr<CVelmarOrderBook> bookFrom(const std::string& bidText,
                                                  const std::string& askText) {
  auto b = velmar::mdapi::makeOrderBook(Id16("000001").bytes);
  b->UpdateTime = 1;
  setSide(b->Bid, b->BidQty, b->BidOrders, bidText);
  setSide(b->Ask, b->AskQty, b->AskOrders, askText);
  return b;
}

/// The books part alone, with today's builder, on a session core of its own.
struct BookHarness {
  SessionCore core;
  velmar::mdapi::SessionCounters counters;
  OrderBooks books{core, counters, std::unique_ptr<LevelBookBuilder>(new LevelBookBuilder())};
  BookSpi spi;

  BookHarness() { core.spi_ = &spi; }

  void add(const std::string& id) {
    velmar::utility::MutexLockGuard lock(core.mutex_);
    books.addOrderBook(Id16(id).bytes);
  }
  void remove(const std::string& id) {
    velmar::utility::MutexLockGuard lock(core.mutex_);
    books.removeOrderBook(Id16(id).bytes);
  }
  /// The live book of an instrument, or null. The tests run one thread here,
  /// so the session lock is not taken.
  CVelmarOrderBook* book(const std::string& id = "000001") {
    return books.findBook(id);
  }
  /// The book thread's step for one body; true if the book was published.
  bool feed(const Bytes& body, int32_t kind) {
    const int before = spi.published;
    orderBookNode node;
    node.data = body.data();
    node.kind = kind;
    const bool result = books.handleBookNode(node);
    EXPECT_EQ(result ? 1 : 0, spi.published - before) << "one callback per accepted node";
    return result;
  }
  bool order(const Bytes& body) { return feed(body, orderBookNode::kOrder); }
  bool snapshot(const Bytes& body) { return feed(body, orderBookNode::kSnapshot); }
};

using velmar::testing::LogCapture;

}  // namespace booktest
