// The market-data records that a front hands out (field 33) for the
// simulated market, and the true book text that the console client shows
// beside the library's rebuilt book.
//
// A front sends one full record per instrument when a client subscribes; the
// feed's snapshots then update that record in the library. So that every
// later snapshot is applied, a record must never be ahead of what the feed
// has already sent: build it from the engine after the datagrams of the
// engine's latest step have gone out, and it carries the volume and the stamp
// of that moment, which the next snapshot meets or passes.
//
// Units of the records: prices in yuan (index values in points), quantities
// in shares, money in yuan; stamps in the feed's form of the exchange
// (YYYYMMDDHHMMSSmmm for Shenzhen, HHMMSSmmm for Shanghai).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "VelmarMdStruct.h"
#include "sim/MarketEngine.h"

namespace velmar {
namespace sim {

/// The record of a stock from the engine's book and day statistics. The best
/// queues list the single orders of the best levels (at most 50); the totals
/// and weighted averages cover the ten levels the book shows.
CVelmarMarketData stockRecord(const TrueBook& book);

/// The record of an index. `stamp` is its time in the exchange's form; an
/// index that has not been published yet stands at its previous close.
CVelmarMarketData indexRecord(const IndexValue& index, int64_t stamp);

/// The engine's clock, moved by `offsetMs`, as a stamp of the exchange.
int64_t engineStamp(const MarketEngine& engine, Exchange exchange, int64_t offsetMs = 0);

/// Records of every instrument of the engine, in its instrument order.
std::vector<CVelmarMarketData> engineRecords(const MarketEngine& engine);

/// Records kept up to date from the feed's own datagrams, for a recorded
/// session where no engine knows the state: a snapshot, index or volume
/// statistics message writes what it carries, as the library does with a
/// record it holds; an order or a trade only makes the instrument known.
/// A record that no snapshot has written yet has volume 0 and stamp 0, so
/// that the first snapshot a client sees is always applied.
class FeedRecords {
 public:
  /// Applies one datagram. False if it names no instrument (an unknown type
  /// or a datagram shorter than its layout).
  bool apply(const uint8_t* data, size_t length);
  /// Only makes the datagram's instrument known, with an empty record; for a
  /// first pass over a recording.
  bool learn(const uint8_t* data, size_t length);

  /// Ids of one exchange (1, 2) in the order they became known.
  std::vector<std::string> instruments(uint32_t exchange) const;
  /// The record, or null.
  const CVelmarMarketData* find(const std::string& id, uint32_t exchange) const;
  std::vector<CVelmarMarketData> records() const;
  size_t size() const { return order_.size(); }

 private:
  CVelmarMarketData& record(uint32_t exchange, const std::string& id, uint32_t securityType);
  bool handle(const uint8_t* data, size_t length, bool write);

  std::map<std::pair<uint32_t, std::string>, CVelmarMarketData> records_;
  std::vector<std::pair<uint32_t, std::string>> order_;
};

/// The engine's ten levels of a stock as text, for the console client:
///
///   vlmd-true-book 1
///   id 000001 exchange 2 time 20240102093012345 last 11.52 volume 23400 trades 51
///   bid 1 11.51 1200 3
///   ...
///   ask 1 11.53 800 2
///
/// One line per populated level, best first: side, level (1 is the best),
/// price in yuan, quantity in shares, number of orders.
std::string trueBookText(const TrueBook& book);

/// Writes the text to `path` through a file beside it that then replaces the
/// old one, so that a reader never sees half a file. False, with the reason,
/// if that fails (a reader holding the file open on Windows makes the
/// replacement fail; the next write tries again).
bool replaceFile(const std::string& path, const std::string& text, std::string* error);

}  // namespace sim
}  // namespace velmar
