// A synthetic two-exchange market that produces the feed.
//
// Each stock has a price-time-priority limit order book. A seeded generator
// sends random limit orders around a drifting fair price, some of them priced
// through the opposite side (they execute at the resting orders' prices), and
// cancels resting orders at random. Every few simulated seconds the engine
// publishes ten-level snapshots computed from its books, index values and
// Shenzhen volume statistics. Everything is integer arithmetic over one
// 64-bit generator, so a seed gives the same session on every platform.
//
// What goes on the wire:
//   Shenzhen stock  SzseOrderMsg for every order; SzseTradeMsg 'F' for every
//                   execution (LastPx the resting order's price, both order
//                   numbers set) and '4' for every cancellation (LastPx 0,
//                   LastQty the remaining quantity, only the cancelled side's
//                   number set); SzseSnapshotMsg and SzseVolumeStatMsg.
//   Shanghai stock  SseTradeMsg for every execution; SseSnapshotMsg. Orders
//                   and cancellations have no message of their own, they
//                   show in the snapshots (the Withdraw* fields).
//   Indices         SseIndexMsg / SzseIndexMsg, the equal-weighted price
//                   relative of the exchange's stocks times the previous
//                   close.
//
// Numbering. Shenzhen orders and trades of one channel share one ApplSeqNum
// line, 1, 2, 3, ...; an order's ApplSeqNum is its order number. Shanghai
// trades count TradeIndex 1, 2, 3, ... per TradeChannel, and Shanghai orders
// take their numbers from a separate counter of the channel. Receivers keep
// one sequence per channel number for both exchanges, so one channel number
// may not serve both (the constructor refuses it).
//
// Time. The clock counts simulated microseconds from the start of the
// session, which is `startMs` after midnight of `tradingDay`. Shenzhen stamps
// are YYYYMMDDHHMMSSmmm integers (the date rolls over at midnight); Shanghai
// stamps are HHMMSSmmm in a u32 (they restart at midnight). Stamps never go
// back on the wire. With `distinctStamps` (the default) every message of one
// instrument also gets a later millisecond than the one before, the clock
// moving on where needed: a receiver that drops a tick stamped at or before
// the last applied one, as the book rebuild does, then loses nothing. Without
// it, the executions of an order carry the order's own stamp, as exchanges
// do.
//
// Units inside the engine: stock prices in fen (0.01 yuan, the tick), index
// values in points x10000, quantities in shares (orders come in lots of
// 100), money in fen x shares.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "sim/Datagram.h"

namespace velmar {
namespace sim {

enum class Exchange : uint32_t { kShanghai = 1, kShenzhen = 2 };
enum class InstrumentKind { kStock, kIndex };

struct InstrumentConfig {
  Exchange exchange = Exchange::kShenzhen;
  std::string id;  // at most 7 characters
  InstrumentKind kind = InstrumentKind::kStock;
  /// Previous close: fen for a stock, points x10000 for an index.
  int64_t preClose = 0;
  /// Shenzhen ChannelNo (at most 65535) or Shanghai TradeChannel.
  uint32_t channel = 0;
  /// Daily price limit of a stock, percent of the previous close either way.
  int limitPercent = 10;
};

/// Shenzhen 000001, 002415 (channel 2011), 300446 (channel 2021, limit 20%),
/// index 399001; Shanghai 600000 (channel 1), 600519 (channel 2), index
/// 000001.
std::vector<InstrumentConfig> defaultInstruments();

struct MarketConfig {
  uint64_t seed = 1;
  std::vector<InstrumentConfig> instruments = defaultInstruments();
  int32_t tradingDay = 20240102;            // YYYYMMDD
  int64_t startMs = 9 * 3600000 + 1800000;  // 09:30:00.000
  /// Mean simulated time between two order or cancellation events.
  int64_t meanEventIntervalUs = 10000;
  /// Simulated time between snapshot rounds; 0 turns snapshots off.
  int64_t snapshotIntervalMs = 3000;
  /// Share of events that cancel, in percent, when a book holds twice
  /// `targetOrdersPerSide` orders; it scales with the book's size, which
  /// keeps books near that depth.
  int cancelPercent = 35;
  /// Share of new orders, in percent, priced through the opposite best.
  int marketablePercent = 20;
  int targetOrdersPerSide = 60;
  bool distinctStamps = true;
};

constexpr size_t kBookLevels = 10;

struct BookOrder {
  int64_t id = 0;   // ApplSeqNum (Shenzhen) or order number (Shanghai)
  int64_t qty = 0;  // remaining shares
};

struct BookLevel {
  int64_t price = 0;              // fen; 0 marks an empty level
  int64_t qty = 0;                // shares
  std::vector<BookOrder> orders;  // time priority, oldest first
};

/// The engine's own book of a stock and its day statistics.
struct TrueBook {
  Exchange exchange = Exchange::kShenzhen;
  std::string id;
  std::array<BookLevel, kBookLevels> bids;  // best first
  std::array<BookLevel, kBookLevels> asks;
  size_t bidLevels = 0;  // populated price levels, also beyond the ten
  size_t askLevels = 0;
  int64_t preClose = 0;  // fen, as all prices here
  int64_t upperLimit = 0;
  int64_t lowerLimit = 0;
  int64_t lastPrice = 0;  // 0 until the first trade, as open, high and low
  int64_t openPrice = 0;
  int64_t highPrice = 0;
  int64_t lowPrice = 0;
  int64_t volume = 0;  // shares
  int64_t value = 0;   // fen x shares
  int64_t numTrades = 0;
  /// Stamp of the instrument's latest message, in its exchange's format.
  int64_t updateTime = 0;
};

struct IndexValue {
  Exchange exchange = Exchange::kShenzhen;
  std::string id;
  int64_t preClose = 0;  // points x10000, as all values here
  int64_t last = 0;      // 0 until the first publication, as open, high, low
  int64_t open = 0;
  int64_t high = 0;
  int64_t low = 0;
  int64_t volume = 0;  // shares, summed over the exchange's stocks
  int64_t value = 0;   // fen x shares
  int64_t numTrades = 0;
};

/// YYYYMMDDHHMMSSmmm for `ms` milliseconds after midnight of `day` (YYYYMMDD);
/// `ms` may pass a day, the date then moves on by the calendar.
int64_t shenzhenStamp(int32_t day, int64_t ms);
/// HHMMSSmmm of the time of day of `ms`.
uint32_t shanghaiStamp(int64_t ms);

class MarketEngine {
 public:
  /// Throws std::invalid_argument for an unusable configuration: no stock,
  /// an id too long or given twice on one exchange, a non-positive previous
  /// close, a Shenzhen channel above 65535, or a channel number used on both
  /// exchanges.
  explicit MarketEngine(MarketConfig config = MarketConfig());
  ~MarketEngine();
  MarketEngine(const MarketEngine&) = delete;
  MarketEngine& operator=(const MarketEngine&) = delete;

