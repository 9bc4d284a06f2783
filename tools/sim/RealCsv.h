// Turns a vendor CSV export of one instrument's trading day into the feed's
// datagrams, so that real sessions can be replayed like recorded ones.
//
// An export is three files that share a prefix: <prefix>-orders.csv,
// <prefix>-trades.csv and <prefix>-snapshots.csv, comma-separated, one
// header line, every line ending in a comma, blanks for missing values. The
// columns, by position:
//   orders     code, SecurityID, date YYYYMMDD, time HHMMSSmmm, vendor
//              number, order number (ApplSeqNum), order type, side B/S,
//              price x10000, quantity in shares
//   trades     code, SecurityID, date, time, trade number (ApplSeqNum or
//              TradeIndex), kind (0 execution, C cancellation), unused,
//              aggressor B/S, price x10000, quantity, sell order number,
//              buy order number
//   snapshots  code, SecurityID, date, time, last, last volume, last value,
//              trades so far, IOPV, two flags, volume so far, value so far
//              (yuan), high, low, open, previous close, ask prices 1..10,
//              ask quantities 1..10, bid prices 1..10, bid quantities 1..10,
//              weighted average ask and bid price, total ask and bid
//              quantity, ...
// The exchange follows from the code's suffix (.SZ Shenzhen, .SH Shanghai).
//
// Shenzhen orders, trades and cancellations become SzseOrderMsg and
// SzseTradeMsg in ApplSeqNum order, snapshots SzseSnapshotMsg. Shanghai
// trades become SseTradeMsg and snapshots SseSnapshotMsg; Shanghai orders
// have no message of their own and are left out. A snapshot follows every
// tick stamped at or before its own time. The datagrams' times count from the
// first datagram's stamp. The export has no channel and no order queues: the
// channel is the caller's, and the snapshots carry empty queues.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/Datagram.h"

namespace velmar {
namespace sim {

struct CsvSession {
  std::string securityId;
  bool shenzhen = true;
  int64_t orders = 0;  // Shenzhen orders converted
  int64_t executions = 0;
  int64_t cancellations = 0;
  int64_t snapshots = 0;
  std::vector<Datagram> datagrams;
};

/// False, with the file and line in `error`, if a file can't be read or a
/// line doesn't parse.
bool convertRealCsv(const std::string& prefix, uint32_t channel, CsvSession* session,
                    std::string* error);

}  // namespace sim
}  // namespace velmar