  /// Moves the simulation on by one event, an order (with the executions
  /// it causes) or a cancellation, or by one round of snapshots when their
  /// time comes first, and returns the datagrams to publish, in order. A
  /// Shanghai order that rests without trading and a Shanghai cancellation
  /// have no message, so such a step returns none: an empty result doesn't
  /// mean the end. Not thread-safe, like the rest of the engine.
  std::vector<Datagram> step();

  /// The engine's book of a stock as it stands now, built on each call. The
  /// reference stays valid and unchanged until the next call of book() for
  /// the same stock. Throws
  /// std::out_of_range for an id that isn't a stock of that exchange.
  const TrueBook& book(Exchange exchange, const std::string& id) const;
  /// An index: its values as last published, its volume, value and trades
  /// as they stand now. Throws std::out_of_range.
  IndexValue index(Exchange exchange, const std::string& id) const;

  const std::vector<InstrumentConfig>& instruments() const { return config_.instruments; }
  const MarketConfig& config() const { return config_; }
  /// Simulated microseconds since the start of the session.
  int64_t nowUs() const { return nowUs_; }

 private:
  struct Stock;
  struct Index;
  struct Channel {
    int64_t lastSeq = 0;      // ApplSeqNum or TradeIndex
    int64_t lastOrderNo = 0;  // Shanghai order numbers
  };

  Stock& stock(Exchange exchange, const std::string& id) const;
  Channel& channel(const Stock& s);
  int64_t takeStamp(int64_t* lastStampMs);
  void emit(Bytes bytes, std::vector<Datagram>* out) const;

  void runEvent(std::vector<Datagram>* out);
  void moveFair(Stock& s);
  void newOrder(Stock& s, std::vector<Datagram>* out);
  void cancelOrder(Stock& s, std::vector<Datagram>* out);
  void match(Stock& s, char side, int64_t price, int64_t id, int64_t* qty, int64_t stampMs,
             std::vector<Datagram>* out);
  void rest(Stock& s, char side, int64_t price, int64_t id, int64_t qty, int64_t stampMs);
  void removeOrder(Stock& s, int64_t id);

  void publishSnapshots(std::vector<Datagram>* out);
  void publishStock(Stock& s, std::vector<Datagram>* out);
  void publishIndex(Index& x, std::vector<Datagram>* out);

  uint64_t next();
  uint64_t below(uint64_t n) { return n == 0 ? 0 : next() % n; }
  bool chance(int percent) { return static_cast<int>(below(100)) < percent; }

  MarketConfig config_;
  uint64_t rngState_;
  int64_t nowUs_ = 0;
  int64_t pendingEventUs_ = -1;
  int64_t nextSnapshotUs_ = 0;
  std::vector<std::unique_ptr<Stock>> stocks_;
  std::vector<std::unique_ptr<Index>> indices_;
  std::map<std::pair<Exchange, uint32_t>, Channel> channels_;
};

}  // namespace sim
}  // namespace velmar
